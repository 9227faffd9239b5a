#pragma once

#include "base/Task.h"

#include <filesystem>

namespace cadora {

// Turns any audio file that the platform can read into AAC audio in an M4A container.
class Transcoder {
public:
    Transcoder() = delete;

    // Writes the M4A at `output`, whose folder must exist and whose previous file is replaced, and yields
    // the source's duration in seconds. Throws the platform's error when the source can't be read or an
    // existing output can't be deleted, else a TranscodeError.
    static Task<double> toM4A(std::filesystem::path source, std::filesystem::path output);
};

} // namespace cadora
