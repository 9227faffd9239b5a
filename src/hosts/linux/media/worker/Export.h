#pragma once

#include "hosts/linux/media/worker/ChunkedEncoder.h"
#include "hosts/linux/media/worker/OpenFile.h"
#include "hosts/linux/media/worker/SourceLength.h"

#include <cstdint>
#include <string>

namespace cadora {

// The sound of a finished M4A file: `samples` at `rate` Hz.
struct ExportResult {
    std::int64_t samples = 0;
    int rate = 0;
    std::string remark{}; // what was done to the sound, for the log; usually empty
};

// Converts the sound of the source, whose length was measured, into AAC in M4A in the empty output, which
// must be readable and writable. Without a crew, which has at least two members, a single encoder does it
// all. Throws ExportError; the output is then of no use.
ExportResult exportM4a(const OpenFile& source, const SourceLength& length, const OpenFile& output,
                       Crew* crew);

} // namespace cadora
