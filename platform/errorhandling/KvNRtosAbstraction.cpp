#ifndef _WIN32
#define _FILE_OFFSET_BITS 64  // sizes of 64 bits wherever `long` has 32
#endif

#include "platform/errorhandling/KvNRtosAbstraction.h"

#include <chrono>
#include <cstdio>
#include <mutex>

#include <sys/stat.h>
#ifdef _WIN32
#include <io.h>
#else
#include <fcntl.h>
#include <unistd.h>
#endif

#include "platform/errorhandling/KvCErrorList.h"

struct KvNRtosAbstraction::Mutex : KvNAllocation::Object
{
    std::timed_mutex mutex;
};

bool KvNRtosAbstraction::initMutex(Mutex** mutex, const char*) noexcept
{
    *mutex = new Mutex;
    return *mutex != nullptr;
}

bool KvNRtosAbstraction::lockMutex(Mutex* mutex, KvInt32 timeoutMs) noexcept
{
    if (mutex == nullptr)
        return false;
    // By the system's clock: waiting by the steady one is unknown to the thread sanitizer.
    if (timeoutMs >= 0)
        return mutex->mutex.try_lock_until(std::chrono::system_clock::now() + std::chrono::milliseconds(timeoutMs));
    mutex->mutex.lock();
    return true;
}

void KvNRtosAbstraction::unlockMutex(Mutex* mutex) noexcept
{
    if (mutex != nullptr)
        mutex->mutex.unlock();
}

void KvNRtosAbstraction::deleteMutex(Mutex* mutex) noexcept
{
    delete mutex;
}

namespace {

/** The value of a digit below `base`; `base` for anything else. */
unsigned int digitOf(char c, unsigned int base)
{
    unsigned int value = base;
    if (c >= '0' && c <= '9')
        value = static_cast<unsigned int>(c - '0');
    else if (c >= 'a' && c <= 'f')
        value = static_cast<unsigned int>(c - 'a') + 10;
    else if (c >= 'A' && c <= 'F')
        value = static_cast<unsigned int>(c - 'A') + 10;
    return value < base ? value : base;
}

/** Reads one part of a dotted quad and moves `text` behind it; above 255 when there is none. */
unsigned int readPart(const char*& text)
{
    unsigned int base = 10;
    if (text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text += 2;
    }
    if (digitOf(*text, base) == base)
        return 256;
    unsigned int value = 0;
    for (; digitOf(*text, base) < base && value < 256; ++text)
        value = value * base + digitOf(*text, base);
    return value;
}

}  // namespace

KvUInt32 KvNRtosAbstraction::stringToIpV4(const char* text) noexcept
{
    if (text == nullptr)
        return 0;
    KvUInt32 address = 0;
    for (int i = 0; i < 4; ++i) {
        if (i > 0 && *text++ != '.')
            return 0;
        const unsigned int part = readPart(text);
        if (part > 255)
            return 0;
        address = address << 8 | part;
    }
    return *text == '\0' ? address : 0;
}

char* KvNRtosAbstraction::ipToString(KvUInt32 address, char* text, unsigned int size) noexcept
{
    std::snprintf(text, size, "%u.%u.%u.%u", static_cast<unsigned int>(address >> 24 & 255),
                  static_cast<unsigned int>(address >> 16 & 255), static_cast<unsigned int>(address >> 8 & 255),
                  static_cast<unsigned int>(address & 255));
    return text;
}

#ifdef _WIN32

std::FILE* KvNRtosAbstraction::openRegularFile(const char* path, KvUInt64* size, FileKind* kind) noexcept
{
    struct _stat64 status;
    *kind = FileKind::Missing;
    if (path == nullptr || _stat64(path, &status) != 0)
        return nullptr;
    if ((status.st_mode & _S_IFMT) != _S_IFREG) {
        *kind = FileKind::Other;
        return nullptr;
    }
    std::FILE* file = std::fopen(path, "rb");
    if (file == nullptr)
        return nullptr;
    if (_fstat64(_fileno(file), &status) != 0) {
        std::fclose(file);
        return nullptr;
    }
    *kind = FileKind::Regular;
    *size = static_cast<KvUInt64>(status.st_size);
    return file;
}

#else

std::FILE* KvNRtosAbstraction::openRegularFile(const char* path, KvUInt64* size, FileKind* kind) noexcept
{
    *kind = FileKind::Missing;
    struct stat status;
    if (path == nullptr || stat(path, &status) != 0)
        return nullptr;
    // Asked before opening: opening some devices does something. Asked again after it: the name may stand for another
    // file by then, and a pipe must not make us wait.
    int descriptor = -1;
    if (S_ISREG(status.st_mode)) {
        descriptor = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
        if (descriptor == -1)
            return nullptr;
    }
    if (descriptor == -1 || fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        *kind = FileKind::Other;
        if (descriptor != -1)
            close(descriptor);
        return nullptr;
    }
    *kind = FileKind::Regular;
    std::FILE* file = fdopen(descriptor, "rb");
    if (file == nullptr) {
        close(descriptor);
        return nullptr;
    }
    *size = static_cast<KvUInt64>(status.st_size);
    return file;
}

#endif
