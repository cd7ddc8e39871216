#include "bench/Peers.h"

#include <cstdio>
#include <cstdlib>

namespace KvNPeers {

#ifndef KV_BENCH_PEERS
std::function<std::string()> savedDocument(const char*)
{
    return {};
}
#endif

const std::vector<Peer>& peers()
{
#ifdef KV_BENCH_PEERS
    static const std::vector<Peer> all = {{"protobuf-arena", makeProtobufArena},
                                          {"protobuf-heap", makeProtobufHeap},
                                          {"nlohmann-json", makeJson},
                                          {"pugixml", makeXml}};
#else
    static const std::vector<Peer> all;
#endif
    return all;
}

std::string verifiedBytes(const Peer& peer, const KvCInventoryItem& root)
{
    std::string bytes;
    {
        const std::unique_ptr<PeerTree> filled = peer.make();
        filled->fill(root);
        bytes = filled->write();
    }
    const std::unique_ptr<PeerTree> read = peer.make();
    KvNWalk::Digest expected;
    KvNWalk::Digest found;
    KvNWalk::walk(root, expected);
    if (read->parse(bytes))
        read->walk(found);
    KvNWalk::Sum ours;
    KvNWalk::Sum theirs;
    KvNWalk::walk(root, ours);
    read->walk(theirs);
    if (found == expected && theirs.total == ours.total && read->write() == bytes)
        return bytes;
    std::fprintf(stderr, "%s holds another tree: %llu parameters of %llu\n", peer.name,
                 static_cast<unsigned long long>(found.parameters),
                 static_cast<unsigned long long>(expected.parameters));
    std::exit(1);
}

}  // namespace KvNPeers
