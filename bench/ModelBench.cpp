// What reading, writing and using trees costs, ours beside what other libraries take for the same tree. A benchmark is
// named WORK/SHAPE/PARAMETERS/WHO; scripts/bench picks those of a row and lets them take turns.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

#include "base/KvCBuffer.h"
#include "bench/Lookup.h"
#include "bench/Peers.h"
#include "bench/Trees.h"
#include "inventory/KvCInventoryData.h"
#include "inventory/KvCInventoryItemFactory.h"

namespace {

using KvNPeers::Peer;
using KvNTrees::Shape;
using KvNTrees::Tree;
using State = benchmark::State;

void check(bool good, const char* what)
{
    if (good)
        return;
    std::fprintf(stderr, "bench_model: %s\n", what);
    std::exit(1);
}

void check(const KvCErrorListPool& errors)
{
    check(errors.getErrorCount() == 0, errors.getErrorText(0));
}

Tree readTree(KvCBuffer& stream)
{
    KvCErrorListPool errors;
    KvCInventoryItem* tree = nullptr;
    KvCInventoryItemFactory factory(errors);
    factory.deserialize(errors, tree, &stream);
    check(errors);
    return Tree(tree);
}

void writeTree(KvCInventoryItem& tree, KvCBuffer& stream)
{
    KvCErrorListPool errors;
    KvCInventoryItemFactory factory(errors);
    factory.serialize(errors, &stream, &tree);
    check(errors);
}

/** A shape of a size: its stream, and what each peer writes for it. */
class Sample
{
public:
    Sample(const Shape& shape, KvUInt32 parameters) : m_shape(shape), m_parameters(parameters), m_stream(m_errors)
    {
        const Tree made = make();
        writeTree(*made, m_stream);
        const Tree read = readTree(m_stream);
        KvNWalk::Digest expected;
        KvNWalk::Digest found;
        KvNWalk::walk(*made, expected);
        KvNWalk::walk(*read, found);
        check(found == expected && found.parameters == parameters, "a tree is read as another one");
    }

    static Sample& of(const Shape& shape, KvUInt32 parameters)
    {
        static std::map<std::pair<std::string, KvUInt32>, std::unique_ptr<Sample>> all;
        std::unique_ptr<Sample>& sample = all[{shape.name, parameters}];
        if (!sample)
            sample = std::make_unique<Sample>(shape, parameters);
        return *sample;
    }

