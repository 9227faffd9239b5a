#include "service/ServiceCalls.h"

#include <doctest/doctest.h>

namespace cadora::test {

namespace {

HttpAnswer answered(const HttpResult& result) {
    REQUIRE_MESSAGE(result, result.problem);
    return *result;
}

} // namespace

HttpClient clientOf(const ServiceProcess& service) {
    return HttpClient(service.origin(), service.certificate());
}

HttpHeaders apiHeaders() {
    return {{"Authorization", std::string("Bearer ") + ServiceProcess::token},
            {"X-Cadora-User-Id", ServiceProcess::userId},
            {"Accept", "application/json"}};
}

HttpAnswer postJson(const ServiceProcess& service, const std::string& path, const nlohmann::json& body) {
    return answered(clientOf(service).post(path, apiHeaders(), body.dump(), "application/json"));
}

PresignedUpload presign(const ServiceProcess& service, const std::string& uuid, const std::string& key) {
    const HttpAnswer response = postJson(service, "/api/posts/presign", {{"uuid", uuid}, {"files", {key}}});
    REQUIRE(response.status == 200);
    const nlohmann::json body = nlohmann::json::parse(response.body);
    const auto url = body.at("urls").at(key).get<std::string>();
    REQUIRE(url.starts_with(service.origin() + "/"));
    const nlohmann::json& headers = body.at("headers").at(key);
    return {url.substr(service.origin().size()), headers.at("Content-Type").at(0).get<std::string>(),
            headers.at("X-Cadora-Upload").at(0).get<std::string>()};
}

HttpAnswer put(const ServiceProcess& service, const PresignedUpload& upload, const std::string& body) {
    return answered(clientOf(service).put(upload.target, {{"X-Cadora-Upload", upload.uploadHeader}}, body,
                                          upload.contentType));
}

HttpAnswer sync(const ServiceProcess& service, const std::string& uuid, const nlohmann::json& changes) {
    nlohmann::json body = {{"uuid", uuid}, {"visibility", "private"}, {"uploaded_files", {"audio"}}};
    body.update(changes);
    return postJson(service, "/api/posts/sync", body);
}

HttpAnswer get(const ServiceProcess& service, const std::string& target, const HttpHeaders& headers) {
    return answered(clientOf(service).get(target, headers));
}

std::string putHead(const PresignedUpload& upload, const std::string& more) {
    return "PUT " + upload.target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: " + upload.contentType +
           "\r\nX-Cadora-Upload: " + upload.uploadHeader + "\r\n" + more + "\r\n";
}

} // namespace cadora::test
