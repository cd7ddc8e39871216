#include "tools/kvboardd/Transfers.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <csignal>
#include <deque>

#include "TemporaryFolder.h"
#include "base/Crc32.h"
#include "platform/service/Directory.h"

namespace {

using KvNBoardService::Files;
using KvNBoardService::Transfers;
using Outcome = Transfers::Outcome;
namespace fs = std::filesystem;

constexpr KvUInt32 holder = 7;
constexpr const char* first = "0000000000000064";
constexpr std::size_t chunk = 16;
constexpr KvUInt64 piece = 64;

/** The transfers of one board. What would wait for the disk does so when the test says. */
class TransfersTest : public testing::Test
{
protected:
    TransfersTest() { name(); }

    std::string name()
    {
        std::string directory;
        std::string fileName;
        EXPECT_EQ(m_files.generateName(directory, fileName), Outcome::Done);
        return fileName;
    }
    KvUInt32 begin(KvUInt64 size, const char* fileName = first)
    {
        m_result = m_transfers.begin(holder, "transfer", fileName, size);
        return m_result.transferId;
    }
    Outcome put(KvUInt32 id, KvUInt64 offset, std::string_view bytes, KvUInt32 accessId = holder)
    {
        const auto* start = reinterpret_cast<const unsigned char*>(bytes.data());
        m_transfers.put(accessId, id, offset, {start, bytes.size()}, taker(m_puts));
        return m_puts.empty() ? Outcome::Done : take(m_puts);
    }
    /** Puts all bytes in chunks; what waits for the disk is waited for. */
    void putAll(KvUInt32 id, const std::string& content)
    {
        for (std::size_t at = 0; at < content.size(); at += chunk) {
            const auto part = std::string_view(content).substr(at, chunk);
            const auto* start = reinterpret_cast<const unsigned char*>(part.data());
            m_transfers.put(holder, id, at, {start, part.size()}, taker(m_puts));
            if (m_puts.empty())
                disk();
            ASSERT_EQ(take(m_puts), Outcome::Done) << at;
            ASSERT_EQ(m_result.received, at + part.size());
        }
    }
    void end(KvUInt32 id, KvUInt32 crc, KvUInt32 accessId = holder)
    {
        m_transfers.end(accessId, id, crc, taker(m_ends));
    }
    /** Ends a transfer and waits for the disk. */
    Outcome endAll(KvUInt32 id, const std::string& content)
    {
        end(id, crcOf(content));
        disk();
        return take(m_ends);
    }
    static KvUInt32 crcOf(const std::string& content) { return KvNCrc32::crc32(0, content.data(), content.size()); }
    Transfers::Done taker(std::deque<Transfers::Result>& results)
    {
        return [&results](const Transfers::Result& result) { results.push_back(result); };
    }
    /** The first result that came, which is then in m_result too. */
    Outcome take(std::deque<Transfers::Result>& results)
    {
        EXPECT_FALSE(results.empty()) << "nothing has been told";
        if (results.empty())
            return Outcome::Io;
        m_result = results.front();
        results.pop_front();
        return m_result.outcome;
    }
    /** The disk does what it was asked for, once or until nothing is left. */
    void diskOnce()
    {
        ASSERT_FALSE(m_beside.empty());
        const auto [work, done] = std::move(m_beside.front());
        m_beside.pop_front();
        work();
        done();
    }
    void disk()
    {
        while (!m_beside.empty())
            diskOnce();
    }
    std::string content(const char* fileName = first) const { return m_folder.read(std::string("files/") + fileName); }
    bool exists(const char* fileName = first) const
    {
        return fs::exists(m_folder.path(std::string("files/") + fileName));
    }
    std::size_t inFolder() const
    {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(m_folder.path("files")), fs::directory_iterator()));
    }
    std::unique_ptr<KvNService::Directory> folder()
    {
        std::string problem;
        return KvNService::Directory::open(m_folder.path("files"), problem);
    }

    TemporaryFolder m_folder;
    KvUInt64 m_next = 100;
    Files m_files{folder(), {.bytes = 100000}, [this]() -> std::optional<KvUInt64> { return m_next++; }};
    std::deque<std::pair<std::function<void()>, std::function<void()>>> m_beside;
    bool m_isBesideOut = false;  // of memory
    Transfers m_transfers{m_files,
                          {.chunkBytes = chunk, .pieceBytes = piece},
                          [this](std::function<void()> work, std::function<void()> done) {
                              if (m_isBesideOut)
                                  throw std::bad_alloc();
                              m_beside.emplace_back(std::move(work), std::move(done));
                          }};
    std::deque<Transfers::Result> m_puts;
    std::deque<Transfers::Result> m_ends;
    Transfers::Result m_result;
};

