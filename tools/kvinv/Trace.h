#pragma once

#include "tools/kvinv/Options.h"

/** Whether each remote call is told. */
bool isTraced(const Options& options);

/** With -vv, or KVINV_TRACE=1 in the environment, every remote call is told on standard error when it has ended: where,
    what, with which result, and how long it took. */
void traceCalls(const Options& options);
