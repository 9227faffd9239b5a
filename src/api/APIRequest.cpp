#include "api/APIRequest.h"

#include "base/Deployment.h"

namespace cadora {

URLRequest apiRequest(const std::string& path, std::string body) {
    URLRequest request{URL::constant(deployment::apiOrigin() + path)};
    request.httpMethod = "POST";
    request.timeoutInterval = std::chrono::seconds(60);
    request.headers.setValue("application/json", "Content-Type");
    request.httpBody = std::move(body);
    return request;
}

} // namespace cadora
