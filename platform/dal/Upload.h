#pragma once

#include <array>
#include <memory>

#include "platform/dal/Board.h"
#include "platform/dal/DeviceAccessRecords.h"
#include "platform/dal/LocalFile.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "platform/oncrpc/RpcChannel.h"

class KvCRpcClient;

namespace KvNDeviceAccess {

/** How many thousandths of `size` bytes `done` bytes are; 999 at most, for the file is not there before the board has
    checked it. */
unsigned int thousandths(KvUInt64 done, KvUInt64 size);

/**
 * One local file on its way to a board, chunk by chunk over a connection of its own. What the board has received is
 * what it says, so that a request whose reply was lost can be repeated; after a failure the board is told to drop what
 * it has. One thread uses an object, once, while it holds Board::transfers().
 *
 * While the board takes a chunk the next ones are read and sent already, so that neither waits for the other. Their
 * answers are taken one by one all the same, and as soon as one of them is anything but the chunk's being taken, those
 * behind it are forgotten and the transfer goes on as one chunk at a time would have from there.
 */
class Upload
{
public:
    using Progress = void (*)(unsigned int, void*);

    /** Everything is reported to `errors` with `origin`. It is cancelled when KvNRpc::cancelCount() is not
       `cancelCount` any more. */
    Upload(KvCErrorListPool& errors, const char* origin, Board& board, KvUInt32 accessId,
           KvUInt32 cancelCount) noexcept;
    ~Upload();
    Upload(const Upload&) = delete;
    Upload& operator=(const Upload&) = delete;

    /** Puts the file `localPath` on the board. Returns a Result. Throws std::bad_alloc, with nothing left on the board.
     */
    KvInt32 run(const wchar_t* localPath, const char* directory, const char* fileName, Progress progress,
                void* context);

private:
    KvInt32 openLocal(const wchar_t* localPath);
    KvInt32 prepare();
    KvInt32 begin();
    /** A chunk, and the call that it travels in. */
    struct Chunk
    {
        KvNRpc::SentCall call;
        KvUInt64 start = 0;
        KvUInt64 end = 0;
        KvUInt64 before = 0;  // the most that the board could have without it
        bool ahead = false;   // sent before the answer to the one in front of it
    };

    KvInt32 sendAll(Progress progress, void* context);
    enum class Reading
    {
        Done,
        Failed,
        Changed
    };
    bool prepareChunk(Chunk& chunk, KvUInt64 position) noexcept;
    Reading readChunk(Chunk& chunk);
    KvdaPutData putData(const Chunk& chunk) const;
    void sendAhead(KvUInt64 position);
    void dropAhead() noexcept;
    KvInt32 takeAnswer(KvUInt64& position);
    KvInt32 sendAlone(KvUInt64& position);
    KvInt32 judge(const KvdaReceived& reply, bool repeated, const Chunk& chunk, KvUInt64& position);
    KvInt32 finish();
    void withdraw(KvInt32 reason);

    KvInt32 call(struct BoardCall& call);
    KvInt32 ended(long outcome);
    bool isCancelled() const;
    KvInt32 goOn(const KvdaReceived& reply, bool repeated, const Chunk& chunk, KvUInt64& position);
    void passOn(const KvdaBytes& errorList, bool always);
    KvInt32 reportLocalFailure();
    KvInt32 reportChanged();

    KvCErrorListPool& m_errors;
    const char* const m_origin;
    Board& m_board;
    const KvUInt32 m_accessId;
    const KvUInt32 m_cancelCount;

    std::unique_ptr<KvCRpcClient> m_client;
    KvdaFileName m_name;
    KvUInt32 m_transferId = 0;
    KvUInt32 m_errorBytes = 0;
    bool m_endUnknown = false;  // the board may have the whole file although it did not say so

    LocalFile m_file;
    Text m_localName;
    KvUInt32 m_chunkBytes = 0;
    static constexpr std::size_t mostAhead = 4;
    std::array<Chunk, mostAhead> m_chunks;  // those on their way are a ring
    std::size_t m_oldest = 0;
    std::size_t m_onTheirWay = 0;
    std::size_t m_ahead = 1;  // chunks that may be on their way
    KvUInt32 m_checksum = 0;
    KvUInt64 m_summed = 0;  // bytes of the file in the checksum
    KvUInt64 m_sent = 0;    // the most that the board can have
    unsigned m_returns = 0;
};

}  // namespace KvNDeviceAccess
