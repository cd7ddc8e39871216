#include "platform/oncrpc/RpcDatagram.h"

#include <algorithm>
#include <array>
#include <functional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/oncrpc/KvCRpcClient.h"
#include "platform/oncrpc/RpcChannel.h"
#include "platform/oncrpc/RpcStream.h"

namespace KvNRpc {

namespace {

constexpr std::size_t markBytes = 4;
constexpr Milliseconds tickTime{10};
constexpr unsigned datagramsInOneGo = 64;

/** A call: its header, and arguments that are encoded already. */
struct EncodedCall
{
    CallHeader header;
    const RpcDatagram::Request& request;
};

KvNXdr::bool_t xdr_encodedCall(KvNXdr::XDR* xdrs, EncodedCall* call)
{
    char* arguments = const_cast<char*>(reinterpret_cast<const char*>(call->request.arguments));
    return xdr_callHeader(xdrs, &call->header) &&
           KvNXdr::xdr_opaque(xdrs, arguments, static_cast<KvUInt32>(call->request.argumentBytes));
}

long toResult(const ReplyHeader& header)
{
    using Client = KvCRpcClient;
    if (header.status == Denied)
        return header.rejectStatus == RpcMismatch ? Client::RpcVersionMismatch : Client::AuthenticationError;
    constexpr std::array<long, 6> results{Client::Success,          Client::ProgramUnavailable,
                                          Client::VersionMismatch,  Client::ProcedureUnavailable,
                                          Client::GarbageArguments, Client::SystemError};
    return results[header.acceptStatus];
}

class TcpExchange;

/** A request until it is answered, and, of a broadcast, who has answered. */
struct Item
{
    RpcDatagram::Request request;
    KvUInt32 transactionId = 0;
    Bytes message;
    unsigned sent = 0;
    TimePoint added;
    bool open = true;
    std::vector<KvUInt32, KvNAllocation::Allocator<KvUInt32>> senders;
    std::shared_ptr<TcpExchange> stream;
};

using Items = std::vector<Item, KvNAllocation::Allocator<Item>>;
/** Places of items by their tag. */
using Places = std::unordered_multimap<KvUInt64, std::size_t, std::hash<KvUInt64>, std::equal_to<KvUInt64>,
                                       KvNAllocation::Allocator<std::pair<const KvUInt64, std::size_t>>>;

}  // namespace

/** The sockets of one run(). */
struct RpcDatagram::State : public KvNAllocation::Object
{
    explicit State(RpcDatagram& owner) : exchange(owner) {}

    bool openSocket() noexcept;
    void waitForDatagrams() noexcept;
    void takeDatagrams() noexcept;
    void arm() noexcept;
    void tick() noexcept;
    void sendDue(std::size_t index, TimePoint now) noexcept;
    void startTcp(std::size_t index) noexcept;
    Item* find(KvUInt32 transactionId) noexcept;
    /** Delivers a reply to an item; false when it is none. */
    bool take(Item& item, const unsigned char* data, std::size_t size, KvUInt32 sender) noexcept;
    void unreachable(KvUInt32 transactionId) noexcept;
    void finish(Item& item, Reply reply) noexcept;
    void stopIfDone() noexcept;
    void stop(End reason) noexcept;
    void closeAll() noexcept;

    RpcDatagram& exchange;
    std::array<KvUInt32, 8> times{0, 250, 700};
    std::size_t timeCount = 3;
    std::size_t largestReply = 65536;
    std::size_t mostSenders = 4096;
    Items items;
    Places tagged;
    std::size_t openItems = 0;
    KvUInt32 nextTransactionId = firstTransactionId();

    // During run():
    Handler handler = nullptr;
    void* context = nullptr;
    bool running = false;
    /** A handler may ask further, so nothing is done while one runs. */
    unsigned handlersRunning = 0;
    End end = End::Deadline;
    KvUInt32 cancels = 0;
    TimePoint deadline;
    ReadBuffer buffer;
    ByteBudget budget{repliesLimit};
    HandlerSlot timerSlot;
    HandlerSlot socketSlot;
    std::unique_ptr<asio::io_context> loop;
    std::unique_ptr<Timer> timer;
    std::unique_ptr<UdpSocket> socket;
};

namespace {

/** One request by TCP. */
class TcpExchange final : public RpcStream
{
public:
    TcpExchange(RpcDatagram::State& state, KvUInt32 transactionId)
        : RpcStream(*state.loop, state.buffer, state.largestReply, state.budget),
          m_state(&state),
          m_transactionId(transactionId)
    {}

private:
    bool onBegun(KvUInt32 transactionId) noexcept override { return transactionId == m_transactionId; }
    void onRecord(Record record) noexcept override
    {
        const std::shared_ptr<RpcStream> self = shared_from_this();
        Item* item = m_state->find(m_transactionId);
        if (item != nullptr && item->open && !m_state->take(*item, record.data(), record.size(), item->request.address))
            m_state->unreachable(m_transactionId);
        close();
    }
    void onEnded(End, const std::error_code&) noexcept override { m_state->unreachable(m_transactionId); }

