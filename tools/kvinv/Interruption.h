#pragma once

#include "tools/kvinv/Console.h"
#include "tools/kvinv/Options.h"

/**
 * What the user may do to a command that runs: interrupt it. A command that works with files alone ends at once,
 * without a half-written file; one that works with boards has its calls cancelled and comes to its end by itself, so
 * that it gives its locks back. A second interruption ends that one at once too.
 */
namespace Interruption {

/** Prepares for interruptions and applies --timeout; false, told, when that makes no sense. */
bool begin(const Options& options, Console& console);

/** From now on the command works with boards. */
void expectOrderlyEnd();

/** Whether the user has interrupted the command. */
bool happened();

/** The exit status of a command that ended with `status`: that of an interruption, told, when there was one. */
int status(int status, Console& console);

}  // namespace Interruption
