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

std::atomic<int> received{0};   // the last signal
std::atomic<int> number{0};     // of interruptions
std::atomic<int> patience{0};   // how many interruptions do not end the process at once
std::atomic<int> cancelsAt{0};  // the interruption that cancels the calls in progress; 0: none

/** Runs in the context of a signal. */
void interrupted(int signal)
{
    received = signal;
    const int now = ++number;
    if (now > patience) {
        KvNFiles::removeUnfinished();
        KvNHost::endNow(128 + signal);
    }
    if (now == cancelsAt)
        KvCRpcClient::cancelAll();
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
    patience = 1;
    cancelsAt = 1;
}

void expectGivingBack()
{
    patience = 2;
}

void letBoardWork()
{
    cancelsAt = 2;
}

void giveBack()
{
    cancelsAt = 0;
}

bool happened()
{
    return number != 0;
}

int count()
{
    return number;
}

int status(int status, Console& console)
{
    if (!happened())
        return status;
    console.problem("interrupted");
    return 128 + received;
}

}  // namespace Interruption
