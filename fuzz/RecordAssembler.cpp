#include <algorithm>
#include <optional>

#include "fuzz/Fuzz.h"
#include "platform/oncrpc/RecordAssembler.h"

/*
 * Records out of a byte stream: the same records and the same end however the bytes arrive, all at once, in pieces or
 * straight into the record; no more memory than twice what has arrived or 64 KiB more, and none
 * left.
 * The first byte says how large a record may be, the second which records nobody wants, the third how bytes arrive.
 */

using namespace KvNFuzz;
using KvNRpc::RecordAssembler;
using State = RecordAssembler::State;

namespace {

struct Outcome
{
    std::vector<Bytes> records;
    unsigned skipped = 0;
    State end = State::More;

    bool operator==(const Outcome&) const = default;
};

bool isEnd(State state)
{
    return state == State::TooLong || state == State::EmptyFragments || state == State::OutOfBudget ||
           state == State::OutOfMemory;
}

/** What the record marking of RFC 5531 makes of the stream, read whole. */
Outcome expected(const Bytes& stream, std::size_t limit, unsigned unwanted)
{
    Outcome outcome;
    std::size_t at = 0;
    for (;;) {
        Bytes record;
        unsigned emptyFragments = 0;
        bool isLast = false;
        while (!isLast) {
            if (stream.size() - at < 4)
                return outcome;
            Input mark(stream.data() + at, 4);
            const KvUInt32 header = mark.number(4);
            at += 4;
            isLast = header >> 31 != 0;
            const std::size_t length = header & 0x7FFFFFFF;
            const bool isUnwanted = record.size() >= 4 && (unwanted >> outcome.records.size() % 8 & 1) != 0;
            const std::size_t all = record.size() + length;
            // A record beyond the limit is given up as soon as it is known which it is.
            const std::size_t there = std::min(length, stream.size() - at);
            if (!isUnwanted && all > limit && (record.size() + there >= 4 || length == 0)) {
                outcome.end = State::TooLong;
                return outcome;
            }
            emptyFragments = length == 0 ? emptyFragments + 1 : 0;
            if (emptyFragments > 16 && !isLast) {
                outcome.end = State::EmptyFragments;
                return outcome;
            }
            const std::size_t step = std::min(length, stream.size() - at);
            record.insert(record.end(), stream.begin() + static_cast<std::ptrdiff_t>(at),
                          stream.begin() + static_cast<std::ptrdiff_t>(at + step));
            at += step;
            if (step < length)
                return outcome;
        }
        const bool isUnwanted = record.size() >= 4 && (unwanted >> outcome.records.size() % 8 & 1) != 0;
        outcome.skipped += isUnwanted ? 1 : 0;
        outcome.records.push_back(isUnwanted ? Bytes() : std::move(record));
    }
}

/** How bytes arrive: 0 all at once, 1 into the record where there is room, else in pieces of up to that size. */
Outcome assembled(const Bytes& stream, std::size_t limit, unsigned unwanted, unsigned arrival)
{
    KvNRpc::ByteBudget budget(1u << 24);
    Outcome outcome;
    {
        RecordAssembler assembler(limit, budget);
        const unsigned char* data = stream.data();
        std::size_t left = stream.size();
        while (left != 0 && !isEnd(outcome.end)) {
            unsigned char* place = nullptr;
            const std::size_t room = arrival == 1 ? std::min(assembler.room(place), left) : 0;
            State state = State::More;
            if (room != 0) {
                std::copy_n(data, room, place);
                data += room;
                left -= room;
                state = assembler.arrived(room);
            } else {
                std::size_t piece = arrival < 2 ? left : std::min<std::size_t>(left, arrival);
                const std::size_t before = piece;
                state = assembler.feed(data, piece);
                left -= before - piece;
            }
            const auto arrived = static_cast<std::size_t>(data - stream.data());
            KV_FUZZ_CHECK(assembler.heldBytes() <= std::max<std::size_t>(2 * arrived, arrived + 65536));
            KV_FUZZ_CHECK(assembler.heldBytes() <= budget.held());
            if (state == State::Begun && (unwanted >> outcome.records.size() % 8 & 1) != 0) {
                assembler.skip();
            } else if (state == State::Whole) {
                const KvNRpc::Record record = assembler.take();
                const bool isUnwanted = record.size() >= 4 && (unwanted >> outcome.records.size() % 8 & 1) != 0;
                outcome.skipped += isUnwanted ? 1 : 0;
                outcome.records.push_back(isUnwanted ? Bytes() : Bytes(record.data(), record.data() + record.size()));
            } else if (state == State::Skipped) {
                ++outcome.skipped;
                outcome.records.emplace_back();
            }
            outcome.end = isEnd(state) ? state : State::More;
        }
    }
    KV_FUZZ_CHECK(budget.held() == 0);
    return outcome;
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    Input input(data, size);
    const unsigned limitByte = input.byte();
    const std::size_t limit = limitByte < 128 ? limitByte : std::size_t{1} << (limitByte - 128) % 22;
    const unsigned unwanted = input.byte();
    const unsigned piece = 2 + input.byte() % 64u;
    const Bytes stream = input.all();
    const Costs costs;
    const Outcome right = expected(stream, limit, unwanted);
    for (const unsigned arrival : {0u, 1u, piece, 2u})
        KV_FUZZ_CHECK(assembled(stream, limit, unwanted, arrival) == right);
    costs.check(size, {3 * 65536, 4 * 64, 20000, 120});
    return 0;
}
