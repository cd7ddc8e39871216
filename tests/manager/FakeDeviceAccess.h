#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/dal/KvDALAp.h"
#include "platform/dal/KvDALBase.h"

/**
 * The device access library as a recording: every operation is noted with its arguments in `calls`, and fails with the
 * result set for it in `failures`, without a report of its own but with one entry of code Reported. Otherwise there are
 * `boards` boards with the serial numbers 100, 101 ..., at 10.0.0.1 and following.
 */
struct FakeDeviceAccess
{
    static constexpr KvUInt32 Reported = 0x20F800;

    static FakeDeviceAccess& instance();
    /** Forgets everything. */
    static void reset() { instance() = FakeDeviceAccess(); }

    std::vector<std::string> calls;
    /** By the operation's name without its prefix; "setFilterParameter 8" and "getParam 4" for one parameter. */
    std::map<std::string, KvInt32> failures;
    KvUInt32 boards = 1;
    KvCRpcClient* client = nullptr;
    /** Lock and transfer handles that were made and not deleted. */
    int openLocks = 0;
    int openTransfers = 0;
    /** What putFileU hands to its progress callback before it succeeds or fails, and what it was called with. */
    std::vector<unsigned int> progress;
    void (*progressFunction)(unsigned int, void*) = nullptr;
    void* progressContext = nullptr;
};