    KvUInt32 parameters() const { return m_parameters; }
    KvCBuffer& stream() { return m_stream; }
    Tree make() const
    {
        KvCErrorListPool errors;
        Tree tree = m_shape.make(errors, m_parameters);
        check(errors);
        return tree;
    }
    const std::string& bytesOf(const Peer& peer)
    {
        std::string& bytes = m_peers[peer.name];
        if (bytes.empty())
            bytes = verifiedBytes(peer, *make());
        return bytes;
    }

private:
    const Shape& m_shape;
    KvUInt32 m_parameters;
    KvCErrorListPool m_errors;
    KvCBuffer m_stream;
    std::map<std::string, std::string> m_peers;
};

/** The stream becomes a tree, which is walked and freed. */
void readOnce(KvCErrorListPool& errors, KvCInventoryItemFactory& factory, Sample& sample)
{
    KvCInventoryItem* tree = nullptr;
    factory.deserialize(errors, tree, &sample.stream());
    KvNWalk::Sum sum;
    KvNWalk::walk(*tree, sum);
    benchmark::DoNotOptimize(sum);
    delete tree;
}

void readOurs(State& state, Sample& sample)
{
    KvCErrorListPool errors;
    KvCInventoryItemFactory factory(errors);
    for (auto _ : state)
        readOnce(errors, factory, sample);
    check(errors);
}

void readPeer(State& state, Sample& sample, const Peer& peer)
{
    const std::string& bytes = sample.bytesOf(peer);
    for (auto _ : state) {
        const auto tree = peer.make();
        check(tree->parse(bytes), peer.name);
        KvNWalk::Sum sum;
        tree->walk(sum);
        benchmark::DoNotOptimize(sum);
    }
}

void writeOurs(State& state, Sample& sample, bool asRead)
{
    KvCErrorListPool errors;
    KvCInventoryItemFactory factory(errors);
    const Tree tree = asRead ? readTree(sample.stream()) : sample.make();
    for (auto _ : state) {
        KvCBuffer stream(errors);
        factory.serialize(errors, &stream, tree.get());
        benchmark::DoNotOptimize(stream.getStartPointer());
    }
    check(errors);
}

void writePeer(State& state, Sample& sample, const Peer& peer, bool asRead)
{
    const auto tree = peer.make();
    if (asRead)
        check(tree->parse(sample.bytesOf(peer)), peer.name);
    else
        tree->fill(*sample.make());
    for (auto _ : state) {
        std::string bytes = tree->write();
        benchmark::DoNotOptimize(bytes.data());
    }
}

/** The bytes of the stream, copied to memory that is taken for them. */
void copyStream(State& state, Sample& sample)
{
    const std::size_t size = sample.stream().getWritePosition();
    for (auto _ : state) {
        const auto copy = std::make_unique_for_overwrite<char[]>(size);
        std::memcpy(copy.get(), sample.stream().getStartPointer(), size);
        benchmark::DoNotOptimize(copy.get());
        benchmark::ClobberMemory();
    }
}

/** A file with the section of a sample's tree, gone with the object. */
class SectionFile
{
public:
    explicit SectionFile(Sample& sample)
    {
        const char* folder = std::getenv("TMPDIR");
        m_path = std::string(folder == nullptr ? "/tmp" : folder) + "/bench-section-XXXXXX";
        const int file = ::mkstemp(m_path.data());
        check(file >= 0, "no temporary file");
        ::close(file);
        KvCErrorListPool errors;
        KvCBuffer section(errors);
        const Tree tree = readTree(sample.stream());
        KvCInventoryData::generateInventorySection(errors, section, tree.get());
        section.WriteToFile(errors, m_path.c_str());
        check(errors);
        m_size = section.getWritePosition();
    }
    ~SectionFile() { ::unlink(m_path.c_str()); }
    SectionFile(const SectionFile&) = delete;
    SectionFile& operator=(const SectionFile&) = delete;

