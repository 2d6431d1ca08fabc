// For the scanner's unit tests: message files in a temporary directory.
#pragma once

#include "tests/support/support.h"

namespace scanner_support {
using test_support::TempDir;
}  // namespace scanner_support
