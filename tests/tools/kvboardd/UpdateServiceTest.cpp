#include <gtest/gtest.h>

#include "ServicesFixture.h"
#include "UpdateSupport.h"
#include "tests/support/FailingAllocation.h"

/* The procedures of a firmware update, byte by byte. */

namespace {

enum Procedure : KvUInt32
{
    UpdateBoard = 7,
    UpdateStatus = 8,
    UpdateErrors = 9,
    GenerateRemoteFilename = 10,
    UpdateFinish = 12,
    UpdateBoard2 = 13,
    UpdateStatus2 = 14,
    UpdateErrors2 = 15
};

constexpr KvUInt32 refusedStatus = 1;
constexpr const char* firmware = "HCN[4711]/FIRMWARE";
constexpr const char* name = "00000000000000aa";
constexpr const char* path = "transfer/00000000000000aa";

class UpdateServiceTest : public ServicesFixture
{
protected:
    void put(const Bytes& image)
    {
        m_size = image.size();
        m_folder.write(name, std::string(image.begin(), image.end()));
    }
    Bytes updateArguments(KvUInt32 accessId, KvUInt32 type = 0, const std::string& file = path,
                          const char* where = firmware)
    {
        return address(where) + words({accessId}) + counted(file) + words({type, 0, static_cast<KvUInt32>(m_size)});
    }
    Bytes update2Arguments(KvUInt32 accessId, KvUInt32 kind)
    {
        return address(firmware) + words({accessId, kind}) + counted(path) + words({0, static_cast<KvUInt32>(m_size)});
    }
    Bytes atFirmware(std::initializer_list<KvUInt32> numbers = {}) { return address(firmware) + words(numbers); }
    Bytes status() { return inventory(UpdateStatus, atFirmware()).results; }
    Bytes status2() { return inventory(UpdateStatus2, atFirmware({0})).results; }
    /** Lets time pass until the update is over. */
    void complete()
    {
        for (int i = 0; i < 1000; ++i) {
            const Update::Milliseconds pause = m_inventory.advanceUpdate();
            if (pause == 0ms)
                return;
            m_now += pause;
        }
        FAIL() << "the update does not end";
    }
    std::string version()
    {
        return m_board->tree().getParameter(at("FIRMWARE/VERSION"))->valueIf<KvCVersion>()->getAsString().c_str();
    }

