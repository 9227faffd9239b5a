#pragma once

#include "hosts/linux/export/ChunkedEncoder.h"

#include <cstdint>

namespace cadora {

// The sound of a finished M4A file: `samples` at `rate` Hz.
struct ExportResult {
    std::int64_t samples = 0;
    int rate = 0;
};

// Converts the sound of the file behind `source` into AAC in M4A in the empty file behind `output`, which
// must be readable and writable. Both descriptors stay the caller's. Throws ExportError; the output is
// then of no use.
ExportResult exportM4a(int source, int output, const EncodingPlan& plan);

} // namespace cadora
