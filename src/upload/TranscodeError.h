#pragma once

#include "base/Error.h"

#include <optional>
#include <string>
#include <utility>

namespace cadora {

// Failures of turning a source into the recording that is uploaded.
class TranscodeError : public Error {
public:
    enum class Case {
        // The export failed or was cancelled, or ended in a status that it should not; carries the
        // platform's reason, where it gave one.
        exportFailed,
        // The platform has no way from this source to M4A.
        cannotCreateExport,
        // The source's duration is not a finite number greater than zero.
        noDuration,
    };

    static TranscodeError exportFailed(std::optional<std::string> reason) {
        return {Case::exportFailed, std::move(reason)};
    }
    static TranscodeError cannotCreateExport() { return {Case::cannotCreateExport, std::nullopt}; }
    static TranscodeError noDuration() { return {Case::noDuration, std::nullopt}; }

    Case errorCase() const { return case_; }

    std::string text() const override;

    friend bool operator==(const TranscodeError& a, const TranscodeError& b) {
        return a.case_ == b.case_ && a.reason_ == b.reason_;
    }

private:
    TranscodeError(Case errorCase, std::optional<std::string> reason)
        : case_(errorCase), reason_(std::move(reason)) {}

    Case case_;
    std::optional<std::string> reason_;
};

} // namespace cadora
