#pragma once

#include "hosts/linux/files/PosixFileManager.h"

namespace cadora::test {

// The file system that the core's tests run on.
using HostFileManager = PosixFileManager;

} // namespace cadora::test
