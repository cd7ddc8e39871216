#include "tools/kvboardd/InventoryService.h"

#include <utility>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "tools/kvboardd/InventoryFrames.h"
#include "tools/kvboardd/Log.h"

namespace KvNBoardService {

namespace {

/** Whether there is such a right. */
bool isRight(u_int right)
{
    return right == KVIM_WRITE_PARAMETERS || right == KVIM_UPDATE_BOARD || right == KVIM_DELETE_FILES;
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

Answer plainResult(u_int status, const KvCErrorListPool& errors)
{
    ErrorBlock block(errors, KVIM_MAX_ERRORS);
    const bool isLost = block.size() == 0 && errors.getErrorCount() != 0;
    KvimResult record{isLost ? refused : status, {block.size(), block.data()}};
    return encoded(xdr_KvimResult, record, fieldRoom + roomFor(block.size()));
}

InventoryService::InventoryService(const Parts& parts, Clock clock)
    : m_board(parts.board),
      m_locks(parts.locks),
      m_update(parts.update),
      m_files(parts.files),
      m_clock(std::move(clock))
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
            return callUpdate(call);
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
    const char* const origin = "InventoryService::readParameter";
    KvCErrorListPool failed;
    KvCBuffer stream(failed);
    return atAddress<KvimAddressArguments, xdr_KvimAddressArguments>(
        call, origin,
        [&](KvCErrorListPool& errors, auto&, const KvCInventoryAddress& address) {
            return m_board.read(errors, address, stream) && fits(errors, stream, KVIM_MAX_PARAMETER, origin);
        },
        [&](bool good, const KvCErrorListPool& errors) {
            ErrorBlock block(errors, KVIM_MAX_ERRORS);
            const auto [size, data] = bytesOf(good ? &stream : nullptr);
            KvimReadParameterResult record{good ? done : refused, {size, data}, {block.size(), block.data()}};
            return encoded(xdr_KvimReadParameterResult, record, fieldRoom + roomFor(size) + roomFor(block.size()));
        });
}

Answer InventoryService::writeParameterValue(const Call& call)
{
    return withLock<KvimWriteParameterValueArguments, xdr_KvimWriteParameterValueArguments>(
        call, "InventoryService::writeParameterValue",
        [&](KvCErrorListPool& errors, auto& arguments, const KvCInventoryAddress& address) {
            const auto* bytes = reinterpret_cast<const unsigned char*>(arguments.value.data.data_val);
            const WireValue value{arguments.value.type, {bytes, arguments.value.data.data_len}};
            return m_board.write(errors, arguments.accessId, address, value);
        },
        resultOf);
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
    return withLock<KvimAccessArguments, xdr_KvimAccessArguments>(
        call, "InventoryService::apply",
        [&](KvCErrorListPool& errors, auto& arguments, const KvCInventoryAddress& address) {
            std::size_t applied = 0;
            const bool good = m_board.apply(errors, arguments.accessId, address, applied);
            if (applied != 0)
                logMade("values applied", [&] {
                    return "board " + std::to_string(m_board.serialNumber()) + ": " + valueCount(applied) +
                           " applied at " + shownAddress(address) + " by " + addressText(call.peer);
                });
            return good;
        },
        resultOf);
}

Answer InventoryService::checkAuthority(const Call& call)
{
    Authority authority;
    KvUInt32 accessId = 0;
    bool isAllowed = false;
    Answer answer = atAddress<KvimCheckAuthorityArguments, xdr_KvimCheckAuthorityArguments>(
        call, "InventoryService::checkAuthority",
        [&](KvCErrorListPool& errors, auto& arguments, const KvCInventoryAddress& address) {
            if (!m_board.contains(errors, address))
                return false;
            KvCErrorListPool reasons;  // not transmitted: that the caller is not entitled is the answer, not an error
            authority = checkModify(reasons, call, arguments.accessId, m_locks, m_clock(), m_board.serialNumber());
            accessId = authority.mayModify ? arguments.accessId : 0;
            isAllowed = authority.mayModify && isRight(arguments.right);
            return true;
        },
        [&](bool good, const KvCErrorListPool& errors) {
            ErrorBlock block(errors, KVIM_MAX_ERRORS);
            KvimCheckAuthorityResult record{good ? done : refused, isAllowed, {block.size(), block.data()}};
            return encoded(xdr_KvimCheckAuthorityResult, record, fieldRoom + roomFor(block.size()));
        });
    answer.slow = authority.slow;
    answer.accessId = accessId;
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
    return plainResult(done, KvCErrorListPool());
}

}  // namespace KvNBoardService
