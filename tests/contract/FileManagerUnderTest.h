#pragma once

#include "platform/FileManager.h"

#include <memory>

namespace cadora::test {

// The host's file manager, on whatever the host calls its file system. Each test program that runs the
// contract defines it.
std::unique_ptr<FileManager> makeFileManager();

} // namespace cadora::test
