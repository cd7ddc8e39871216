#pragma once

#include <string>

namespace KvNBoardService {

/** The manual page of kvboardd, for man. Its options are those of the command line. */
std::string manualText();

/** The completion of kvboardd's options for bash, and for zsh. */
std::string bashCompletion();
std::string zshCompletion();

}  // namespace KvNBoardService
