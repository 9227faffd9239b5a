#pragma once

#include "service/PostBook.h"

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace cadora::service {

/// A request that the API does not accept, with the status that says so.
struct Refusal : std::runtime_error {
    Refusal(int answerStatus, const std::string& text) : std::runtime_error(text), status(answerStatus) {}
    int status;
};

/// What a presign request asks for.
struct PresignOrder {
    std::string uuid;
    std::vector<std::string> files;
};

/// Both take the body of a request. They throw Refusal: 400 when it isn't JSON in UTF-8, 422 when it has an
/// unknown, missing or null key or a value that the service can't take.
PresignOrder parsePresignOrder(std::string_view body);
Post parseSyncOrder(std::string_view body);

/// The type that the object store wants for a file key.
std::string contentTypeOf(std::string_view fileKey);

} // namespace cadora::service
