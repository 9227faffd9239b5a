#pragma once

#include <cstdint>
#include <functional>

namespace cadora {

// What this process may still do once it is locked in. The descriptors are those of its contract: 0 to be
// read for its end, 1 and 2 to be written, 3 the source, 4 the output.
enum class SandboxAccess { readSource, readSourceAndWriteOutput };

// Gives up everything but memory, threads of its own and the descriptors above: afterwards no file can be
// opened, no socket made, no program or thread started and no other process looked at, and no memory becomes
// code. It can't be undone. The other descriptors are closed. To be called before a second thread exists:
// those that the work needs are made by `makeThreads` and are locked in as well. Throws std::runtime_error if
// the system can't do it; then nothing untrusted must be read.
//
// From then on memory, processor time and the output are bounded by the size of the source in bytes, as
// Bounds.h says, and nothing can be written yet.
void enterSandbox(SandboxAccess access, std::int64_t sourceSize, const std::function<void()>& makeThreads);

// Once the length of the sound in seconds is known: opens the output and sets the bounds that follow from the
// length. To be called inside the sandbox; final.
void limitExport(double seconds, std::int64_t sourceSize);

} // namespace cadora