TEST_F(TransfersTest, AFileOfAnySizeIsPut)
{
    for (const std::size_t size : {std::size_t(0), std::size_t(1), chunk - 1, chunk, chunk + 1, 3 * chunk,
                                   std::size_t(piece), std::size_t(20 * piece + 5)}) {
        std::string content;
        for (std::size_t i = 0; i < size; ++i)
            content += static_cast<char>('a' + i % 23);
        const KvUInt32 id = begin(size);
        ASSERT_NE(id, 0u);
        putAll(id, content);
        EXPECT_EQ(endAll(id, content), Outcome::Done) << size;
        EXPECT_EQ(this->content(), content);
        EXPECT_EQ(inFolder(), 1u) << "nothing else is left";
    }
}

TEST_F(TransfersTest, TheFileAppearsWhenItIsOnTheDisk)
{
    const KvUInt32 id = begin(3);
    EXPECT_EQ(put(id, 0, "abc"), Outcome::Done);
    end(id, crcOf("abc"));
    EXPECT_TRUE(m_ends.empty()) << "the answer waits";
    EXPECT_FALSE(exists());
    diskOnce();
    EXPECT_TRUE(exists()) << "synced and renamed";
    EXPECT_TRUE(m_ends.empty()) << "the folder's turn";
    diskOnce();
    EXPECT_EQ(take(m_ends), Outcome::Done);
    EXPECT_TRUE(m_beside.empty());
}

TEST_F(TransfersTest, AReplacedFileHasItsOldContentsUntilThen)
{
    KvUInt32 id = begin(3);
    putAll(id, "old");
    ASSERT_EQ(endAll(id, "old"), Outcome::Done);
    id = begin(6);
    putAll(id, "newer!");
    EXPECT_EQ(content(), "old");
    ASSERT_EQ(endAll(id, "newer!"), Outcome::Done);
    EXPECT_EQ(content(), "newer!");
}

TEST_F(TransfersTest, BytesComeInOrder)
{
    const KvUInt32 id = begin(20);
    ASSERT_EQ(put(id, 0, "0123456789"), Outcome::Done);
    EXPECT_EQ(m_result.received, 10u);
    for (const KvUInt64 offset : {KvUInt64(11), KvUInt64(20), KvUInt64(21), KvUInt64(1) << 62, KvUInt64(1) << 63,
                                  ~KvUInt64(0), ~KvUInt64(0) - 9}) {
        EXPECT_EQ(put(id, offset, "x"), Outcome::OutOfOrder) << offset << ", a gap";
        EXPECT_EQ(m_result.received, 10u) << "where to go on";
        EXPECT_EQ(put(id, offset, ""), Outcome::OutOfOrder);
    }
    EXPECT_EQ(put(id, 10, "abcdefghij"), Outcome::Done);
    EXPECT_EQ(endAll(id, "0123456789abcdefghij"), Outcome::Done);
}

