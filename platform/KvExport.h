#pragma once

/*
 * KV_EXPORT marks what the shared library exports; everything else stays inside it. KVINVENTORY_BUILD is defined while
 * the library's own sources are compiled, KVINVENTORY_STATIC by programs that link the objects directly.
 */
#if defined(_WIN32)
#if defined(KVINVENTORY_STATIC)
#define KV_EXPORT
#elif defined(KVINVENTORY_BUILD)
#define KV_EXPORT __declspec(dllexport)
#else
#define KV_EXPORT __declspec(dllimport)
#endif
#else
#define KV_EXPORT __attribute__((visibility("default")))
#endif
