#include <gtest/gtest.h>

#include <new>

#include "FailingNew.h"
#include "ServicesFixture.h"
#include "UpdateSupport.h"
#include "tests/support/FailingAllocation.h"

namespace {

constexpr KvUInt32 accessId = 100;
constexpr const char* image = "00000000000000aa";

Bytes whole()
{
    return words({1, 2, 380, 4711});
}

Bytes firmware()
{
    return words({2, 4, 380, 4711, 9, 1});
}

Bytes addressOf(const char* text)
{
    const KvCInventoryAddress parsed = at(text);
    Bytes result = words({parsed.getLength(), 2 * parsed.getLength()});
    for (KvUInt32 i = 0; i < parsed.getLength(); ++i)
        result = result + words({parsed.getCategoryAt(i), parsed.getIndexAt(i)});
    return result;
}

/** A board with a store and its services, on which every call is made anew. */
struct Rig
{
    explicit Rig(KvUInt32 wrongChecksum)
    {
        Call request;
        request.procedure = 2;
        request.peer = here;
        const Bytes arguments = words({2, 0, 0, 1}) + counted("ann");
        request.arguments = arguments;
        access.call(request);
        const Bytes bytes = goodImage(1000, wrongChecksum);
        size = static_cast<KvUInt32>(bytes.size());
        folder.write(std::string("files/") + image, std::string(bytes.begin(), bytes.end()));
    }
    Answer call(KvUInt32 procedure, const Bytes& arguments)
    {
        Call request;
        request.procedure = procedure;
        request.peer = here;
        request.arguments = arguments;
        return service.call(request);
    }
    Bytes updateArguments() const
    {
        return firmware() + words({accessId}) + counted(std::string("transfer/") + image) + words({0, 0, size});
    }
    void complete()
    {
        for (int i = 0; i < 1000 && service.advanceUpdate() != 0ms; ++i)
            now += 1s;
    }
    std::string version() const
    {
        return board->tree().getParameter(at("FIRMWARE/VERSION"))->valueIf<KvCVersion>()->getAsString().c_str();
    }
    /** How the update stands for a service that is started now. */
    Update::Status restarted()
    {
        Update next(*board, 0s);
        EXPECT_TRUE(next.restore(problem)) << problem;
        return next.status();
    }

