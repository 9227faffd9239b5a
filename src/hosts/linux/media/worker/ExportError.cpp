#include "hosts/linux/media/worker/ExportError.h"

#include "hosts/linux/media/worker/Bounds.h"

#include <cstring>
#include <utility>

namespace cadora {

ExportError::ExportError(ExportFailure failure, std::string message)
    : failure_(failure), message_(std::move(message)) {}

ExportError unreadable(int errorNumber) {
    return {ExportFailure::unreadable,
            std::string("The file couldn’t be read: ") + strerrordesc_np(errorNumber) + "."};
}

ExportError cannotWrite(int errorNumber) {
    return {ExportFailure::cannotWrite, std::string("The converted recording couldn’t be written: ") +
                                            strerrordesc_np(errorNumber) + "."};
}

ExportError notAudio() {
    return {
        ExportFailure::notAudio,
        "The file couldn’t be opened: it isn’t a sound file of a kind that can be read, or it is damaged or "
        "incomplete."};
}

ExportError noSound() {
    return {ExportFailure::noSound, "There is no sound in this file."};
}

ExportError noDuration() {
    return {ExportFailure::noDuration, "There is nothing to hear in this file: its length is zero."};
}

ExportError damaged() {
    return {ExportFailure::cannotDecode, "The sound in this file is damaged and couldn’t be decoded."};
}

ExportError implausibleRate(int rate) {
    return {ExportFailure::cannotDecode, "The sound in this file couldn’t be converted: it claims " +
                                             std::to_string(rate) +
                                             " samples a second, and no recording has fewer than " +
                                             std::to_string(lowestSampleRate) + "."};
}

ExportError implausibleLength() {
    return {ExportFailure::outOfResources,
            "The file claims to be longer than any recording of its size; it is probably damaged."};
}

ExportError outOfMemory() {
    return {ExportFailure::outOfResources,
            "The file asks for more memory than any recording needs; it is probably damaged."};
}

void requirePlausibleRate(int rate) {
    if (rate < lowestSampleRate) {
        throw implausibleRate(rate);
    }
}

} // namespace cadora
