#pragma once

#include "base/Error.h"

#include <cstdint>
#include <string>
#include <utility>
#include <variant>

namespace cadora {

// Failures of carrying a file to the object store.
class UploadError : public Error {
public:
    enum class Case {
        // A location that the upload needs is missing; carries the file key, or "source" for the staged file.
        missingURL,
        // The object store refused the upload; carries the final status, -1 when the answer was not HTTP.
        http,
    };

    static UploadError missingURL(std::string fileKey) { return UploadError(std::move(fileKey)); }
    static UploadError http(std::int64_t status) { return UploadError(status); }

    Case errorCase() const {
        return std::holds_alternative<std::string>(payload_) ? Case::missingURL : Case::http;
    }

    std::string text() const override;

    friend bool operator==(const UploadError& a, const UploadError& b) { return a.payload_ == b.payload_; }

private:
    using Payload = std::variant<std::string, std::int64_t>;
    explicit UploadError(Payload payload) : payload_(std::move(payload)) {}

    Payload payload_;
};

} // namespace cadora
