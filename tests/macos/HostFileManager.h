#pragma once

#include "hosts/macos/FoundationFileManager.h"

namespace cadora::test {

// The file system that the core's tests run on.
using HostFileManager = FoundationFileManager;

} // namespace cadora::test
