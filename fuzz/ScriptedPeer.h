#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "fuzz/Fuzz.h"

namespace KvNFuzz {

/**
 * Who the client talks to: a listener on loopback, on a thread of its own, that answers the first record of each
 * connection with the bytes of its script, whatever they are, and ends the connection. So whoever calls need not wait
 * for a time-out. In the script "XID!" stands for the call's transaction id and "PORT" for this listener's port.
 */
class ScriptedPeer
{
public:
    struct Script
    {
        Bytes answer;
        bool endsByReset = false;
        /** What a datagram is answered with, one after the other; by TCP nothing of it. */
        std::vector<Bytes> datagrams;
    };

    /** `hasDatagrams`: listens by UDP too, at the same port. */
    explicit ScriptedPeer(bool hasDatagrams);
    ScriptedPeer(const ScriptedPeer&) = delete;
    ScriptedPeer& operator=(const ScriptedPeer&) = delete;

    std::uint16_t port() const { return m_port; }

    /** From now on this script is played. */
    void play(Script script);

    /** The script's answer with what stood for the id of the last call; what was sent last. */
    Bytes answered() const;

private:
    void serveStream(int listener);
    void serve(int connection);
    void serveDatagrams(int socket);
    Bytes filledIn(const Bytes& bytes, const unsigned char* transactionId) const;

    std::uint16_t m_port = 0;
    mutable std::mutex m_mutex;
    Script m_script;
    Bytes m_answered;
};

}  // namespace KvNFuzz
