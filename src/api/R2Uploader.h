#pragma once

#include "api/WireTypes.h"
#include "base/Task.h"

#include <filesystem>
#include <string>

namespace cadora {

// Puts files to the object store. No credentials of the service go along.
class R2Uploader {
public:
    R2Uploader() = delete;

    // Streams the file to the URL that `presign` has for `fileKey`, at most three times: transport failures
    // and the statuses 408, 429 and 5xx are tried again after 2 s and then 4 s. Throws
    // UploadError::missingURL without any traffic when there is no usable URL, json::DecodingError as well
    // for headers that can't be sent, UploadError::http for a status
    // that is not retried or fails to the last, the transport's error when that was the last, and
    // CancellationError when the task is cancelled during a wait.
    static Task<void> put(std::string fileKey, std::filesystem::path fileURL, PresignResponse presign);
};

} // namespace cadora
