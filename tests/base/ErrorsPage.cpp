#include "ErrorsPage.h"

#include <cstdio>

#include "platform/KvTypes.h"

namespace {

struct Message
{
    KvUInt32 range;
    KvUInt32 index;
    const char* name;
    const char* argTypes;
    const char* text;
};

#define KV_MESSAGE(range, index, name, argTypes, text) {range, index, #name, argTypes, text},
constexpr Message errorHandling[] = {
#include "platform/errorhandling/messages/ErrorHandling.def"
};
constexpr Message rpcClient[] = {
#include "platform/errorhandling/messages/RpcClient.def"
};
constexpr Message deviceAccess[] = {
#include "platform/errorhandling/messages/DeviceAccess.def"
};
constexpr Message boardService[] = {
#include "platform/errorhandling/messages/BoardService.def"
};
constexpr Message composite[] = {
#include "base/messages/Composite.def"
};
constexpr Message stream[] = {
#include "base/messages/Stream.def"
};
constexpr Message inventory[] = {
#include "base/messages/Inventory.def"
};
constexpr Message manager[] = {
#include "base/messages/Manager.def"
};
#undef KV_MESSAGE

constexpr char introduction[] = R"(# Errors

<!-- Made from the message files by kv_errors_page; do not edit. -->

## How failures are reported

- Nothing is thrown across the interface. Every operation that can fail takes a `KvCErrorListPool&` first, reports by
  adding an entry, and returns its failure value: null, 0, `false`, or -1 of a status.
- An entry has a code, the source line, the origin ("Class::method") and the arguments that fill the placeholders `%1` to
  `%5` of the code's text. The text is made when it is asked for.
- A callee has failed when the list's entry count grew across the call. The caller then adds a message of its own, so that
  one failure leaves a chain: the innermost message first, the most general last.
- Where no caller's list is at hand, the error manager's master list takes the entry; it keeps 300.
- A list counts every entry, kept or not. It keeps one entry without taking memory, so that a report made when memory is
  out is not lost.
- Lookups come in pairs: with an error list they report that something is missing, without one they return null.
- Texts begin with their class ("Internal error.", "Communication error.", "Access denied.", …); "Korvel Support
  information:" separates what is for the user from what is for support.

A code is base + 0x800 × range + index: the base stands for a table, the range for a group of messages in it. A code without
a text is shown as "Unknown message 0x…". `kvinv explain CODE` prints a text.

In the library's own sources the names below are the enumerators of `KvNMessage`, for `KV_REPORT` of `base/Report.h`.
Arguments: `%s` a text, `%u` an unsigned number, `%d` and `%i` a signed number, `%x` a number in hexadecimal.
)";

template <std::size_t count>
std::string table(KvUInt32 base, const char* title, const Message (&messages)[count])
{
    char line[64];
    std::snprintf(line, sizeof line, "0x%06x", static_cast<unsigned int>(base));
    std::string page =
        std::string("\n## ") + line + ": " + title + "\n\n| code | name | arguments | text |\n|---|---|---|---|\n";
    for (const Message& message : messages) {
        const KvUInt32 code = base + 0x800 * message.range + message.index;
        std::snprintf(line, sizeof line, "| 0x%06x | ", static_cast<unsigned int>(code));
        page += line;
        page += std::string(message.name) + " | " + message.argTypes + " | `" + message.text + "` |\n";
    }
    return page;
}

}  // namespace

std::string errorsPage()
{
    return introduction + table(0x000000, "error handling", errorHandling) + table(0x100000, "RPC client", rpcClient) +
           table(0x200000, "device access", deviceAccess) +
           table(0x300000, "what a board's service reports", boardService) +
           table(0x600000, "composite parameter framework and strings", composite) +
           table(0xa00000, "byte buffer, serialized stream and modules", stream) +
           table(0x1300000, "inventory model", inventory) + table(0x1600000, "remote inventory manager", manager);
}
