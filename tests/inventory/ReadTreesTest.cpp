#include <gtest/gtest.h>

#include <random>
#include <string>
#include <thread>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "inventory/KvCInventoryItemFactory.h"
#include "tests/inventory/InventoryTest.h"

/*
 * The nodes and parameters of a tree that was read share memory with their neighbours. Whatever is done with them,
 * they must be as those that were made one by one.
 */

using namespace KvNInventoryIDs;

namespace {

constexpr KvUInt32 firstId = 900;

bool accept(KvCErrorListPool&, KvCInventoryItem*, KvCInventoryParameter*)
{
    return true;
}

void addParameters(KvCInventoryItem& item)
{
    KvCErrorListPool errors;
    auto add = [&, id = firstId](const auto& value, const char* description, const char* unit) mutable {
        item.addParameter(
            errors, THIS_NODE,
            new KvCInventoryParameter(errors, KvCInventoryAddress(id), description, value, unit, true, id));
        ++id;
    };
    add(KvUInt32{7}, "number", "V");
    add(KvCString("short"), "", "");
    add(KvCString("a text that does not fit into a string"), "long", "mA");
    add(KvCVersion("1.2.3b4p5"), "version", "longer unit");
    add(1.5, "double", nullptr);
    add(static_cast<short>(-3), std::string(200, 'd').c_str(), "");
    addValue(item, KvCInventoryAddress(98), KvUInt32{5});
    ASSERT_EQ(errors.getErrorCount(), 0u);
}

ItemOwner makeTree()
{
    KvCErrorListPool errors;
    ItemOwner root(new KvCInventoryItem(errors, ROOT, "ROOT"));
    addParameters(*root);
    for (const KvUInt32 index : {1U, 2U, 4U, 3U}) {
        addParameters(*root->addPath(errors, BOARD[index] / CPU));
        root->addPath(errors, BOARD[index] / RAM / BANK[2]);
        addParameters(*root->addPath(errors, BOARD[index] / RAM));
    }
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return root;
}

/** The stream of a tree, as the one value that tells all of it. */
std::string streamOf(KvCInventoryItem& root)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory(errors).serialize(errors, &buffer, &root);
    return std::string(buffer.getStartPointer(), buffer.getOccupiedSize());
}

ItemOwner readBack(KvCInventoryItem& tree)
{
    KvCErrorListPool errors;
    KvCBuffer buffer(errors);
    KvCInventoryItemFactory factory(errors);
    factory.serialize(errors, &buffer, &tree);
    KvCInventoryItem* root = nullptr;
    factory.deserialize(errors, root, &buffer);
    EXPECT_EQ(errors.getErrorCount(), 0u);
    return ItemOwner(root);
}

/** Trees, and lists that keep parameters beside them, changed by random steps that one seed repeats anywhere. */
class World
{
public:
    World(unsigned seed, std::vector<ItemOwner> trees) : m_random(seed), m_trees(std::move(trees))
    {
        for (int i = 0; i < 3; ++i)
            m_lists.push_back(std::make_unique<KvCParamList>(nullptr));
    }

    void step();
    /** All that can be seen. */
    std::string look();

private:
    unsigned number(unsigned limit) { return static_cast<unsigned>(m_random() % limit); }
    KvCInventoryItem* anyItem(bool isNoRoot = false);
    KvCInventoryParameter* anyParameter(KvCInventoryItem*& item);
    void moveItem();
    void changeParameter(KvCInventoryItem& item, KvCInventoryParameter& parameter);
    void changeLists(KvCInventoryItem& item, KvCInventoryParameter& parameter);

    std::mt19937 m_random;
    std::vector<ItemOwner> m_trees;
    std::vector<std::unique_ptr<KvCParamList>> m_lists;
    KvCErrorListPool m_errors;
};

KvCInventoryItem* World::anyItem(bool isNoRoot)
{
    if (m_trees.empty())
        return nullptr;
    KvCInventoryItem* item = m_trees[number(static_cast<unsigned>(m_trees.size()))].get();
    for (unsigned depth = number(4) + (isNoRoot ? 1 : 0); depth > 0; --depth) {
        KvCInventoryItem* child = item->getFirstSubItem();
        for (unsigned place = number(4); place > 0 && child != nullptr && child->getNext() != nullptr; --place)
            child = child->getNext();
        if (child == nullptr)
            break;
        item = child;
    }
    return isNoRoot && item->getParent() == nullptr ? nullptr : item;
}

KvCInventoryParameter* World::anyParameter(KvCInventoryItem*& item)
{
    item = anyItem();
    return item == nullptr ? nullptr : item->getParameterByOrdinalNumber(number(8));
}

void World::moveItem()
{
    KvCInventoryItem* const item = anyItem(true);
    KvCInventoryItem* const target = anyItem();
    if (item == nullptr || target == nullptr)
        return;
    const unsigned kind = number(6);
    if (kind == 0) {
        delete item;
    } else if (kind == 1) {
        std::thread([item] { delete item; }).join();
    } else if (kind == 2) {
        item->detach();
        m_trees.emplace_back(item);
    } else if (kind == 3) {
        item->setFriend(target);
    } else {
        // Into another tree or place; where there is one with its ID, it stays.
        for (const KvCInventoryItem* above = target; above != nullptr; above = above->getParent())
            if (above == item)
                return;
        item->setID(KvCInventoryAddress(item->getClassId(), number(3) + 1));
        if (kind == 4)
            target->attach(item);
        else
            target->addItem(THIS_NODE, item);
    }
}

