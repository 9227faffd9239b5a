#include "service/ServiceCalls.h"

#include <doctest/doctest.h>

namespace cadora::test {

namespace {

httplib::Response answered(const httplib::Result& result) {
    REQUIRE_MESSAGE(result, httplib::to_string(result.error()));
    return result.value();
}

} // namespace

httplib::Client clientOf(const ServiceProcess& service) {
    httplib::Client client(service.origin());
    client.set_connection_timeout(20);
    client.set_read_timeout(20);
    client.set_write_timeout(20);
    if (!service.certificate().empty()) {
        client.set_ca_cert_path(service.certificate().string());
    }
    return client;
}

httplib::Headers apiHeaders() {
    return {{"Authorization", std::string("Bearer ") + ServiceProcess::token},
            {"X-Cadora-User-Id", ServiceProcess::userId},
            {"Accept", "application/json"}};
}

httplib::Response postJson(const ServiceProcess& service, const std::string& path,
                           const nlohmann::json& body) {
    return answered(clientOf(service).Post(path, apiHeaders(), body.dump(), "application/json"));
}

PresignedUpload presign(const ServiceProcess& service, const std::string& uuid, const std::string& key) {
    const httplib::Response response =
        postJson(service, "/api/posts/presign", {{"uuid", uuid}, {"files", {key}}});
    REQUIRE(response.status == 200);
    const nlohmann::json body = nlohmann::json::parse(response.body);
    const auto url = body.at("urls").at(key).get<std::string>();
    REQUIRE(url.starts_with(service.origin() + "/"));
    const nlohmann::json& headers = body.at("headers").at(key);
    return {url.substr(service.origin().size()), headers.at("Content-Type").at(0).get<std::string>(),
            headers.at("X-Cadora-Upload").at(0).get<std::string>()};
}

httplib::Response put(const ServiceProcess& service, const PresignedUpload& upload, const std::string& body) {
    return answered(clientOf(service).Put(upload.target, {{"X-Cadora-Upload", upload.uploadHeader}}, body,
                                          upload.contentType));
}

httplib::Response sync(const ServiceProcess& service, const std::string& uuid,
                       const nlohmann::json& changes) {
    nlohmann::json body = {{"uuid", uuid}, {"visibility", "private"}, {"uploaded_files", {"audio"}}};
    body.update(changes);
    return postJson(service, "/api/posts/sync", body);
}

httplib::Response get(const ServiceProcess& service, const std::string& target,
                      const httplib::Headers& headers) {
    return answered(clientOf(service).Get(target, headers));
}

std::string putHead(const PresignedUpload& upload, const std::string& more) {
    return "PUT " + upload.target + " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: " + upload.contentType +
           "\r\nX-Cadora-Upload: " + upload.uploadHeader + "\r\n" + more + "\r\n";
}

} // namespace cadora::test
