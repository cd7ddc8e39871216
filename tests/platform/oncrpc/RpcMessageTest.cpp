#include "platform/oncrpc/RpcMessage.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

#include "FailingAllocation.h"
#include "RpcBytes.h"

using RpcBytes::Bytes;
using RpcBytes::units;
using RpcBytes::operator+;

namespace {

KvNXdr::XDR reader(Bytes& bytes)
{
    KvNXdr::XDR xdrs;
    KvNXdr::xdrmem_create(&xdrs, reinterpret_cast<char*>(bytes.data()), bytes.size(), KvNXdr::XDR_DECODE);
    return xdrs;
}

Bytes encodedReply(KvNRpc::ReplyHeader header)
{
    KvNRpc::Bytes bytes;
    EXPECT_EQ(KvNRpc::encodeBytes(KvNXdr::proc<KvNRpc::xdr_replyHeader>, &header, bytes), KvNRpc::EncodeStatus::Done);
    return Bytes(bytes.data(), bytes.data() + bytes.size());
}

/** The header comes back from its bytes, and from no fewer. */
void expectReply(const KvNRpc::ReplyHeader& header, const Bytes& expected)
{
    Bytes bytes = encodedReply(header);
    EXPECT_EQ(bytes, expected);
    KvNRpc::ReplyHeader read;
    KvNXdr::XDR xdrs = reader(bytes);
    ASSERT_TRUE(KvNRpc::xdr_replyHeader(&xdrs, &read));
    EXPECT_EQ(KvNXdr::xdrmem_left(&xdrs), 0u);
    EXPECT_EQ(encodedReply(read), expected);
    for (std::size_t size = 0; size < expected.size(); ++size) {
        Bytes shorter(expected.begin(), expected.begin() + static_cast<long>(size));
        xdrs = reader(shorter);
        EXPECT_FALSE(KvNRpc::xdr_replyHeader(&xdrs, &read));
    }
}

bool decodesAsReply(Bytes bytes)
{
    KvNXdr::XDR xdrs = reader(bytes);
    KvNRpc::ReplyHeader header;
    return KvNRpc::xdr_replyHeader(&xdrs, &header) != 0;
}

KvNRpc::CallVerdict verdict(Bytes bytes, KvNRpc::CallHeader& header)
{
    KvNXdr::XDR xdrs = reader(bytes);
    return KvNRpc::decodeCall(&xdrs, header);
}

TEST(RpcMessage, ACallIsFortyBytesWithoutCredentials)
{
    KvNRpc::CallHeader header;
    header.xid = 0x11223344;
    header.program = 100000;
    header.version = 2;
    header.procedure = 3;
    KvNRpc::Bytes bytes;
    ASSERT_EQ(KvNRpc::encodeBytes(KvNXdr::proc<KvNRpc::xdr_callHeader>, &header, bytes), KvNRpc::EncodeStatus::Done);
    EXPECT_EQ(bytes.size(), KvNRpc::plainCallHeaderBytes);
    const Bytes expected = units({0x11223344, 0, 2, 100000, 2, 3, 0, 0, 0, 0});
    EXPECT_EQ(Bytes(bytes.data(), bytes.data() + bytes.size()), expected);
    KvNRpc::CallHeader read;
    EXPECT_EQ(verdict(expected, read), KvNRpc::CallVerdict::Serve);
    EXPECT_EQ(read.xid, 0x11223344u);
    EXPECT_EQ(read.program, 100000u);
    EXPECT_EQ(read.version, 2u);
    EXPECT_EQ(read.procedure, 3u);
    for (std::size_t size = 0; size < expected.size(); ++size)
        EXPECT_EQ(verdict(Bytes(expected.begin(), expected.begin() + static_cast<long>(size)), read),
                  KvNRpc::CallVerdict::Drop)
            << size;
}

TEST(RpcMessage, CredentialsOf400BytesArePassedOnAnd401AreRefused)
{
    const Bytes head = units({1, 0, 2, 5, 6, 7});
    KvNRpc::CallHeader header;
    EXPECT_EQ(verdict(head + units({1, 400}) + Bytes(400, 9) + units({0, 0}), header), KvNRpc::CallVerdict::Serve);
    EXPECT_EQ(header.credential.flavor, 1u);
    EXPECT_EQ(header.credential.size, 400u);
    EXPECT_EQ(header.credential.body[399], 9);
    header = {};
    EXPECT_EQ(verdict(head + units({1, 401}) + Bytes(404, 9) + units({0, 0}), header), KvNRpc::CallVerdict::BadAuth);
    header = {};
    EXPECT_EQ(verdict(head + units({0, 0, 1, 401}) + Bytes(404, 9), header), KvNRpc::CallVerdict::BadAuth);
    header = {};
    EXPECT_EQ(verdict(head + units({0, 0, 1, 400}) + Bytes(399, 9), header), KvNRpc::CallVerdict::Drop);
}

TEST(RpcMessage, AnotherRpcVersionIsTold)
{
    KvNRpc::CallHeader header;
    EXPECT_EQ(verdict(units({1, 0, 3, 5, 6, 7, 0, 0, 0, 0}), header), KvNRpc::CallVerdict::WrongRpcVersion);
    EXPECT_EQ(header.xid, 1u);
    EXPECT_EQ(verdict(units({1, 0, 0}), header), KvNRpc::CallVerdict::WrongRpcVersion);
}

TEST(RpcMessage, AReplyIsNoCall)
{
    KvNRpc::CallHeader header;
    EXPECT_EQ(verdict(units({1, 1, 2, 5, 6, 7, 0, 0, 0, 0}), header), KvNRpc::CallVerdict::Drop);
    EXPECT_FALSE(decodesAsReply(units({1, 0, 0, 0, 0, 0})));
}

TEST(RpcMessage, EveryReplyOfRfc5531HasItsBytes)
{
    KvNRpc::ReplyHeader header;
    header.xid = 9;
    expectReply(header, units({9, 1, 0, 0, 0, 0}));
    header.acceptStatus = KvNRpc::ProgramUnavailable;
    expectReply(header, units({9, 1, 0, 0, 0, 1}));
    header.acceptStatus = KvNRpc::ProgramMismatch;
    header.low = 2;
    header.high = 4;
    expectReply(header, units({9, 1, 0, 0, 0, 2, 2, 4}));
    header.acceptStatus = KvNRpc::ProcedureUnavailable;
    expectReply(header, units({9, 1, 0, 0, 0, 3}));
    header.acceptStatus = KvNRpc::GarbageArguments;
    expectReply(header, units({9, 1, 0, 0, 0, 4}));
    header.acceptStatus = KvNRpc::SystemError;
    expectReply(header, units({9, 1, 0, 0, 0, 5}));
    header.status = KvNRpc::Denied;
    expectReply(header, units({9, 1, 1, 0, 2, 4}));
    header.rejectStatus = KvNRpc::AuthError;
    header.authStatus = 5;
    expectReply(header, units({9, 1, 1, 1, 5}));
}

TEST(RpcMessage, AVerifierTravelsWithItsPadding)
{
    KvNRpc::ReplyHeader header;
    header.verifier.flavor = 2;
    header.verifier.size = 5;
    std::memcpy(header.verifier.body, "hello", 5);
    expectReply(header, units({0, 1, 0, 2, 5, 0x68656C6C, 0x6F000000, 0}));
}

TEST(RpcMessage, StatesOutOfRangeAndLargeVerifiersFail)
{
    EXPECT_FALSE(decodesAsReply(units({9, 2, 0, 0, 0, 0})));
    EXPECT_FALSE(decodesAsReply(units({9, 1, 2, 0, 0, 0})));
    EXPECT_FALSE(decodesAsReply(units({9, 1, 0, 0, 0, 6})));
    EXPECT_FALSE(decodesAsReply(units({9, 1, 0, 0, 0, 0xFFFFFFFF})));
    EXPECT_FALSE(decodesAsReply(units({9, 1, 1, 2, 0, 0})));
    EXPECT_FALSE(decodesAsReply(units({9, 1, 0, 0, 401}) + Bytes(404, 0) + units({0})));
    EXPECT_TRUE(decodesAsReply(units({9, 1, 0, 0, 400}) + Bytes(400, 0) + units({0})));
    EXPECT_FALSE(decodesAsReply(units({9, 1, 0, 0, 0xFFFFFFFF, 0})));
}

TEST(RpcMessage, ThePortMapperIsAskedOnTheEnvironmentsPort)
{
    ::unsetenv("KVDAL_PORTMAP_PORT");
    EXPECT_EQ(KvNRpc::portMapperPort(), 111);
    for (const auto& [text, port] : {std::pair<const char*, int>{"10111", 10111},
                                     {"1", 1},
                                     {"65535", 65535},
                                     {"65536", 111},
                                     {"0", 111},
                                     {"", 111},
                                     {"-1", 111},
                                     {" 5", 111},
                                     {"12x", 111},
                                     {"99999999999999999999999", 111}}) {
        ::setenv("KVDAL_PORTMAP_PORT", text, 1);
        EXPECT_EQ(KvNRpc::portMapperPort(), port) << text;
    }
    ::unsetenv("KVDAL_PORTMAP_PORT");
}

TEST(RpcMessage, EncodingTellsFailureFromLackOfMemory)
{
    KvNRpc::CallHeader header;
    KvNRpc::Bytes bytes;
    EXPECT_EQ(KvNRpc::encodeBytes(KvNXdr::proc<KvNRpc::xdr_callHeader>, &header, bytes, 4, 43),
              KvNRpc::EncodeStatus::Failed);
    EXPECT_EQ(KvNRpc::encodeBytes(KvNXdr::proc<KvNRpc::xdr_callHeader>, &header, bytes, 4, 44),
              KvNRpc::EncodeStatus::Done);
    EXPECT_EQ(bytes.size(), 44u);
    const FailingAllocation failing(1);
    EXPECT_EQ(KvNRpc::encodeBytes(KvNXdr::proc<KvNRpc::xdr_callHeader>, &header, bytes),
              KvNRpc::EncodeStatus::OutOfMemory);
}

TEST(RpcMessage, TransactionIdsBeginAnywhereWhicheverThreadsAsk)
{
    std::vector<std::vector<KvUInt32>> drawn(8);
    std::vector<std::thread> threads;
    for (std::vector<KvUInt32>& own : drawn)
        threads.emplace_back([&own] {
            for (int i = 0; i < 100; ++i)
                own.push_back(KvNRpc::firstTransactionId());
        });
    std::set<KvUInt32> all;
    for (std::size_t i = 0; i < drawn.size(); ++i) {
        threads[i].join();
        all.insert(drawn[i].begin(), drawn[i].end());
    }
    EXPECT_LT(790u, all.size());
}

}  // namespace
