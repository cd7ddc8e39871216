#include <string>
#include <string_view>

#include "base/BigEndian.h"
#include "base/Report.h"
#include "tools/kvboardd/Files.h"
#include "tools/kvboardd/InventoryFrames.h"
#include "tools/kvboardd/Log.h"
#include "tools/kvboardd/PutImage.h"

/* The procedures of a firmware update. */

namespace KvNBoardService {

namespace {

/** The only selector of updateStatus2. */
constexpr u_int selectState = 0;

/** How a state travels. That an update failed is told by its errors. */
KvimUpdateState wireState(Update::State state)
{
    switch (state) {
        case Update::State::Running:
            return KVIM_UPDATE_RUNNING;
        case Update::State::Done:
        case Update::State::Failed:
            return KVIM_UPDATE_FINISHED;
        case Update::State::Idle:
            break;
    }
    return KVIM_UPDATE_IDLE;
}

/** The entry `index` of an error list as a block of its own; no bytes when memory is out. */
std::vector<unsigned char> entryBlock(const KvCErrorListPool& errors, KvUInt32 index)
{
    constexpr std::size_t headBytes = 8;
    const std::vector<unsigned char> all = errors.serialize();
    if (all.empty())
        return {};
    std::size_t begin = 0;
    std::size_t end = headBytes;
    const auto number = [&] {
        const auto value = KvNBigEndian::load<KvUInt32>(all.data() + end);
        end += sizeof value;
        return value;
    };
    const auto skipTexts = [&](KvUInt32 count) {
        for (; count != 0; --count) {
            const KvUInt32 length = number();
            end += length;
        }
    };
    for (KvUInt32 i = 0; i <= index; ++i) {
        begin = end;
        number();
        number();
        skipTexts(2);
        skipTexts(number());
    }
    std::vector<unsigned char> block(all.begin(), all.begin() + headBytes);
    KvNBigEndian::store(block.data() + headBytes / 2, KvUInt32(1));
    block.insert(block.end(), all.begin() + static_cast<std::ptrdiff_t>(begin),
                 all.begin() + static_cast<std::ptrdiff_t>(end));
    return block;
}

/** Names as the generated code takes them. */
std::pair<u_int, char*> charactersOf(std::string& name)
{
    return {static_cast<u_int>(name.size()), name.data()};
}

}  // namespace

Answer InventoryService::callUpdate(const Call& call)
{
    switch (call.procedure) {
        case KVIM_UPDATE:
            return update(call);
        case KVIM_UPDATE_STATUS:
            return updateStatus(call);
        case KVIM_UPDATE_ERRORS:
            return updateErrors(call);
        case KVIM_GENERATE_REMOTE_FILENAME:
            return generateRemoteFilename(call);
        case KVIM_UPDATE_FINISH:
            return updateFinish(call);
        case KVIM_UPDATE_2:
            return update2(call);
        case KVIM_UPDATE_STATUS_2:
            return updateStatus2(call);
        case KVIM_UPDATE_ERRORS_2:
            return updateErrors2(call);
        default:
            return Answer::of(Answer::Kind::ProcedureUnavailable);
    }
}

template <class Arguments>
bool InventoryService::beginUpdate(KvCErrorListPool& errors, const Call& call, const Arguments& arguments,
                                   KvUInt32 firmwareType, const KvCInventoryAddress& address)
{
    if (m_board.isMachine()) {
        KV_REPORT(errors, BoardIsMachine, "InventoryService::beginUpdate", address.toString());
        return false;
    }
    const std::string_view path(arguments.fileName.fileName_val, arguments.fileName.fileName_len);
    Update::Order order;
    order.address = address;
    order.firmwareType = firmwareType;
    order.size = arguments.size;
    const auto open = [&](KvCErrorListPool& reasons) { return PutImage::open(reasons, m_files, path); };
    if (!m_update.begin(errors, m_clock(), std::move(order), open))
        return false;
    logMade("an update has begun", [&] {
        return updateName() + " begun as " + firmwareTypeName(firmwareType) + " by " + addressText(call.peer);
    });
    return true;
}

Answer InventoryService::update(const Call& call)
{
    return withLock<KvimUpdateArguments, xdr_KvimUpdateArguments>(
        call, "InventoryService::update",
        [&](KvCErrorListPool& errors, auto& arguments, const KvCInventoryAddress& address) {
            return beginUpdate(errors, call, arguments, static_cast<KvUInt32>(transmitted(arguments.firmwareType)),
                               address);
        },
        resultOf);
}

Answer InventoryService::update2(const Call& call)
{
    return withLock<KvimUpdate2Arguments, xdr_KvimUpdate2Arguments>(
        call, "InventoryService::update2",
        [&](KvCErrorListPool& errors, auto& arguments, const KvCInventoryAddress& address) {
            return beginUpdate(errors, call, arguments, arguments.kind, address);
        },
        resultOf);
}

Answer InventoryService::updateStatus(const Call& call)
{
    return atAddress<KvimAddressArguments, xdr_KvimAddressArguments>(
        call, "InventoryService::updateStatus",
        [&](KvCErrorListPool& errors, auto&, const KvCInventoryAddress& address) {
            return m_board.contains(errors, address);
        },
        [&](bool good, const KvCErrorListPool& errors) {
            ErrorBlock block(errors, KVIM_MAX_ERRORS);
            const Update::Status status = good ? m_update.status() : Update::Status();
            const auto type = status.state == Update::State::Idle ? KVIM_INVALID_FIRMWARE
                                                                  : static_cast<KvimFirmwareType>(status.firmwareType);
            KvimUpdateStatusResult record{
                good ? done : refused, wireState(status.state),         type,
                status.percent,        static_cast<u_int>(status.step), {block.size(), block.data()}};
            return encoded(xdr_KvimUpdateStatusResult, record, fieldRoom + roomFor(block.size()));
        });
}

Answer InventoryService::updateStatus2(const Call& call)
{
    const char* const origin = "InventoryService::updateStatus2";
    return atAddress<KvimUpdateStatus2Arguments, xdr_KvimUpdateStatus2Arguments>(
        call, origin,
        [&](KvCErrorListPool& errors, auto& arguments, const KvCInventoryAddress& address) {
            if (!m_board.contains(errors, address))
                return false;
            if (arguments.selector != selectState)
                KV_REPORT(errors, BoardUpdateSelector, origin, arguments.selector);
            return arguments.selector == selectState;
        },
        [&](bool good, const KvCErrorListPool& errors) {
            ErrorBlock block(errors, KVIM_MAX_ERRORS);
            const Update::Status status = good ? m_update.status() : Update::Status();
            KvimUpdateStatus2Result record{good ? done : refused, static_cast<u_int>(wireState(status.state)),
                                           status.percent,        static_cast<u_int>(status.step),
                                           status.errors,         {block.size(), block.data()}};
            return encoded(xdr_KvimUpdateStatus2Result, record, fieldRoom + roomFor(block.size()));
        });
}

Answer InventoryService::updateErrors(const Call& call)
{
    return withLock<KvimAccessArguments, xdr_KvimAccessArguments>(
        call, "InventoryService::updateErrors",
        [&](KvCErrorListPool& errors, auto&, const KvCInventoryAddress& address) {
            return m_board.contains(errors, address);
        },
        [&](bool good, const KvCErrorListPool& errors) { return resultOf(good, good ? m_update.errors() : errors); });
}

Answer InventoryService::updateErrors2(const Call& call)
{
    const char* const origin = "InventoryService::updateErrors2";
    std::vector<unsigned char> entry;
    return withLock<KvimUpdateErrors2Arguments, xdr_KvimUpdateErrors2Arguments>(
        call, origin,
        [&](KvCErrorListPool& errors, auto& arguments, const KvCInventoryAddress& address) {
            if (!m_board.contains(errors, address))
                return false;
            const KvUInt32 count = m_update.status().errors;
            if (arguments.index >= count) {
                KV_REPORT(errors, BoardNoUpdateError, origin, arguments.index, count);
                return false;
            }
            entry = entryBlock(m_update.errors(), arguments.index);
            if (entry.empty())
                KV_REPORT(errors, BoardOutOfMemory, origin);
            return !entry.empty();
        },
        [&](bool good, const KvCErrorListPool& errors) {
            ErrorBlock block(errors, KVIM_MAX_ERRORS);
            KvimUpdateErrors2Result record{good ? done : refused,
                                           {static_cast<u_int>(entry.size()), reinterpret_cast<char*>(entry.data())},
                                           {block.size(), block.data()}};
            return encoded(xdr_KvimUpdateErrors2Result, record,
                           fieldRoom + roomFor(entry.size()) + roomFor(block.size()));
        });
}

Answer InventoryService::updateFinish(const Call& call)
{
    return withLock<KvimAccessArguments, xdr_KvimAccessArguments>(
        call, "InventoryService::updateFinish",
        [&](KvCErrorListPool& errors, auto&, const KvCInventoryAddress& address) {
            if (!m_board.contains(errors, address))
                return false;
            const bool isOver = m_update.status().state != Update::State::Idle;
            const std::string what = isOver ? updateName() : std::string();
            if (!m_update.finish(errors))
                return false;
            if (isOver)
                logMade("an update is closed", [&] { return what + " closed by " + addressText(call.peer); });
            return true;
        },
        resultOf);
}

Answer InventoryService::generateRemoteFilename(const Call& call)
{
    const char* const origin = "InventoryService::generateRemoteFilename";
    std::string directory;
    std::string fileName;
    return withLock<KvimAccessArguments, xdr_KvimAccessArguments>(
        call, origin,
        [&](KvCErrorListPool& errors, auto&, const KvCInventoryAddress& address) {
            if (!m_board.contains(errors, address))
                return false;
            const bool good = m_files.generateName(directory, fileName) == Files::Outcome::Done;
            if (!good)
                KV_REPORT(errors, BoardNoFileName, origin);
            return good;
        },
        [&](bool good, const KvCErrorListPool& errors) {
            ErrorBlock block(errors, KVIM_MAX_ERRORS);
            const auto [directorySize, directoryCharacters] = charactersOf(directory);
            const auto [fileNameSize, fileNameCharacters] = charactersOf(fileName);
            KvimRemoteFilenameResult record{good ? done : refused,
                                            {directorySize, directoryCharacters},
                                            {fileNameSize, fileNameCharacters},
                                            {block.size(), block.data()}};
            return encoded(xdr_KvimRemoteFilenameResult, record,
                           fieldRoom + 4 * (directory.size() + fileName.size()) + roomFor(block.size()));
        });
}

Update::Milliseconds InventoryService::advanceUpdate() noexcept
{
    const Update::State before = m_update.status().state;
    const Update::Milliseconds pause = m_update.advance(m_clock());
    const Update::State now = m_update.status().state;
    if (before == now)
        return pause;
    logMade("an update is over", [&] {
        return updateName() + (now == Update::State::Done ? std::string(" is done")
                                                          : " has failed: " + shown(m_update.errors().getErrorText(0)));
    });
    return pause;
}

/** The board's update, for the log. */
std::string InventoryService::updateName() const
{
    return "board " + std::to_string(m_board.serialNumber()) + ": update of " + shown(m_update.address()) +
           " to version " + m_update.newVersion().getAsString().c_str();
}

}  // namespace KvNBoardService
