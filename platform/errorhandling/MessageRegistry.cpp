#include <cstring>
#include <mutex>

#include "platform/errorhandling/KvCErrorList.h"
#include "platform/errorhandling/KvCErrorManager.h"
#include "platform/errorhandling/MessageTable.h"
#include "platform/errorhandling/PlatformMessages.h"

/*
 * The tables that are registered. They can be asked for at any time of load and unload: all of it is initialised by the
 * compiler and nothing is ever destroyed.
 */
namespace {

using KvNMessageTable::codesPerTable;
using KvNMessageTable::messagesPerRange;

constexpr KvUInt32 initialRoom = 16;

std::mutex registryMutex;
const KvResText* initialTables[initialRoom] = {&KvNPlatformMessages::tables[0], &KvNPlatformMessages::tables[1],
                                               &KvNPlatformMessages::tables[2], &KvNPlatformMessages::tables[3]};
const KvResText** tables = initialTables;
KvUInt32 tableCount = KvNPlatformMessages::tableCount;
KvUInt32 tableRoom = initialRoom;

bool wellFormed(const KvResText* table)
{
    if (table == nullptr || table->base % codesPerTable != 0 || table->rangeCount > codesPerTable / messagesPerRange)
        return false;
    if ((table->texts == nullptr && table->textCount != 0) || (table->ranges == nullptr && table->rangeCount != 0))
        return false;
    for (KvUInt32 i = 0; i < table->rangeCount; ++i) {
        const KvResRange& range = table->ranges[i];
        if (range.count > messagesPerRange || range.first > table->textCount ||
            range.count > table->textCount - range.first)
            return false;
    }
    return true;
}

const KvResText* tableOf(KvUInt32 base)
{
    for (KvUInt32 i = 0; i < tableCount; ++i) {
        if (tables[i]->base == base)
            return tables[i];
    }
    return nullptr;
}

bool makeRoom()
{
    if (tableCount < tableRoom)
        return true;
    const std::size_t bytes = tableCount * sizeof tables[0];
    auto** grown = static_cast<const KvResText**>(KvNAllocation::allocate(2 * bytes));
    if (grown == nullptr)
        return false;
    std::memcpy(grown, tables, bytes);
    if (tables != initialTables)
        KvNAllocation::release(tables);
    tables = grown;
    tableRoom *= 2;
    return true;
}

}  // namespace

bool KvCErrorManager::registerMessages(const KvResText* table)
{
    if (!wellFormed(table))
        return false;
    const std::lock_guard<std::mutex> lock(registryMutex);
    if (tableOf(table->base) != nullptr || !makeRoom())
        return false;
    tables[tableCount++] = table;
    return true;
}

bool KvCErrorManager::unregisterMessages(const KvResText* table)
{
    const std::lock_guard<std::mutex> lock(registryMutex);
    for (KvUInt32 i = 0; i < tableCount; ++i) {
        if (tables[i] == table) {
            tables[i] = tables[--tableCount];
            return true;
        }
    }
    return false;
}

const char* KvCErrorManager::getMessageText(KvUInt32 code)
{
    const KvUInt32 offset = code % codesPerTable;
    const KvUInt32 range = offset / messagesPerRange;
    const KvUInt32 index = offset % messagesPerRange;
    const std::lock_guard<std::mutex> lock(registryMutex);
    const KvResText* table = tableOf(code - offset);
    if (table == nullptr || range >= table->rangeCount || index >= table->ranges[range].count)
        return nullptr;
    return table->texts[table->ranges[range].first + index];
}
