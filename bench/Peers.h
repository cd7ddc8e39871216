#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/Walk.h"

/** Other libraries that hold the same tree with every field; none where they are not built in (KV_BENCH_PEERS). */
namespace KvNPeers {

/** A tree of a peer. */
class PeerTree
{
public:
    PeerTree() = default;
    virtual ~PeerTree() = default;
    PeerTree(const PeerTree&) = delete;
    PeerTree& operator=(const PeerTree&) = delete;

    /** Takes everything that is in `root`. */
    virtual void fill(const KvCInventoryItem& root) = 0;
    /** Reads what write() gave; false when that fails. */
    virtual bool parse(const std::string& bytes) = 0;
    /** The tree in the peer's own form. */
    virtual std::string write() const = 0;
    virtual void walk(KvNWalk::Sum& sum) const = 0;
    virtual void walk(KvNWalk::Digest& digest) const = 0;
};

struct Peer
{
    const char* name;
    std::unique_ptr<PeerTree> (*make)();
};

/** protobuf-arena, protobuf-heap, nlohmann-json and pugixml. */
const std::vector<Peer>& peers();

/** The peer's bytes of the tree. Ends the program when the tree that the peer reads from them is not the same. */
std::string verifiedBytes(const Peer& peer, const KvCInventoryItem& root);

/** Takes `text` as an XML document; what is returned writes it again, indented by four blanks. Ends the program when
   that is not the same text. */
std::function<std::string()> savedDocument(const char* text);

std::unique_ptr<PeerTree> makeProtobufArena();
std::unique_ptr<PeerTree> makeProtobufHeap();
std::unique_ptr<PeerTree> makeJson();
std::unique_ptr<PeerTree> makeXml();

/** Copies `root` to a tree of other nodes: `copy(item, node)` takes an item's own fields and parameters,
    `addChild(node, last)` gives the node for the next child. Nodes must stay where they are. */
template <class Node, class Copy, class AddChild>
void copyItems(const KvCInventoryItem& root, Node top, Copy&& copy, AddChild&& addChild)
{
    std::vector<std::pair<const KvCInventoryItem*, Node>> todo{{&root, top}};
    while (!todo.empty()) {
        const auto [item, node] = todo.back();
        todo.pop_back();
        copy(*item, node);
        for (const KvCInventoryItem* child = item->getFirstSubItem(); child != nullptr; child = child->getNext())
            todo.push_back({child, addChild(node)});
    }
}

}  // namespace KvNPeers