    const char* path() const { return m_path.c_str(); }
    std::size_t size() const { return m_size; }

private:
    std::string m_path;
    std::size_t m_size = 0;
};

void sectionOurs(State& state, Sample& sample)
{
    KvCErrorListPool errors;
    const SectionFile file(sample);
    for (auto _ : state) {
        KvCInventoryItem* tree = nullptr;
        KvCInventoryData::extractInventoryTreeFromFile(errors, file.path(), tree);
        KvNWalk::Sum sum;
        KvNWalk::walk(*tree, sum);
        benchmark::DoNotOptimize(sum);
        check(sum.parameters == sample.parameters(), "a section is read as another tree");
        delete tree;
    }
    check(errors);
}

/** read(2) into memory, and then what readOurs does with bytes that are there. */
void sectionFloor(State& state, Sample& sample)
{
    KvCErrorListPool errors;
    KvCInventoryItemFactory factory(errors);
    const SectionFile file(sample);
    for (auto _ : state) {
        {
            const auto bytes = std::make_unique_for_overwrite<char[]>(file.size());
            const int source = ::open(file.path(), O_RDONLY | O_CLOEXEC);
            check(::read(source, bytes.get(), file.size()) == static_cast<ssize_t>(file.size()), "read");
            ::close(source);
            benchmark::DoNotOptimize(bytes.get());
        }
        readOnce(errors, factory, sample);
    }
    check(errors);
}

void textOurs(State& state, Sample& sample)
{
    KvCErrorListPool errors;
    const Tree tree = readTree(sample.stream());
    for (auto _ : state) {
        const KvCString text = tree->toString(errors, 0, 0);
        benchmark::DoNotOptimize(text.c_str());
    }
    check(errors);
}

void textPeer(State& state, Sample& sample)
{
    KvCErrorListPool errors;
    const KvCString text = readTree(sample.stream())->toString(errors, 0, 0);
    const auto save = KvNPeers::savedDocument(text.c_str());
    for (auto _ : state) {
        const std::string saved = save();
        benchmark::DoNotOptimize(saved.data());
    }
}

void lookupOurs(State& state, const Shape& shape, KvUInt32 parameters)
{
    const KvNLookup::Paths& paths = KvNLookup::of(shape, parameters);
    for (auto _ : state)
        for (const KvCInventoryAddress& address : paths.addresses)
            benchmark::DoNotOptimize(paths.tree->getParameter(address));
}

void lookupPeer(State& state, const Shape& shape, KvUInt32 parameters)
{
    const KvNLookup::Paths& paths = KvNLookup::of(shape, parameters);
    for (auto _ : state)
        for (const KvCInventoryAddress& address : paths.addresses)
            benchmark::DoNotOptimize(KvNLookup::find(*paths.plain, address));
}

template <class Work, class... Arguments>
void announce(const std::string& work, const Shape& shape, KvUInt32 parameters, const char* who, Work run,
              Arguments... arguments)
{
    const std::string name = work + "/" + shape.name + "/" + std::to_string(parameters) + "/" + who;
    benchmark::RegisterBenchmark(name.c_str(), [=, &shape](State& state) {
        if constexpr (std::is_invocable_v<Work, State&, const Shape&, KvUInt32>)
            run(state, shape, parameters);
        else
            run(state, Sample::of(shape, parameters), arguments...);
    })->Unit(benchmark::kMicrosecond);
}

void announceAll(const Shape& shape, KvUInt32 parameters)
{
    announce("read", shape, parameters, "kvinventory", readOurs);
    announce("write", shape, parameters, "kvinventory", writeOurs, true);
    announce("write-built", shape, parameters, "kvinventory", writeOurs, false);
    announce("read", shape, parameters, "memcpy", copyStream);
    announce("section", shape, parameters, "kvinventory", sectionOurs);
    announce("section", shape, parameters, "read-2-and-read", sectionFloor);
    for (const Peer& peer : KvNPeers::peers()) {
        announce("read", shape, parameters, peer.name, readPeer, peer);
        announce("write", shape, parameters, peer.name, writePeer, peer, true);
        announce("write-built", shape, parameters, peer.name, writePeer, peer, false);
    }
    announce("text", shape, parameters, "kvinventory", textOurs);
    if (!KvNPeers::peers().empty())
        announce("text", shape, parameters, "pugixml", textPeer);
    if (KvNLookup::isMadeFor(shape)) {
        announce("lookup", shape, parameters, "kvinventory", lookupOurs);
        announce("lookup", shape, parameters, "unordered_map", lookupPeer);
    }
}

/** Some peers recurse as deep as the tree: the program starts itself once more with a stack for that. */
void useLargeStack(char** argv)
{
    constexpr rlim_t enough = rlim_t{1} << 30;
    rlimit stack{};
    ::getrlimit(RLIMIT_STACK, &stack);
    if (stack.rlim_cur != RLIM_INFINITY && stack.rlim_cur < enough) {
        stack.rlim_cur = std::min(stack.rlim_max, enough);
        if (::setrlimit(RLIMIT_STACK, &stack) == 0 && std::getenv("KV_BENCH_LARGE_STACK") == nullptr) {
            ::setenv("KV_BENCH_LARGE_STACK", "1", 1);
            ::execv("/proc/self/exe", argv);
        }
    }
}

}  // namespace

int main(int argc, char** argv)
{
    useLargeStack(argv);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    for (const Shape& shape : KvNTrees::shapes)
        for (const KvUInt32 parameters :
             std::set<KvUInt32>{1000, 10000, 100000, 1000000, shape.usual, 10 * shape.usual})
            announceAll(shape, parameters);
    return benchmark::RunSpecifiedBenchmarks() == 0 ? 1 : 0;
}
