#include "bench/Trees.h"

#include <algorithm>
#include <string>

#include "inventory/ids/KvNInventoryIDs.h"

namespace {

using namespace KvNTrees;
using namespace KvNInventoryIDs;

constexpr KvUInt32 boards = 8;
constexpr KvUInt32 channelsOfModule = 16;
constexpr KvUInt32 parametersOfChannel = 12;

template <class T>
void add(KvCErrorListPool& errors, KvCInventoryItem& item, const KvCInventoryAddress& id, const T& value,
         const char* unit, bool modifiable, KvUInt32 relevance)
{
    item.createParameter<T>(errors, id, value, unit, modifiable, relevance, nullptr, nullptr, nullptr);
}

/** The parameter `number` of the channel `channel`, counted from 0: every type that boards use a lot. */
void addChannelParameter(KvCErrorListPool& errors, KvCInventoryItem& item, KvUInt32 channel, KvUInt32 number)
{
    switch (number) {
        case 0:
            return add<KvUInt32>(errors, item, CHANNEL_NUMBER, channel, "", false, 0);
        case 1:
            return add<double>(errors, item, VOLTAGE_MAX, 10.5, "V", true, 3);
        case 2:
            return add<double>(errors, item, VOLTAGE_MIN, -10.5, "V", true, 3);
        case 3:
            return add<KvCString>(errors, item, SIGNAL_NAME, KvCString("AI 17"), "", true, 0);
        case 4:
            return add<float>(errors, item, SCALING_FACTOR, 0.5F, "", false, 0);
        case 5:
            return add<KvUInt32>(errors, item, BIT_WIDTH, 16 + channel, "Bit", false, 1);
        case 6:
            return add<KvUInt32>(errors, item, RESOLUTION, channel, "mV", false, 1);
        case 7:
            return add<KvUInt32>(errors, item, CURRENT_MIN, channel, "mA", false, 1);
        case 8:
            return add<KvUInt32>(errors, item, CURRENT_MAX, 100 + channel, "mA", false, 1);
        case 9:
            return add<KvUInt32>(errors, item, CURRENT_SINK, channel, "mA", false, 1);
        case 10:
            return add<KvCString>(errors, item, LOCATION, KvCString("a longer text of a channel"), "", true, 0);
        default:
            return add<KvCVersion>(errors, item, VERSION, KvCVersion(1, 2, 3, 0, 0, 0), "", false, 0);
    }
}

Tree makeRoot(KvCErrorListPool& errors)
{
    return Tree(new KvCInventoryItem(errors, ROOT, "ROOT"));
}

Tree makeRealistic(KvCErrorListPool& errors, KvUInt32 parameters)
{
    Tree root = makeRoot(errors);
    for (KvUInt32 i = 0; i < boards; ++i) {
        KvCInventoryItem* board = root->addPath(errors, HCN[i + 1]);
        fillBoard(errors, *board, parameters / boards + (i < parameters % boards ? 1 : 0));
    }
    return root;
}

Tree makeWide(KvCErrorListPool& errors, KvUInt32 parameters)
{
    Tree root = makeRoot(errors);
    fillWide(errors, *root, parameters);
    return root;
}

/** The catalogue's IDs first, then numbers with a description of their own. */
Tree makeFat(KvCErrorListPool& errors, KvUInt32 parameters)
{
    Tree root = makeRoot(errors);
    for (KvUInt32 i = 1; i <= parameters; ++i) {
        const char* name = KvNInventoryIDs::Map.get(i);
        const std::string description = name != nullptr && *name != 0 ? name : "PARAMETER " + std::to_string(i);
        auto* parameter =
            new KvCInventoryParameter(errors, KvCInventoryAddress(i), description.c_str(), i, "", false, KvUInt32{0});
        root->addParameter(errors, THIS_NODE, parameter);
    }
    return root;
}

Tree makeDeep(KvCErrorListPool& errors, KvUInt32 parameters)
{
    Tree root = makeRoot(errors);
    KvCInventoryItem* at = root.get();
    for (KvUInt32 i = 1; i <= parameters; ++i) {
        at = at->addPath(errors, MODULE);
        add<KvUInt32>(errors, *at, CHANNEL_NUMBER, i, "", false, 0);
    }
    return root;
}

}  // namespace

namespace KvNTrees {

const std::array<Shape, 4> shapes = {
    Shape{"realistic", boards * 40 * channelsOfModule* parametersOfChannel, makeRealistic},
    Shape{"wide", 100000, makeWide}, Shape{"fat", 100000, makeFat}, Shape{"deep", 10000, makeDeep}};

void fillBoard(KvCErrorListPool& errors, KvCInventoryItem& board, KvUInt32 parameters)
{
    KvCInventoryItem* module = nullptr;
    for (KvUInt32 done = 0; done < parameters; done += parametersOfChannel) {
        const KvUInt32 channel = done / parametersOfChannel;
        if (channel % channelsOfModule == 0)
            module = board.addPath(errors, MODULE[channel / channelsOfModule + 1]);
        const KvUInt32 number = channel % channelsOfModule + 1;
        KvCInventoryItem* item = module->addPath(errors, IOCHANNEL[number]);
        for (KvUInt32 i = 0; i < std::min(parametersOfChannel, parameters - done); ++i)
            addChannelParameter(errors, *item, number, i);
    }
}

void fillWide(KvCErrorListPool& errors, KvCInventoryItem& item, KvUInt32 children)
{
    for (KvUInt32 i = 1; i <= children; ++i)
        add<KvUInt32>(errors, *item.addPath(errors, IOCHANNEL[i]), CHANNEL_NUMBER, i, "", false, 0);
}

}  // namespace KvNTrees
