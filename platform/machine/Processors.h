#pragma once

#include <string>
#include <vector>

#include "platform/machine/Machine.h"
#include "platform/machine/SystemFiles.h"

namespace KvNMachine {

/** The processors with their caches, as the topology library sees them below `root`, in its order. */
std::vector<Processor> readProcessors(const std::string& root, const SystemFiles& files);

}  // namespace KvNMachine
