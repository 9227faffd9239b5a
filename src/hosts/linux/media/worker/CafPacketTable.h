#pragma once

#include "hosts/linux/media/worker/OpenFile.h"

#include <cstdint>
#include <optional>

namespace cadora {

// What a CAF file says about the sound in its packets, which FFmpeg doesn't pass on: how many samples at
// the file's rate count, and how many the decoder gives before those.
struct CafPacketTable {
    std::int64_t validSamples = 0;
    std::int64_t primingSamples = 0;
};

// None if the file isn't CAF, has no such table, or one that makes no sense.
std::optional<CafPacketTable> readCafPacketTable(const OpenFile& file);

} // namespace cadora
