#pragma once

#include <exception>
#include <string>

namespace cadora {

// Why a source has no length or can't be exported. The numbers go to the parent as the error's code, so
// they never change their meaning.
enum class ExportFailure {
    unreadable = 1,     // the source's bytes couldn't be read from the disk; a later try may succeed
    notAudio = 2,       // no known sound or video format; trying again is useless
    noSound = 3,        // a known format, but nothing in it is sound
    noDuration = 4,     // there is a sound track, and its length is zero
    cannotDecode = 5,   // the sound is damaged, protected or of an unknown codec
    cannotWrite = 6,    // the output couldn't be written; a later try may succeed
    outOfResources = 7, // memory or time ran out on a file that asks for more than any recording needs
};

// What ends a measurement or an export. message() is a sentence for the musician who sent the file.
class ExportError : public std::exception {
public:
    ExportError(ExportFailure failure, std::string message);

    ExportFailure failure() const { return failure_; }
    const std::string& message() const { return message_; }
    const char* what() const noexcept override { return message_.c_str(); }

private:
    ExportFailure failure_;
    std::string message_;
};

ExportError unreadable(int errorNumber);
ExportError cannotWrite(int errorNumber);
ExportError notAudio();
ExportError noSound();
ExportError noDuration();
ExportError damaged();
ExportError outOfMemory();
ExportError implausibleRate(int rate); // Hz
ExportError implausibleLength();

// Throws implausibleRate for fewer samples a second (Hz) than any recording has.
void requirePlausibleRate(int rate);

} // namespace cadora
