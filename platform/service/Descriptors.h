#pragma once

namespace KvNService {

/** Lets the process have as many open files and connections as the system permits it, instead of the usual few. */
void allowAllDescriptors() noexcept;

}  // namespace KvNService
