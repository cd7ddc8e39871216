#pragma once

/*
 * Some system headers define macros that have the name of an inventory ID. Each such header is included here first and
 * its macros then undefined, so that the IDs mean the same whatever is included before or after them.
 */
#if defined(_WIN32)
#if !defined(NOMINMAX)
#define NOMINMAX
#endif
#include <winsock2.h>

#include <windows.h>

#include <dbghelp.h>
#include <objbase.h>
#endif
#if __has_include(<endian.h>)
#include <endian.h>
#endif
#if __has_include(<sys/param.h>)
#include <sys/param.h>
#endif
#if __has_include(<sys/user.h>)
#include <sys/user.h>
#endif
#if __has_include(<arpa/nameser.h>)
#include <arpa/nameser.h>
#endif
#if __has_include(<linux/comedi.h>)
#include <linux/comedi.h>
#endif

#undef ADDRESS
#undef BYTE_ORDER
#undef GLOBAL
#undef INTERFACE
#undef MAX
#undef MIN
#undef OFFSET
#undef PAGE_SIZE
#undef POLARITY
#undef STATUS
#undef TIMESTAMP
#undef TRIGGER_LINE
#undef VERSION
