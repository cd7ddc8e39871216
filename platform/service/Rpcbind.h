#pragma once

#include <cstdint>
#include <string>

#include "platform/KvTypes.h"

namespace KvNService {

/** One registration with the machine's rpcbind, which is asked at 127.0.0.1:111 by datagram (port mapper, version 2)
   from a port below 1024 when the process may have one: rpcbind takes registrations from such ports only. */
struct RpcbindMapping
{
    KvUInt32 program = 0;
    KvUInt32 version = 0;
    KvUInt32 protocol = 0;  ///< 6 TCP, 17 UDP
    std::uint16_t port = 0;
};

/** False, and why in `problem`, when rpcbind does not answer within two seconds or refuses. */
bool setRpcbind(const RpcbindMapping& mapping, std::string& problem);

/** Takes all registrations of a program's version away. Blocks as long as setRpcbind(). */
bool unsetRpcbind(KvUInt32 program, KvUInt32 version, std::string& problem);

}  // namespace KvNService
