#include "tools/kvinv/Interruption.h"

#include <atomic>
#include <charconv>
#include <string>
#include <system_error>

#include "platform/files/KvNFiles.h"
#include "platform/host/KvNHost.h"
#include "platform/oncrpc/KvCRpcClient.h"

namespace Interruption {

namespace {

std::atomic<bool> orderly{false};
std::atomic<int> received{0};

/** Runs in the context of a signal. */
void interrupted(int signal)
{
    const bool isFirst = received.exchange(signal) == 0;
    if (orderly && isFirst) {
        KvCRpcClient::cancelAll();
        return;
    }
    KvNFiles::removeUnfinished();
    KvNHost::endNow(128 + signal);
}

bool applyTimeout(const std::string& text, Console& console)
{
    constexpr double most = 4294;  // microseconds in 32 bits
    double seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    if (error != std::errc() || end != text.data() + text.size() || !(seconds >= 0.001 && seconds <= most)) {
        console.problem("--timeout takes seconds from 0.001 to 4294, not " + text);
        return false;
    }
    KvCRpcClient::setDefaultTimeout(static_cast<KvUInt32>(seconds * 1e6));
    return true;
}

}  // namespace

bool begin(const Options& options, Console& console)
{
    KvNHost::onInterrupt(interrupted);
    return !options.timeout || applyTimeout(*options.timeout, console);
}

void expectOrderlyEnd()
{
    orderly = true;
}

bool happened()
{
    return received != 0;
}

int status(int status, Console& console)
{
    if (!happened())
        return status;
    console.problem("interrupted");
    return 128 + received;
}

}  // namespace Interruption
