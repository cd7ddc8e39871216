#include <gtest/gtest.h>

#include "SampleBoard.h"
#include "TemporaryFolder.h"
#include "base/KvCBuffer.h"
#include "inventory/KvCInventoryParameter.h"
#include "tests/support/FailingAllocation.h"

namespace {

using namespace KvNBoardService;
using Bytes = std::vector<unsigned char>;

constexpr KvUInt32 id = 77;
constexpr const char* longText = "a text that is longer than what stands inside";
constexpr const char* textAddress = "HCN[4711]/TEST/TEST_S";

/** Each operation while the n-th allocation of the library fails, for every n, once and lasting. */
class BoardMemoryTest : public testing::TestWithParam<bool>
{
protected:
    /** Runs `operation` on a fresh board for each n, until nothing fails any more. It returns whether it succeeded;
        `unchanged` then says whether what failed has left everything as it was. */
    template <class Prepare, class Operation, class Unchanged>
    void failEach(const Prepare& prepare, const Operation& operation, const Unchanged& unchanged)
    {
        for (std::size_t n = 1;; ++n) {
            ASSERT_LT(n, 10000u);
            const std::unique_ptr<Board> board = sampleBoard();
            KvCErrorListPool errors;
            prepare(*board);
            bool good = false;
            bool failed = false;
            {
                const FailingAllocation failing(n, GetParam());
                good = operation(*board, errors);
                failed = failing.hasFailed();
            }
            if (!good) {
                EXPECT_TRUE(failed);
                EXPECT_GT(errors.getErrorCount(), 0u) << "allocation " << n;
                EXPECT_TRUE(unchanged(*board)) << "allocation " << n;
            }
            if (!failed) {
                EXPECT_TRUE(good);
                return;
            }
        }
    }
    static std::string text(const Board& board)
    {
        KvCErrorListPool errors;
        return board.tree().getParameter(at("TEST/TEST_S"))->getValueAsString(errors).c_str();
    }
    static bool write(Board& board, KvCErrorListPool& errors)
    {
        const std::string value = longText;
        const Bytes bytes(value.begin(), value.end());
        return board.write(errors, id, at(textAddress), {0x2000, bytes});
    }
};

TEST_P(BoardMemoryTest, AScanIsWholeOrFails)
{
    std::size_t whole = 0;
    {
        KvCErrorListPool errors;
        whole = sampleBoard()->scan(errors)->getOccupiedSize();
    }
    failEach([](Board&) {},
             [&](Board& board, KvCErrorListPool& errors) {
                 const KvCBuffer* stream = board.scan(errors);
                 EXPECT_TRUE(stream == nullptr || stream->getOccupiedSize() == whole);
                 return stream != nullptr;
             },
             [&](Board& board) {
                 KvCErrorListPool errors;
                 return board.scan(errors)->getOccupiedSize() == whole;
             });
}

TEST_P(BoardMemoryTest, AValueIsWrittenWholeOrNotAtAll)
{
    failEach([](Board&) {}, [](Board& board, KvCErrorListPool& errors) { return write(board, errors); },
             [](Board& board) {
                 KvCErrorListPool errors;
                 std::size_t applied = 0;
                 return board.writtenCount() == 0 && board.apply(errors, id, at("HCN[4711]"), applied) &&
                        applied == 0 && text(board) == "text";
             });
}

TEST_P(BoardMemoryTest, ValuesAreAppliedAllOrNone)
{
    failEach(
        [](Board& board) {
            KvCErrorListPool errors;
            const unsigned char one = 1;
            ASSERT_TRUE(board.write(errors, id, at("HCN[4711]/TEST/TEST_UI8"), {0x121, {&one, 1}}));
            ASSERT_TRUE(write(board, errors));
        },
        [](Board& board, KvCErrorListPool& errors) {
            std::size_t applied = 0;
            const bool good = board.apply(errors, id, at("HCN[4711]"), applied);
            EXPECT_EQ(applied, good ? 2u : 0u);
            return good;
        },
        [](Board& board) {
            KvCErrorListPool errors;
            return text(board) == "text" && board.tree().getValue<unsigned char>(errors, at("TEST/TEST_UI8")) == 8;
        });
}

TEST_P(BoardMemoryTest, AParameterIsReadWholeOrNot)
{
    std::size_t whole = 0;
    failEach([](Board&) {},
             [&](Board& board, KvCErrorListPool& errors) {
                 KvCBuffer buffer(errors);
                 const bool good = errors.getErrorCount() == 0 && board.read(errors, at(textAddress), buffer);
                 whole = good && whole == 0 ? buffer.getOccupiedSize() : whole;
                 EXPECT_TRUE(!good || buffer.getOccupiedSize() == whole);
                 return good;
             },
             [](Board&) { return true; });
    EXPECT_GT(whole, 20u);
}

INSTANTIATE_TEST_SUITE_P(Failing, BoardMemoryTest, testing::Bool(),
                         [](const auto& row) { return row.param ? "lasting" : "once"; });

}  // namespace
