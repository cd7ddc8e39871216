#include "inventory/KvCInventoryParameter.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include "base/Report.h"
#include "tests/inventory/InventoryTest.h"
#include "tests/support/FailingAllocation.h"

using namespace KvNInventoryIDs;
using KvNInventoryParameter::KvNAuxPointer::EType;

namespace {

bool yes(KvCErrorListPool&, KvCInventoryItem*, KvCInventoryParameter*)
{
    return true;
}
bool no(KvCErrorListPool&, KvCInventoryItem*, KvCInventoryParameter*)
{
    return false;
}

constexpr auto aType = static_cast<EType>(7);

template <class T>
KvCInventoryParameter make(const T& value, KvCErrorListPool& errors)
{
    return KvCInventoryParameter(errors, SIZE, "SIZE", value, "B", true, 3);
}

/** Values of each of the twelve types. */
template <class T>
struct Sample
{
    static T first() { return static_cast<T>(11); }
    static T second() { return std::numeric_limits<T>::lowest(); }
};
template <>
struct Sample<KvCString>
{
    static KvCString first() { return KvCString("one"); }
    static KvCString second() { return KvCString("a text that is too long to stand inside"); }
};
template <>
struct Sample<KvCVersion>
{
    static KvCVersion first() { return KvCVersion(1, 2, 3, 0, 0, 0); }
    static KvCVersion second() { return KvCVersion(3, 1, 2, 2, 4, 7); }
};

template <class T>
class InventoryParameterOf : public testing::Test
{};

using Types = testing::Types<char, unsigned char, short, unsigned short, KvInt32, KvUInt32, KvInt64, KvUInt64, float,
                             double, KvCString, KvCVersion>;
TYPED_TEST_SUITE(InventoryParameterOf, Types);

}  // namespace