TEST_F(TransfersTest, AChunkThatCameBeforeIsTakenWhenItIsTheSame)
{
    const KvUInt32 id = begin(20);
    ASSERT_EQ(put(id, 0, "0123456789"), Outcome::Done);
    EXPECT_EQ(put(id, 0, "0123456789"), Outcome::Done);
    EXPECT_EQ(m_result.received, 10u);
    EXPECT_EQ(put(id, 3, "345"), Outcome::Done) << "any part of it";
    EXPECT_EQ(put(id, 9, "9"), Outcome::Done);
    EXPECT_EQ(put(id, 5, ""), Outcome::Done);
    EXPECT_EQ(put(id, 0, "0123456x89"), Outcome::OtherData);
    EXPECT_EQ(m_result.received, 10u);
    EXPECT_EQ(put(id, 9, "x"), Outcome::OtherData);
    EXPECT_EQ(put(id, 8, "89a"), Outcome::OutOfOrder) << "some of it is new";
    EXPECT_EQ(put(id, 10, "abcdefghij"), Outcome::Done);
    EXPECT_EQ(put(id, 10, "abcdefghij"), Outcome::Done) << "the last one, too";
    EXPECT_EQ(endAll(id, "0123456789abcdefghij"), Outcome::Done);
    EXPECT_EQ(content(), "0123456789abcdefghij");
}

TEST_F(TransfersTest, NoMoreIsTakenThanWasAnnounced)
{
    const KvUInt32 id = begin(5);
    EXPECT_EQ(put(id, 0, "123456"), Outcome::TooMuchData);
    EXPECT_EQ(m_result.received, 0u);
    EXPECT_EQ(put(id, 0, "12345"), Outcome::Done);
    EXPECT_EQ(put(id, 5, "6"), Outcome::TooMuchData);
    EXPECT_EQ(put(id, 5, ""), Outcome::Done);
    EXPECT_EQ(put(id, 0, std::string(chunk + 1, 'x')), Outcome::ChunkTooLarge);
    EXPECT_EQ(endAll(id, "12345"), Outcome::Done);
}

TEST_F(TransfersTest, AFileThatIsNotWholeIsDropped)
{
    KvUInt32 id = begin(5);
    put(id, 0, "1234");
    end(id, crcOf("1234"));
    EXPECT_EQ(take(m_ends), Outcome::Incomplete);
    EXPECT_EQ(inFolder(), 0u);
    EXPECT_EQ(put(id, 4, "5"), Outcome::NoTransfer);

    id = begin(5);
    put(id, 0, "12345");
    end(id, crcOf("12346"));
    EXPECT_EQ(take(m_ends), Outcome::OtherChecksum);
    EXPECT_EQ(m_result.crc32, crcOf("12345"));
    EXPECT_EQ(inFolder(), 0u);
}

TEST_F(TransfersTest, AnEndThatIsRepeatedAfterSuccessIsASuccess)
{
    const KvUInt32 id = begin(3);
    putAll(id, "abc");
    ASSERT_EQ(endAll(id, "abc"), Outcome::Done);
    end(id, crcOf("abc"));
    EXPECT_EQ(take(m_ends), Outcome::Done);
    end(id, crcOf("abd"));
    EXPECT_EQ(take(m_ends), Outcome::OtherChecksum);
    end(id, crcOf("abc"), holder + 1);
    EXPECT_EQ(take(m_ends), Outcome::NoTransfer) << "someone else's";
    m_transfers.lockEnded(holder);
    end(id, crcOf("abc"));
    EXPECT_EQ(take(m_ends), Outcome::NoTransfer);
    EXPECT_EQ(content(), "abc");
}

TEST_F(TransfersTest, AnEndThatIsRepeatedMeanwhileWaitsToo)
{
    const KvUInt32 id = begin(3);
    putAll(id, "abc");
    end(id, crcOf("abc"));
    end(id, crcOf("abc"));
    diskOnce();
    end(id, crcOf("abc"));
    EXPECT_TRUE(m_ends.empty());
    end(id, crcOf("abd"));
    EXPECT_EQ(take(m_ends), Outcome::OtherChecksum);
    disk();
    ASSERT_EQ(m_ends.size(), 3u);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(take(m_ends), Outcome::Done);
}

