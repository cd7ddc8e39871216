#include <gtest/gtest.h>

#include "ServicesFixture.h"
#include "base/Crc32.h"

namespace {

namespace fs = std::filesystem;

enum FileStatus : KvUInt32
{
    BadName = 4,
    NotFound,
    NoTransfer,
    OutOfOrder,
    Corrupt,
    NoSpace,
    Io,
    Busy
};

constexpr const char* nameOne = "abcdef0123456700";

Bytes longWord(KvUInt64 number)
{
    return words({static_cast<KvUInt32>(number >> 32), static_cast<KvUInt32>(number)});
}

/** The procedures about files, on the wire. */
class DeviceAccessFilesTest : public ServicesFixture
{
protected:
    DeviceAccessFilesTest()
    {
        std::string directory;
        std::string fileName;
        m_files.generateName(directory, fileName);
        EXPECT_EQ(fileName, nameOne);
    }
    static Bytes named(KvUInt32 accessId, std::string_view directory, std::string_view fileName)
    {
        return words({accessId}) + counted(directory) + counted(fileName);
    }
    /** Begins a transfer; the status is in m_status. */
    KvUInt32 begin(KvUInt32 accessId, KvUInt64 size, std::string_view directory = "transfer",
                   std::string_view fileName = nameOne, KvUInt32 peer = here)
    {
        const Answer answer = access(5, named(accessId, directory, fileName) + longWord(size), peer);
        m_slow = answer.slow;
        WireReader reader(answer.results);
        m_status = reader.word();
        const KvUInt32 id = reader.word();
        takeErrors(reader);
        return id;
    }
    KvUInt32 put(KvUInt32 accessId, KvUInt32 id, KvUInt64 offset, std::string_view bytes, KvUInt32 peer = here)
    {
        const Answer answer = access(6, words({accessId, id}) + longWord(offset) + counted(bytes), peer);
        EXPECT_EQ(answer.kind, Answer::Kind::Success);
        m_slow = answer.slow;
        WireReader reader(answer.results);
        m_status = reader.word();
        m_received = reader.longWord();
        takeErrors(reader);
        return m_status;
    }
    KvUInt32 end(KvUInt32 accessId, KvUInt32 id, std::string_view content, KvUInt32 peer = here)
    {
        return take(access(7, words({accessId, id, KvNCrc32::crc32(0, content.data(), content.size())}), peer));
    }
    KvUInt32 abort(KvUInt32 accessId, KvUInt32 id, KvUInt32 peer = here)
    {
        return take(access(8, words({accessId, id}), peer));
    }
    KvUInt32 remove(KvUInt32 accessId, std::string_view directory = "transfer", std::string_view fileName = nameOne,
                    KvUInt32 peer = here)
    {
        return take(access(9, named(accessId, directory, fileName), peer));
    }
    void putAll(KvUInt32 accessId, std::string_view content)
    {
        const KvUInt32 id = begin(accessId, content.size());
        EXPECT_EQ(put(accessId, id, 0, content), Ok);
        EXPECT_EQ(end(accessId, id, content), Ok);
    }

