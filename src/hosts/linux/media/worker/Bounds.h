#pragma once

#include <cstdint>

namespace cadora {

// What no honest recording exceeds, by the bytes of its file and, later, by its measured length; so that a
// file that lies takes neither the machine nor the queue. Bytes, seconds of sound, and seconds of processor
// time.

// The slowest telephone codecs sample at 8000 Hz. Below this one nothing could be heard but a rumble, and a
// few bytes would claim months.
constexpr int lowestSampleRate = 1000; // Hz

// A day, or less: silence is what packs most densely, and needs more than this even in a FLAC file.
constexpr double longestSound = 24 * 3600;
double longestSoundIn(std::int64_t fileSize);

// Reading the headers and measuring.
std::int64_t measuringTime(std::int64_t fileSize);
// The export of so much sound, on a processor that is ten times as slow as a usual one.
std::int64_t exportTime(double seconds);
// All of it.
std::int64_t longestTime(std::int64_t fileSize);

// The output: before anything is known but the file's size, and for a measured length.
std::int64_t largestOutput(std::int64_t fileSize);
std::int64_t outputSize(double seconds, std::int64_t fileSize);

// Address space beyond that of the program itself, while measuring and for the whole of the work.
std::int64_t measuringMemory(std::int64_t fileSize);
std::int64_t largestMemory(std::int64_t fileSize);
// The largest single block that is asked for on behalf of a file.
std::int64_t largestBlock(std::int64_t fileSize);

} // namespace cadora