TEST_F(TransfersTest, ATransferThatIsNotTheirsIsNobodys)
{
    const KvUInt32 id = begin(3);
    for (const auto& [access, transfer] : {std::pair(holder, id + 1), {holder, 0u}, {holder + 1, id}, {0u, id}}) {
        EXPECT_EQ(put(transfer, 0, "a", access), Outcome::NoTransfer);
        EXPECT_EQ(m_transfers.abort(access, transfer).outcome, Outcome::NoTransfer);
        end(transfer, 0, access);
        EXPECT_EQ(take(m_ends), Outcome::NoTransfer);
    }
    EXPECT_EQ(put(id, 0, "abc"), Outcome::Done);
    EXPECT_EQ(endAll(id, "abc"), Outcome::Done);
}

TEST_F(TransfersTest, BeginningAgainEndsTheFormer)
{
    const KvUInt32 before = begin(3);
    put(before, 0, "ab");
    const KvUInt32 id = begin(3);
    EXPECT_NE(id, before);
    EXPECT_EQ(put(before, 2, "c"), Outcome::NoTransfer);
    EXPECT_EQ(inFolder(), 1u);
    putAll(id, "xyz");
    ASSERT_EQ(endAll(id, "xyz"), Outcome::Done);
    EXPECT_EQ(content(), "xyz");

    begin(3);
    EXPECT_EQ(begin(3, "0000000000000001"), 0u);
    EXPECT_EQ(m_result.outcome, Outcome::BadName);
    EXPECT_EQ(inFolder(), 1u) << "also when the new one cannot be";
}

TEST_F(TransfersTest, NothingRemainsOfATransferThatWasGivenUp)
{
    const KvUInt32 id = begin(3);
    put(id, 0, "ab");
    EXPECT_EQ(m_transfers.abort(holder, id).outcome, Outcome::Done);
    EXPECT_EQ(inFolder(), 0u);
    EXPECT_EQ(m_transfers.abort(holder, id).outcome, Outcome::NoTransfer);
    EXPECT_NE(begin(3), 0u) << "the name is still good";
}

TEST_F(TransfersTest, ATransferEndsWithItsLock)
{
    const KvUInt32 id = begin(3);
    put(id, 0, "ab");
    EXPECT_FALSE(m_transfers.lockEnded(holder + 1));
    EXPECT_EQ(inFolder(), 1u);
    EXPECT_TRUE(m_transfers.lockEnded(holder));
    EXPECT_EQ(inFolder(), 0u);
    EXPECT_EQ(put(id, 2, "c"), Outcome::NoTransfer);
    EXPECT_FALSE(m_transfers.lockEnded(holder));
}

TEST_F(TransfersTest, ALockThatEndsWhileTheFileIsSyncedLeavesNothing)
{
    const KvUInt32 id = begin(3);
    putAll(id, "abc");
    end(id, crcOf("abc"));
    m_transfers.lockEnded(holder);
    EXPECT_EQ(inFolder(), 0u);
    EXPECT_TRUE(m_ends.empty());
    disk();
    EXPECT_EQ(take(m_ends), Outcome::NoTransfer);
    EXPECT_EQ(inFolder(), 0u);
}

TEST_F(TransfersTest, AFileThatIsInItsPlaceStaysThere)
{
    KvUInt32 id = begin(3);
    putAll(id, "abc");
    end(id, crcOf("abc"));
    diskOnce();
    EXPECT_EQ(m_transfers.abort(holder, id).outcome, Outcome::NoTransfer) << "too late to give it up";
    m_transfers.lockEnded(holder);
    const KvUInt32 next = begin(5);
    disk();
    EXPECT_EQ(take(m_ends), Outcome::Done);
    EXPECT_EQ(content(), "abc");
    putAll(next, "other");
    EXPECT_EQ(endAll(next, "other"), Outcome::Done) << "the next one is not disturbed";
}

