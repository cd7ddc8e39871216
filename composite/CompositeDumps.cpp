#include <cstdio>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "composite/CompositeWalk.h"
#include "composite/KvCComposite.h"
#include "composite/KvCCompositeFactory.h"
#include "composite/KvCXmlSerializer.h"

namespace {

constexpr const char* dumpFile = "SystemManagerDump.xml";

// Characters of code page 437 and colours of a terminal.
constexpr char verticalLine = '\xB3';
constexpr char corner = '\xC0';
constexpr char tee = '\xC3';
constexpr const char* horizontalLines = "\xC4\xC4\xC4";
constexpr const char* lineColour = "\x1B[35;1m";
constexpr const char* plainColour = "\x1B[0m\x1B[00;39m";
constexpr const char* visibleColour = "\x1B[0m\x1B[01;32m";

/** For each level from the root's children down to the current node: whether that ancestor has further siblings. */
class OpenLevels
{
public:
    ~OpenLevels() { KvNAllocation::release(m_levels); }
    OpenLevels() = default;
    OpenLevels(const OpenLevels&) = delete;
    OpenLevels& operator=(const OpenLevels&) = delete;

    bool push(bool hasFurther)
    {
        if (m_depth == m_room) {
            const std::size_t room = m_room == 0 ? 64 : 2 * m_room;
            auto* const grown = static_cast<bool*>(KvNAllocation::reallocate(m_levels, room * sizeof(bool)));
            if (grown == nullptr)
                return false;
            m_levels = grown;
            m_room = room;
        }
        m_levels[m_depth++] = hasFurther;
        return true;
    }
    void pop() { --m_depth; }
    std::size_t depth() const { return m_depth; }

    void printLines() const
    {
        for (std::size_t level = 0; level + 1 < m_depth; ++level)
            std::printf("%s%c ", lineColour, m_levels[level] ? verticalLine : ' ');
        if (m_depth > 0)
            std::printf("%s%c%s%s", lineColour, m_levels[m_depth - 1] ? tee : corner, lineColour, horizontalLines);
    }

private:
    bool* m_levels = nullptr;
    std::size_t m_room = 0;
    std::size_t m_depth = 0;
};

const char* textOf(const char* descr)
{
    return descr == nullptr ? "" : descr;
}

void printNode(const KvCComposite& node)
{
    std::printf("%s%s%s (id=%#x unit=%#x", plainColour, node.getStateBit(0x1) != 0 ? visibleColour : "",
                textOf(node.getDescription()), static_cast<unsigned int>(node.getClassId()),
                static_cast<unsigned int>(node.getUnitId()));
    if (const KvCComposite* const other = node.getFriend())
        std::printf(" friend=%s %#x", textOf(other->getDescription()), static_cast<unsigned int>(other->getUnitId()));
    std::printf(" state=%#x)%s\n", static_cast<unsigned int>(node.getState()), plainColour);
}

}  // namespace

void KvCCompositeFactory::printAsciiComposite(KvCErrorListPool& errors, KvCComposite* composite,
                                              unsigned char withParameters)
{
    if (composite == nullptr)
        return;
    OpenLevels levels;
    const bool isWhole = KvNCompositeWalk::walk(
        composite,
        [&](KvCComposite* node) {
            if (node != composite && !levels.push(node->getSibling() != nullptr))
                return false;
            levels.printLines();
            printNode(*node);
            if (withParameters != 0)
                node->showParameters(static_cast<int>(levels.depth()));
            return true;
        },
        [&](const KvCComposite* node) {
            if (node != composite)
                levels.pop();
            return true;
        });
    if (!isWhole)
        KV_REPORT(errors, OutOfMemory, "KvCCompositeFactory::printAsciiComposite");
    std::printf("\n");
}

void KvCCompositeFactory::printXmlComposite(KvCErrorListPool& errors, KvCComposite* composite, KvUInt32 mode)
{
    KvCXmlSerializer printer(errors, mode);
    if (printer.getBuffer() == nullptr)
        return;
    printer.traverse(errors, composite);
    printer.getBuffer()->WriteToFile(errors, dumpFile);
    std::printf(" Xml Output dumped to %s \n", dumpFile);
}
