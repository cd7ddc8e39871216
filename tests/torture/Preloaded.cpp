#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include "MemoryControl.h"

/*
 * Loaded before a program (LD_PRELOAD) together with Interposed.cpp: the file that KV_TORTURE_MEMORY names is shared
 * with the test, which decides there which allocation fails.
 */

namespace {

__attribute__((constructor)) void share()
{
    const char* const path = getenv("KV_TORTURE_MEMORY");
    const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
    if (file < 0)
        return;
    void* const shared = mmap(nullptr, sizeof(MemoryControl), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (shared == MAP_FAILED)
        return;
    auto* const control = static_cast<MemoryControl*>(shared);
    control->live = MemoryControl::ours->live.load();
    MemoryControl::ours = control;
    unsetenv("LD_PRELOAD");
}

}  // namespace
