#include "tools/kvboardd/InventoryService.h"

#include <utility>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "inventory_manager.h"
#include "tools/kvboardd/Log.h"
#include "tools/kvboardd/Wire.h"

namespace KvNBoardService {

namespace {

constexpr u_int done = 0;
constexpr u_int refused = 1;

/** Room for the fields of a result beside its counted bytes. */
constexpr std::size_t fieldRoom = 64;

/** The address that was transmitted; false, and reported, when its counts disagree or memory is out. */
bool takeAddress(KvCErrorListPool& errors, const KvimAddress& record, KvCInventoryAddress& address, const char* origin)
{
    const u_int words = record.values.values_len;
    if (words % 2 != 0 || words / 2 != record.elementCount) {
        KV_REPORT(errors, BoardAddressCorrupt, origin, record.elementCount, words);
        return false;
    }
    for (u_int i = 0; i < words; i += 2)
        address = address / KvCInventoryAddress(record.values.values_val[i], record.values.values_val[i + 1]);
    if (address.getLength() == record.elementCount)
        return true;
    KV_REPORT(errors, BoardOutOfMemory, origin);
    return false;
}

/** Whether there is such a right. */
bool isRight(u_int right)
{
    return right == KVIM_WRITE_PARAMETERS || right == KVIM_UPDATE_BOARD || right == KVIM_DELETE_FILES;
}

/** A result that is a status and an error list. */
Answer result(u_int status, const KvCErrorListPool& errors)
{
    ErrorBlock block(errors, KVIM_MAX_ERRORS);
    KvimResult record{status, {block.size(), block.data()}};
    return encoded(xdr_KvimResult, record, fieldRoom + roomFor(block.size()));
}

/** The bytes of a stream, as the generated code takes them. */
std::pair<u_int, char*> bytesOf(const KvCBuffer* stream)
{
    if (stream == nullptr)
        return {0, nullptr};
    return {stream->getOccupiedSize(), stream->getStartPointer()};
}

/** Whether a stream may travel as one result; reports when not. */
bool fits(KvCErrorListPool& errors, const KvCBuffer& stream, std::size_t maximum, const char* origin)
{
    if (stream.getOccupiedSize() <= maximum)
        return true;
    KV_REPORT(errors, BoardReplyTooLarge, origin, stream.getOccupiedSize(), maximum);
    return false;
}

}  // namespace

InventoryService::InventoryService(Board& board, LockTable& locks, Clock clock)
    : m_board(board), m_locks(locks), m_clock(std::move(clock))
{}

Answer InventoryService::call(const Call& call)
{
    switch (call.procedure) {
        case KVIM_NULL:
            return {};
        case KVIM_SCAN:
            return scan(call);
        case KVIM_READ_PARAMETER:
            return readParameter(call);
        case KVIM_WRITE_PARAMETER_VALUE:
            return writeParameterValue(call);
        case KVIM_GET_LOCAL_ADDRESS:
            return getLocalAddress(call);
        case KVIM_APPLY:
            return apply(call);
        case KVIM_CHECK_AUTHORITY:
            return checkAuthority(call);
        case KVIM_REGISTER_PARENT:
            return registerParent(call);
        default:
            return Answer::of(Answer::Kind::ProcedureUnavailable);
    }
}

Answer InventoryService::scan(const Call& call)
{
    // The flag asks for values that are read anew; what this board knows is always current.
    Record<KvimScanArguments, xdr_KvimScanArguments> arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    KvCErrorListPool errors;
    const KvCBuffer* stream = m_board.scan(errors);
    if (stream != nullptr && !fits(errors, *stream, KVIM_MAX_TREE, "InventoryService::scan"))
        stream = nullptr;
    ErrorBlock block(errors, KVIM_MAX_ERRORS);
    const auto [size, data] = bytesOf(stream);
    KvimScanResult record{stream == nullptr ? refused : done, {size, data}, {block.size(), block.data()}};
    return encoded(xdr_KvimScanResult, record, fieldRoom + roomFor(size) + roomFor(block.size()));
}

Answer InventoryService::readParameter(const Call& call)
{
    Record<KvimAddressArguments, xdr_KvimAddressArguments> arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    const char* const origin = "InventoryService::readParameter";
    KvCErrorListPool errors;
    KvCInventoryAddress address;
    KvCBuffer stream(errors);
    const bool good = takeAddress(errors, arguments->address, address, origin) &&
                      m_board.read(errors, address, stream) && fits(errors, stream, KVIM_MAX_PARAMETER, origin);
    ErrorBlock block(errors, KVIM_MAX_ERRORS);
    const auto [size, data] = bytesOf(good ? &stream : nullptr);
    KvimReadParameterResult record{good ? done : refused, {size, data}, {block.size(), block.data()}};
    return encoded(xdr_KvimReadParameterResult, record, fieldRoom + roomFor(size) + roomFor(block.size()));
}

Answer InventoryService::writeParameterValue(const Call& call)
{
    Record<KvimWriteParameterValueArguments, xdr_KvimWriteParameterValueArguments> arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    KvCErrorListPool errors;
    Answer refusal;
    if (!mayModify(errors, call, arguments->accessId, refusal)) {
        Answer answer = result(refused, errors);
        answer.slow = refusal.slow;
        return answer;
    }
    KvCInventoryAddress address;
    const auto* bytes = reinterpret_cast<const unsigned char*>(arguments->value.data.data_val);
    const WireValue value{arguments->value.type, {bytes, arguments->value.data.data_len}};
    const bool good = takeAddress(errors, arguments->address, address, "InventoryService::writeParameterValue") &&
                      m_board.write(errors, arguments->accessId, address, value);
    Answer answer = result(good ? done : refused, errors);
    answer.accessId = arguments->accessId;
    return answer;
}

Answer InventoryService::getLocalAddress(const Call& call) const
{
    if (!call.arguments.empty())
        return Answer::of(Answer::Kind::GarbageArguments);
    const KvCInventoryAddress address = m_board.localAddress();
    u_int words[2] = {address.getCategory(), address.getIndex()};
    KvimLocalAddressResult record{{1, {2, words}}, {0, nullptr}};
    return encoded(xdr_KvimLocalAddressResult, record, fieldRoom);
}

Answer InventoryService::apply(const Call& call)
{
    Record<KvimAccessArguments, xdr_KvimAccessArguments> arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    KvCErrorListPool errors;
    Answer refusal;
    if (!mayModify(errors, call, arguments->accessId, refusal)) {
        Answer answer = result(refused, errors);
        answer.slow = refusal.slow;
        return answer;
    }
    KvCInventoryAddress address;
    std::size_t applied = 0;
    const bool good = takeAddress(errors, arguments->address, address, "InventoryService::apply") &&
                      m_board.apply(errors, arguments->accessId, address, applied);
    if (applied != 0)
        log("board " + std::to_string(m_board.serialNumber()) + ": " + valueCount(applied) + " applied at " +
            shownAddress(address) + " by " + addressText(call.peer));
    Answer answer = result(good ? done : refused, errors);
    answer.accessId = arguments->accessId;
    return answer;
}

Answer InventoryService::checkAuthority(const Call& call)
{
    Record<KvimCheckAuthorityArguments, xdr_KvimCheckAuthorityArguments> arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    KvCErrorListPool errors;
    KvCInventoryAddress address;
    const bool good = takeAddress(errors, arguments->address, address, "InventoryService::checkAuthority") &&
                      m_board.contains(errors, address);
    bool isHolder = false;
    Answer refusal;
    if (good) {
        KvCErrorListPool reasons;  // not transmitted: that the caller is not entitled is the answer, not an error
        isHolder = mayModify(reasons, call, arguments->accessId, refusal);
    }
    ErrorBlock block(errors, KVIM_MAX_ERRORS);
    KvimCheckAuthorityResult record{
        good ? done : refused, isHolder && isRight(arguments->right), {block.size(), block.data()}};
    Answer answer = encoded(xdr_KvimCheckAuthorityResult, record, fieldRoom + roomFor(block.size()));
    answer.slow = refusal.slow;
    answer.accessId = isHolder ? arguments->accessId : 0;
    return answer;
}

Answer InventoryService::registerParent(const Call& call)
{
    Record<KvimRegisterParentArguments, xdr_KvimRegisterParentArguments> arguments;
    if (!arguments.decode(call.arguments))
        return Answer::of(Answer::Kind::GarbageArguments);
    m_parent = arguments->parent;
    log("board " + std::to_string(m_board.serialNumber()) + ": parent " + std::to_string(m_parent) +
        " registered from " + addressText(call.peer));
    return result(done, KvCErrorListPool());
}

bool InventoryService::mayModify(KvCErrorListPool& errors, const Call& call, KvUInt32 accessId, Answer& refusal)
{
    LockTable::Level level = LockTable::Level::None;
    const LockTable::Outcome outcome = m_locks.check(m_clock(), call.peer, accessId, level);
    if (outcome != LockTable::Outcome::Granted) {
        refuseAccess(errors, call, outcome, accessId, m_locks.limits(), m_board.serialNumber(), refusal);
        return false;
    }
    if (level == LockTable::Level::Modify)
        return true;
    KV_REPORT(errors, BoardAccessTooLow, "InventoryService::mayModify", accessId);
    return false;
}

}  // namespace KvNBoardService
