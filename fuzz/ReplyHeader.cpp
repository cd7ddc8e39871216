#include <optional>

#include "fuzz/Fuzz.h"
#include "platform/oncrpc/RpcMessage.h"

/*
 * Headers of calls and replies: taken exactly when RFC 5531 allows them, up to the byte where arguments or results
 * begin, and encoded again to the bytes that came, padding aside.
 */

using namespace KvNFuzz;
using namespace KvNRpc;

namespace {

using Bytes = KvNFuzz::Bytes;

/** The same in the words of the protocol: how long the header is, or none. */
class Words
{
public:
    explicit Words(const Bytes& bytes) : m_bytes(bytes) {}

    /** The next number; none behind the end. */
    std::optional<KvUInt32> next()
    {
        if (m_bytes.size() - m_at < 4)
            return std::nullopt;
        Input number(m_bytes.data() + m_at, 4);
        m_at += 4;
        return number.number(4);
    }
    bool skip(std::size_t count)
    {
        const bool isThere = m_bytes.size() - m_at >= count;
        m_at += isThere ? count : 0;
        return isThere;
    }
    bool skipAuth()
    {
        const auto flavor = next();
        const auto length = next();
        return flavor && length && *length <= 400 && skip((*length + 3) / 4 * 4);
    }
    std::size_t position() const { return m_at; }

private:
    const Bytes& m_bytes;
    std::size_t m_at = 0;
};

std::optional<std::size_t> replyLength(const Bytes& bytes)
{
    Words words(bytes);
    if (!words.next() || words.next() != 1u)
        return std::nullopt;
    const auto status = words.next();
    const auto twoMore = [&] { return words.skip(8) ? std::optional(words.position()) : std::nullopt; };
    if (status == 0u) {
        if (!words.skipAuth())
            return std::nullopt;
        const auto accepted = words.next();
        if (accepted == 2u)
            return twoMore();
        return accepted && *accepted <= 5 ? std::optional(words.position()) : std::nullopt;
    }
    if (status != 1u)
        return std::nullopt;
    const auto rejected = words.next();
    if (rejected == 0u)
        return twoMore();
    return rejected == 1u && words.next() ? std::optional(words.position()) : std::nullopt;
}

std::optional<std::size_t> callLength(const Bytes& bytes)
{
    Words words(bytes);
    const bool isCall = words.next() && words.next() == 0u && words.next() == 2u && words.skip(12) &&
                        words.skipAuth() && words.skipAuth();
    return isCall ? std::optional(words.position()) : std::nullopt;
}

/** Decodes with `routine`, and what was taken encodes and decodes again to the same. */
template <class Header>
void check(Bytes bytes, KvNXdr::bool_t (*routine)(KvNXdr::XDR*, Header*), std::optional<std::size_t> length)
{
    KvNXdr::XDR stream;
    Header header;
    KvNXdr::xdrmem_create(&stream, reinterpret_cast<char*>(bytes.data()), bytes.size(), KvNXdr::XDR_DECODE);
    const bool isTaken = routine(&stream, &header) != 0;
    KV_FUZZ_CHECK(isTaken == length.has_value());
    if (!isTaken)
        return;
    KV_FUZZ_CHECK(KvNXdr::xdrmem_used(&stream) == *length);
    Bytes again(*length);
    KvNXdr::xdrmem_create(&stream, reinterpret_cast<char*>(again.data()), again.size(), KvNXdr::XDR_ENCODE);
    KV_FUZZ_CHECK(routine(&stream, &header) != 0 && KvNXdr::xdrmem_left(&stream) == 0);
    Header second;
    KvNXdr::xdrmem_create(&stream, reinterpret_cast<char*>(again.data()), again.size(), KvNXdr::XDR_DECODE);
    KV_FUZZ_CHECK(routine(&stream, &second) != 0);
    Bytes third(*length);
    KvNXdr::xdrmem_create(&stream, reinterpret_cast<char*>(third.data()), third.size(), KvNXdr::XDR_ENCODE);
    KV_FUZZ_CHECK(routine(&stream, &second) != 0);
    KV_FUZZ_CHECK(third == again);
}

/** What a server does with the bytes. */
void judge(Bytes bytes)
{
    KvNXdr::XDR stream;
    CallHeader header;
    KvNXdr::xdrmem_create(&stream, reinterpret_cast<char*>(bytes.data()), bytes.size(), KvNXdr::XDR_DECODE);
    const CallVerdict verdict = decodeCall(&stream, header);
    KV_FUZZ_CHECK((verdict == CallVerdict::Serve) == callLength(bytes).has_value());
    Words words(bytes);
    const bool isCall = words.next() && words.next() == 0u;
    KV_FUZZ_CHECK(isCall || verdict == CallVerdict::Drop);
    const auto version = words.next();
    KV_FUZZ_CHECK((verdict == CallVerdict::WrongRpcVersion) == (isCall && version && *version != 2u));
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const KvNFuzz::Bytes bytes(data, data + size);
    const Costs costs;
    check<ReplyHeader>(bytes, xdr_replyHeader, replyLength(bytes));
    check<CallHeader>(bytes, xdr_callHeader, callLength(bytes));
    judge(bytes);
    costs.check(size, {0, 0, 8000, 4});
    return 0;
}
