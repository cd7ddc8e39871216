#pragma once

#include <sys/types.h>

namespace KvNService {

/** Whether `name` is one name, which cannot lead out of a folder: with no "/", and neither "." nor "..". */
bool isPlainName(const char* name) noexcept;

enum class OpenCall
{
    Openat2,  ///< or, where that is missing, Openat
    Openat
};

/**
 * Opens what is called `name` in the open folder `folder` and gives back its descriptor, or -1 and errno. Never leaves
 * the folder and never follows a link: openat2 is told so. A kernel before 5.6, or a filter of system calls, that has
 * no openat2 leaves openat, which does the same for one name: so a name with a "/", "." or ".." is refused before
 * (ENOENT), and O_NOFOLLOW does the rest. Never waits for the other end of a pipe. `mode`: of a file that is made.
 */
int openBeneath(int folder, const char* name, int flags, mode_t mode = 0, OpenCall call = OpenCall::Openat2) noexcept;

}  // namespace KvNService
