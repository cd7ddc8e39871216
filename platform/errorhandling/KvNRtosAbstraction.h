#pragma once

#include <cstdio>

#include "platform/KvExport.h"
#include "platform/KvTypes.h"

/**
 * The few services of the operating system that the library needs below its remote part: a mutex, threads
 * for the time of one operation, IPv4 addresses as text, and files whose size is known.
 */
namespace KvNRtosAbstraction {

/** A mutex of initMutex. */
struct Mutex;

/** Makes a mutex, recursive by no means. `name` is reserved: null. Null in `*mutex`, and false, when memory is out. */
KV_EXPORT bool initMutex(Mutex** mutex, const char* name) noexcept;
/** Waits until the mutex is free, at most `timeoutMs` milliseconds (-1: as long as it takes), and takes it. False when
    the time is over or `mutex` is null. */
KV_EXPORT bool lockMutex(Mutex* mutex, KvInt32 timeoutMs) noexcept;
/** Frees a mutex that this thread has taken; null is ignored. */
KV_EXPORT void unlockMutex(Mutex* mutex) noexcept;
/** Destroys a mutex that nobody holds; null is ignored. */
KV_EXPORT void deleteMutex(Mutex* mutex) noexcept;

/** Processors that this process may use; at least 1. */
KV_EXPORT KvUInt32 processorCount() noexcept;

/** Runs `work(context)` on the calling thread and, at the same time, on up to `helpers` threads of its own, and returns
    when it has returned on all of them. Threads that cannot be had are left out. They have stacks of 256 KiB and
    take no signals that are meant for the process. `work` must not throw. */
KV_EXPORT void runSideBySide(KvUInt32 helpers, void (*work)(void* context), void* context) noexcept;

/** The address of a dotted quad in host order (10.0.0.2 is 0x0A000002); each part is 0 to 255, decimal or, after "0x"
    or "0X", hexadecimal. 0 for anything else, null among it. */
KV_EXPORT KvUInt32 stringToIpV4(const char* text) noexcept;

/** The room that ipToString needs. */
constexpr unsigned int ipTextSize = 16;
/** Writes an address of host order as a dotted quad into `text`, which has room for `size` characters, and returns
    `text`; cut when `size` is below ipTextSize. */
KV_EXPORT char* ipToString(KvUInt32 address, char* text, unsigned int size) noexcept;

/** What stands behind a file's name. */
enum class FileKind
{
    Missing,  ///< it cannot be opened, or its status cannot be taken
    Regular,
    Other  ///< a folder, a device, a pipe: opening it may wait, and its size says nothing
};

/** Opens a regular file for binary reading and tells its size in bytes as its status gives it. Null, with the reason in
    `*kind`, when it is not one; null and Regular when memory for reading it is out. Never waits for another process. To
   be closed with fclose. */
KV_EXPORT std::FILE* openRegularFile(const char* path, KvUInt64* size, FileKind* kind) noexcept;

}  // namespace KvNRtosAbstraction
