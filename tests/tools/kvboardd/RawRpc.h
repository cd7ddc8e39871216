#pragma once

#include <cstdint>
#include <string>

#include "WireBytes.h"

/*
 * ONC RPC (RFC 5531) by hand over real sockets, so that a test can send what no library would. Everything waits at most
 * ten seconds.
 */

/** A reply, taken apart; `arrived` is false when none came. */
struct RawReply
{
    bool arrived = false;
    KvUInt32 xid = 0;
    KvUInt32 replyStatus = 0;  ///< 0 accepted, 1 denied
    KvUInt32 status = 0;       ///< the accept or the reject status
    Bytes body;                ///< what follows it

    bool isSuccess() const { return arrived && replyStatus == 0 && status == 0; }
    bool isAccepted(KvUInt32 with) const { return arrived && replyStatus == 0 && status == with; }
    bool isDenied(KvUInt32 with) const { return arrived && replyStatus == 1 && status == with; }
};

/** The bytes of a call with empty credential and verifier. */
Bytes callMessage(KvUInt32 xid, KvUInt32 program, KvUInt32 version, KvUInt32 procedure, const Bytes& arguments = {});

/** A message as one record of one fragment. */
Bytes record(const Bytes& message);

/** A TCP connection to a board. */
class RawConnection
{
public:
    /** `source`: the address to come from, host order; 0: any. */
    RawConnection(KvUInt32 address, std::uint16_t port, KvUInt32 source = 0);
    ~RawConnection();
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;

    bool isOpen() const { return m_descriptor >= 0; }
    /** Sends as much as is taken; false when not all was. */
    bool send(const Bytes& bytes);
    /** The next reply. */
    RawReply receive();
    RawReply call(KvUInt32 program, KvUInt32 version, KvUInt32 procedure, const Bytes& arguments = {});
    /** Waits until the peer has ended the connection; false when it has not, or has sent something. */
    bool isEnded();
    /** Whether a reply is there or comes within `milliseconds`. */
    bool hasReply(int milliseconds);
    /** Nothing more will be sent. */
    void finish();

private:
    bool read(unsigned char* bytes, std::size_t size);

    int m_descriptor;
    KvUInt32 m_xid = 1;
};

/** Sends a datagram and waits for the reply; `from` is the address that it came from. */
RawReply exchangeDatagram(KvUInt32 address, std::uint16_t port, const Bytes& message, int milliseconds = 10000,
                          KvUInt32* from = nullptr);
RawReply callDatagram(KvUInt32 address, std::uint16_t port, KvUInt32 program, KvUInt32 version, KvUInt32 procedure,
                      const Bytes& arguments = {});