    std::size_t m_size = 0;
};

TEST_F(UpdateServiceTest, WithoutAnUpdateTheBoardIsIdle)
{
    EXPECT_EQ(status(), words({0, 0, 4, 0, 0, 0}));
    EXPECT_EQ(status2(), words({0, 0, 0, 0, 0, 0}));
    const KvUInt32 id = lock(2);
    EXPECT_EQ(inventory(UpdateErrors, atFirmware({id})).results, words({0, 0}));
    EXPECT_EQ(inventory(UpdateFinish, atFirmware({id})).results, words({0, 0}));
}

TEST_F(UpdateServiceTest, AWholeUpdate)
{
    put(goodImage(1000));
    const KvUInt32 id = lock(2);
    const Answer begun = inventory(UpdateBoard, updateArguments(id));
    EXPECT_EQ(begun.results, words({0, 0}));
    EXPECT_EQ(begun.accessId, id);
    EXPECT_EQ(status(), words({0, 1, 0, 0, 1, 0}));
    EXPECT_EQ(status2(), words({0, 1, 0, 1, 0, 0}));
    m_now += 5s;
    m_inventory.advanceUpdate();
    EXPECT_EQ(status(), words({0, 1, 0, 40, 3, 0}));
    EXPECT_EQ(status2(), words({0, 1, 40, 3, 0, 0}));
    EXPECT_EQ(version(), "3.1.2b4p7");
    complete();
    EXPECT_EQ(status(), words({0, 2, 0, 100, 4, 0}));
    EXPECT_EQ(status2(), words({0, 2, 100, 4, 0, 0}));
    EXPECT_EQ(version(), "4.0");
    EXPECT_EQ(inventory(UpdateErrors, atFirmware({id})).results, words({0, 0}));
    EXPECT_EQ(inventory(UpdateFinish, atFirmware({id})).results, words({0, 0}));
    EXPECT_EQ(status(), words({0, 0, 4, 0, 0, 0}));
}

TEST_F(UpdateServiceTest, AnUpdateByKind)
{
    std::vector<unsigned char> image = ImageMaker().withVersion("FPGA/VERSION", "9.9").image();
    put(image);
    const KvUInt32 id = lock(2);
    const Bytes arguments =
        address("HCN[4711]/FPGA[2]") + words({id, 2}) + counted(path) + words({0, static_cast<KvUInt32>(m_size)});
    EXPECT_EQ(take(inventory(UpdateBoard2, arguments)), 0u);
    complete();
    EXPECT_EQ(status(), words({0, 2, 2, 100, 4, 0})) << "with the type of the update";
    EXPECT_EQ(take(inventory(UpdateBoard2, update2Arguments(id, 4))), refusedStatus);
    EXPECT_EQ(m_codes, (Codes{0x302002, 0x302000}));
}

TEST_F(UpdateServiceTest, ABoardIsToldOfTheFailureByItsErrors)
{
    put(goodImage(1000, 1));
    const KvUInt32 id = lock(2);
    ASSERT_EQ(take(inventory(UpdateBoard, updateArguments(id))), 0u);
    complete();
    EXPECT_EQ(status(), words({0, 2, 0, 80, 4, 0}));
    EXPECT_EQ(status2(), words({0, 2, 80, 4, 2, 0}));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(take(inventory(UpdateErrors, atFirmware({id}))), 0u);
        EXPECT_EQ(m_codes, (Codes{0x302010, 0x302011})) << "as often as they are asked for";
    }
    const Codes both = m_codes;
    for (KvUInt32 index = 0; index < 2; ++index) {
        const Answer answer = inventory(UpdateErrors2, atFirmware({id, index}));
        WireReader reader(answer.results);
        EXPECT_EQ(reader.word(), 0u);
        const std::string block = reader.counted();
        takeErrors(reader);
        EXPECT_TRUE(m_codes.empty());
        KvCErrorListPool one;
        ASSERT_TRUE(one.deSerialize(reinterpret_cast<const unsigned char*>(block.data()), block.size()));
        EXPECT_EQ(codes(one), Codes{both[index]});
        EXPECT_STREQ(one.getErrorText(0), m_update.errors().getErrorText(index));
    }
    for (const KvUInt32 index : {2u, 0xFFFFFFFFu}) {
        const Answer answer = inventory(UpdateErrors2, atFirmware({id, index}));
        WireReader reader(answer.results);
        EXPECT_EQ(reader.word(), refusedStatus);
        EXPECT_EQ(reader.counted(), "");
        takeErrors(reader);
        EXPECT_EQ(m_codes, Codes{0x302013});
    }
    EXPECT_EQ(take(inventory(UpdateFinish, atFirmware({id}))), 0u);
    EXPECT_EQ(inventory(UpdateErrors, atFirmware({id})).results, words({0, 0}));
}

TEST_F(UpdateServiceTest, AnErrorByIndexIsItsEntryByteByByte)
{
    put(goodImage(1000, 1));
    const KvUInt32 id = lock(2);
    ASSERT_EQ(take(inventory(UpdateBoard, updateArguments(id))), 0u);
    complete();
    const Answer answer = inventory(UpdateErrors2, atFirmware({id, 1}));
    WireReader reader(answer.results);
    reader.word();
    const std::string block = reader.counted();
    const Bytes received(block.begin(), block.end());
    WireReader entry(received);
    EXPECT_EQ(entry.word(), 1u);
    EXPECT_EQ(entry.word(), 1u) << "one entry";
    EXPECT_EQ(entry.word(), 0x302011u);
    const KvUInt32 line = entry.word();
    const auto text = [](const std::string& bytes) {
        return words({static_cast<KvUInt32>(bytes.size())}) + Bytes(bytes.begin(), bytes.end());
    };
    EXPECT_EQ(received, words({1, 1, 0x302011, line}) + text("Update::fail") + text("%s%s") + words({2}) +
                            text(firmware) + text("4.0"));
}

TEST_F(UpdateServiceTest, WhoHasNoLockOfLevelTwoIsRefused)
{
    put(goodImage(10));
    const std::pair<KvUInt32, Bytes> calls[] = {{UpdateBoard, updateArguments(7)},
                                                {UpdateBoard2, update2Arguments(7, 0)},
                                                {UpdateErrors, atFirmware({7})},
                                                {UpdateFinish, atFirmware({7})}};
    for (const auto& [procedure, arguments] : calls) {
        const Answer answer = inventory(procedure, arguments);
        EXPECT_EQ(take(answer), refusedStatus) << procedure;
        EXPECT_EQ(m_codes, Codes{0x300001}) << procedure;
        EXPECT_EQ(answer.accessId, 0u);
    }
    const KvUInt32 observer = lock(1);
    EXPECT_EQ(take(inventory(UpdateBoard, updateArguments(observer))), refusedStatus);
    EXPECT_EQ(m_codes, Codes{0x300002});
    EXPECT_EQ(status(), words({0, 0, 4, 0, 0, 0}));
}

