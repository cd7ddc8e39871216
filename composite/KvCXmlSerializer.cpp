#include "composite/KvCXmlSerializer.h"

#include <cstdarg>
#include <cstdio>

#include "base/KvCBuffer.h"
#include "base/Report.h"
#include "composite/KvCComposite.h"

namespace {

/** Most characters of a line. */
constexpr int elementLimit = 100;
constexpr int parameterLimit = 256;

const char* nameOf(const char* descr)
{
    return descr == nullptr ? "Unknown" : descr;
}

unsigned int shown(KvUInt32 number)
{
    return static_cast<unsigned int>(number);
}

}  // namespace

KvCXmlSerializer::KvCXmlSerializer(KvCErrorListPool& errors, KvUInt32 mode) : m_xmlMode(mode)
{
    m_buffer = new (errors) KvCBuffer(errors);
    if (m_buffer == nullptr)
        KV_REPORT(errors, OutOfMemory, "KvCXmlSerializer::KvCXmlSerializer");
}

KvCXmlSerializer::~KvCXmlSerializer()
{
    delete m_buffer;
}

void KvCXmlSerializer::indent(KvCErrorListPool& errors)
{
    if (m_buffer == nullptr)
        return;
    for (KvUInt32 i = 0; i < m_depth; ++i)
        m_buffer->writeBuffer(errors, "  ", 2, 1);
}

void KvCXmlSerializer::print(KvCErrorListPool& errors, int limit, const char* format, ...)
{
    if (m_buffer == nullptr)
        return;
    char line[parameterLimit + 1];
    std::va_list arguments;
    va_start(arguments, format);
    const int wanted = std::vsnprintf(line, static_cast<std::size_t>(limit) + 1, format, arguments);
    va_end(arguments);
    if (wanted > 0)
        m_buffer->writeBuffer(errors, line, static_cast<KvUInt32>(wanted < limit ? wanted : limit), 1);
}

void KvCXmlSerializer::CompositeStart(KvCErrorListPool& errors, KvCComposite* composite)
{
    const char* const name = nameOf(composite->getDescription());
    const unsigned int classId = shown(composite->getClassId());
    const unsigned int unitId = shown(composite->getUnitId());
    if ((m_xmlMode & GraphMode) != 0) {
        if (const KvCComposite* const parent = composite->getParent())
            print(errors, elementLimit, "\" %s \" -> \" %s \" \n", name, nameOf(parent->getDescription()));
        return;
    }
    indent(errors);
    ++m_depth;
    if ((m_xmlMode & ItemMode) != 0) {
        print(errors, elementLimit, "<ITEM ID=\"0x%08x[0x%08x]\" Descr = \"%s\" >\n", classId,
              unitId == 0 ? 0xFFFFFFFFU : unitId, name);
        return;
    }
    print(errors, elementLimit, "<COMPOSITE ID= '0x%08x' UNIT= '0x%08x'  NAME = '%s' >\n", classId, unitId, name);
    // Kept: the element of the friend is never closed.
    if (const KvCComposite* const other = composite->getFriend()) {
        indent(errors);
        print(errors, elementLimit, "    <FRIEND ID= '0x%08x' UNIT= '0x%08x'  NAME = '%s' >\n",
              shown(other->getClassId()), shown(other->getUnitId()), nameOf(other->getDescription()));
    }
}

void KvCXmlSerializer::CompositeEnd(KvCErrorListPool& errors, KvCComposite*)
{
    if ((m_xmlMode & GraphMode) != 0)
        return;
    m_depth -= m_depth > 0 ? 1 : 0;
    indent(errors);
    print(errors, elementLimit, "%s", (m_xmlMode & ItemMode) != 0 ? "</ITEM>\n" : "</COMPOSITE>\n");
}

void KvCXmlSerializer::CompositeParameter(KvCErrorListPool& errors, const KvCParam* parameter)
{
    if ((m_xmlMode & GraphMode) != 0)
        return;
    const bool isItemMode = (m_xmlMode & ItemMode) != 0;
    const unsigned int id = shown(parameter->getId());
    const char* const name = nameOf(parameter->getDescr());
    indent(errors);
    if (const KvUInt32* const stored = parameter->valueIf<KvUInt32>()) {
        const unsigned int value = shown(*stored);
        if (isItemMode)
            print(errors, parameterLimit,
                  "    <PARAM ID=\"%u\" Descr = \"%s\" Type=\"UInt32\"> <VALUE>%u</VALUE> </PARAM>  \n", id, name,
                  value);
        else
            print(errors, parameterLimit,
                  "    <PARAMETER ID='%u' NAME = '%s' TYPE='%u' VALUE = '%u' HEX = '0x%08x'/> \n", id, name,
                  shown(parameter->getType()), value, value);
        return;
    }
    const KvCString value = parameter->getValueAsString(errors);
    const char* const format =
        isItemMode ? "    <PARAM ID=\"%u\" Descr = \"%s\" Type=\"%u\"> <VALUE> %s  </VALUE> </PARAM>  \n"
                   : "    <PARAMETER ID='%u' NAME = '%s' TYPE='%u' VALUE = '%s' /> \n";
    print(errors, parameterLimit, format, id, name, shown(parameter->getType()), value.c_str());
}
