#include "platform/errorhandling/KvCErrorManager.h"

#include <cstdio>
#include <mutex>

#include "platform/errorhandling/ErrorEntry.h"
#include "platform/errorhandling/PlatformMessages.h"
#include "platform/errorhandling/PrintableText.h"

namespace {

KvCErrorManager theManager;

/** Collects a line for standard error, so that lines of several threads stay whole. */
class LineOutput
{
public:
    LineOutput() : m_lock(s_mutex) {}
    ~LineOutput()
    {
        put("\n", 1);
        flush();
    }
    LineOutput(const LineOutput&) = delete;
    LineOutput& operator=(const LineOutput&) = delete;

    void put(const char* bytes, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i) {
            if (m_used == sizeof m_line)
                flush();
            m_line[m_used++] = bytes[i];
        }
    }
    void put(const char* text) { put(text, std::strlen(text)); }
    void putPrintable(const char* text)
    {
        KvNPrintableText::escape(text, [this](const char* bytes, std::size_t count) { put(bytes, count); });
    }

private:
    void flush()
    {
        std::fwrite(m_line, 1, m_used, stderr);
        m_used = 0;
    }

    static inline std::mutex s_mutex;
    const std::lock_guard<std::mutex> m_lock;
    std::size_t m_used = 0;
    char m_line[1024];
};

void printLine(void*, bool warning, KvUInt32 code, const char* origin, const char* text)
{
    char number[16];
    std::snprintf(number, sizeof number, " 0x%x: ", static_cast<unsigned int>(code));
    LineOutput line;
    line.put(warning ? "warning" : "error");
    line.put(number);
    line.putPrintable(text);
    if (*origin == '\0')
        return;
    line.put(" [");
    line.putPrintable(origin);
    line.put("]");
}

std::mutex outputMutex;
KvCErrorManager::Output outputFunction = printLine;
void* outputContext = nullptr;

/** The output as it is now; called without a lock, so that it may use the manager itself. */
struct CurrentOutput
{
    CurrentOutput()
    {
        const std::lock_guard<std::mutex> lock(outputMutex);
        function = outputFunction;
        context = outputContext;
    }
    KvCErrorManager::Output function;
    void* context;
};

}  // namespace

constinit KvCErrorManager* const KvCErrorManager::s_pErrorManager = &theManager;

KvCErrorManager* KvCErrorManager::getSingleton()
{
    return s_pErrorManager;
}

KvCErrorListPool& KvCErrorManager::getMasterErrorList()
{
    // Never destroyed: it is reported to until the last step of unloading.
    alignas(KvCErrorListPool) static unsigned char place[sizeof(KvCErrorListPool)];
    static KvCErrorListPool* const master =
        new (static_cast<void*>(place)) KvCErrorListPool(KvCErrorList::Kind::Master, 0, 300);
    return *master;
}

void KvCErrorManager::sendErrorList(KvCErrorListPool& list, KvUInt32)
{
    KvCErrorListPool sent;
    list.moveTo(sent);
    const CurrentOutput output;
    sent.visit([&](const KvCErrorList::Entry& entry) {
        output.function(output.context, false, entry.code, entry.origin(), sent.getErrorText(entry.index));
    });

    const KvUInt32 dropped = sent.getErrorCount() - sent.kept();
    if (dropped == 0)
        return;
    sent.clear();
    sent.setError(KvNPlatformMessages::entriesDropped, __LINE__, "KvCErrorManager::sendErrorList", "%u", dropped);
    output.function(output.context, false, sent.getErrorCode(0), sent.getErrorOrigin(0), sent.getErrorText(0));
}

void KvCErrorManager::sendWarning(KvUInt32 code, unsigned long line, const char* origin, const char* argTypes, ...)
{
    std::va_list arguments;
    va_start(arguments, argTypes);
    sendWarningV(code, line, origin, argTypes, arguments);
    va_end(arguments);
}

void KvCErrorManager::sendWarningV(KvUInt32 code, unsigned long line, const char* origin, const char* argTypes,
                                   std::va_list arguments)
{
    KvCErrorListPool sent;
    sent.setErrorV(code, line, origin, argTypes, arguments);
    const CurrentOutput output;
    output.function(output.context, true, code, sent.getErrorOrigin(0), sent.getErrorText(0));
}

KvCErrorListPool& KvCErrorManager::createErrorList(KvUInt32, KvUInt32, KvUInt32 initialEntries, KvUInt32 growth,
                                                   KvUInt32 limit)
{
    auto* list =
        new KvCErrorListPool(KvCErrorList::Kind::Private, growth, limit == 0 ? KvCErrorList::defaultLimit : limit);
    if (list == nullptr)
        return getMasterErrorList();
    list->reserve(initialEntries);
    return *list;
}

void KvCErrorManager::deleteErrorList(KvCErrorListPool& list)
{
    if (list.m_kind == KvCErrorList::Kind::Private)
        delete &list;
}

void KvCErrorManager::setOutput(Output function, void* context)
{
    const std::lock_guard<std::mutex> lock(outputMutex);
    outputFunction = function == nullptr ? printLine : function;
    outputContext = context;
}
