#pragma once

#include <cstdint>

namespace cadora {

// What this process may still do once it is locked in. The descriptors are those of its contract: 0 to be
// read for its end, 1 and 2 to be written, 3 the source, 4 the output.
enum class SandboxAccess { readSource, readSourceAndWriteOutput };

// Gives up everything but memory, threads of its own and the descriptors above: afterwards no file can be
// opened, no socket made, no program started and no other process looked at, and no memory becomes code.
// It can't be undone. The other descriptors are closed. To be called before a second thread exists, since
// only later threads are locked in as well. Throws std::runtime_error if the system can't do it; then
// nothing untrusted must be read.
void enterSandbox(SandboxAccess access);

// Bounds that an honest recording stays far below, so that a dishonest one can't take the machine with
// it: memory is bounded by the sandbox, processor time (SIGXCPU) and the output's size (SIGXFSZ) by these.
// Both can be called inside the sandbox.
// Before anything is known but the size of the file in bytes:
void limitReading(std::int64_t fileSize);
// Once the length of the sound in seconds is known; final.
void limitExport(double seconds);

} // namespace cadora
