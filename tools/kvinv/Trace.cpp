#include "tools/kvinv/Trace.h"

#include <cstdio>
#include <string_view>

#include "platform/dal/DeviceAccessProgram.h"
#include "platform/host/KvNHost.h"
#include "platform/oncrpc/KvCRpcClient.h"

namespace {

constexpr KvUInt32 inventoryProgram = 8;

/** The name of a procedure of a board's services; null for one that has none. */
const char* nameOf(KvUInt32 program, KvUInt32 procedure)
{
    if (program == KvNDeviceAccess::deviceAccessProgram)
        return KvNDeviceAccess::procedureName(procedure);
    if (program != inventoryProgram)
        return nullptr;
    switch (procedure) {
#define KV_PROCEDURE(number, name, repeatable) \
    case number:                               \
        return #name;
#include "manager/rpc/Procedures.def"
#undef KV_PROCEDURE
        default:
            return nullptr;
    }
}

void tell(void*, const KvCRpcClient::TracedCall& call)
{
    // One write a line: calls of several threads end at the same time.
    char line[256];
    const double milliseconds = static_cast<double>(call.microseconds) / 1000;
    const auto program = static_cast<unsigned long>(call.program);
    const auto procedure = static_cast<unsigned long>(call.procedure);
    const char* name = nameOf(call.program, call.procedure);
    int length = 0;
    if (name != nullptr)
        length = std::snprintf(line, sizeof line, "kvinv: call %s %s(): result %ld, %.3f ms\n", call.hostAddress, name,
                               call.result, milliseconds);
    else
        length = std::snprintf(line, sizeof line, "kvinv: call %s program 0x%lx procedure %lu: result %ld, %.3f ms\n",
                               call.hostAddress, program, procedure, call.result, milliseconds);
    if (length > 0)
        std::fwrite(line, 1, static_cast<std::size_t>(length), stderr);
}

}  // namespace

bool isTraced(const Options& options)
{
    const char* wanted = KvNHost::environment("KVINV_TRACE");
    return options.verbose > 1 || (wanted != nullptr && std::string_view(wanted) == "1");
}

void traceCalls(const Options& options)
{
    if (isTraced(options))
        KvCRpcClient::setTrace(tell, nullptr);
}