TEST_F(TransfersTest, TheNextTransferIsNotDisturbedByTheSyncOfTheFormer)
{
    const KvUInt32 id = begin(3);
    putAll(id, "abc");
    end(id, crcOf("abc"));
    const KvUInt32 next = begin(5);
    put(next, 0, "hello");
    disk();
    EXPECT_EQ(take(m_ends), Outcome::NoTransfer);
    EXPECT_EQ(endAll(next, "hello"), Outcome::Done);
    EXPECT_EQ(content(), "hello");
    EXPECT_EQ(inFolder(), 1u);
}

TEST_F(TransfersTest, NoMoreThanTwoPiecesAreOnlyInMemory)
{
    const std::string part(chunk, 'x');
    const KvUInt32 id = begin(50 * chunk);
    KvUInt64 at = 0;
    const auto more = [&] {
        const Outcome outcome = put(id, at, part);
        at += chunk;
        return outcome;
    };
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(more(), Outcome::Done);
        EXPECT_EQ(m_result.received, at) << "answered at once";
    }
    EXPECT_EQ(m_beside.size(), 1u) << "the first piece is being synced";
    more();
    more();
    EXPECT_EQ(m_result.received, 7 * chunk) << "the second is full: the answers wait";
    EXPECT_TRUE(m_puts.empty());
    diskOnce();
    ASSERT_EQ(m_puts.size(), 2u);
    EXPECT_EQ(take(m_puts), Outcome::Done);
    EXPECT_EQ(m_result.received, 9 * chunk);
    EXPECT_EQ(m_beside.size(), 1u) << "now the second is being synced";
}

TEST_F(TransfersTest, TheEndWaitsForASyncThatIsRunningAndThenForItsOwn)
{
    const std::string all(piece + 3, 'x');
    const KvUInt32 id = begin(all.size());
    for (std::size_t at = 0; at < all.size(); at += chunk)
        put(id, at, std::string_view(all).substr(at, chunk));
    ASSERT_EQ(m_beside.size(), 1u);
    end(id, crcOf(all));
    EXPECT_EQ(m_beside.size(), 1u);
    diskOnce();
    EXPECT_FALSE(exists());
    diskOnce();
    EXPECT_TRUE(exists());
    diskOnce();
    EXPECT_EQ(take(m_ends), Outcome::Done);
    EXPECT_EQ(content(), all);
}

TEST_F(TransfersTest, ABusyFileIsNotReplacedByATransferThatBeganBefore)
{
    KvUInt32 id = begin(3);
    putAll(id, "old");
    ASSERT_EQ(endAll(id, "old"), Outcome::Done);
    id = begin(3);
    putAll(id, "new");
    m_files.setBusy(std::string("transfer/") + first, true);
    EXPECT_EQ(endAll(id, "new"), Outcome::Busy);
    EXPECT_EQ(content(), "old");
    EXPECT_EQ(inFolder(), 1u);
}

TEST_F(TransfersTest, AnythingThatHasTheNameIsReplacedButAFolder)
{
    fs::create_directory(m_folder.path(std::string("files/") + first));
    const KvUInt32 id = begin(3);
    putAll(id, "abc");
    EXPECT_EQ(endAll(id, "abc"), Outcome::Io);
    EXPECT_NE(m_result.problem.find("cannot rename to"), std::string::npos) << m_result.problem;
    EXPECT_EQ(inFolder(), 1u);
}

