#include <optional>

#include "fuzz/ScriptedPeer.h"
#include "platform/oncrpc/KvCRpcClient.h"

/*
 * What a board's port mapper answers to the question for a service's port: only an answer to this question counts, and
 * nothing of it but the port. With an even first byte the port mapper answers by TCP, with the rest of the input; with
 * an odd one by UDP, with datagrams that each have their size in a byte before them, and a good one behind.
 */

using namespace KvNFuzz;

namespace {

/** Never over: whoever waits for it hangs. */
constexpr KvUInt32 connectTimeout = 60000000;

Bytes words(std::initializer_list<const char*> items)
{
    Bytes result;
    for (const char* item : items) {
        const std::string_view text(item, 4);
        result.insert(result.end(), text.begin(), text.end());
    }
    return result;
}

/** An accepted reply with this listener's port. */
const Bytes& goodAnswer()
{
    static const Bytes answer = words({"XID!", "\0\0\0\1", "\0\0\0\0", "\0\0\0\0", "\0\0\0\0", "\0\0\0\0", "PORT"});
    return answer;
}

struct Board
{
    ScriptedPeer withoutDatagrams{false};
    ScriptedPeer withDatagrams{true};
    KvCErrorListPool errors;
    KvCRpcClient keeper{errors, "127.0.0.1"};
};

Board& board()
{
    static Board* const only = new Board;
    return *only;
}

long connect(KvCErrorListPool& errors, const ScriptedPeer& peer)
{
    KvCRpcClient client(errors, "127.0.0.1");
    client.setParameter(errors, KvCRpcClient::Program, 8);
    client.setParameter(errors, KvCRpcClient::Version, 1);
    client.setParameter(errors, KvCRpcClient::PortMapperPort, peer.port());
    client.setParameter(errors, KvCRpcClient::ConnectTimeout, connectTimeout);
    KV_FUZZ_CHECK(errors.getErrorCount() == 0);
    const long outcome = client.connect(errors);
    KV_FUZZ_CHECK(errors.getErrorCount() == (outcome == KvCRpcClient::Success ? 0u : 1u));
    return outcome;
}

/** A whole reply as the protocol has it: with success, with the port behind it. */
struct Answer
{
    bool isReply = false;
    KvUInt32 port = 0;
};

/** `bytes` with "XID!" as the id and "PORT" where that is meant. */
Answer read(const Bytes& bytes)
{
    Input input(bytes.data(), bytes.size());
    Answer answer;
    if (input.text(4) != "XID!" || input.number(4) != 1)
        return answer;
    const auto ends = [&](std::size_t left) { return input.left() == left; };
    const KvUInt32 status = input.left() < 4 ? 2 : input.number(4);
    if (status == 1) {
        const KvUInt32 rejected = input.left() < 4 ? 2 : input.number(4);
        answer.isReply = (rejected == 0 && ends(8)) || (rejected == 1 && ends(4));
        return answer;
    }
    if (status != 0 || input.left() < 8)
        return answer;
    input.number(4);
    const KvUInt32 verifier = input.number(4);
    const std::size_t padded = (std::size_t{verifier} + 3) / 4 * 4;
    if (verifier > 400 || input.left() < padded + 4)
        return answer;
    input.bytes(padded);
    const KvUInt32 accepted = input.number(4);
    if (accepted != 0) {
        answer.isReply = (accepted == 2 && ends(8)) || (accepted != 2 && accepted <= 5 && ends(0));
        return answer;
    }
    const bool hasPort = ends(4);
    const bool isOwn = hasPort && std::memcmp(input.rest(), "PORT", 4) == 0;
    const KvUInt32 port = input.number(4);
    answer.isReply = hasPort && (isOwn || port <= 65535);
    answer.port = isOwn ? 0x10000 : port;
    return answer;
}

bool succeeds(const Answer& answer)
{
    return answer.isReply && answer.port == 0x10000;
}

void askByTcp(Input& input)
{
    ScriptedPeer::Script script;
    script.answer = input.all();
    board().withoutDatagrams.play(script);
    KvCErrorListPool errors;
    const long outcome = connect(errors, board().withoutDatagrams);
    KV_FUZZ_CHECK(outcome == KvCRpcClient::Success || outcome == KvCRpcClient::ConnectFailed);
    // One record of one fragment, as all port mappers send them.
    Input answer(script.answer.data(), script.answer.size());
    const KvUInt32 mark = answer.number(4);
    const bool isOne = mark == (0x80000000u | static_cast<KvUInt32>(answer.left()));
    if (isOne)
        KV_FUZZ_CHECK((outcome == KvCRpcClient::Success) == succeeds(read(answer.all())));
}

void askByUdp(Input& input)
{
    ScriptedPeer::Script script;
    while (!input.isEmpty() && script.datagrams.size() < 8)
        script.datagrams.push_back(input.bytes(input.byte()));
    script.datagrams.push_back(goodAnswer());
    board().withDatagrams.play(script);
    KvCErrorListPool errors;
    const long outcome = connect(errors, board().withDatagrams);
    for (const Bytes& datagram : script.datagrams) {
        const Answer answer = read(datagram);
        if (!answer.isReply)
            continue;
        KV_FUZZ_CHECK((outcome == KvCRpcClient::Success) == succeeds(answer));
        return;
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    Input input(data, size);
    if (input.byte() % 2 == 0)
        askByTcp(input);
    else
        askByUdp(input);
    return 0;
}
