#pragma once

#include "service/HttpClient.h"
#include "service/ServiceProcess.h"

#include <map>
#include <string>

#include <nlohmann/json.hpp>

namespace cadora::test {

/// An HTTP client for the stand-in.
HttpClient clientOf(const ServiceProcess& service);

/// The headers of a well-made call of the API.
HttpHeaders apiHeaders();

/// Where one object may be put, and with what.
struct PresignedUpload {
    std::string target; ///< path and query
    std::string contentType;
    std::string uploadHeader; ///< the value of X-Cadora-Upload

    std::string path() const { return target.substr(0, target.find('?')); }
};

/// Each makes one call and fails the test when it gets no answer, or none with the status 200 where the
/// result needs it.
HttpAnswer postJson(const ServiceProcess& service, const std::string& path, const nlohmann::json& body);
PresignedUpload presign(const ServiceProcess& service, const std::string& uuid,
                        const std::string& key = "audio");
HttpAnswer put(const ServiceProcess& service, const PresignedUpload& upload, const std::string& body);
HttpAnswer sync(const ServiceProcess& service, const std::string& uuid,
                const nlohmann::json& changes = nlohmann::json::object());
HttpAnswer get(const ServiceProcess& service, const std::string& target, const HttpHeaders& headers = {});

/// The head of a PUT to the upload's URL, with the headers that it wants and `more` (each line ended).
std::string putHead(const PresignedUpload& upload, const std::string& more);

} // namespace cadora::test
