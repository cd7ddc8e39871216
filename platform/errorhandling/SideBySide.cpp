#include <thread>

#if defined(_WIN32)
#include <system_error>
#else
#include <pthread.h>

#include <csignal>
#if defined(__linux__)
#include <link.h>
#endif
#endif

#include "platform/errorhandling/KvCErrorList.h"
#include "platform/errorhandling/KvNRtosAbstraction.h"

namespace {

/** What every helper runs. */
struct Task
{
    void (*work)(void* context);
    void* context;
};

#if defined(_WIN32)

using Thread = std::thread;

bool start(Thread& place, Task& task) noexcept
{
    try {
        new (static_cast<void*>(&place)) std::thread([&task] { task.work(task.context); });
        return true;
    } catch (...) {
        return false;
    }
}

void finish(Thread& thread) noexcept
{
    thread.join();
    thread.~thread();
}

/** Threads begin with the signals of the one that starts them; here signals go to no thread. */
struct SignalsKeptOut
{};

#else

using Thread = pthread_t;

/** Small enough for the system to keep most of two hundred stacks for the next time. */
#if defined(KV_PLAIN_OBJECTS)  // sanitized: larger frames
constexpr std::size_t stackBytes = 1 << 20;
#else
constexpr std::size_t stackBytes = 256 << 10;
#endif

/** Bytes that the variables take which the program has for each thread: they come out of its stack. */
std::size_t bytesOfThreadVariables() noexcept
{
    std::size_t bytes = 0;
#if defined(__linux__)
    dl_iterate_phdr(
        [](dl_phdr_info* module, std::size_t, void* sum) {
            for (unsigned i = 0; i < module->dlpi_phnum; ++i) {
                if (module->dlpi_phdr[i].p_type == PT_TLS)
                    *static_cast<std::size_t*>(sum) += module->dlpi_phdr[i].p_memsz + module->dlpi_phdr[i].p_align;
            }
            return 0;
        },
        &bytes);
#endif
    return bytes;
}

void* run(void* task)
{
    static_cast<Task*>(task)->work(static_cast<Task*>(task)->context);
    return nullptr;
}

bool start(Thread& place, Task& task) noexcept
{
    static const std::size_t variables = bytesOfThreadVariables();
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    pthread_attr_setstacksize(&attributes, stackBytes + variables);
    const bool started = pthread_create(&place, &attributes, run, &task) == 0;
    pthread_attr_destroy(&attributes);
    return started;
}

void finish(Thread& thread) noexcept
{
    pthread_join(thread, nullptr);
}

/** Threads begin with the signals of the one that starts them: while this lives, none but those of their own faults. */
class SignalsKeptOut
{
public:
    SignalsKeptOut() noexcept
    {
        sigset_t signals;
        sigfillset(&signals);
        for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGPROF, SIGSYS})
            sigdelset(&signals, own);
        pthread_sigmask(SIG_BLOCK, &signals, &m_before);
    }
    ~SignalsKeptOut() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsKeptOut(const SignalsKeptOut&) = delete;
    SignalsKeptOut& operator=(const SignalsKeptOut&) = delete;

private:
    sigset_t m_before;
};

#endif

}  // namespace

KvUInt32 KvNRtosAbstraction::processorCount() noexcept
{
    const unsigned count = std::thread::hardware_concurrency();
    return count != 0 ? count : 1;
}

void KvNRtosAbstraction::runSideBySide(KvUInt32 helpers, void (*work)(void* context), void* context) noexcept
{
    auto* threads = static_cast<Thread*>(helpers != 0 ? KvNAllocation::allocate(helpers * sizeof(Thread)) : nullptr);
    Task task{work, context};
    KvUInt32 started = 0;
    if (threads != nullptr) {
        [[maybe_unused]] const SignalsKeptOut keptOut;
        while (started < helpers && start(threads[started], task))
            ++started;
    }
    work(context);
    for (KvUInt32 i = 0; i < started; ++i)
        finish(threads[i]);
    KvNAllocation::release(threads);
}
