// The heap that reading a tree takes, for one parameter: every block that malloc gives is counted as it is given, with
// the word in front of it, and the highest sum while a tree is read and held is what the row says. Ours is asked by the
// allocation hook, too: what goes past it would be found here.
//
//     bench_memory [--json FILE] [PARAMETERS]

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "base/KvCBuffer.h"
#include "bench/Peers.h"
#include "bench/Rows.h"
#include "bench/Trees.h"
#include "inventory/KvCInventoryItemFactory.h"

extern "C" {
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void* __libc_memalign(std::size_t alignment, std::size_t bytes);
void __libc_free(void* block);
}

namespace {

std::atomic<std::size_t> held{0};
std::atomic<std::size_t> peak{0};
std::atomic<std::size_t> askedOfHook{0};

std::size_t sizeOf(void* block)
{
    return block == nullptr ? 0 : ::malloc_usable_size(block) + sizeof(std::size_t);
}

void* counted(void* block)
{
    const std::size_t now = held += sizeOf(block);
    if (now > peak)
        peak = now;
    return block;
}

bool countAsked(void*, std::size_t bytes)
{
    askedOfHook += bytes;
    return true;
}

/** The bytes that `read`, which gives what holds the tree, takes at most until it is done. */
template <class Read>
double peakOf(Read&& read)
{
    const std::size_t before = held;
    peak = before;
    const auto tree = read();
    return static_cast<double>(peak - before);
}

KvNTrees::Tree readTree(KvCBuffer& stream)
{
    KvCErrorListPool errors;
    KvCInventoryItem* tree = nullptr;
    KvCInventoryItemFactory factory(errors);
    factory.deserialize(errors, tree, &stream);
    check(errors.getErrorCount() == 0, "reading a tree");
    return KvNTrees::Tree(tree);
}

/** The same by the hook: what the objects of a tree ask for can not be more than what malloc gave for them. */
void checkHook(KvCBuffer& stream, double taken)
{
    askedOfHook = 0;
    KvNAllocation::setHook(countAsked, nullptr);
    const KvNTrees::Tree tree = readTree(stream);
    KvNAllocation::setHook(nullptr, nullptr);
    const double asked = static_cast<double>(askedOfHook);
    check(asked > 0.5 * taken && asked < 1.1 * taken, "the allocation hook and malloc disagree");
}

void measure(Rows& rows, const KvNTrees::Shape& shape, KvUInt32 parameters)
{
    KvCErrorListPool errors;
    KvCBuffer stream(errors);
    KvCInventoryItemFactory factory(errors);
    KvNTrees::Tree made = shape.make(errors, parameters);
    factory.serialize(errors, &stream, made.get());
    const double ours = peakOf([&] { return readTree(stream); });
    checkHook(stream, ours);
    const std::string name = std::string("peak heap for a parameter, ") + shape.name;
    for (const KvNPeers::Peer& peer : KvNPeers::peers()) {
        const std::string bytes = verifiedBytes(peer, *made);
        const double theirs = peakOf([&] {
            auto tree = peer.make();
            check(tree->parse(bytes), peer.name);
            return tree;
        });
        const bool hasLimit = std::strcmp(peer.name, "protobuf-arena") == 0;
        rows.ratio(name, peer.name, ours / parameters, theirs / parameters, hasLimit ? 0.9 : 0, "B");
    }
}

}  // namespace

extern "C" {

void* malloc(std::size_t bytes)
{
    return counted(__libc_malloc(bytes));
}

void* calloc(std::size_t count, std::size_t bytes)
{
    return counted(__libc_calloc(count, bytes));
}

void* realloc(void* block, std::size_t bytes)
{
    held -= sizeOf(block);
    void* const grown = __libc_realloc(block, bytes);
    if (grown == nullptr && bytes != 0)
        held += sizeOf(block);
    return counted(grown);
}

void* memalign(std::size_t alignment, std::size_t bytes)
{
    return counted(__libc_memalign(alignment, bytes));
}

void* aligned_alloc(std::size_t alignment, std::size_t bytes)
{
    return counted(__libc_memalign(alignment, bytes));
}

int posix_memalign(void** place, std::size_t alignment, std::size_t bytes)
{
    *place = counted(__libc_memalign(alignment, bytes));
    return *place == nullptr ? ENOMEM : 0;
}

void free(void* block)
{
    held -= sizeOf(block);
    __libc_free(block);
}
}

int main(int argc, char** argv)
{
    Rows rows(takeJsonOption(argc, argv));
    for (const KvNTrees::Shape& shape : KvNTrees::shapes)
        measure(rows, shape, argc > 1 ? static_cast<KvUInt32>(std::atoi(argv[1])) : shape.usual);
    return 0;
}