    RpcDatagram::State* m_state;
    KvUInt32 m_transactionId;
};

}  // namespace

RpcDatagram::RpcDatagram() noexcept
{
    try {
        m_state = new State(*this);
    } catch (...) {
    }
}

RpcDatagram::~RpcDatagram()
{
    delete m_state;
}

bool RpcDatagram::add(const Request& request) noexcept
{
    if (m_state == nullptr)
        return false;
    try {
        Item item;
        item.request = request;
        item.transactionId = m_state->nextTransactionId++;
        item.added = Clock::now();
        EncodedCall call{.header = {}, .request = request};
        call.header.xid = item.transactionId;
        call.header.program = request.program;
        call.header.version = request.version;
        call.header.procedure = request.procedure;
        if (encodeBytes(KvNXdr::proc<xdr_encodedCall>, &call, item.message, markBytes) != EncodeStatus::Done)
            return false;
        putRecordMark(item.message.data(), item.message.size() - markBytes);
        item.request.arguments = nullptr;
        const auto tagged = m_state->tagged.emplace(request.tag, m_state->items.size());
        try {
            m_state->items.push_back(std::move(item));
        } catch (...) {
            m_state->tagged.erase(tagged);
            return false;
        }
        ++m_state->openItems;
    } catch (...) {
        return false;
    }
    if (m_state->running)
        m_state->sendDue(m_state->items.size() - 1, Clock::now());
    return true;
}

void RpcDatagram::drop(KvUInt64 tag) noexcept
{
    if (m_state == nullptr)
        return;
    const auto [first, last] = m_state->tagged.equal_range(tag);
    for (auto place = first; place != last; ++place) {
        Item& item = m_state->items[place->second];
        if (!item.open)
            continue;
        item.open = false;
        --m_state->openItems;
        if (item.stream != nullptr)
            item.stream->close();
    }
    m_state->tagged.erase(first, last);
    m_state->stopIfDone();
}

void RpcDatagram::setTimes(const KvUInt32* milliseconds, std::size_t count) noexcept
{
    if (m_state == nullptr)
        return;
    m_state->timeCount = std::min(count, m_state->times.size());
    std::copy_n(milliseconds, m_state->timeCount, m_state->times.begin());
}

void RpcDatagram::setLargestReply(std::size_t bytes) noexcept
{
    if (m_state != nullptr)
        m_state->largestReply = bytes;
}

void RpcDatagram::setMostSenders(std::size_t count) noexcept
{
    if (m_state != nullptr)
        m_state->mostSenders = count;
}

RpcDatagram::End RpcDatagram::run(KvUInt32 milliseconds, Handler handler, void* context) noexcept
{
    if (m_state == nullptr)
        return End::OutOfMemory;
    State& state = *m_state;
    state.cancels = cancelCount();
    state.handler = handler;
    state.context = context;
    state.end = End::Deadline;
    state.deadline = Clock::now() + Milliseconds(milliseconds);
    if (!state.openSocket())
        return End::OutOfMemory;
    state.running = true;
    const TimePoint now = Clock::now();
    for (std::size_t i = 0; i < state.items.size() && state.running; ++i) {
        state.items[i].added = now;
        state.sendDue(i, now);
    }
    state.waitForDatagrams();
    state.stopIfDone();
    state.arm();
    while (state.running) {
        try {
            state.loop->run();
        } catch (...) {
            state.stop(End::OutOfMemory);
        }
    }
    state.closeAll();
    return state.end;
}

bool RpcDatagram::State::openSocket() noexcept
{
    try {
        loop = std::make_unique<asio::io_context>(1);
        timer = std::make_unique<Timer>(*loop);
        socket = std::make_unique<UdpSocket>(*loop);
        socket->open(asio::ip::udp::v4());
        socket->set_option(asio::socket_base::broadcast(true));
        socket->bind({asio::ip::address_v4::any(), 0});
        socket->non_blocking(true);
        return true;
    } catch (...) {
        closeAll();
        return false;
    }
}

void RpcDatagram::State::closeAll() noexcept
{
    running = false;
    for (Item& item : items)
        if (item.stream != nullptr)
            item.stream->close();
    items.clear();
    tagged.clear();
    openItems = 0;
    socket.reset();
    timer.reset();
    loop.reset();
}

void RpcDatagram::State::arm() noexcept
{
    if (!running)
        return;
    try {
        timer->expires_after(tickTime);
        timer->async_wait(inSlot(timerSlot, [this](const std::error_code&) { tick(); }));
    } catch (...) {
        stop(End::OutOfMemory);
    }
}

void RpcDatagram::State::tick() noexcept
{
    if (!running)
        return;
    const TimePoint now = Clock::now();
    if (cancelCount() != cancels)
        return stop(End::Cancelled);
    if (now >= deadline)
        return stop(End::Deadline);
    for (std::size_t i = 0; i < items.size() && running; ++i)
        sendDue(i, now);
    arm();
}

void RpcDatagram::State::sendDue(std::size_t index, TimePoint now) noexcept
{
    const Item& item = items[index];
    if (item.request.transport == Transport::Tcp) {
        if (item.open && item.sent == 0)
            startTcp(index);
        return;
    }
    while (items[index].open && items[index].sent < timeCount &&
           now >= items[index].added + Milliseconds(times[items[index].sent])) {
        Item& due = items[index];
        ++due.sent;
        // Nothing is known from an error here: the next sending, or another transport, may do better.
        std::error_code ignored;
        socket->send_to(asio::buffer(due.message.data() + markBytes, due.message.size() - markBytes),
                        {toAddress(due.request.address), due.request.port}, 0, ignored);
    }
}

void RpcDatagram::State::startTcp(std::size_t index) noexcept
{
    Item& item = items[index];
    const KvUInt32 transactionId = item.transactionId;
    const Request request = item.request;
    item.sent = 1;
    std::shared_ptr<TcpExchange> stream;
    try {
        auto message = std::allocate_shared<Outgoing>(KvNAllocation::Allocator<Outgoing>());
        message->bytes = std::move(item.message);
        stream = std::allocate_shared<TcpExchange>(KvNAllocation::Allocator<TcpExchange>(), *this, transactionId);
        item.stream = stream;
        stream->send(std::move(message));
    } catch (...) {
        return unreachable(transactionId);
    }
    stream->connect(request.address, request.port);
}

void RpcDatagram::State::waitForDatagrams() noexcept
{
    if (!running)
        return;
    try {
        auto readable = [this](const std::error_code& error) {
            if (error || !running)
                return;
            takeDatagrams();
            waitForDatagrams();
        };
        socket->async_wait(UdpSocket::wait_read, inSlot(socketSlot, readable));
    } catch (...) {
        stop(End::OutOfMemory);
    }
}

void RpcDatagram::State::takeDatagrams() noexcept
{
    for (unsigned i = 0; i < datagramsInOneGo && running; ++i) {
        std::error_code error;
        asio::ip::udp::endpoint sender;
        const std::size_t size = socket->receive_from(asio::buffer(buffer.bytes), sender, 0, error);
        if (error == asio::error::would_block || error == asio::error::try_again)
            return;
        if (error || size < 4 || !sender.address().is_v4())
            continue;
        KvUInt32 transactionId = 0;
        for (unsigned k = 0; k < 4; ++k)
            transactionId = transactionId << 8 | buffer.bytes[k];
        Item* item = find(transactionId);
        if (item == nullptr || !item->open || item->request.transport != Transport::Udp)
            continue;
        const KvUInt32 address = static_cast<KvUInt32>(sender.address().to_v4().to_uint());
        if (!item->request.broadcast && (address != item->request.address || sender.port() != item->request.port))
            continue;
        take(*item, buffer.bytes, size, address);
    }
}

Item* RpcDatagram::State::find(KvUInt32 transactionId) noexcept
{
    if (items.empty())
        return nullptr;
    // Transaction ids count up in the order of adding.
    const KvUInt32 index = transactionId - items.front().transactionId;
    return index < items.size() ? &items[index] : nullptr;
}

bool RpcDatagram::State::take(Item& item, const unsigned char* data, std::size_t size, KvUInt32 sender) noexcept
{
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, const_cast<char*>(reinterpret_cast<const char*>(data)), size, KvNXdr::XDR_DECODE);
    ReplyHeader header;
    if (!xdr_replyHeader(&xdrs, &header) || header.xid != item.transactionId)
        return false;
    if (item.request.broadcast) {
        if (item.senders.size() >= mostSenders ||
            std::find(item.senders.begin(), item.senders.end(), sender) != item.senders.end())
            return true;
        try {
            item.senders.push_back(sender);
        } catch (...) {
            stop(End::OutOfMemory);
            return true;
        }
    }
    const bool success = header.status == Accepted && header.acceptStatus == Success;
    finish(item, {.tag = item.request.tag,
                  .address = sender,
                  .transport = item.request.transport,
                  .outcome = success ? Outcome::Answered : Outcome::Refused,
                  .refusal = toResult(header),
                  .results = data + KvNXdr::xdrmem_used(&xdrs),
                  .resultBytes = KvNXdr::xdrmem_left(&xdrs)});
    return true;
}

void RpcDatagram::State::unreachable(KvUInt32 transactionId) noexcept
{
    Item* item = find(transactionId);
    if (item == nullptr || !item->open)
        return;
    finish(*item, {.tag = item->request.tag,
                   .address = item->request.address,
                   .transport = item->request.transport,
                   .outcome = Outcome::Unreachable,
                   .refusal = KvCRpcClient::ConnectFailed,
                   .results = nullptr,
                   .resultBytes = 0});
}

void RpcDatagram::State::finish(Item& item, Reply reply) noexcept
{
    if (!item.request.broadcast) {
        item.open = false;
        --openItems;
    }
    ++handlersRunning;
    handler(context, exchange, reply);
    --handlersRunning;
    stopIfDone();
}

void RpcDatagram::State::stopIfDone() noexcept
{
    if (running && handlersRunning == 0 && openItems == 0)
        stop(End::AllAnswered);
}

void RpcDatagram::State::stop(End reason) noexcept
{
    if (!running)
        return;
    running = false;
    end = reason;
    loop->stop();
}

}  // namespace KvNRpc