TEST_F(TransfersTest, ADiskThatIsFullLeavesNothing)
{
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{20, before.rlim_max};
    const KvUInt32 id = begin(3 * chunk);
    setrlimit(RLIMIT_FSIZE, &small);
    EXPECT_EQ(put(id, 0, std::string(chunk, 'x')), Outcome::Done);
    EXPECT_EQ(put(id, chunk, std::string(chunk, 'x')), Outcome::NoSpace);
    EXPECT_NE(m_result.problem.find("cannot write"), std::string::npos) << m_result.problem;
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    EXPECT_EQ(inFolder(), 0u);
    EXPECT_EQ(put(id, chunk, "x"), Outcome::NoTransfer);
    EXPECT_NE(begin(3), 0u);
}

TEST_F(TransfersTest, ADiskThatIsFullIsToldToThoseWhoWaitForItToo)
{
    const std::string part(chunk, 'x');
    const KvUInt32 id = begin(20 * chunk);
    for (KvUInt64 at = 0; at < 8 * chunk; at += chunk)
        put(id, at, part);
    EXPECT_TRUE(m_puts.empty()) << "the eighth waits for the first sync";
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit small{8 * chunk, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const auto* start = reinterpret_cast<const unsigned char*>(part.data());
    m_transfers.put(holder, id, 8 * chunk, {start, chunk}, taker(m_puts));
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, handler);
    disk();
    ASSERT_EQ(m_puts.size(), 2u);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(take(m_puts), Outcome::NoSpace);
        EXPECT_NE(m_result.problem.find("cannot write"), std::string::npos) << m_result.problem;
    }
    EXPECT_EQ(inFolder(), 0u);
}

TEST_F(TransfersTest, WithoutMemoryForWaitingBesideTheDiskIsWaitedForHere)
{
    const std::string all(3 * piece, 'x');
    const KvUInt32 id = begin(all.size());
    m_isBesideOut = true;
    for (std::size_t at = 0; at < all.size(); at += chunk)
        ASSERT_EQ(put(id, at, std::string_view(all).substr(at, chunk)), Outcome::Done);
    end(id, crcOf(all));
    EXPECT_EQ(take(m_ends), Outcome::Done);
    EXPECT_EQ(content(), all);
}

TEST_F(TransfersTest, OneWhoCannotTakeTheResultDoesNotKeepItFromOthers)
{
    const KvUInt32 id = begin(3);
    putAll(id, "abc");
    m_transfers.end(holder, id, crcOf("abc"), [](const Transfers::Result&) { throw std::bad_alloc(); });
    end(id, crcOf("abc"));
    disk();
    EXPECT_EQ(take(m_ends), Outcome::Done);
}

TEST_F(TransfersTest, FilesThatAreDroppedAreClosedBeside)
{
    const auto file = std::make_shared<int>();
    m_transfers.close(file);
    EXPECT_EQ(file.use_count(), 2);
    ASSERT_EQ(m_beside.size(), 1u);
    m_beside.front().first();
    EXPECT_EQ(file.use_count(), 1);
    m_beside.clear();
    m_transfers.close(nullptr);
    EXPECT_TRUE(m_beside.empty());
    m_isBesideOut = true;
    m_transfers.close(file);
    EXPECT_EQ(file.use_count(), 1) << "or here, without memory";

    m_isBesideOut = false;
    begin(3);
    m_transfers.lockEnded(holder);
    EXPECT_EQ(m_beside.size(), 1u);
    EXPECT_EQ(inFolder(), 0u) << "its name is gone at once";
}

TEST_F(TransfersTest, TheServicesEndLeavesNothingUnfinished)
{
    {
        Transfers transfers(m_files, {}, [this](std::function<void()> work, std::function<void()> done) {
            m_beside.emplace_back(std::move(work), std::move(done));
        });
        ASSERT_NE(transfers.begin(holder, "transfer", first, 0).transferId, 0u);
        transfers.end(holder, 1, 0, taker(m_ends));
        EXPECT_EQ(inFolder(), 1u);
    }
    EXPECT_EQ(inFolder(), 0u);
    m_beside.clear();
}

}  // namespace
