#pragma once

/*
 * The library's load-time work is one sequence in one place (LoadTime.cpp): messages, names, IDs, the remaining
 * messages, and then what the layer of the remote client adds here.
 */
namespace KvNLoadTime {

/** Makes `step` the last step of loading: it runs at the end of the sequence, at once when that is over. For one
   caller, while the library is loaded (the remote client's mutex is made by it). */
void setLastStep(void (*step)());

}  // namespace KvNLoadTime