TEST_F(UpdateServiceTest, ALockFromAnotherHostIsNone)
{
    const KvUInt32 id = lock(2);
    EXPECT_EQ(take(inventory(UpdateFinish, atFirmware({id}), there)), refusedStatus);
    EXPECT_EQ(m_codes, Codes{0x300001});
}

TEST_F(UpdateServiceTest, TheStateIsToldWithoutALock)
{
    const KvUInt32 id = lock(2);
    put(goodImage(10));
    ASSERT_EQ(take(inventory(UpdateBoard, updateArguments(id))), 0u);
    EXPECT_EQ(inventory(UpdateStatus, atFirmware(), there).results, words({0, 1, 0, 0, 1, 0}));
    EXPECT_EQ(inventory(UpdateStatus, address("HCN[4711]"), there).results, words({0, 1, 0, 0, 1, 0}))
        << "any address of the board";
}

TEST_F(UpdateServiceTest, ALockThatEndsDoesNotStopTheUpdate)
{
    put(goodImage(10));
    const KvUInt32 id = lock(2);
    ASSERT_EQ(take(inventory(UpdateBoard, updateArguments(id))), 0u);
    ASSERT_EQ(take(access(4, words({id}))), Ok);
    complete();
    EXPECT_EQ(version(), "4.0");
    const KvUInt32 other = lock(2, there);
    EXPECT_EQ(take(inventory(UpdateFinish, atFirmware({other}), there)), 0u) << "whoever holds the board closes it";
}

TEST_F(UpdateServiceTest, ARunningUpdateIsNeitherClosedNorFollowedByAnother)
{
    put(goodImage(10));
    const KvUInt32 id = lock(2);
    ASSERT_EQ(take(inventory(UpdateBoard, updateArguments(id))), 0u);
    for (const KvUInt32 procedure : {UpdateBoard, UpdateBoard2}) {
        const Bytes arguments = procedure == UpdateBoard ? updateArguments(id) : update2Arguments(id, 0);
        EXPECT_EQ(take(inventory(procedure, arguments)), refusedStatus);
        EXPECT_EQ(m_codes, Codes{0x302001});
    }
    EXPECT_EQ(take(inventory(UpdateFinish, atFirmware({id}))), refusedStatus);
    EXPECT_EQ(m_codes, Codes{0x302001});
    EXPECT_EQ(take(inventory(UpdateErrors, atFirmware({id}))), 0u);
    EXPECT_TRUE(m_codes.empty());
    complete();
    EXPECT_EQ(status(), words({0, 2, 0, 100, 4, 0}));
}

TEST_F(UpdateServiceTest, TheImageIsBusyAsLongAsTheUpdateIsRunning)
{
    put(goodImage(10));
    const KvUInt32 id = lock(2);
    std::string problem;
    ASSERT_EQ(take(inventory(UpdateBoard, updateArguments(id))), 0u);
    EXPECT_EQ(m_files.remove("transfer", name, problem), Files::Outcome::Busy);
    complete();
    EXPECT_EQ(m_files.remove("transfer", name, problem), Files::Outcome::Done);
    EXPECT_EQ(status(), words({0, 2, 0, 100, 4, 0}));
}

TEST_F(UpdateServiceTest, ARefusedImageIsNotBusy)
{
    put(Bytes(100, 'x'));
    const KvUInt32 id = lock(2);
    EXPECT_EQ(take(inventory(UpdateBoard, updateArguments(id))), refusedStatus);
    EXPECT_EQ(m_codes, (Codes{0x302007, 0x302000}));
    std::string problem;
    EXPECT_EQ(m_files.remove("transfer", name, problem), Files::Outcome::Done);
}

