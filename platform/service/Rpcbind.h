#pragma once

#include <cstdint>
#include <string>

#include "platform/KvTypes.h"

namespace KvNService {

/** One registration with rpcbind. */
struct RpcbindMapping
{
    KvUInt32 program = 0;
    KvUInt32 version = 0;
    KvUInt32 protocol = 0;  ///< 6 TCP, 17 UDP
    std::uint16_t port = 0;
};

/**
 * The machine's rpcbind, which is asked at 127.0.0.1:111 by datagram (port mapper, version 2) from a port below 1024
 * when the process may have one as the object is made: rpcbind takes registrations from such ports only. The port is
 * kept, so that a process that has given up root can take its registrations back.
 */
class Rpcbind
{
public:
    Rpcbind();
    ~Rpcbind();
    Rpcbind(const Rpcbind&) = delete;
    Rpcbind& operator=(const Rpcbind&) = delete;

    /** False, and why in `problem`, when rpcbind does not answer within two seconds or refuses. */
    bool set(const RpcbindMapping& mapping, std::string& problem);
    /** Takes all registrations of a program's version away. Blocks as long as set(). */
    bool unset(KvUInt32 program, KvUInt32 version, std::string& problem);

private:
    bool ask(KvUInt32 procedure, const RpcbindMapping& mapping, std::string& problem);

    int m_socket;
    std::string m_problem;  ///< why it cannot be reached; empty when it can
};

}  // namespace KvNService
