#pragma once

#include "Operation.h"

/** The rows of all layers. */
const std::vector<Row>& operations();