    KvUInt64 m_received = 0;
};

TEST_F(DeviceAccessFilesTest, AFileIsPutListedAndDeleted)
{
    const KvUInt32 id = lock(2);
    EXPECT_EQ(access(5, named(id, "transfer", nameOne) + longWord(10)).results, words({Ok, 1, 0}));
    EXPECT_EQ(access(6, words({id, 1}) + longWord(0) + counted("01234")).results, words({Ok, 0, 5, 0}));
    EXPECT_EQ(access(6, words({id, 1}) + longWord(5) + counted("56789")).results, words({Ok, 0, 10, 0}));
    EXPECT_EQ(access(7, words({id, 1, 0xA684C7C6})).results, words({Ok, 0}));
    EXPECT_EQ(m_folder.read(nameOne), "0123456789");

    const Answer answer = access(11);
    WireReader reader(answer.results);
    EXPECT_EQ(reader.word(), Ok);
    EXPECT_EQ(reader.word(), 1u);
    EXPECT_EQ(reader.counted(), "transfer");
    EXPECT_EQ(reader.counted(), nameOne);
    EXPECT_EQ(reader.longWord(), 10u);
    EXPECT_NE(reader.longWord(), 0u);
    EXPECT_EQ(reader.longWord(), (KvUInt64(1) << 30) - 10);
    takeErrors(reader);
    EXPECT_TRUE(m_codes.empty());

    EXPECT_EQ(access(9, named(id, "transfer", nameOne)).results, words({Ok, 0}));
    EXPECT_EQ(access(11).results, words({Ok, 0, 0, 1u << 30, 0}));
}

TEST_F(DeviceAccessFilesTest, EmptyFilesAndFilesOfOneByteArePut)
{
    const KvUInt32 id = lock(2);
    for (const char* content : {"", "x"}) {
        putAll(id, content);
        EXPECT_EQ(m_folder.read(nameOne), content);
    }
}

TEST_F(DeviceAccessFilesTest, FilesAreListedByName)
{
    const KvUInt32 id = lock(2);
    std::string directory;
    std::string fileName;
    for (const KvUInt64 number : {3u, 1u, 2u}) {
        m_nextName = number;
        m_files.generateName(directory, fileName);
        const KvUInt32 transfer = begin(id, 0, directory, fileName);
        ASSERT_EQ(end(id, transfer, ""), Ok);
    }
    const Answer answer = access(11);
    WireReader reader(answer.results);
    reader.word();
    ASSERT_EQ(reader.word(), 3u);
    for (const char* expected : {"0000000000000001", "0000000000000002", "0000000000000003"}) {
        reader.counted();
        EXPECT_EQ(reader.counted(), expected);
        reader.longWord();
        reader.longWord();
    }
}

TEST_F(DeviceAccessFilesTest, WithoutALockOfLevelTwoNothingIsChanged)
{
    const KvUInt32 modify = lock(2);
    putAll(modify, "content");
    ASSERT_EQ(take(access(4, words({modify}))), Ok);
    const KvUInt32 observer = lock(1);
    const struct
    {
        KvUInt32 accessId;
        KvUInt32 peer;
        KvUInt32 code;
    } rows[] = {{observer, here, 0x300002}, {observer, there, 0x300001}, {0, here, 0x300001}, {modify, here, 0x300001}};
    for (const auto& row : rows) {
        EXPECT_EQ(begin(row.accessId, 1, "transfer", nameOne, row.peer), 0u);
        EXPECT_EQ(m_status, BadAccess);
        EXPECT_EQ(m_codes, Codes{row.code});
        EXPECT_EQ(put(row.accessId, 1, 0, "x", row.peer), BadAccess);
        EXPECT_EQ(m_codes, Codes{row.code});
        EXPECT_EQ(remove(row.accessId, "transfer", nameOne, row.peer), BadAccess);
        EXPECT_EQ(m_codes, Codes{row.code});
        EXPECT_EQ(end(row.accessId, 1, "content", row.peer), BadAccess);
        EXPECT_EQ(m_codes, Codes{row.code});
        EXPECT_EQ(abort(row.accessId, 1, row.peer), BadAccess);
        EXPECT_EQ(m_codes, Codes{row.code});
    }
    EXPECT_EQ(m_folder.read(nameOne), "content");
}

TEST_F(DeviceAccessFilesTest, GuessingAccessIdsIsAnsweredLateHereToo)
{
    const KvUInt32 id = lock(2);
    const KvUInt32 wrong = id + 50;
    for (int i = 0; i < 2; ++i) {
        begin(wrong, 1);
        put(wrong, 1, 0, "x");
        end(wrong, 1, "");
        abort(wrong, 1);
        remove(wrong);
        EXPECT_FALSE(m_slow);
    }
    begin(wrong, 1);
    EXPECT_EQ(m_status, Limit);
    EXPECT_EQ(m_codes, Codes{0x300005});
    EXPECT_TRUE(m_slow);
    EXPECT_EQ(put(wrong, 1, 0, "x"), Limit);
    EXPECT_TRUE(m_slow);
    EXPECT_EQ(end(wrong, 1, ""), Limit);
    EXPECT_EQ(abort(wrong, 1), Limit);
    EXPECT_EQ(remove(wrong), Limit);
    EXPECT_TRUE(m_slow);
    putAll(id, "x");
    EXPECT_FALSE(m_slow);
}

TEST_F(DeviceAccessFilesTest, NamesThatWereNotHandedOutAreRefused)
{
    const KvUInt32 id = lock(2);
    m_folder.write("outside", "secret");
    const std::string nul("abc\0def", 7);
    for (const std::string& bad : {std::string(".."), std::string("../x"), std::string("/etc/passwd"), std::string(""),
                                   std::string("outside"), std::string("a\nb"), std::string(255, 'a'), nul,
                                   std::string("abcdef01234567ff"), std::string(nameOne) + "\n"}) {
        EXPECT_EQ(begin(id, 1, "transfer", bad), 0u);
        EXPECT_EQ(m_status, BadName) << bad;
        EXPECT_EQ(m_codes, Codes{0x301800});
        EXPECT_EQ(remove(id, "transfer", bad), BadName) << bad;
        EXPECT_EQ(m_codes, Codes{0x301800});
        EXPECT_EQ(remove(id, bad, nameOne), BadName) << bad;
    }
    for (const std::size_t size : {256u, 4096u}) {
        EXPECT_EQ(access(5, named(id, "transfer", std::string(size, 'a')) + longWord(1)).kind,
                  Answer::Kind::GarbageArguments);
        EXPECT_EQ(access(9, named(id, std::string(size, 'a'), nameOne)).kind, Answer::Kind::GarbageArguments);
    }
    EXPECT_EQ(m_folder.read("outside"), "secret");
}

TEST_F(DeviceAccessFilesTest, AGoodNameWithAZeroByteBehindItIsAnotherName)
{
    const KvUInt32 id = lock(2);
    putAll(id, "content");
    for (const char* behind : {"", "x", "../x"}) {
        const std::string directory = std::string("transfer") + '\0' + behind;
        const std::string fileName = std::string(nameOne) + '\0' + behind;
        EXPECT_EQ(begin(id, 1, "transfer", fileName), 0u);
        EXPECT_EQ(m_status, BadName);
        EXPECT_EQ(begin(id, 1, directory, nameOne), 0u);
        EXPECT_EQ(m_status, BadName);
        EXPECT_EQ(remove(id, "transfer", fileName), BadName);
        EXPECT_EQ(remove(id, directory, nameOne), BadName);
    }
    EXPECT_EQ(m_folder.read(nameOne), "content");
}

TEST_F(DeviceAccessFilesTest, RefusedNamesAreShownEscaped)
{
    const KvUInt32 id = lock(2);
    EXPECT_EQ(remove(id, "transfer", "\x1B[2J\n"), BadName);
    const std::string text = m_errors.getErrorText(0);
    EXPECT_EQ(text.find('\x1B'), std::string::npos);
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_EQ(text.find("Configuration error. The board has not handed out the file name \"transfer/"), 0u) << text;
}

TEST_F(DeviceAccessFilesTest, EveryRefusalOfATransferSaysWhy)
{
    const KvUInt32 id = lock(2);
    const auto says = [this](const char* text) {
        ASSERT_EQ(m_errors.getErrorCount(), 1u);
        EXPECT_STREQ(m_errors.getErrorText(0), text);
    };
    EXPECT_EQ(put(id, 9, 0, "x"), NoTransfer);
    says("Internal error. Korvel Support information: The board knows no transfer 9 of this lock.");
    EXPECT_EQ(end(id, 9, ""), NoTransfer);
    EXPECT_EQ(abort(id, 9), NoTransfer);
    EXPECT_EQ(remove(id), NotFound);
    says("Configuration error. The board has no file transfer/abcdef0123456700.");
    EXPECT_EQ(begin(id, (KvUInt64(1) << 30) + 1), 0u);
    EXPECT_EQ(m_status, NoSpace);
    says(
        "OS error. The board has no space for a file of 1073741825 bytes: 1073741824 bytes of the files' share are "
        "free.");

    const KvUInt32 transfer = begin(id, 9);
    EXPECT_EQ(put(id, transfer, 1, "x"), OutOfOrder);
    says("Internal error. Korvel Support information: Data of a file came for offset 1, but the board has 0 bytes.");
    EXPECT_EQ(put(id, transfer, KvUInt64(1) << 63, "x"), OutOfOrder);
    EXPECT_EQ(put(id, transfer, 0, "1234567890"), Corrupt);
    says("Communication error. More than the announced 9 bytes of a file came.");
    EXPECT_EQ(put(id, transfer, 0, "12345"), Ok);
    EXPECT_EQ(put(id, transfer, 0, "12x45"), OutOfOrder);
    EXPECT_EQ(m_received, 5u);
    says("Internal error. Korvel Support information: Data of a file came again for offset 0 with other contents.");
    EXPECT_EQ(end(id, transfer, "12345"), Corrupt);
    says("Communication error. 9 bytes of a file were announced, 5 came.");

    const KvUInt32 next = begin(id, 9);
    EXPECT_EQ(put(id, next, 0, "123456789"), Ok);
    EXPECT_EQ(take(access(7, words({id, next, 1}))), Corrupt);
    says("Communication error. The file came with the checksum 0xcbf43926, 0x1 was announced.");
    EXPECT_FALSE(fs::exists(m_folder.path(nameOne)));
}

TEST_F(DeviceAccessFilesTest, AChunkBeyondTheAnnouncedMaximumIsRefused)
{
    Transfers small(m_files, {.chunkBytes = 1024}, nullptr);
    DeviceAccessService service(*m_board, m_locks, m_files, small, [this] { return m_now; }, {1, 1024});
    const KvUInt32 id = lock(2);
    const std::string bytes(1025, 'x');
    Call call;
    call.peer = here;
    const Bytes beginning = named(id, "transfer", nameOne) + longWord(2000);
    call.procedure = 5;
    call.arguments = beginning;
    ASSERT_EQ(service.call(call).results, words({Ok, 1, 0}));
    const Bytes chunk = words({id, 1}) + longWord(0) + counted(bytes);
    call.procedure = 6;
    call.arguments = chunk;
    const Answer answer = service.call(call);
    WireReader reader(answer.results);
    EXPECT_EQ(reader.word(), BadArgument);
    EXPECT_EQ(reader.longWord(), 0u);
    takeErrors(reader);
    EXPECT_EQ(m_codes, Codes{0x301806});
    EXPECT_STREQ(m_errors.getErrorText(0),
                 "Internal error. Korvel Support information: 1025 bytes of a file came at "
                 "once, at most 1024 are allowed.");
}

TEST_F(DeviceAccessFilesTest, ABusyFileIsNotTouched)
{
    const KvUInt32 id = lock(2);
    putAll(id, "image");
    m_files.setBusy(std::string("transfer/") + nameOne, true);
    EXPECT_EQ(begin(id, 3), 0u);
    EXPECT_EQ(m_status, Busy);
    EXPECT_EQ(m_codes, Codes{0x301802});
    EXPECT_EQ(remove(id), Busy);
    EXPECT_EQ(m_codes, Codes{0x301802});
    EXPECT_STREQ(m_errors.getErrorText(0),
                 "Access denied. The board is running an update with the file transfer/abcdef0123456700.");
    EXPECT_EQ(m_folder.read(nameOne), "image");
}

TEST_F(DeviceAccessFilesTest, ATransferEndsWithItsLockHoweverThatEnds)
{
    KvUInt32 id = lock(2);
    const auto half = [&] {
        const KvUInt32 transfer = begin(id, 5);
        EXPECT_EQ(put(id, transfer, 0, "123"), Ok);
        EXPECT_FALSE(fs::is_empty(m_folder.path()));
        return transfer;
    };
    half();
    ASSERT_EQ(take(access(4, words({id}))), Ok);
    EXPECT_TRUE(fs::is_empty(m_folder.path())) << "released";

    id = lock(2);
    const KvUInt32 transfer = half();
    ASSERT_EQ(access(2, words({1, id, 0, 0}) + counted("")).accessId, id);
    EXPECT_TRUE(fs::is_empty(m_folder.path())) << "lowered";
    ASSERT_EQ(access(2, words({2, id, 0, 0}) + counted("")).accessId, id);
    EXPECT_EQ(put(id, transfer, 3, "45"), NoTransfer);

    half();
    m_now += 20s;
    EXPECT_NE(lock(2, there), 0u);
    EXPECT_TRUE(fs::is_empty(m_folder.path())) << "not kept";
}

TEST_F(DeviceAccessFilesTest, AnAnswerThatHasToWaitComesLater)
{
    std::vector<std::function<void()>> waiting;
    Transfers slow(m_files, {}, [&](std::function<void()> work, std::function<void()> done) {
        waiting.emplace_back(std::move(work));
        waiting.emplace_back(std::move(done));
    });
    DeviceAccessService service(*m_board, m_locks, m_files, slow, [this] { return m_now; }, {1, 1024});
    const KvUInt32 id = lock(2);
    ASSERT_EQ(slow.begin(id, "transfer", nameOne, 0).transferId, 1u);
    const Bytes arguments = words({id, 1, 0});
    Call call;
    call.peer = here;
    call.procedure = 7;
    call.arguments = arguments;
    std::vector<Answer> answers;
    service.call(call).later->then([&](Answer answer) { answers.push_back(std::move(answer)); });
    for (std::size_t i = 0; i < waiting.size(); ++i) {
        EXPECT_TRUE(answers.empty());
        const auto next = std::move(waiting[i]);
        next();
    }
    ASSERT_EQ(waiting.size(), 4u) << "the file, then its folder";
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].results, words({Ok, 0}));
    EXPECT_EQ(answers[0].accessId, id);
}

