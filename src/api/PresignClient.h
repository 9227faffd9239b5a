#pragma once

#include "api/WireTypes.h"
#include "base/Task.h"

#include <string>
#include <vector>

namespace cadora {

// Asks the service for presigned upload URLs.
class PresignClient {
public:
    PresignClient() = delete;

    // One URL for each file key of the upload job `uuid`. Throws what AuthenticatedRequest::send throws,
    // AuthError::http for any status but 200, and json::DecodingError for a body that is no such answer.
    // Nothing is retried.
    static Task<PresignResponse> presign(std::string uuid, std::vector<std::string> files);
};

} // namespace cadora
