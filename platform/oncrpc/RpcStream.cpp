#include "platform/oncrpc/RpcStream.h"

#include <cstdio>
#include <utility>

#if defined(KV_RPC_DRIVEN)
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#endif

namespace KvNRpc {

namespace {

/** What is taken from one peer until the others have had their turn: one read can hold a thousand calls. */
constexpr unsigned readsInOneGo = 2;
constexpr unsigned recordsInOneGo = 4;
/** Small records come whole in this many bytes; what is left of large ones is received in place. */
constexpr std::size_t readAtOnce = 8192;
static_assert(readAtOnce <= ReadBuffer::size);

bool wouldBlock(const std::error_code& error)
{
    return error == asio::error::would_block || error == asio::error::try_again;
}

}  // namespace

bool isCondition(const std::error_code& error, std::errc condition) noexcept
{
    // The transport's own category knows only some conditions; the system's knows all of its numbers.
    return std::system_category().default_error_condition(error.value()) == condition;
}

bool isShortage(const std::error_code& error) noexcept
{
    return error &&
           (isCondition(error, std::errc::too_many_files_open) ||
            isCondition(error, std::errc::too_many_files_open_in_system) ||
            isCondition(error, std::errc::not_enough_memory) || isCondition(error, std::errc::no_buffer_space));
}

const char* describeError(const std::error_code& error, char* buffer, std::size_t bytes) noexcept
{
    if (!error || error == asio::error::eof)
        return "closed by the board";
    if (error == asio::error::connection_refused)
        return "refused";
    if (error == asio::error::connection_reset || error == asio::error::broken_pipe ||
        error == asio::error::connection_aborted)
        return "reset by the board";
    if (error == asio::error::host_unreachable)
        return "the host cannot be reached";
    if (error == asio::error::network_unreachable)
        return "the network cannot be reached";
    if (error == asio::error::timed_out)
        return "the network gave up";
    if (error == asio::error::access_denied || isCondition(error, std::errc::operation_not_permitted))
        return "not permitted";
    std::snprintf(buffer, bytes, "system error %d", error.value());
    return buffer;
}

RpcStream::RpcStream(asio::io_context& context, ReadBuffer& buffer, std::size_t recordLimit, ByteBudget& budget)
    : m_assembler(recordLimit, budget), m_socket(context), m_buffer(buffer)
{}

RpcStream::~RpcStream()
{
    dropOutput();
}

void RpcStream::onSent(Outgoing&, bool) noexcept {}

void RpcStream::prepareSocket()
{
    m_socket.non_blocking(true);
    std::error_code ignored;
    m_socket.set_option(asio::ip::tcp::no_delay(true), ignored);
}

void RpcStream::connect(KvUInt32 address, std::uint16_t port) noexcept
{
    try {
        m_socket.open(asio::ip::tcp::v4());
        auto connected = [self = shared_from_this()](const std::error_code& error) {
            if (!self->m_open)
                return;
            if (error)
                return self->end(End::ByError, error);
            self->begin();
            if (self->m_open)
                self->onConnected();
        };
        m_socket.async_connect({toAddress(address), port}, inSlot(m_writeSlot, std::move(connected)));
    } catch (const std::system_error& failure) {
        end(End::ByError, failure.code());
    } catch (...) {
        end(End::OutOfMemory, {});
    }
}

void RpcStream::begin() noexcept
{
    try {
        prepareSocket();
    } catch (const std::system_error& failure) {
        return end(End::ByError, failure.code());
    }
    m_connected = true;
    waitToRead();
    writeSome();
}

void RpcStream::waitToRead() noexcept
{
    if (!m_open || m_reading || m_paused)
        return;
    if (m_stash.size() != 0)
        return waitToGoOn();
    try {
        auto readable = [self = shared_from_this()](const std::error_code& error) {
            self->m_reading = false;
            if (!self->m_open)
                return;
            if (error)
                return self->end(End::ByError, error);
            if (!self->m_paused && self->readSome(readsInOneGo, self->m_buffer.bytes, readAtOnce) &&
                (!self->m_atRest || !self->onRest()))
                self->waitToRead();
        };
        m_reading = true;
        m_socket.async_wait(TcpSocket::wait_read, inSlot(m_readSlot, std::move(readable)));
    } catch (...) {
        m_reading = false;
        end(End::OutOfMemory, {});
    }
}

/** Has the rest of what was read taken when the others have had their turn. */
void RpcStream::waitToGoOn() noexcept
{
    try {
        auto goOn = [self = shared_from_this()] {
            self->m_reading = false;
            if (!self->m_open || self->m_paused)
                return;
            self->takeStash();
            self->waitToRead();
        };
        m_reading = true;
        asio::post(m_socket.get_executor(), inSlot(m_readSlot, std::move(goOn)));
    } catch (...) {
        m_reading = false;
        end(End::OutOfMemory, {});
    }
}

std::size_t RpcStream::receive(unsigned char* place, std::size_t size, std::error_code& error) noexcept
{
#if defined(KV_RPC_DRIVEN)
    if (m_descriptor >= 0) {
        const ssize_t received = ::recv(m_descriptor, place, size, 0);
        if (received < 0)
            error.assign(errno, asio::error::get_system_category());
        else if (received == 0)
            error = asio::error::eof;
        return received < 0 ? 0 : static_cast<std::size_t>(received);
    }
#endif
    return m_socket.receive(asio::buffer(place, size), 0, error);
}

bool RpcStream::readSome(unsigned reads, unsigned char* buffer, std::size_t bytes) noexcept
{
    for (unsigned i = 0; i < reads && m_open && !m_paused && !m_atRest && m_stash.size() == 0; ++i) {
        std::error_code error;
        unsigned char* place = buffer;
        const std::size_t room = m_assembler.room(place);
        const std::size_t size = receive(place, room != 0 ? room : bytes, error);
        if (wouldBlock(error) || error == asio::error::interrupted)
            return true;
        if (error) {
            const bool byPeer = error == asio::error::eof;
            end(byPeer ? End::ByPeer : End::ByError, byPeer ? std::error_code() : error);
            return false;
        }
        onBytes();
        if (!(room != 0 ? takeArrived(size) : takeBytes(buffer, size)))
            return false;
    }
    return m_open;
}

bool RpcStream::takeArrived(std::size_t size) noexcept
{
    m_feeding = true;
    m_unfed = 0;
    if (m_assembler.arrived(size) == RecordAssembler::State::Whole)
        onRecord(m_assembler.take());
    m_feeding = false;
    return m_open;
}

bool RpcStream::takeBytes(const unsigned char* data, std::size_t size) noexcept
{
    const std::size_t used = feed(data, size);
    if (m_open && used < size) {
        m_stashUsed = 0;
        if (!m_stash.assign(data + used, size - used))
            end(End::OutOfMemory, {});
    }
    return m_open;
}

std::size_t RpcStream::feed(const unsigned char* data, std::size_t size) noexcept
{
    using State = RecordAssembler::State;
    const unsigned char* const start = data;
    unsigned records = 0;
    m_feeding = true;
    while (size != 0 && m_open && !m_paused && records < recordsInOneGo) {
        const State state = m_assembler.feed(data, size);
        m_unfed = size;
        if (state == State::Begun && !onBegun(m_assembler.transactionId()))
            m_assembler.skip();
        else if (state == State::Whole) {
            ++records;
            onRecord(m_assembler.take());
        } else if (state == State::TooLong)
            end(End::TooLong, {});
        else if (state == State::EmptyFragments)
            end(End::Malformed, {});
        else if (state == State::OutOfMemory || (state == State::OutOfBudget && !makeRoom()))
            noRoom(state);
    }
    m_feeding = false;
    return static_cast<std::size_t>(data - start);
}

void RpcStream::noRoom(RecordAssembler::State why) noexcept
{
    const End reason = why == RecordAssembler::State::OutOfBudget ? End::OutOfBudget : End::OutOfMemory;
    if (m_assembler.hasTransactionId() && onNoRoom(m_assembler.transactionId(), reason))
        m_assembler.skip();
    else
        end(reason, {});
}

void RpcStream::takeStash() noexcept
{
    if (m_stash.size() == 0 || m_feeding)
        return;
    m_stashUsed += feed(m_stash.data() + m_stashUsed, m_stash.size() - m_stashUsed);
    if (m_stashUsed == m_stash.size())
        m_stash.clear();
}

void RpcStream::send(std::shared_ptr<Outgoing> message) noexcept
{
    if (!m_open)
        return;
    message->sent = 0;
    message->next = nullptr;
    if (m_last != nullptr)
        m_last->next = message;
    else
        m_first = message;
    m_last = std::move(message);
    if (m_connected && !m_writing)
        writeSome();
}

std::size_t RpcStream::outputBytes() const noexcept
{
    std::size_t bytes = 0;
    for (const Outgoing* item = m_first.get(); item != nullptr; item = item->next.get())
        bytes += item->bytes.size();
    return bytes;
}

bool RpcStream::unsend(const Outgoing& message) noexcept
{
    std::shared_ptr<Outgoing> before;
    for (std::shared_ptr<Outgoing> item = m_first; item != nullptr; before = item, item = item->next) {
        if (item.get() != &message)
            continue;
        if (item->sent != 0)
            return false;
        (before != nullptr ? before->next : m_first) = item->next;
        if (m_last == item)
            m_last = before;
        return true;
    }
    return false;
}

void RpcStream::writeSome() noexcept
{
    while (m_open && !m_writeFailed && m_first != nullptr) {
        const std::shared_ptr<Outgoing> message = m_first;
        std::error_code error;
        const std::size_t sent = m_socket.send(
            asio::buffer(message->bytes.data() + message->sent, message->bytes.size() - message->sent), 0, error);
        if (wouldBlock(error) || error == asio::error::interrupted)
            return waitToWrite();
        if (error)
            return writeFailed(error);
        message->sent += sent;
        const bool whole = message->sent == message->bytes.size();
        if (whole) {
            m_first = std::move(message->next);
            if (m_first == nullptr)
                m_last = nullptr;
        }
        onSent(*message, whole);
    }
}

void RpcStream::waitToWrite() noexcept
{
    try {
        auto writable = [self = shared_from_this()](const std::error_code& error) {
            self->m_writing = false;
            if (!self->m_open)
                return;
            if (error)
                return self->end(End::ByError, error);
            self->writeSome();
        };
        m_writing = true;
        m_socket.async_wait(TcpSocket::wait_write, inSlot(m_writeSlot, std::move(writable)));
    } catch (...) {
        m_writing = false;
        end(End::OutOfMemory, {});
    }
}

void RpcStream::writeFailed(const std::error_code& error) noexcept
{
    if (m_paused || (error != asio::error::broken_pipe && error != asio::error::connection_reset))
        return end(End::ByError, error);
    // The peer has gone, but its answers to earlier records may be here already; reading finds the end behind them.
    m_writeFailed = true;
    dropOutput();
}

bool RpcStream::peerHasClosed() noexcept
{
    unsigned char byte;
    std::error_code error;
#if defined(KV_RPC_DRIVEN)
    if (m_descriptor >= 0) {
        const ssize_t received = ::recv(m_descriptor, &byte, 1, MSG_PEEK | MSG_DONTWAIT);
        return received == 0 || (received < 0 && errno != EAGAIN && errno != EINTR);
    }
#endif
    m_socket.receive(asio::buffer(&byte, 1), TcpSocket::message_peek, error);
    return error && !wouldBlock(error) && error != asio::error::interrupted;
}

void RpcStream::pause(bool on) noexcept
{
    m_paused = on;
    if (on || !m_connected)
        return;
    const std::shared_ptr<RpcStream> self = shared_from_this();
    takeStash();
    if (!m_feeding)
        waitToRead();
}

void RpcStream::dropOutput() noexcept
{
    m_last = nullptr;
    while (m_first != nullptr)
        m_first = std::move(m_first->next);
}

void RpcStream::close() noexcept
{
    m_open = false;
    dropOutput();
    std::error_code ignored;
    m_socket.close(ignored);
#if defined(KV_RPC_DRIVEN)
    if (m_descriptor >= 0)
        ::close(m_descriptor);
    m_descriptor = -1;
#endif
}

bool RpcStream::detach() noexcept
{
#if defined(KV_RPC_DRIVEN)
    if (m_reading || m_writing)
        return false;  // what is waited for would be told while somebody else has the stream
    // Without the limit a caller could wait for ever: no limit, no driving.
    constexpr timeval wait{0, 2000};
    if (::setsockopt(m_socket.native_handle(), SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait) != 0)
        return false;
    std::error_code error;
    m_socket.non_blocking(false, error);
    if (error)
        return false;
    m_descriptor = m_socket.release(error);
    m_driven = true;
    return true;
#else
    return false;
#endif
}

void RpcStream::attach() noexcept
{
    m_driven = false;
#if defined(KV_RPC_DRIVEN)
    if (std::exchange(m_drivenEnd, false)) {
        m_open = true;
        return end(m_drivenWhy, m_drivenError);
    }
    try {
        m_socket.assign(asio::ip::tcp::v4(), m_descriptor);
        m_descriptor = -1;
        m_socket.non_blocking(true);
    } catch (const std::system_error& failure) {
        return end(End::ByError, failure.code());
    } catch (...) {
        return end(End::OutOfMemory, {});
    }
#endif
    waitToRead();
    if (m_open && !m_writing)
        writeSome();
}

#if defined(KV_RPC_DRIVEN)

bool RpcStream::sendDriven(const std::shared_ptr<Outgoing>& message) noexcept
{
    const ssize_t sent =
        ::send(m_descriptor, message->bytes.data(), message->bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    message->sent = sent > 0 ? static_cast<std::size_t>(sent) : 0;
    message->next = nullptr;
    if (message->sent == message->bytes.size())
        return true;
    m_first = m_last = message;  // the loop sends the rest, and finds out why it did not go
    return false;
}

bool RpcStream::readDriven(TimePoint until) noexcept
{
    unsigned char buffer[readAtOnce];
    return readSome(1, buffer, sizeof buffer) && m_stash.size() == 0 && Clock::now() < until;
}

#endif

void RpcStream::end(End why, const std::error_code& error) noexcept
{
    if (!m_open)
        return;
#if defined(KV_RPC_DRIVEN)
    if (m_driven) {
        m_open = false;
        m_drivenEnd = true;
        m_drivenWhy = why;
        m_drivenError = error;
        return;
    }
#endif
    const std::shared_ptr<RpcStream> self = shared_from_this();
    close();
    onEnded(why, error);
}

}  // namespace KvNRpc
