#pragma once

#include <string>

/** The page docs/errors.md, made from the message files. */
std::string errorsPage();