TYPED_TEST(InventoryParameterOf, HoldsAValueAndAProposedOne)
{
    using T = TypeParam;
    KvCErrorListPool errors;
    KvCInventoryParameter parameter = make(Sample<T>::first(), errors);
    EXPECT_EQ(parameter.getType(), KvNElement::Traits<T>::code);
    EXPECT_EQ(parameter.KvCParam::getType(), KvNElement::Traits<T>::code | 0x10000);
    EXPECT_STREQ(parameter.getTypeAsString().c_str(), KvNElement::Traits<T>::name);
    EXPECT_TRUE(parameter.template getValue<T>(errors) == Sample<T>::first());
    parameter.template setValue<T>(errors, Sample<T>::second());
    EXPECT_TRUE(parameter.template getValue<T>(errors) == Sample<T>::second());
    EXPECT_FALSE(parameter.isDesignatedValueValid());
    parameter.template setDesignatedValue<T>(errors, Sample<T>::second());
    parameter.template setDesignatedValue<T>(errors, Sample<T>::first());
    EXPECT_TRUE(parameter.isDesignatedValueValid());
    EXPECT_TRUE(parameter.template getDesignatedValue<T>(errors) == Sample<T>::first());
    EXPECT_TRUE(parameter.template getValue<T>(errors) == Sample<T>::second());
    parameter.adoptDesignatedValue(errors);
    EXPECT_FALSE(parameter.isDesignatedValueValid());
    EXPECT_TRUE(parameter.template getValue<T>(errors) == Sample<T>::first());
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TYPED_TEST(InventoryParameterOf, OfATypeWithoutValueStartsAtZero)
{
    using T = TypeParam;
    KvCErrorListPool errors;
    const KvCInventoryParameter parameter(errors, SIZE, "SIZE", KvNElement::Traits<T>::code);
    EXPECT_EQ(parameter.KvCParam::getType(), KvNElement::Traits<T>::code | 0x10000);
    EXPECT_TRUE(parameter.template getValue<T>(errors) == T());
    EXPECT_STREQ(parameter.getUnit(), "");
    EXPECT_FALSE(parameter.isModifiable());
    EXPECT_EQ(parameter.getRelevance(), 0u);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TYPED_TEST(InventoryParameterOf, RefusesOtherTypes)
{
    using T = TypeParam;
    using Other = std::conditional_t<std::is_same_v<T, double>, float, double>;
    KvCErrorListPool errors;
    KvCInventoryParameter parameter = make(Sample<T>::first(), errors);
    EXPECT_EQ(parameter.template getValue<Other>(errors), Other());
    EXPECT_EQ(codesOf(errors), (Codes{0x601001, 0x1301008}));
    EXPECT_EQ(entryOf(errors, 1), "KvCInventoryParameter::getValue: Cannot get value of parameter SIZE.");
    errors.clear();
    parameter.template setValue<Other>(errors, Other(1));
    EXPECT_EQ(codesOf(errors), (Codes{0x601001, 0x1301007}));
    EXPECT_EQ(entryOf(errors, 1), "KvCInventoryParameter::setValue: Cannot set value of parameter SIZE.");
    errors.clear();
    parameter.template setDesignatedValue<Other>(errors, Other(1));
    EXPECT_EQ(codesOf(errors), Codes{0x1301003});
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryParameter::setDesignatedValue: Internal error. Korvel Support information: Designated value "
              "for parameter SIZE has incompatible type.");
    EXPECT_FALSE(parameter.isDesignatedValueValid());
    errors.clear();
    parameter.template setDesignatedValue<T>(errors, Sample<T>::second());
    EXPECT_TRUE(parameter.isDesignatedValueValid());
    EXPECT_EQ(errors.getErrorCount(), 0u);
    EXPECT_TRUE(parameter.template getValue<T>(errors) == Sample<T>::first());
}

TEST(InventoryParameter, EverySpellingOfAnIntegerHasTheTypeOfItsWidth)
{
    KvCErrorListPool errors;
    EXPECT_EQ(make(static_cast<signed char>(-1), errors).getType(), 0x111u);
    EXPECT_EQ(make(1, errors).getType(), 0x114u);
    EXPECT_EQ(make(1u, errors).getType(), 0x124u);
    EXPECT_EQ(make(1LL, errors).getType(), 0x118u);
    EXPECT_EQ(make(1ULL, errors).getType(), 0x128u);
    EXPECT_EQ(make(1L, errors).getType(), sizeof(long) == 8 ? 0x118u : 0x114u);
    EXPECT_EQ(make(1UL, errors).getType(), sizeof(long) == 8 ? 0x128u : 0x124u);
    EXPECT_EQ(make(-5, errors).getValue<int>(errors), -5);
    EXPECT_EQ(make(static_cast<signed char>(-1), errors).getValue<char>(errors), static_cast<char>(-1));
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST(InventoryParameter, TakesItsPropertiesFromTheConstructor)
{
    KvCErrorListPool errors;
    const KvCInventoryParameter parameter(errors, VOLTAGE_MAX, "own text", 1.5, "V", true, 42);
    EXPECT_EQ(parameter.getID(), VOLTAGE_MAX);
    EXPECT_EQ(parameter.getId(), 74u);
    EXPECT_STREQ(parameter.getDescription(), "own text");
    EXPECT_STREQ(parameter.getUnit(), "V");
    EXPECT_TRUE(parameter.isModifiable());
    EXPECT_EQ(parameter.getRelevance(), 42u);
    EXPECT_EQ(parameter.getParent(), nullptr);
    EXPECT_TRUE(parameter.getAddress().isEmpty());
    EXPECT_EQ(parameter.getCheckFunction(), nullptr);
    EXPECT_EQ(parameter.getWriteFunction(), nullptr);
    EXPECT_EQ(parameter.getUpdateFunction(), nullptr);
    EType type = aType;
    EXPECT_EQ(parameter.getAuxPointer(type), nullptr);
    EXPECT_EQ(type, 0u);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST(InventoryParameter, ItsPropertiesCanBeChanged)
{
    KvCErrorListPool errors;
    KvCInventoryParameter parameter = make(1, errors);
    parameter.setUnit("a unit of more than fifteen characters");
    EXPECT_STREQ(parameter.getUnit(), "a unit of more than fifteen characters");
    parameter.setUnit(nullptr);
    EXPECT_STREQ(parameter.getUnit(), "");
    parameter.setModifiableFlag(false);
    EXPECT_FALSE(parameter.isModifiable());
    parameter.setRelevance(4294967295u);
    EXPECT_EQ(parameter.getRelevance(), 4294967295u);
    parameter.setCheckWriteUpdateFunction(yes, no, yes);
    EXPECT_EQ(parameter.getCheckFunction(), yes);
    EXPECT_EQ(parameter.getWriteFunction(), no);
    EXPECT_EQ(parameter.getUpdateFunction(), yes);
    parameter.setAuxPointer(aType, &parameter);
    EType type{};
    EXPECT_EQ(parameter.getAuxPointer(type), &parameter);
    EXPECT_EQ(type, aType);
    parameter.setCheckWriteUpdateFunction(nullptr, nullptr, nullptr);
    EXPECT_EQ(parameter.getWriteFunction(), nullptr);
    EXPECT_EQ(parameter.getAuxPointer(type), &parameter);
    parameter.setAuxPointer(EType(), nullptr);
    EXPECT_EQ(parameter.getAuxPointer(type), nullptr);
}

TEST(InventoryParameter, HoldsLittleMemory)
{
    EXPECT_LE(sizeof(KvCInventoryParameter), 128u);
    KvCErrorListPool errors;
    const FailingAllocation counted(0);
    auto* parameter = new (errors) KvCInventoryParameter(errors, SIZE, "SIZE", KvCString("short"), "MB", false, 0);
    EXPECT_EQ(counted.count(), 1u);
    EXPECT_EQ(parameter->getDescription(), KvNInventoryIDs::Map.get(SIZE.getCategory()));
    delete parameter;
}

TEST(InventoryParameter, AnIdOfTwoElementsIsReportedAndTheParameterExists)
{
    KvCErrorListPool errors;
    const KvCInventoryParameter named(errors, CPU / SIZE, "both", 5, nullptr, false, 0);
    EXPECT_EQ(codesOf(errors), Codes{0x1301000});
    EXPECT_EQ(
        entryOf(errors, 0),
        "KvCInventoryParameter::init: Internal error. Korvel Support information: Initializing parameter both: ID "
        "has not exactly one element.");
    EXPECT_EQ(named.getID(), CPU);
    EXPECT_EQ(named.getValue<int>(errors), 5);
    errors.clear();
    const KvCInventoryParameter unnamed(errors, KvCInventoryAddress(), nullptr, 0x124);
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryParameter::init: Internal error. Korvel Support information: Initializing parameter not "
              "specified: ID has not exactly one element.");
    EXPECT_EQ(unnamed.getId(), 0u);
    EXPECT_EQ(unnamed.getDescription(), nullptr);
}

TEST(InventoryParameter, TheDefaultOneHasIdOneAndNoType)
{
    KvCErrorListPool& master = KvNReport::masterList();
    master.clear();
    const KvCInventoryParameter parameter;
    EXPECT_EQ(codesOf(master), Codes{0x601001});
    master.clear();
    EXPECT_EQ(parameter.getId(), 1u);
    EXPECT_EQ(parameter.KvCParam::getType(), 0x10000u);
    EXPECT_EQ(parameter.getDescription(), nullptr);
    EXPECT_STREQ(parameter.getUnit(), "");
    EXPECT_FALSE(parameter.isModifiable());
    EXPECT_EQ(parameter.getRelevance(), 0u);
    EXPECT_STREQ(parameter.getTypeAsString().c_str(), "");
}

TEST(InventoryParameter, OfAnUnknownTypeIsReportedAndHasNoTypeName)
{
    KvCErrorListPool errors;
    KvCInventoryParameter parameter(errors, SIZE, "SIZE", 0x999);
    EXPECT_EQ(codesOf(errors), Codes{0x601001});
    EXPECT_EQ(parameter.getType(), 0x999u);
    EXPECT_STREQ(parameter.getTypeAsString().c_str(), "");
    EXPECT_STREQ(KvCInventoryParameter(errors, SIZE, "SIZE", 0x1124).getTypeAsString().c_str(), "");
}

TEST(InventoryParameter, ADesignatedValueThatIsNotThere)
{
    KvCErrorListPool errors;
    KvCInventoryParameter number = make(5, errors);
    EXPECT_EQ(number.getDesignatedValue<int>(errors), 0);
    EXPECT_EQ(codesOf(errors), Codes{0x1301001});
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryParameter::getDesignatedValue: Internal error. Korvel Support information: No designated "
              "value specified.");
    EXPECT_EQ(number.getDesignatedValue<KvCString>(errors).length(), 0u);
    EXPECT_EQ(number.getDesignatedValue<KvCVersion>(errors), KvCVersion());
    errors.clear();
    number.adoptDesignatedValue(errors);
    EXPECT_EQ(codesOf(errors), Codes{0x1301004});
    EXPECT_EQ(entryOf(errors, 0),
              "KvCInventoryParameter::adoptDesignatedValue: Internal error. Korvel Support information: No designated "
              "value defined for parameter SIZE.");
    number.deleteDesignatedValue();
    EXPECT_FALSE(number.isDesignatedValueValid());
}

TEST(InventoryParameter, ADesignatedValueOfAnotherTypeIsReportedByItsOwnId)
{
    KvCErrorListPool errors;
    KvCInventoryParameter parameter = make(5, errors);
    parameter.setDesignatedValue<int>(errors, 6);
    EXPECT_EQ(parameter.getDesignatedValue<double>(errors), 0.0);
    EXPECT_EQ(codesOf(errors), (Codes{0x601001, 0x1301008}));
    EXPECT_EQ(entryOf(errors, 1), "KvCInventoryParameter::getValue: Cannot get value of parameter DUMMY.");
    errors.clear();
    parameter.setDesignatedValue<double>(errors, 1.0);
    EXPECT_EQ(codesOf(errors), (Codes{0x601001, 0x1301007}));
    EXPECT_EQ(entryOf(errors, 1), "KvCInventoryParameter::setValue: Cannot set value of parameter DUMMY.");
    EXPECT_EQ(parameter.getDesignatedValue<int>(errors), 6);
}

TEST(InventoryParameter, AParameterOfAnArrayTypeHasNothingToAdopt)
{
    KvCErrorListPool errors;
    KvCInventoryParameter parameter(errors, SIZE, "SIZE", 0x1124);
    parameter.setDesignatedValue<int>(errors, 6);
    EXPECT_EQ(codesOf(errors), Codes{0x1301003});
}

TEST(InventoryParameter, AdoptionThatCannotReadOrSetKeepsTheDesignatedValue)
{
    // The type changes below the designated value: by assignment, which drops it; so it is proposed again in between.
    KvCErrorListPool errors;
    KvCInventoryParameter parameter = make(KvCString("old"), errors);
    parameter.setDesignatedValue<KvCString>(errors, "a text that is too long to stand inside");
    {
        const FailingAllocation first(1);
        parameter.adoptDesignatedValue(errors);
    }
    EXPECT_EQ(errors.getErrorCode(errors.getErrorCount() - 1), 0x1301006u);
    EXPECT_EQ(
        entryOf(errors, errors.getErrorCount() - 1),
        "KvCInventoryParameter::adoptDesignatedValue: Internal error. Korvel Support information: Cannot retrieve "
        "designated value for parameter SIZE.");
    EXPECT_TRUE(parameter.isDesignatedValueValid());
    KvNReport::masterList().clear();
    errors.clear();
    parameter.adoptDesignatedValue(errors);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    EXPECT_STREQ(parameter.getValue<KvCString>(errors).c_str(), "a text that is too long to stand inside");
}

TEST(InventoryParameter, CopiesHaveHooksAndAuxiliaryPointerButNoDesignatedValue)
{
    KvCErrorListPool errors;
    KvCInventoryParameter original = make(KvCString("value"), errors);
    original.setCheckWriteUpdateFunction(yes, no, yes);
    original.setAuxPointer(aType, &errors);
    original.setDesignatedValue<KvCString>(errors, "new");
    const KvCInventoryParameter copy(original);
    EXPECT_EQ(copy.getID(), SIZE);
    EXPECT_STREQ(copy.getDescription(), "SIZE");
    EXPECT_STREQ(copy.getUnit(), "B");
    EXPECT_TRUE(copy.isModifiable());
    EXPECT_EQ(copy.getRelevance(), 3u);
    EXPECT_STREQ(copy.getValue<KvCString>(errors).c_str(), "value");
    EXPECT_EQ(copy.getCheckFunction(), yes);
    EXPECT_EQ(copy.getWriteFunction(), no);
    EXPECT_EQ(copy.getUpdateFunction(), yes);
    EType type{};
    EXPECT_EQ(copy.getAuxPointer(type), &errors);
    EXPECT_EQ(type, aType);
    EXPECT_FALSE(copy.isDesignatedValueValid());
    EXPECT_TRUE(original.isDesignatedValueValid());
}

TEST(InventoryParameter, AssignmentDropsDesignatedValueAndAuxiliaryPointer)
{
    KvCErrorListPool errors;
    KvCInventoryParameter original = make(7, errors);
    original.setCheckWriteUpdateFunction(yes, no, yes);
    original.setAuxPointer(aType, &errors);
    original.setDesignatedValue<int>(errors, 8);
    KvCInventoryParameter target(errors, CPU, "CPU", 1.0, "x", false, 0);
    target.setDesignatedValue<double>(errors, 2.0);
    target.setAuxPointer(aType, &target);
    target = original;
    EXPECT_EQ(target.getID(), SIZE);
    EXPECT_EQ(target.getValue<int>(errors), 7);
    EXPECT_STREQ(target.getUnit(), "B");
    EXPECT_EQ(target.getRelevance(), 3u);
    EXPECT_EQ(target.getWriteFunction(), no);
    EXPECT_FALSE(target.isDesignatedValueValid());
    EType type = aType;
    EXPECT_EQ(target.getAuxPointer(type), nullptr);
    EXPECT_EQ(type, 0u);
    const KvCInventoryParameter& self = original;
    original = self;
    EXPECT_TRUE(original.isDesignatedValueValid());
    EXPECT_EQ(original.getAuxPointer(type), &errors);
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST(InventoryParameter, MessagesNameTheAddressOfAnAttachedParameter)
{
    KvCErrorListPool errors;
    const ItemOwner root = makeItem(ROOT);
    KvCInventoryParameter* parameter = addValue(*root, CPU[2] / SIZE, 5);
    ASSERT_NE(parameter, nullptr);
    EXPECT_EQ(parameter->getAddress(), ROOT / CPU[2] / SIZE);
    EXPECT_EQ(parameter->getParent(), root->getFirstSubItem());
    parameter->getValue<double>(errors);
    EXPECT_EQ(entryOf(errors, 1), "KvCInventoryParameter::getValue: Cannot get value of parameter ROOT/CPU[2]/SIZE.");
}

TEST(InventoryParameter, OutOfMemoryIsReportedByEachOperation)
{
    KvCErrorListPool errors;
    KvCErrorListPool& master = KvNReport::masterList();
    KvCInventoryParameter parameter = make(5, errors);
    for (std::size_t n = 1;; ++n) {
        errors.clear();
        bool hasFailed;
        {
            const FailingAllocation one(n);
            parameter.setDesignatedValue<int>(errors, 6);
            hasFailed = one.hasFailed();
        }
        if (!hasFailed)
            break;
        EXPECT_EQ(codesOf(errors), Codes{0x1301002});
        EXPECT_FALSE(parameter.isDesignatedValueValid());
    }
    EXPECT_TRUE(parameter.isDesignatedValueValid());

    KvCInventoryParameter bare = make(5, errors);
    master.clear();
    {
        const FailingAllocation all(1, true);
        bare.setCheckWriteUpdateFunction(yes, yes, yes);
        bare.setAuxPointer(aType, &bare);
    }
    EXPECT_EQ(master.getErrorCount(), 2u);
    EXPECT_EQ(master.getErrorCode(0), 0x601002u);
    EXPECT_EQ(bare.getCheckFunction(), nullptr);
    EType type{};
    EXPECT_EQ(bare.getAuxPointer(type), nullptr);
    master.clear();
    {
        const FailingAllocation all(1, true);
        const KvCInventoryParameter unit(errors, SIZE, "SIZE", 1, "a unit that is too long to stand inside", false, 0);
        EXPECT_STREQ(unit.getUnit(), "");
    }
    EXPECT_EQ(codesOf(errors), Codes{0x601002});
    parameter.setCheckWriteUpdateFunction(yes, no, yes);
    {
        const FailingAllocation all(1, true);
        const KvCInventoryParameter copy(parameter);
        EXPECT_NE(copy.getStateBit(KvCParam::ConstructionFailedBit), 0u);
    }
    master.clear();
}

TEST(InventoryParameterLiteral, ATextIsAString)
{
    KvCErrorListPool errors;
    const KvCInventoryParameter parameter(errors, NAME, "NAME", "text", "unit", true, 3);
    EXPECT_EQ(parameter.getType(), 0x2000u);
    EXPECT_EQ(parameter.getValue<KvCString>(errors), KvCString("text"));
    EXPECT_STREQ(parameter.getUnit(), "unit");
    EXPECT_EQ(errors.getErrorCount(), 0u);
}

TEST(InventoryParameterClass, IsToldOfAnyParameter)
{
    KvCErrorListPool errors;
    KvCInventoryParameter own(errors, NAME, "NAME", 1u, "", false, 0);
    KvCParam other(errors, 1, "other", 0x2000);
    KvCParam* const asBase = &own;
    EXPECT_EQ(KvCInventoryParameter::from(asBase), &own);
    EXPECT_EQ(KvCInventoryParameter::from(static_cast<const KvCParam*>(asBase)), &own);
    EXPECT_EQ(KvCInventoryParameter::from(&other), nullptr);
    EXPECT_EQ(KvCInventoryParameter::from(static_cast<KvCParam*>(nullptr)), nullptr);
}