void World::changeParameter(KvCInventoryItem& item, KvCInventoryParameter& parameter)
{
    KvCInventoryItem* other = nullptr;
    const KvUInt32 id = parameter.KvCParam::getId();
    switch (number(9)) {
        case 0:
            return item.removeParameter(m_errors, id);
        case 1:
            return parameter.setUnit(number(2) == 0 ? "u" : "a unit with a block of its own");
        case 2:
            return parameter.setValue<KvCString>(m_errors, KvCString("another text that needs a block"));
        case 3:
            return parameter.setDesignatedValue<KvUInt32>(m_errors, number(100));
        case 4:
            return parameter.setCheckWriteUpdateFunction(accept, accept, accept);
        case 5:
            return parameter.adoptDesignatedValue(m_errors);
        case 6:
            if (const KvCInventoryParameter* source = anyParameter(other))
                parameter = *source;
            return;
        case 7:
            if ((other = anyItem()) != nullptr) {
                auto* const copy = new KvCInventoryParameter(parameter);
                if (other->addParameter(m_errors, THIS_NODE, copy) == nullptr)
                    delete copy;
            }
            return;
        default:
            return item.apply(m_errors, &item);
    }
}

void World::changeLists(KvCInventoryItem& item, KvCInventoryParameter& parameter)
{
    KvCParamList& list = *m_lists[number(3)];
    KvCInventoryItem* const other = anyItem();
    switch (number(5)) {
        case 0:
            list.pushBack(&parameter);
            return;
        case 1:
            list.pushFront(&parameter);
            return;
        case 2:
            return list.clear();
        case 3:
            return list.removeListNode(list.getFront());
        default:
            // From its node into another one.
            if (other != nullptr && other != &item && other->getParameterById(parameter.KvCParam::getId()) == nullptr) {
                other->KvCComposite::addParameter(m_errors, &parameter);
                if (parameter.getAttachmentCounter() > 1)
                    item.getParameterList()->removeElement(&parameter);
            }
    }
}

void World::step()
{
    KvCInventoryItem* item = nullptr;
    const unsigned kind = number(12);
    if (kind < 3) {
        moveItem();
    } else if (kind < 10) {
        KvCInventoryParameter* const parameter = anyParameter(item);
        if (parameter != nullptr && kind < 7)
            changeParameter(*item, *parameter);
        else if (parameter != nullptr)
            changeLists(*item, *parameter);
    } else if (kind == 10 && m_trees.size() > 1) {
        KvCInventoryItem* source = m_trees.back().release();
        m_trees.pop_back();
        KvCInventoryItem* target = m_trees[number(static_cast<unsigned>(m_trees.size()))].get();
        KvCInventoryItem::mergeTree(m_errors, target, source, number(2));
    } else if (m_trees.size() > 1 && number(3) == 0) {
        m_trees.pop_back();
    }
}

std::string World::look()
{
    std::string all;
    for (const ItemOwner& tree : m_trees)
        all += streamOf(*tree) + tree->toString(m_errors, 0, 0).c_str();
    for (const auto& list : m_lists) {
        for (const auto* node = list->getFront(); node != nullptr; node = node->getNext()) {
            const auto* const parameter = KvCInventoryParameter::from(node->getContent());
            all += std::string(parameter->getAddress().toString().c_str()) + " " + parameter->getUnit() + " " +
                   parameter->getValueAsString(m_errors).c_str() + " " +
                   std::to_string(parameter->getAttachmentCounter()) + "\n";
        }
    }
    for (KvUInt32 i = 0; i < m_errors.getErrorCount(); ++i)
        all += entryOf(m_errors, i) + "\n";
    m_errors.clear();
    return all;
}

ItemOwner copyOf(const KvCInventoryItem& tree)
{
    KvCErrorListPool errors;
    KvCInventoryItem* copy = nullptr;
    tree.copyTree(errors, copy);
    return ItemOwner(copy);
}

}  // namespace

TEST(ReadTrees, AnyChangesOfTreesThatWereReadAreAsThoseOfTreesThatWereMade)
{
    const ItemOwner model = makeTree();
    for (unsigned seed = 0; seed < 60; ++seed) {
        std::vector<ItemOwner> made;
        std::vector<ItemOwner> read;
        for (int i = 0; i < 3; ++i) {
            made.push_back(copyOf(*model));
            read.push_back(readBack(*model));
        }
        World first(seed, std::move(made));
        World second(seed, std::move(read));
        for (int i = 0; i < 150; ++i) {
            first.step();
            second.step();
            if (i % 10 != 9)
                continue;
            ASSERT_EQ(first.look(), second.look()) << "seed " << seed << ", step " << i;
        }
        KvNReport::masterList().clear();
    }
}

TEST(ReadTrees, AParameterThatOutlivesItsItemHasNoParent)
{
    const ItemOwner model = makeTree();
    KvCErrorListPool errors;
    for (const bool isRead : {false, true}) {
        ItemOwner tree = isRead ? readBack(*model) : copyOf(*model);
        KvCParamList list(nullptr);
        KvCInventoryParameter* const kept = tree->getParameter(BOARD / CPU / KvCInventoryAddress(firstId));
        ASSERT_NE(kept, nullptr);
        list.pushBack(kept);
        tree.reset();
        EXPECT_EQ(kept->getParent(), nullptr);
        EXPECT_TRUE(kept->getAddress().isEmpty());
    }
}
