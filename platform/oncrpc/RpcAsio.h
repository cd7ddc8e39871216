#pragma once

/*
 * Asio as the transport uses it: standalone, one thread a loop, and the memory of its operations from KvNAllocation, so
 * that the next wait of a connection needs no memory that could be missing. Included by the transport's sources alone.
 */
#if defined(_WIN32) && !defined(_WIN32_WINNT)
#define _WIN32_WINNT 0x0A00
#endif
#ifndef ASIO_STANDALONE
#define ASIO_STANDALONE
#endif
#define ASIO_NO_DEPRECATED

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/ip/udp.hpp>
#include <asio/post.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <utility>

#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

// Callers drive idle connections themselves where a socket can be taken off its loop.
#if defined(__linux__)
#define KV_RPC_DRIVEN
#endif

namespace KvNRpc {

using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;
using Milliseconds = std::chrono::milliseconds;
using Executor = asio::io_context::executor_type;
using TcpSocket = asio::basic_stream_socket<asio::ip::tcp, Executor>;
using TcpAcceptor = asio::basic_socket_acceptor<asio::ip::tcp, Executor>;
using UdpSocket = asio::basic_datagram_socket<asio::ip::udp, Executor>;
using Timer = asio::basic_waitable_timer<Clock, asio::wait_traits<Clock>, Executor>;

/** Room for one operation in progress; a second one, or a larger one, takes its memory from KvNAllocation. */
class HandlerSlot
{
public:
    HandlerSlot() noexcept = default;
    HandlerSlot(const HandlerSlot&) = delete;
    HandlerSlot& operator=(const HandlerSlot&) = delete;

    void* take(std::size_t bytes)
    {
        if (!m_used && bytes <= sizeof m_room) {
            m_used = true;
            return m_room;
        }
        void* block = KvNAllocation::allocate(bytes);
        if (block == nullptr)
            throw std::bad_alloc();
        return block;
    }
    void giveBack(void* block) noexcept
    {
        if (block == m_room)
            m_used = false;
        else
            KvNAllocation::release(block);
    }

private:
    alignas(std::max_align_t) unsigned char m_room[384];
    bool m_used = false;
};

template <class T>
struct SlotAllocator
{
    using value_type = T;
    explicit SlotAllocator(HandlerSlot& place) noexcept : slot(&place) {}
    template <class U>
    SlotAllocator(const SlotAllocator<U>& other) noexcept : slot(other.slot)
    {}
    T* allocate(std::size_t count) { return static_cast<T*>(slot->take(count * sizeof(T))); }
    void deallocate(T* block, std::size_t) noexcept { slot->giveBack(block); }
    template <class U>
    bool operator==(const SlotAllocator<U>& other) const noexcept
    {
        return slot == other.slot;
    }
    HandlerSlot* slot;
};

/** A completion handler whose operation lives in a slot. The slot must live as long as what the handler keeps. */
template <class Function>
class SlotHandler
{
public:
    using allocator_type = SlotAllocator<char>;
    SlotHandler(HandlerSlot& slot, Function function) : m_slot(&slot), m_function(std::move(function)) {}
    allocator_type get_allocator() const noexcept { return allocator_type(*m_slot); }
    template <class... Arguments>
    void operator()(Arguments&&... arguments)
    {
        m_function(std::forward<Arguments>(arguments)...);
    }

private:
    HandlerSlot* m_slot;
    Function m_function;
};

template <class Function>
SlotHandler<Function> inSlot(HandlerSlot& slot, Function function)
{
    return SlotHandler<Function>(slot, std::move(function));
}

inline asio::ip::address_v4 toAddress(KvUInt32 address)
{
    return asio::ip::address_v4(static_cast<asio::ip::address_v4::uint_type>(address));
}

/** Whether a system call's error is this condition. */
bool isCondition(const std::error_code& error, std::errc condition) noexcept;

/** Whether a system call failed for want of memory or descriptors. */
bool isShortage(const std::error_code& error) noexcept;

/** The error in words of our own, the same on every system; a static text or one in `buffer`. */
const char* describeError(const std::error_code& error, char* buffer, std::size_t bytes) noexcept;

}  // namespace KvNRpc
