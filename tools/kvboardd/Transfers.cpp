#include "tools/kvboardd/Transfers.h"

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "base/Crc32.h"
#include "platform/service/File.h"

namespace KvNBoardService {

using KvNService::FileProblem;

/** A transfer under way. */
struct Transfers::Transfer
{
    KvUInt32 accessId = 0;
    KvUInt32 id = 0;
    std::string fileName;
    KvUInt64 size = 0;
    KvUInt64 received = 0;
    KvUInt32 crc32 = 0;
    std::shared_ptr<KvNService::UnfinishedFile> file;

    KvUInt64 unsynced = 0;      ///< bytes that came since the last sync began
    bool isSyncing = false;     ///< a sync, of the file or of its folder, is running beside
    FileProblem problem;        ///< of that sync, once it is over
    bool isEnding = false;      ///< everything has come
    bool isLastSync = false;    ///< the sync that is running began when everything had come
    bool isPlaced = false;      ///< the file has its name
    Result failure;             ///< what a sync that nobody waited for said
    std::vector<Done> putters;  ///< wait until the sync that is running is over
    std::vector<Done> enders;   ///< wait until the file is in its place

    Result result(Outcome outcome = Outcome::Done, std::string why = {}) const
    {
        return {outcome, id, received, size, crc32, std::move(why)};
    }
    Result failed(FileProblem& why) const
    {
        return result(why.kind == FileProblem::Kind::Full ? Outcome::NoSpace : Outcome::Io, std::move(why.text));
    }
};

namespace {

constexpr std::size_t compareBytes = 65536;

using Sync = bool (KvNService::UnfinishedFile::*)(FileProblem&) const;

/** Syncs a file or its folder on the thread beside, where a lack of memory is one more problem. */
void syncBeside(const KvNService::UnfinishedFile& file, Sync sync, FileProblem& problem) noexcept
{
    try {
        (file.*sync)(problem);
    } catch (const std::bad_alloc&) {
        problem.kind = FileProblem::Kind::System;
    }
}

/** Tells everyone who waits; one who cannot take it is not told. */
void tell(std::vector<Transfers::Done>& waiting, const Transfers::Result& result)
{
    for (const Transfers::Done& done : std::exchange(waiting, {})) {
        try {
            done(result);
        } catch (const std::bad_alloc&) {
            // Its function is destroyed, which is an answer too.
        }
    }
}

}  // namespace

Transfers::Transfers(Files& files, const Limits& limits, Beside beside)
    : m_files(files), m_limits(limits), m_beside(std::move(beside))
{}

Transfers::~Transfers()
{
    drop();
}

void Transfers::drop() noexcept
{
    if (m_transfer == nullptr)
        return;
    // Whoever waits for a sync is told when it is over.
    m_transfer->file->discard();
    m_files.release();
    close(m_transfer->file);
    m_transfer.reset();
}

void Transfers::close(std::shared_ptr<const void> file) noexcept
{
    if (file == nullptr)
        return;
    try {
        // One holder, so that the copies of a function make no difference.
        const auto holder = std::make_shared<std::shared_ptr<const void>>(std::move(file));
        m_beside([holder] { holder->reset(); }, [] {});
    } catch (...) {
        // It is closed here and now.
    }
}

std::string Transfers::name() const
{
    return m_transfer == nullptr ? std::string() : std::string(Files::directoryName) + "/" + m_transfer->fileName;
}

Transfers::Transfer* Transfers::find(KvUInt32 accessId, KvUInt32 transferId) const
{
    const bool isIt = m_transfer != nullptr && m_transfer->accessId == accessId && m_transfer->id == transferId;
    return isIt ? m_transfer.get() : nullptr;
}

Transfers::Result Transfers::begin(KvUInt32 accessId, std::string_view directory, std::string_view fileName,
                                   KvUInt64 size)
{
    auto transfer = std::make_shared<Transfer>();
    transfer->fileName = fileName;
    transfer->accessId = accessId;
    transfer->size = size;
    drop();
    std::string problem;
    const Files::Outcome outcome = m_files.begin(directory, fileName, size, transfer->file, problem);
    if (outcome != Files::Outcome::Done)
        return transfer->result(outcome, std::move(problem));
    m_lastId = m_lastId == 0xFFFFFFFF ? 1 : m_lastId + 1;
    transfer->id = m_lastId;
    m_transfer = std::move(transfer);
    return m_transfer->result();
}

void Transfers::put(KvUInt32 accessId, KvUInt32 transferId, KvUInt64 offset, std::span<const unsigned char> bytes,
                    Done done)
{
    Transfer* transfer = find(accessId, transferId);
    if (transfer == nullptr)
        return done({Outcome::NoTransfer, transferId, 0, 0, 0, {}});
    const Result result = accept(offset, bytes);
    if (result.outcome != Outcome::Done || transfer->unsynced < m_limits.pieceBytes)
        return done(result);
    if (transfer->isSyncing)
        return transfer->putters.push_back(std::move(done));
    startSync();
    done(result);
}

Transfers::Result Transfers::accept(KvUInt64 offset, std::span<const unsigned char> bytes)
{
    Transfer& transfer = *m_transfer;
    if (transfer.failure.outcome != Outcome::Done) {
        const Result failure = std::move(transfer.failure);
        drop();
        return failure;
    }
    if (bytes.size() > m_limits.chunkBytes)
        return transfer.result(Outcome::ChunkTooLarge);
    if (offset < transfer.received)
        return repeat(offset, bytes);
    if (offset > transfer.received)
        return transfer.result(Outcome::OutOfOrder);
    if (bytes.size() > transfer.size - transfer.received)
        return transfer.result(Outcome::TooMuchData);
    FileProblem why;
    if (!transfer.file->write(offset, bytes, why)) {
        const Result failure = transfer.failed(why);
        // Their bytes are lost as well, and this is why.
        std::vector<Done> waiting = std::exchange(transfer.putters, {});
        drop();
        tell(waiting, failure);
        return failure;
    }
    transfer.received += bytes.size();
    transfer.unsynced += bytes.size();
    transfer.crc32 = KvNCrc32::crc32(transfer.crc32, bytes.data(), bytes.size());
    return transfer.result();
}

Transfers::Result Transfers::repeat(KvUInt64 offset, std::span<const unsigned char> bytes) const
{
    const Transfer& transfer = *m_transfer;
    if (bytes.size() > transfer.received - offset)
        return transfer.result(Outcome::OutOfOrder);
    std::vector<unsigned char> held(std::min(bytes.size(), compareBytes));
    while (!bytes.empty()) {
        const std::span<unsigned char> part = std::span(held).first(std::min(held.size(), bytes.size()));
        FileProblem why;
        if (!transfer.file->read(offset, part, why))
            return transfer.failed(why);
        if (!std::equal(part.begin(), part.end(), bytes.begin()))
            return transfer.result(Outcome::OtherData);
        bytes = bytes.subspan(part.size());
        offset += part.size();
    }
    return transfer.result();
}

void Transfers::end(KvUInt32 accessId, KvUInt32 transferId, KvUInt32 crc32, Done done)
{
    if (transferId != 0 && m_finished.transferId == transferId && m_finished.accessId == accessId)
        return done({m_finished.crc32 == crc32 ? Outcome::Done : Outcome::OtherChecksum,
                     transferId,
                     0,
                     0,
                     m_finished.crc32,
                     {}});
    Transfer* transfer = find(accessId, transferId);
    if (transfer == nullptr)
        return done({Outcome::NoTransfer, transferId, 0, 0, 0, {}});
    if (transfer->isEnding && transfer->crc32 == crc32)
        return transfer->enders.push_back(std::move(done));
    Result result = transfer->result();
    if (transfer->failure.outcome != Outcome::Done)
        result = transfer->failure;
    else if (transfer->received != transfer->size)
        result.outcome = Outcome::Incomplete;
    else if (transfer->crc32 != crc32)
        result.outcome = Outcome::OtherChecksum;
    if (result.outcome != Outcome::Done) {
        if (!transfer->isEnding)
            drop();
        return done(result);
    }
    transfer->enders.push_back(std::move(done));
    transfer->isEnding = true;
    if (!transfer->isSyncing)
        startSync();
}

void Transfers::startSync()
{
    const TransferPtr transfer = m_transfer;
    const KvUInt64 before = std::exchange(transfer->unsynced, 0);
    transfer->isSyncing = true;
    transfer->isLastSync = transfer->isEnding;
    const auto sync = [transfer] { syncBeside(*transfer->file, &KvNService::UnfinishedFile::sync, transfer->problem); };
    try {
        m_beside(sync, [this, transfer] { synced(transfer); });
    } catch (const std::bad_alloc&) {
        if (transfer->isEnding) {
            // Whoever waits for the end must hear of it, so it is done here.
            sync();
            synced(transfer);
        } else {
            // The next bytes try again.
            transfer->unsynced = before;
            transfer->isSyncing = false;
        }
    }
}

void Transfers::synced(const TransferPtr& transfer)
{
    transfer->isSyncing = false;
    Result result = transfer->result();
    if (m_transfer != transfer) {
        result.outcome = Outcome::NoTransfer;
    } else if (transfer->problem.kind != FileProblem::Kind::None) {
        result = transfer->failed(transfer->problem);
        if (!transfer->isEnding && transfer->putters.empty()) {
            transfer->failure = std::move(result);
            return;
        }
        drop();
    } else if (transfer->isEnding && transfer->isLastSync) {
        place(transfer);
    } else if (transfer->isEnding || transfer->unsynced >= m_limits.pieceBytes) {
        startSync();
    }
    tell(transfer->putters, result);
    if (result.outcome != Outcome::Done)
        tell(transfer->enders, result);
}

void Transfers::place(const TransferPtr& transfer)
{
    std::string problem;
    const Files::Outcome outcome = m_files.commit(*transfer->file, transfer->fileName, problem);
    if (outcome != Files::Outcome::Done) {
        drop();
        return tell(transfer->enders, transfer->result(outcome, std::move(problem)));
    }
    transfer->isPlaced = true;
    m_files.release();
    const auto sync = [transfer] {
        syncBeside(*transfer->file, &KvNService::UnfinishedFile::syncFolder, transfer->problem);
    };
    try {
        m_beside(sync, [this, transfer] { placed(transfer); });
    } catch (const std::bad_alloc&) {
        sync();
        placed(transfer);
    }
}

void Transfers::placed(const TransferPtr& transfer)
{
    if (m_transfer == transfer)
        m_transfer.reset();
    if (transfer->problem.kind == FileProblem::Kind::None)
        m_finished = {transfer->accessId, transfer->id, transfer->crc32};
    tell(transfer->enders,
         transfer->problem.kind == FileProblem::Kind::None ? transfer->result() : transfer->failed(transfer->problem));
}

Transfers::Result Transfers::abort(KvUInt32 accessId, KvUInt32 transferId)
{
    const Transfer* transfer = find(accessId, transferId);
    if (transfer == nullptr || transfer->isPlaced)
        return {Outcome::NoTransfer, transferId, 0, 0, 0, {}};
    const Result result = transfer->result();
    drop();
    return result;
}

bool Transfers::lockEnded(KvUInt32 accessId) noexcept
{
    if (m_finished.accessId == accessId)
        m_finished = {};
    const bool isItsTransfer = m_transfer != nullptr && m_transfer->accessId == accessId;
    if (isItsTransfer)
        drop();
    return isItsTransfer;
}

}  // namespace KvNBoardService