TEST_F(UpdateServiceTest, OnlyNamesThatWereHandedOutAreImages)
{
    put(goodImage(10));
    m_folder.write("secret", "x");
    const KvUInt32 id = lock(2);
    const std::string withZero("transfer/00000000000000aa\0x", 27);
    for (const std::string& file :
         {std::string(), std::string("secret"), std::string("transfer/secret"), std::string("../00000000000000aa"),
          std::string("transfer/../transfer/00000000000000aa"), std::string("/transfer/00000000000000aa"),
          std::string("00000000000000aa"), std::string("transfer/00000000000000AA"), withZero,
          std::string("transfer/00000000000000ab"), std::string(1023, 'x')}) {
        EXPECT_EQ(take(inventory(UpdateBoard, updateArguments(id, 0, file))), refusedStatus) << file;
        EXPECT_EQ(m_codes, (Codes{0x301800, 0x302000})) << file;
    }
    EXPECT_EQ(inventory(UpdateBoard, updateArguments(id, 0, std::string(1024, 'x'))).kind,
              Answer::Kind::GarbageArguments);
    std::string directory;
    std::string fileName;
    ASSERT_EQ(m_files.generateName(directory, fileName), Files::Outcome::Done);
    EXPECT_EQ(take(inventory(UpdateBoard, updateArguments(id, 0, directory + "/" + fileName))), refusedStatus);
    EXPECT_EQ(m_codes, (Codes{0x301801, 0x302000})) << "a name without a file";
}

