#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "RpcBytes.h"
#include "ScriptedBoard.h"
#include "base/KvNMessage.h"
#include "platform/errorhandling/KvCErrorManager.h"
#include "platform/oncrpc/KvCRpcClient.h"
#include "platform/oncrpc/RpcServer.h"

using RpcBytes::accepted;
using RpcBytes::Bytes;
using RpcBytes::denied;
using RpcBytes::fragment;
using RpcBytes::record;
using RpcBytes::unitAt;
using RpcBytes::units;
using RpcBytes::operator+;

constexpr KvUInt32 testProgram = 0x20001234;
constexpr KvUInt32 testVersion = 3;

/** Counted bytes, as arguments and as results. */
struct Text
{
    char* bytes = nullptr;
    KvUInt32 size = 0;

    std::string string() const { return std::string(bytes != nullptr ? bytes : "", size); }
};

inline KvNXdr::bool_t xdr_Text(KvNXdr::XDR* xdrs, Text* text)
{
    return KvNXdr::xdr_bytes(xdrs, &text->bytes, &text->size, 0xFFFFFFFF);
}

inline Bytes textBytes(const std::string& text)
{
    Bytes bytes = units({static_cast<std::uint32_t>(text.size())});
    bytes.insert(bytes.end(), text.begin(), text.end());
    while (bytes.size() % 4 != 0)
        bytes.push_back(0);
    return bytes;
}

/** What a script on another thread has seen. */
class Seen
{
public:
    void add(const Bytes& bytes)
    {
        const std::lock_guard lock(m_mutex);
        m_all.push_back(bytes);
    }
    std::size_t count() const
    {
        const std::lock_guard lock(m_mutex);
        return m_all.size();
    }
    Bytes at(std::size_t i) const
    {
        const std::lock_guard lock(m_mutex);
        return m_all.at(i);
    }

private:
    mutable std::mutex m_mutex;
    std::vector<Bytes> m_all;
};

/** A client of 127.0.0.1 on a port, with short time-outs. */
class TestClient
{
public:
    explicit TestClient(std::uint16_t port, const char* host = "127.0.0.1") : client(errors, host)
    {
        set(KvCRpcClient::Program, testProgram);
        set(KvCRpcClient::Version, testVersion);
        set(KvCRpcClient::Port, port);
        set(KvCRpcClient::ConnectTimeout, 5000000);
        set(KvCRpcClient::CallTimeout, 5000000);
    }
    void set(KvUInt32 key, KvUInt32 value) { client.setParameter(errors, key, value); }

    /** Calls with a text and gives the text answered in `answer`. */
    long echo(const std::string& text, KvUInt32 procedure = 1) { return echo(errors, text, answer, procedure); }
    long echo(KvCErrorListPool& list, const std::string& text, std::string& got, KvUInt32 procedure = 1)
    {
        Text arguments{const_cast<char*>(text.data()), static_cast<KvUInt32>(text.size())};
        Text results;
        const long status =
            client.clntCall(list, procedure, KvNXdr::proc<xdr_Text>, &arguments, KvNXdr::proc<xdr_Text>, &results);
        got = results.string();
        client.freeResults(KvNXdr::proc<xdr_Text>, &results);
        return status;
    }

    /** Exactly one entry was reported, this one; the list is empty afterwards. */
    void expectOnly(KvNMessage message, const std::string& text)
    {
        EXPECT_EQ(errors.getErrorCount(), 1u);
        EXPECT_EQ(errors.getErrorCode(0), static_cast<KvUInt32>(message));
        EXPECT_EQ(errors.getErrorText(0), text);
        errors.clear();
    }

    KvCErrorListPool errors;
    KvCRpcClient client;
    std::string answer;
};

/** A server of ours on 127.0.0.1 that gives each argument back. */
class EchoServer : public KvNRpc::ServerHandler
{
public:
    using Call = std::function<void(const KvNRpc::ServerCall&, KvNRpc::ReplyWriter)>;
    explicit EchoServer(const KvNRpc::ServerLimits& limits = {}, Call special = nullptr)
        : server(*this, limits), m_special(std::move(special))
    {
        tcp = server.listenTcp(7, 0x7F000001, 0);
        udp = server.listenUdp(7, 0x7F000001, 0);
        m_thread = std::thread([this] { server.run(); });
    }
    ~EchoServer() override { end(); }
    void end()
    {
        server.stop();
        if (m_thread.joinable())
            m_thread.join();
    }
    std::uint16_t port() const { return server.port(tcp); }

    void call(const KvNRpc::ServerCall& call, KvNRpc::ReplyWriter reply) override
    {
        ++calls;
        if (m_special != nullptr)
            return m_special(call, std::move(reply));
        reply.success(call.arguments, call.argumentBytes);
    }
    void closed(int, KvUInt64) override { ++closedConnections; }
    void note(int, KvUInt32, const char* what) override
    {
        const std::lock_guard lock(mutex);
        notes += what;
        notes += '\n';
    }
    /** Waits until this has been noted. */
    void awaitNote(const std::string& text)
    {
        while (allNotes().find(text) == std::string::npos)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::string allNotes()
    {
        const std::lock_guard lock(mutex);
        return notes;
    }

    KvNRpc::RpcServer server;
    int tcp = 0;
    int udp = 0;
    std::atomic<int> calls{0};
    std::atomic<int> closedConnections{0};
    std::mutex mutex;
    std::string notes;

private:
    Call m_special;
    std::thread m_thread;
};
