#include <functional>
#include <set>
#include <utility>

#include "EachAllocation.h"
#include "ManagerTest.h"
#include "tests/support/CapturedOutput.h"

/* Memory that is out at any point: an operation reports it, or does what it should all the same. */

namespace {

class WithoutMemory : public OneBoard
{
protected:
    void eachFails(const std::function<long(KvCErrorListPool&)>& operation) { eachAllocationFails(operation, seen); }

    CapturedOutput output;
    /** Every code that was reported. */
    std::set<KvUInt32> seen;
};

TEST_F(WithoutMemory, aScanFailsOrIsWhole)
{
    board.client->answer(1, scanResult(0, treeStream(Serial)));
    eachFails([this](KvCErrorListPool& reported) {
        KvCInventoryItem* tree = nullptr;
        const long result = manager.scan(reported, root, tree);
        EXPECT_EQ(result == 0, tree != nullptr);
        if (tree != nullptr) {
            KvCErrorListPool reading;
            const FailingAllocation none(0);
            EXPECT_EQ(Serial,
                      tree->getValue<KvUInt32>(reading, KvNInventoryIDs::HCN[Serial] / KvNInventoryIDs::SERIAL_NUMBER));
            EXPECT_STREQ("Main processor of the board",
                         tree->getValue<KvCString>(
                                 reading, KvNInventoryIDs::HCN[Serial] / KvNInventoryIDs::CPU / KvNInventoryIDs::NAME)
                             .c_str());
        }
        manager.deleteInventoryTree(tree);
        return result;
    });
}

TEST_F(WithoutMemory, aScanSaysWhichStepHadNone)
{
    KvCErrorListPool setup;
    KvCInventoryItem large(setup, KvNInventoryIDs::HCN[Serial], "HCN");
    const KvCString text(std::string(3000, 'x').c_str());  // more than a fresh buffer holds
    large.createParameter(setup, KvNInventoryIDs::NAME, text, "", true, 3, nullptr, nullptr, nullptr);
    KvCBuffer buffer(setup);
    KvCInventoryItemFactory factory(setup);
    factory.serialize(setup, &buffer, &large);
    board.client->answer(1, scanResult(0, Bytes(buffer.getStartPointer(), buffer.getWritePointer())));
    eachFails([this](KvCErrorListPool& reported) {
        KvCInventoryItem* tree = nullptr;
        const long result = manager.scan(reported, root, tree);
        manager.deleteInventoryTree(tree);
        return result;
    });
    for (const KvUInt32 code : {0x160081Du, 0x1600804u, 0x1600816u, 0x1600817u, 0x1600818u, 0x160080Bu})
        EXPECT_EQ(1u, seen.count(code)) << std::hex << code;
}

TEST_F(WithoutMemory, aScanThatNamesItsBoardsFailsOrIsWhole)
{
    board.client->answer(1, scanResult(0, treeStream(Serial)));
    eachFails([this](KvCErrorListPool& reported) {
        KvCInventoryItem* tree = nullptr;
        KvNInventoryManager::KvTBoardScans boards;
        const long result = manager.scanBoards(reported, root, tree, boards);
        EXPECT_EQ(result == 0, tree != nullptr);
        if (result == 0) {
            EXPECT_EQ(1u, boards.size());
            EXPECT_EQ(KvNInventoryManager::BoardComplete, boards[0].result);
        }
        manager.deleteInventoryTree(tree);
        return result;
    });
}

TEST_F(WithoutMemory, aReadFailsOrIsWhole)
{
    const char* text = "a text that needs memory of its own";
    board.client->answer(
        2, Record().number(0).opaque(parameterStream(KvCString(text), "a unit of some length")).opaque({}));
    eachFails([this, text](KvCErrorListPool& reported) {
        KvCErrorListPool setup;
        KvCInventoryParameter parameter(setup, KvNInventoryIDs::NAME, nullptr, KvCString(), "", false, 0);
        const long result = manager.readParameter(reported, root, address, parameter);
        if (result == 0) {
            const FailingAllocation none(0);
            EXPECT_STREQ(text, parameter.getValue<KvCString>(setup).c_str());
            EXPECT_STREQ("a unit of some length", parameter.getUnit());
            EXPECT_STREQ("MIN_VOLTAGE", parameter.getDescription());
        }
        return result;
    });
}

TEST_F(WithoutMemory, aReadHasNothingToDoWithWhatOthersReportMeanwhile)
{
    const char* text = "a text that needs memory of its own";
    board.client->answer(
        2, Record().number(0).opaque(parameterStream(KvCString(text), "a unit of some length")).opaque({}));
    KvCErrorListPool setup;
    KvCInventoryParameter parameter(setup, KvNInventoryIDs::NAME, nullptr, KvCString(), "", false, 0);
    KvCErrorListPool& master = KvCErrorManager::getMasterErrorList();
    const KvUInt32 before = master.getErrorCount();
    bool reporting = false;
    const auto reportMeanwhile = [](void* context, std::size_t) {
        bool& nested = *static_cast<bool*>(context);
        if (!std::exchange(nested, true)) {
            KvCErrorManager::getMasterErrorList().setError(0x1300816, 1, "somewhere else", nullptr);
            nested = false;
        }
        return true;
    };
    KvNAllocation::setHook(reportMeanwhile, &reporting);
    const long result = manager.readParameter(errors, root, address, parameter);
    KvNAllocation::setHook(nullptr, nullptr);
    EXPECT_EQ(0, result);
    EXPECT_EQ(Codes(), codesOf(errors));
    EXPECT_STREQ(text, parameter.getValue<KvCString>(setup).c_str());
    EXPECT_LT(before, master.getErrorCount());
    master.clear();
}

TEST_F(WithoutMemory, aParameterThatOnceFailedCanBeReadAgain)
{
    board.client->answer(
        2, Record().number(0).opaque(parameterStream(KvCString("a text that needs memory"), "V")).opaque({}));
    KvCErrorListPool setup;
    KvCInventoryParameter parameter(setup, KvNInventoryIDs::NAME, nullptr, KvCString(), "", false, 0);
    for (std::size_t number = 1;; ++number) {
        bool failed = false;
        {
            KvCErrorListPool reported;
            const FailingAllocation failing(number);
            static_cast<void>(manager.readParameter(reported, root, address, parameter));
            failed = failing.hasFailed();
        }
        if (!failed)
            break;
        EXPECT_EQ(0, manager.readParameter(errors, root, address, parameter)) << number;
        EXPECT_EQ(0u, parameter.getStateBit(KvCParam::ConstructionFailedBit));
    }
    EXPECT_EQ(Codes(), codesOf(errors));
    KvCErrorManager::getMasterErrorList().clear();
}

TEST_F(WithoutMemory, aWriteFailsOrSendsTheWholeValue)
{
    board.client->answer(3, Record().number(0).opaque({}));
    lockWith(1);
    const KvCInventoryAddress deep = address / address / address;  // longer than an address holds in itself
    const KvCString text("a text that needs memory of its own");
    std::size_t calls = 0;
    Bytes whole;
    const auto write = [&](KvCErrorListPool& reported) {
        const long result = manager.writeParameterValue(reported, root, deep, lock, text);
        if (board.client->calls().size() != calls) {
            calls = board.client->calls().size();
            if (whole.empty())
                whole = sent();
        }
        if (result == 0) {
            EXPECT_EQ(whole, sent());
        }
        return result;
    };
    EXPECT_EQ(0, write(errors));
    eachFails(write);
}

TEST_F(WithoutMemory, theBoardsOwnAddressIsWholeOrLeftAlone)
{
    Record reply;
    reply.number(6).number(12);
    for (KvUInt32 i = 0; i < 12; ++i)
        reply.number(i + 1);
    board.client->answer(4, reply.opaque({}));
    eachFails([this](KvCErrorListPool& reported) {
        KvCInventoryAddress own = KvNInventoryIDs::CPU;
        const long result = Probe::getLocalAddress(reported, *board.client, own);
        EXPECT_EQ(result == 0 ? 7u : 1u, own.getLength());
        return result;
    });
}

TEST_F(WithoutMemory, anEntryThatTheBoardReportsIsStillCounted)
{
    board.client->answer(6, Record().number(0).opaque(errorBlock(0x1600807)));
    lockWith(1);
    const FailingAllocation failing(2, true);  // the address is marshalled, and then there is no more
    EXPECT_EQ(-1, manager.apply(errors, root, address, lock));
    EXPECT_NE(0u, errors.getErrorCount());
}

}  // namespace
