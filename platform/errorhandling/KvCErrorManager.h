#pragma once

#include <cstdarg>
#include <cstddef>

#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

/** One range of a message table: where its texts begin in the text array, and how many they are (0: reserved). */
struct KvResRange
{
    KvUInt32 first;
    KvUInt32 count;
};

/** A message table as it is handed to the error manager, which keeps the pointer: the record and its arrays live as
    long as they are registered. Message `j` of range `r` has the code `base + 0x800 * r + j` and the text at
    `ranges[r].first + j`; a null text is a code without one. After the last range stands {0xFFFFFFFF, 0}. */
struct KvResText
{
    const char* const* texts;
    std::size_t textCount;
    const KvResRange* ranges;
    KvUInt32 rangeCount;
    KvUInt32 base;  ///< a multiple of 0x100000, the table's own
};

/**
 * The process's one error manager: it knows the message texts, owns the master list, makes private lists and delivers
 * entries to the output. All of it is safe to use from several threads, at any time from load to unload.
 */
class KV_EXPORT KvCErrorManager
{
public:
    /** Receives what sendErrorList and sendWarning deliver, one call an entry, on the thread that sends. The texts are
        valid during the call only, and may hold anything that a peer has sent: escape them before a terminal sees them.
        Must not throw. */
    using Output = void (*)(void* context, bool warning, KvUInt32 code, const char* origin, const char* text);

    /** The manager; there from the start, never null. */
    static KvCErrorManager* const s_pErrorManager;

    /** The same. */
    static KvCErrorManager* getSingleton();

    /** The process-wide list of what is reported where no caller's list is at hand. Keeps 300 entries; its texts are
        valid until the thread's next call. */
    static KvCErrorListPool& getMasterErrorList();

    /** Delivers the list's entries to the output in order and empties the list. Entries that the list could not keep
        are delivered as one of code 0x402 that says how many they were. `flags` is reserved: 0. */
    static void sendErrorList(KvCErrorListPool& list, KvUInt32 flags);

    /** Delivers one message as a warning; the arguments are those of KvCErrorList::setError. */
    static void sendWarning(KvUInt32 code, unsigned long line, const char* origin, const char* argTypes, ...);
    static void sendWarningV(KvUInt32 code, unsigned long line, const char* origin, const char* argTypes,
                             std::va_list arguments);

    /** A private list: room for `initialEntries` entries, growing by `growth` (0: geometrically), keeping at most
        `limit` (0: as many as a list of its own). `flags` and `kind` have no meaning here. To be given back with
        deleteErrorList. When memory is out, the master list. */
    static KvCErrorListPool& createErrorList(KvUInt32 flags, KvUInt32 kind, KvUInt32 initialEntries, KvUInt32 growth,
                                             KvUInt32 limit);
    /** Gives back a list of createErrorList; for any other list, the master list among them, nothing happens. */
    static void deleteErrorList(KvCErrorListPool& list);

    /** Redirects the output to `function`, called with `context`. Null restores the default: one line for each entry on
        standard error, control characters escaped. A delivery that has begun on another thread may still go to the old
        function. */
    static void setOutput(Output function, void* context);

    /** Makes a table's texts known. False when the record is not well-formed (its ranges leave the text array, its base
        is no table's), when its base is taken already, or when memory is out. */
    static bool registerMessages(const KvResText* table);
    /** Forgets a table; false when it is not registered. */
    static bool unregisterMessages(const KvResText* table);

    /** The text of a code, placeholders and all; null when no table has one. Valid as long as the table. */
    static const char* getMessageText(KvUInt32 code);
};
