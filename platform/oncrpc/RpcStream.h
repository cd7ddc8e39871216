#pragma once

#include <memory>

#include "platform/oncrpc/RecordAssembler.h"
#include "platform/oncrpc/RpcAsio.h"

namespace KvNRpc {

/** A record to be sent, its mark included. It may be kept to be sent again on another stream. */
struct Outgoing : public KvNAllocation::Object
{
    Outgoing() noexcept = default;
    ~Outgoing()
    {
        if (budget != nullptr)
            budget->giveBack(bytes.size());
    }
    Outgoing(const Outgoing&) = delete;
    Outgoing& operator=(const Outgoing&) = delete;

    Bytes bytes;
    std::size_t sent = 0;
    std::shared_ptr<Outgoing> next;
    /** What the bytes are counted in; null: nothing. */
    ByteBudget* budget = nullptr;
};

/** Where all streams of a loop read to. */
struct ReadBuffer
{
    static constexpr std::size_t size = 65536;
    unsigned char bytes[size];
};

/**
 * One TCP connection that carries records in both directions, for the client and for the board's service.
 *
 * Used on its loop's thread only; lives in a shared_ptr, which operations in progress keep alive. What happens is told
 * through the virtual functions; onEnded comes once, unless close() came first. Nothing throws: what an operation
 * cannot have ends the stream.
 */
class RpcStream : public std::enable_shared_from_this<RpcStream>, public KvNAllocation::Object
{
public:
    enum class End
    {
        ByPeer,     // closed between two bytes, `error` is empty
        ByError,    // `error` says which
        Malformed,  // record marking that cannot be followed
        TooLong,    // a record beyond the limit
        OutOfBudget,
        OutOfMemory
    };

    virtual ~RpcStream();
    RpcStream(const RpcStream&) = delete;
    RpcStream& operator=(const RpcStream&) = delete;

    /** Connects; then onConnected, or onEnded (possibly before this returns). */
    void connect(KvUInt32 address, std::uint16_t port) noexcept;
    /** Begins on a connected socket. */
    void begin() noexcept;
    /** Queues a record. */
    void send(std::shared_ptr<Outgoing> message) noexcept;
    /** Takes a record of which nothing has been sent back out of the queue; false when it has begun. */
    bool unsend(const Outgoing& message) noexcept;
    /** Ends the stream without a word. */
    void close() noexcept;
    /** Stops and goes on reading. */
    void pause(bool on) noexcept;

    bool isOpen() const noexcept { return m_open; }
    /** Whether the peer has closed an idle connection already. */
    bool peerHasClosed() noexcept;
    const RecordAssembler& incoming() const noexcept { return m_assembler; }
    bool hasOutput() const noexcept { return m_first != nullptr; }
    /** Bytes of records that are not sent whole. */
    std::size_t outputBytes() const noexcept;
    TcpSocket& socket() noexcept { return m_socket; }

protected:
    RpcStream(asio::io_context& context, ReadBuffer& buffer, std::size_t recordLimit, ByteBudget& budget);

    virtual void onConnected() noexcept {}
    /** Bytes have come. */
    virtual void onBytes() noexcept {}
    /** The transaction id of the record that has begun; false drops the record. */
    virtual bool onBegun(KvUInt32 /*transactionId*/) noexcept { return true; }
    virtual void onRecord(Record record) noexcept = 0;
    /** The budget has no room for the record in progress: true when some has been made, and it is tried again. */
    virtual bool makeRoom() noexcept { return false; }
    /** There is no room for the record in progress, whose transaction id is known: true drops it, false ends the
        stream. */
    virtual bool onNoRoom(KvUInt32 /*transactionId*/, End /*why*/) noexcept { return false; }
    /** Some of the output, or all of a record, has been sent. */
    virtual void onSent(Outgoing& message, bool whole) noexcept;
    virtual void onEnded(End why, const std::error_code& error) noexcept = 0;
    /** Reading has stopped as m_atRest asked for; true when nobody on the loop's thread may touch the stream any more.
     */
    virtual bool onRest() noexcept { return false; }

    void end(End why, const std::error_code& error) noexcept;
    /** Whether what was received is used up, with the record that is being told if there is one. */
    bool nothingUnfed() const noexcept { return m_unfed == 0 && m_stash.size() == 0; }

    /** Takes the socket off the loop, so that the stream may be driven; false where that cannot be, among others while
        an operation is in progress. On the loop's thread, without output. */
    bool detach() noexcept;
    /** Puts the socket back on the loop, on whose thread this is called; what has happened meanwhile is told. */
    void attach() noexcept;
#if defined(KV_RPC_DRIVEN)
    /** Sends a record on a detached stream; false when some of it is left, which is queued. */
    bool sendDriven(const std::shared_ptr<Outgoing>& message) noexcept;
    /** Waits a short time for bytes on a detached stream and reads once; false when `until` has passed, the stream has
        ended, or more has come than is taken in one go. */
    bool readDriven(TimePoint until) noexcept;
#endif

    RecordAssembler m_assembler;
    /** Set to stop reading behind the record that is being told. */
    bool m_atRest = false;
    /** Whether the socket is off the loop: the stream's end is kept until it is back. */
    bool m_driven = false;

private:
    void prepareSocket();
    void waitToRead() noexcept;
    void waitToWrite() noexcept;
    /** Reads what is there, up to `reads` times, into the record in progress or by way of `buffer`; false when the
       stream has ended. */
    bool readSome(unsigned reads, unsigned char* buffer, std::size_t bytes) noexcept;
    bool takeArrived(std::size_t size) noexcept;
    std::size_t receive(unsigned char* place, std::size_t size, std::error_code& error) noexcept;
    bool takeBytes(const unsigned char* data, std::size_t size) noexcept;
    void waitToGoOn() noexcept;
    /** Feeds the assembler until the bytes are used up, reading is paused, or it is the others' turn; returns how many
        were used. */
    std::size_t feed(const unsigned char* data, std::size_t size) noexcept;
    void noRoom(RecordAssembler::State why) noexcept;
    void takeStash() noexcept;
    void writeSome() noexcept;
    void writeFailed(const std::error_code& error) noexcept;
    void dropOutput() noexcept;

    TcpSocket m_socket;
    ReadBuffer& m_buffer;
    std::shared_ptr<Outgoing> m_first;
    std::shared_ptr<Outgoing> m_last;
    /** What had been read when reading was paused or the others' turn came, and how much of it has been used. */
    Bytes m_stash;
    std::size_t m_stashUsed = 0;
    /** Bytes behind the record that is being told. */
    std::size_t m_unfed = 0;
#if defined(KV_RPC_DRIVEN)
    /** The socket while it is off the loop. */
    int m_descriptor = -1;
    bool m_drivenEnd = false;
    End m_drivenWhy = End::ByPeer;
    std::error_code m_drivenError;
#endif
    bool m_feeding = false;
    bool m_open = true;
    bool m_connected = false;
    bool m_reading = false;
    bool m_writing = false;
    bool m_paused = false;
    bool m_writeFailed = false;
    HandlerSlot m_readSlot;
    HandlerSlot m_writeSlot;
};

}  // namespace KvNRpc
