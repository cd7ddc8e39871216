#include "platform/machine/Processors.h"

#include <hwloc.h>
#include <stdlib.h>

#include <algorithm>
#include <map>
#include <memory>
#include <tuple>

namespace KvNMachine {

namespace {

constexpr std::size_t largestProcessorList = std::size_t(16) << 20;

/** A variable of the environment, by which alone the topology library is told some things; gone with the object. */
class Variable
{
public:
    Variable(const char* name, const std::string& value) : m_name(name) { ::setenv(name, value.c_str(), 1); }
    ~Variable() { ::unsetenv(m_name); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* m_name;
};

struct Destroy
{
    void operator()(hwloc_topology* topology) const { hwloc_topology_destroy(topology); }
};
using Topology = std::unique_ptr<hwloc_topology, Destroy>;

/** The whole machine, not only what this process may use of it; null when it cannot be had. */
Topology loadTopology(bool isThisMachine)
{
    hwloc_topology_t made = nullptr;
    if (hwloc_topology_init(&made) != 0)
        return nullptr;
    Topology topology(made);
    hwloc_topology_set_flags(made, HWLOC_TOPOLOGY_FLAG_INCLUDE_DISALLOWED);
    hwloc_topology_set_icache_types_filter(made, HWLOC_TYPE_FILTER_KEEP_ALL);
    // It asks the processor that it runs on, which is not the one that the files tell of.
    if (!isThisMachine)
        hwloc_topology_set_components(made, HWLOC_TOPOLOGY_COMPONENTS_FLAG_BLACKLIST, "x86");
    return hwloc_topology_load(made) == 0 ? std::move(topology) : nullptr;
}

/** The numbers of the processors in /proc/cpuinfo and their "cpu MHz". */
std::map<KvUInt64, double> readFrequencies(const SystemFiles& files)
{
    const std::string list = files.content("proc/cpuinfo", largestProcessorList);
    std::map<KvUInt64, double> result;
    std::optional<KvUInt64> processor;
    for (std::size_t begin = 0; begin < list.size();) {
        const std::size_t end = std::min(list.find('\n', begin), list.size());
        const std::string line = list.substr(begin, end - begin);
        begin = end + 1;
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos)
            continue;
        const std::string name = tidied(line.substr(0, colon));
        const std::string value = tidied(line.substr(colon + 1));
        if (name == "processor")
            processor = parseNumber(value);
        else if (name == "cpu MHz" && processor)
            result.emplace(*processor, std::strtod(value.c_str(), nullptr) * 1e6);
    }
    return result;
}

std::vector<Cache> cachesOf(hwloc_topology* topology, hwloc_obj* package)
{
    static constexpr std::pair<hwloc_obj_cache_type_t, const char*> types[] = {
        {HWLOC_OBJ_CACHE_UNIFIED, "unified"},
        {HWLOC_OBJ_CACHE_DATA, "data"},
        {HWLOC_OBJ_CACHE_INSTRUCTION, "instruction"}};
    std::map<std::tuple<unsigned, hwloc_obj_cache_type_t, KvUInt64>, unsigned> counts;
    for (const hwloc_obj_type_t kind : {HWLOC_OBJ_L1CACHE, HWLOC_OBJ_L2CACHE, HWLOC_OBJ_L3CACHE, HWLOC_OBJ_L1ICACHE,
                                        HWLOC_OBJ_L2ICACHE, HWLOC_OBJ_L3ICACHE}) {
        hwloc_obj* cache = nullptr;
        while ((cache = hwloc_get_next_obj_inside_cpuset_by_type(topology, package->cpuset, kind, cache)) != nullptr)
            if (cache->attr->cache.size != 0)
                ++counts[{cache->attr->cache.depth, cache->attr->cache.type, cache->attr->cache.size}];
    }
    std::vector<Cache> result;
    for (const auto& [kind, count] : counts)
        for (const auto& [type, name] : types)
            if (type == std::get<1>(kind))
                result.push_back({std::get<0>(kind), name, std::get<2>(kind), count});
    return result;
}

std::optional<double> highestFrequency(hwloc_obj* package, const SystemFiles& files,
                                       const std::map<KvUInt64, double>& frequencies)
{
    const int first = hwloc_bitmap_first(package->cpuset);
    if (first < 0)
        return std::nullopt;
    const std::string folder = "sys/devices/system/cpu/cpu" + std::to_string(first);
    if (const auto thousands = files.number(folder + "/cpufreq/cpuinfo_max_freq"); thousands && *thousands != 0)
        return static_cast<double>(*thousands) * 1000;
    const auto found = frequencies.find(static_cast<KvUInt64>(first));
    return found == frequencies.end() || found->second <= 0 ? std::nullopt : std::optional(found->second);
}

std::string info(hwloc_obj* object, const char* name)
{
    const char* value = hwloc_obj_get_info_by_name(object, name);
    return value == nullptr ? "" : tidied(value);
}

}  // namespace

std::vector<Processor> readProcessors(const std::string& root, const SystemFiles& files)
{
    const bool isThisMachine = root == "/";
    // What it misses it would say on standard error.
    const Variable silence("HWLOC_HIDE_ERRORS", "2");
    std::optional<Variable> otherRoot;
    if (!isThisMachine)
        otherRoot.emplace("HWLOC_FSROOT", root);
    const Topology topology = loadTopology(isThisMachine);
    if (!topology)
        return {};
    const std::map<KvUInt64, double> frequencies = readFrequencies(files);
    std::vector<Processor> result;
    const auto add = [&](hwloc_obj* package) {
        Processor processor;
        processor.vendor = info(package, "CPUVendor");
        processor.model = info(package, "CPUModel");
        const int cores = hwloc_get_nbobjs_inside_cpuset_by_type(topology.get(), package->cpuset, HWLOC_OBJ_CORE);
        processor.cores = cores > 0 ? static_cast<unsigned>(cores) : 0;
        processor.hertz = highestFrequency(package, files, frequencies);
        processor.caches = cachesOf(topology.get(), package);
        result.push_back(std::move(processor));
    };
    for (hwloc_obj* package = nullptr;
         (package = hwloc_get_next_obj_by_type(topology.get(), HWLOC_OBJ_PACKAGE, package)) != nullptr;)
        add(package);
    // Some machines do not say which processor is in which socket.
    if (result.empty() && hwloc_get_root_obj(topology.get())->cpuset != nullptr)
        add(hwloc_get_root_obj(topology.get()));
    return result;
}

}  // namespace KvNMachine
