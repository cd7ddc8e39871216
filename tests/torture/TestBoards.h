#pragma once

#include <string>

#include "inventory/KvCInventoryAddress.h"
#include "platform/dal/KvDALAp.h"
#include "platform/dal/KvDALBase.h"

/*
 * Two boards of the real service, in a process of its own, so that only what the library allocates fails and counts.
 * Boards 4711 and 4712 at 127.0.80.1 and 127.0.80.2.
 */
namespace TestBoards {

constexpr std::uint16_t mapperPort = 10480;
constexpr KvUInt32 serial = 4711;
constexpr KvUInt32 address = 0x7F005001;
inline const char* const both = "127.0.80.1, 127.0.80.2";

/** Starts them when they do not run yet; false when that fails. */
bool start();
/** Ends them; false when they had ended before. */
bool stop();

/** What is known of the first board. */
KvDALSDeviceInfo info();

/** A file that can be put on a board as an image for an update, and its size. */
const wchar_t* imagePath();
constexpr KvUInt64 imageSize = 90519;

}  // namespace TestBoards
