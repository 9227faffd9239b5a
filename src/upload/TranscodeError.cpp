#include "upload/TranscodeError.h"

namespace cadora {

std::string TranscodeError::text() const {
    switch (case_) {
    case Case::exportFailed:
        return reason_ ? caseText("exportFailed", *reason_) : "exportFailed(nil)";
    case Case::cannotCreateExport:
        return "cannotCreateExport";
    case Case::noDuration:
        return "noDuration";
    }
    return "unknown";
}

} // namespace cadora
