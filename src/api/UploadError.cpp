#include "api/UploadError.h"

namespace cadora {

std::string UploadError::text() const {
    if (const auto* fileKey = std::get_if<std::string>(&payload_)) {
        return caseText("missingURL", *fileKey);
    }
    return caseText("http", std::get<std::int64_t>(payload_));
}

} // namespace cadora
