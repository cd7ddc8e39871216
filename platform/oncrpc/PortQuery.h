#pragma once

#include <memory>

#include "platform/oncrpc/RpcChannel.h"
#include "platform/oncrpc/RpcStream.h"

namespace KvNRpc {

/**
 * Asks one host's port mapper for the TCP port of a program: by UDP at 0, 250 and 700 ms; by TCP when nothing has come
 * after 1.5 s, or at once when the host refuses datagrams. Only the port is taken from the answer. Loop's thread only.
 */
class PortQuery : public std::enable_shared_from_this<PortQuery>, public KvNAllocation::Object
{
public:
    class Asker
    {
    public:
        /** Called once, unless cancel() came first: a port other than 0, or a failure with its text. */
        virtual void onPort(std::uint16_t port, Failure failure, const char* text) noexcept = 0;

    protected:
        ~Asker() = default;
    };

    PortQuery(asio::io_context& context, ReadBuffer& buffer, ByteBudget& budget, Asker& asker);

    void start(const ChannelSettings& target) noexcept;
    /** Sends again what is due. */
    void tick(TimePoint now) noexcept;
    void cancel() noexcept;

private:
    class TcpQuery;
    void sendDatagram() noexcept;
    void waitForDatagram() noexcept;
    void takeDatagrams() noexcept;
    void askByTcp() noexcept;
    void tcpAnswered(const Record& record) noexcept;
    void tcpFailed(RpcStream::End why, const std::error_code& error) noexcept;
    bool takeReply(const unsigned char* data, std::size_t size, bool final) noexcept;
    void finish(std::uint16_t port, Failure failure, const char* text = "") noexcept;

    asio::io_context& m_context;
    ReadBuffer& m_buffer;
    ByteBudget& m_budget;
    Asker* m_asker;
    UdpSocket m_socket;
    std::shared_ptr<TcpQuery> m_stream;
    ChannelSettings m_settings;
    Bytes m_request;
    KvUInt32 m_transactionId = 0;
    TimePoint m_started;
    unsigned m_sent = 0;
    bool m_tcpTried = false;
    HandlerSlot m_slot;
};

/** A GETPORT call for the TCP port, with room for the record's mark in front. */
EncodeStatus encodeGetPort(KvUInt32 transactionId, KvUInt32 program, KvUInt32 version, Bytes& message) noexcept;

}  // namespace KvNRpc