TEST_F(DeviceAccessFilesTest, EveryCutOrLengthenedArgumentIsGarbage)
{
    const std::pair<KvUInt32, Bytes> calls[] = {{5, named(1, "transfer", nameOne) + longWord(3)},
                                                {6, words({1, 1}) + longWord(0) + counted("abc")},
                                                {7, words({1, 1, 1})},
                                                {8, words({1, 1})},
                                                {9, named(1, "transfer", nameOne)},
                                                {11, {}}};
    for (const auto& [procedure, arguments] : calls) {
        EXPECT_EQ(access(procedure, arguments).kind, Answer::Kind::Success);
        for (std::size_t size = 0; size < arguments.size(); ++size)
            EXPECT_EQ(
                access(procedure, Bytes(arguments.begin(), arguments.begin() + static_cast<std::ptrdiff_t>(size))).kind,
                Answer::Kind::GarbageArguments)
                << procedure << " cut to " << size;
        EXPECT_EQ(access(procedure, arguments + words({0})).kind, Answer::Kind::GarbageArguments);
        EXPECT_EQ(access(procedure, arguments, here, true).kind, Answer::Kind::ProcedureUnavailable) << "by datagram";
    }
    for (const KvUInt32 length : {0xFFFFFFFFu, 0x80000000u, 0x7FFFFFFFu, 1048577u})
        EXPECT_EQ(access(6, words({1, 1, 0, 0, length})).kind, Answer::Kind::GarbageArguments);
}

}  // namespace