TEST_F(UpdateServiceTest, UnknownTypesAndSizesAreRefused)
{
    put(goodImage(10));
    const KvUInt32 id = lock(2);
    for (const KvUInt32 type : {4u, 14u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_EQ(take(inventory(UpdateBoard, updateArguments(id, type))), refusedStatus) << type;
        EXPECT_EQ(m_codes, (Codes{0x302002, 0x302000})) << type;
    }
    const Bytes huge = address(firmware) + words({id}) + counted(path) + words({0, 1, static_cast<KvUInt32>(m_size)});
    EXPECT_EQ(take(inventory(UpdateBoard, huge)), refusedStatus) << "the upper half of the size counts";
    EXPECT_EQ(m_codes, (Codes{0x302006, 0x302000}));
}

TEST_F(UpdateServiceTest, AddressesOfOtherBoardsAreRefused)
{
    put(goodImage(10));
    const KvUInt32 id = lock(2);
    const Bytes elsewhere = address("HCN[4712]/FIRMWARE");
    for (const auto& [procedure, more] :
         {std::pair<KvUInt32, Bytes>{UpdateErrors, words({id})}, {UpdateFinish, words({id})}}) {
        EXPECT_EQ(take(inventory(procedure, elsewhere + more)), refusedStatus);
        EXPECT_EQ(m_codes, Codes{0x300802});
    }
    EXPECT_EQ(take(inventory(UpdateBoard, updateArguments(id, 0, path, "HCN[4712]/FIRMWARE"))), refusedStatus);
    EXPECT_EQ(m_codes, (Codes{0x300802, 0x302000}));
    const Answer answer = inventory(UpdateStatus, elsewhere);
    WireReader refusal(answer.results);
    for (const KvUInt32 expected : {1u, 0u, 4u, 0u, 0u})
        EXPECT_EQ(refusal.word(), expected);
    takeErrors(refusal);
    EXPECT_EQ(m_codes, Codes{0x300802});
}

TEST_F(UpdateServiceTest, OnlySelectorZeroIsKnown)
{
    for (const KvUInt32 selector : {1u, 2u, 0xFFFFFFFFu}) {
        const Answer answer = inventory(UpdateStatus2, atFirmware({selector}));
        WireReader reader(answer.results);
        for (const KvUInt32 expected : {1u, 0u, 0u, 0u, 0u})
            EXPECT_EQ(reader.word(), expected);
        takeErrors(reader);
        EXPECT_EQ(m_codes, Codes{0x302014});
    }
}

TEST_F(UpdateServiceTest, ANameIsHandedOutInFourBytesForEachCharacter)
{
    const KvUInt32 id = lock(2);
    Bytes expected = words({0, 8});
    for (const char character : std::string("transfer"))
        expected = expected + words({static_cast<KvUInt32>(character)});
    expected = expected + words({16});
    for (const char character : std::string("abcdef0123456700"))
        expected = expected + words({static_cast<KvUInt32>(character)});
    EXPECT_EQ(inventory(GenerateRemoteFilename, atFirmware({id})).results, expected + words({0}));

    const Answer refusal = inventory(GenerateRemoteFilename, atFirmware({id + 1}));
    WireReader reader(refusal.results);
    for (const KvUInt32 word : {1u, 0u, 0u})
        EXPECT_EQ(reader.word(), word);
    takeErrors(reader);
    EXPECT_EQ(m_codes, Codes{0x300001});
}

TEST_F(UpdateServiceTest, ArgumentsThatAreNotExactlyOneRecordAreGarbage)
{
    const KvUInt32 id = lock(2);
    put(goodImage(10));
    const std::pair<KvUInt32, Bytes> calls[] = {
        {UpdateBoard, updateArguments(id)}, {UpdateStatus, atFirmware()},
        {UpdateErrors, atFirmware({id})},   {GenerateRemoteFilename, atFirmware({id})},
        {UpdateFinish, atFirmware({id})},   {UpdateBoard2, update2Arguments(id, 0)},
        {UpdateStatus2, atFirmware({0})},   {UpdateErrors2, atFirmware({id, 0})}};
    for (const auto& [procedure, whole] : calls) {
        for (std::size_t size = 0; size < whole.size(); ++size) {
            const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(inventory(procedure, cut).kind, Answer::Kind::GarbageArguments) << procedure << " " << size;
        }
        EXPECT_EQ(inventory(procedure, whole + words({0})).kind, Answer::Kind::GarbageArguments) << procedure;
        Bytes manyElements = whole;
        manyElements[4] = 0xFF;  // the number of values
        EXPECT_EQ(inventory(procedure, manyElements).kind, Answer::Kind::GarbageArguments) << procedure;
        Bytes otherCount = whole;
        otherCount[3] = 9;  // the number of elements
        const Answer answer = inventory(procedure, otherCount);
        ASSERT_EQ(answer.kind, Answer::Kind::Success);
        EXPECT_EQ(answer.results[3], 1) << procedure;
    }
    EXPECT_EQ(status(), words({0, 0, 4, 0, 0, 0}));
}

TEST_F(UpdateServiceTest, AVersionThatWasWrittenButNotAppliedGivesWay)
{
    // VERSION of a board that allows it to be written.
    const_cast<KvCInventoryParameter*>(m_board->tree().getParameter(at("FIRMWARE/VERSION")))->setModifiableFlag(true);
    const KvUInt32 id = lock(2);
    const Bytes arguments = address("HCN[4711]/FIRMWARE/VERSION") + words({id, 0x4000}) +
                            counted(std::string_view("\x07\0\0\0\0\0\0\0", 8));
    ASSERT_EQ(take(inventory(3, arguments)), 0u);
    ASSERT_EQ(write(id, 1), 0u);
    put(goodImage(10));
    ASSERT_EQ(take(inventory(UpdateBoard, updateArguments(id))), 0u);
    complete();
    EXPECT_EQ(version(), "4.0");
    EXPECT_EQ(m_board->writtenCount(), 1u) << "other values are not concerned";
    EXPECT_EQ(apply(id), 0u);
    EXPECT_EQ(version(), "4.0");
    EXPECT_EQ(current(), 1);
}

TEST_F(UpdateServiceTest, NoAllocationThatFailsEndsTheService)
{
    put(goodImage(1000, 1));
    const KvUInt32 id = lock(2);
    const std::pair<KvUInt32, Bytes> calls[] = {
        {UpdateStatus, atFirmware()},           {GenerateRemoteFilename, atFirmware({id})},
        {UpdateBoard, updateArguments(id)},     {UpdateErrors, atFirmware({id})},
        {UpdateErrors2, atFirmware({id, 0})},   {UpdateFinish, atFirmware({id})},
        {UpdateBoard2, update2Arguments(id, 0)}};
    for (const bool lasting : {false, true}) {
        for (const auto& [procedure, arguments] : calls) {
            for (std::size_t n = 1;; ++n) {
                ASSERT_LT(n, 10000u);
                bool failed = false;
                Answer answer;
                ASSERT_EQ(take(access(3, words({id}))), Ok) << "the lock is kept";
                {
                    const FailingAllocation failing(n, lasting);
                    answer = inventory(procedure, arguments);
                    complete();
                    failed = failing.hasFailed();
                }
                ASSERT_EQ(answer.kind, Answer::Kind::Success);
                if (failed) {
                    EXPECT_EQ(inventory(UpdateStatus, atFirmware()).results[3], 0) << "the next one is served";
                    continue;
                }
                EXPECT_EQ(answer.results[3], 0) << procedure;
                break;
            }
            if (procedure == UpdateBoard) {
                EXPECT_EQ(m_update.status().state, Update::State::Failed);
            }
        }
        ASSERT_EQ(take(inventory(UpdateFinish, atFirmware({id}))), 0u);
    }
}

}  // namespace
