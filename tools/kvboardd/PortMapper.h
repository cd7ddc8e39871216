#pragma once

#include <cstdint>
#include <vector>

#include "tools/kvboardd/Procedure.h"

namespace KvNBoardService {

/**
 * The port mapper of one board (RFC 1833, version 2): says at which ports its services are. What is registered is fixed
 * by the service; callers cannot set or unset anything, and nothing is called on anyone's behalf.
 */
class PortMapper
{
public:
    static constexpr KvUInt32 program = 100000;
    static constexpr KvUInt32 version = 2;

    enum class Protocol : KvUInt32
    {
        Tcp = 6,
        Udp = 17
    };

    /** `port`: where the port mapper itself is. */
    explicit PortMapper(std::uint16_t port);

    void add(KvUInt32 program, KvUInt32 version, Protocol protocol, std::uint16_t port);

    /** A broadcast is answered only when it asks for something that is here. */
    Answer call(const Call& call) const;

private:
    struct Mapping
    {
        KvUInt32 program;
        KvUInt32 version;
        Protocol protocol;
        std::uint16_t port;
    };

    Answer getPort(const Call& call) const;
    Answer dump(const Call& call) const;

    std::vector<Mapping> m_mappings;
};

}  // namespace KvNBoardService
