#pragma once

#include "tools/kvinv/Console.h"
#include "tools/kvinv/Options.h"

/**
 * What the user may do to a command that runs: interrupt it. A command that works with files alone ends at once,
 * without a half-written file; one that works with boards has its calls cancelled and comes to its end by itself, so
 * that it gives its locks back. A second interruption ends that one at once too; when it has something to give back to
 * a board, the third does.
 */
namespace Interruption {

/** Prepares for interruptions and applies --timeout; false, told, when that makes no sense. */
bool begin(const Options& options, Console& console);

/** From now on the command works with boards. */
void expectOrderlyEnd();

/** From now on the command has something to give back to a board in the end. The first interruption cancels its calls,
    the second is waited out. */
void expectGivingBack();

/** From now on the board does what must not be interrupted: the first interruption is only counted, the second cancels
    the calls in progress. The command asks count() and acts on it. */
void letBoardWork();

/** From now on the command gives back what it has: interruptions are only counted. */
void giveBack();

/** Whether the user has interrupted the command. */
bool happened();
/** How often. */
int count();

/** The exit status of a command that ended with `status`: that of an interruption, told, when there was one. */
int status(int status, Console& console);

}  // namespace Interruption