    TemporaryFolder folder;
    std::string problem;
    std::unique_ptr<KvNService::Directory> root = KvNService::Directory::open(folder.path(), problem);
    std::unique_ptr<Board> board = sampleBoard(Store::open(folder.path(), 4711, problem));
    Files files{root->sub("files", problem), {}, [] { return std::optional<KvUInt64>(1); }};
    Transfers transfers{files, {}, [](const auto& work, const auto& finished) {
                            work();
                            finished();
                        }};
    LockTable::Time now{1000s};
    LockTable locks{{}, [] { return std::optional<KvUInt32>(accessId); }, [](KvUInt32, LockTable::End) {}};
    Update update{*board, 2s};
    InventoryService service{{*board, locks, update, files}, [this] { return now; }};
    DeviceAccessService access{*board, locks, files, transfers, [this] { return now; }, {1, 65536}};
    KvUInt32 size = 0;
};

/** The procedures of an update while the n-th allocation fails, for every n: once or lasting, of the library or of the
    service. */
class UpdateMemoryTest : public testing::TestWithParam<std::tuple<bool, bool>>
{
protected:
    /** Runs `action` while an allocation fails; whether one has. */
    template <class Action>
    static bool failing(std::size_t n, const Action& action)
    {
        const bool lasting = std::get<0>(GetParam());
        try {
            if (std::get<1>(GetParam())) {
                const FailingAllocation hook(n, lasting);
                action();
                return hook.hasFailed();
            }
            const FailingNew hook(n, lasting);
            action();
        } catch (const std::bad_alloc&) {
            return true;
        }
        return FailingNew::hasFailed();
    }
    static void expectServed(Rig& rig)
    {
        const Answer answer = rig.call(8, firmware());
        ASSERT_EQ(answer.kind, Answer::Kind::Success);
        EXPECT_EQ(answer.results[3], 0);
    }
};

TEST_P(UpdateMemoryTest, AnUpdateThatHasNoMemoryIsRefusedOrBegun)
{
    bool failed = true;
    for (std::size_t n = 1; failed; ++n) {
        ASSERT_LT(n, 5000u);
        Rig rig(0);
        Answer answer;
        const Bytes arguments = rig.updateArguments();
        failed = failing(n, [&] { answer = rig.call(7, arguments); });
        expectServed(rig);
        const bool isBegun = rig.update.status().state == Update::State::Running;
        if (answer.kind == Answer::Kind::Success && !answer.results.empty() && answer.results[3] == 0) {
            EXPECT_TRUE(isBegun) << n;
        }
        EXPECT_EQ(rig.restarted().state, isBegun ? Update::State::Failed : Update::State::Idle) << n;
        if (isBegun)
            continue;
        EXPECT_EQ(rig.call(7, arguments).results, words({0, 0})) << "repeated " << n;
    }
}

TEST_P(UpdateMemoryTest, AnUpdateEndsWholeOrFailed)
{
    bool failed = true;
    for (std::size_t n = 1; failed; ++n) {
        ASSERT_LT(n, 5000u);
        Rig rig(0);
        ASSERT_EQ(rig.call(7, rig.updateArguments()).results, words({0, 0}));
        failed = failing(n, [&] { rig.complete(); });
        expectServed(rig);
        const Update::Status status = rig.update.status();
        const bool isDone = status.state == Update::State::Done;
        EXPECT_TRUE(isDone || (failed && status.state == Update::State::Failed)) << n;
        EXPECT_EQ(status.errors == 0, isDone) << n;
        EXPECT_EQ(rig.version(), isDone ? "4.0" : "3.1.2b4p7") << n;
        EXPECT_EQ(rig.restarted().state, status.state) << n;
    }
}

TEST_P(UpdateMemoryTest, CallsAboutAnUpdateFailAlone)
{
    const std::pair<KvUInt32, Bytes> calls[] = {{8, firmware()},
                                                {9, firmware() + words({accessId})},
                                                {10, firmware() + words({accessId})},
                                                {14, firmware() + words({0})},
                                                {15, firmware() + words({accessId, 1})},
                                                {12, firmware() + words({accessId})}};
    for (const auto& [procedure, arguments] : calls) {
        Rig rig(1);
        ASSERT_EQ(rig.call(7, rig.updateArguments()).results, words({0, 0}));
        rig.complete();
        bool failed = true;
        for (std::size_t n = 1; failed; ++n) {
            ASSERT_LT(n, 5000u);
            Answer answer;
            failed = failing(
                n, [&, &procedure = procedure, &arguments = arguments] { answer = rig.call(procedure, arguments); });
            expectServed(rig);
            const bool isClosed = rig.update.status().state == Update::State::Idle;
            EXPECT_EQ(rig.update.status().errors, isClosed ? 0u : 2u) << procedure << " " << n;
            EXPECT_TRUE(procedure == 12 || !isClosed);
            if (procedure == 9 && answer.kind == Answer::Kind::Success && answer.results.size() == 8) {
                EXPECT_EQ(answer.results[3], 1) << "errors that are lost are not taken for none";
            }
        }
    }
}

TEST_P(UpdateMemoryTest, ValuesAreAppliedAndStoredOrNeither)
{
    bool failed = true;
    for (std::size_t n = 1; failed; ++n) {
        ASSERT_LT(n, 5000u);
        Rig rig(0);
        const Bytes value = addressOf("HCN[4711]/TEST/TEST_UI8") + words({accessId, 0x121}) + counted("\x05");
        ASSERT_EQ(rig.call(3, value).results, words({0, 0}));
        failed = failing(n, [&] { rig.call(6, whole() + words({accessId})); });
        KvCErrorListPool errors;
        const auto current = rig.board->tree().getValue<unsigned char>(errors, at("TEST/TEST_UI8"));
        EXPECT_TRUE(current == 5 || (failed && current == 8)) << n;
        ASSERT_TRUE(rig.board->restore(rig.problem)) << rig.problem;
        EXPECT_EQ(rig.board->tree().getValue<unsigned char>(errors, at("TEST/TEST_UI8")), current) << n;
        expectServed(rig);
    }
}

INSTANTIATE_TEST_SUITE_P(Failing, UpdateMemoryTest, testing::Combine(testing::Bool(), testing::Bool()),
                         [](const auto& row) {
                             return std::string(std::get<0>(row.param) ? "lasting" : "once") +
                                    (std::get<1>(row.param) ? "_library" : "_service");
                         });

}  // namespace
