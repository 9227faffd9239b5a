#include "api/PresignClient.h"

#include "api/APIRequest.h"
#include "api/AuthError.h"
#include "api/AuthenticatedRequest.h"

namespace cadora {

Task<PresignResponse> PresignClient::presign(std::string uuid, std::vector<std::string> files) {
    const PresignRequest record{std::move(uuid), std::move(files)};
    const URLSession::Answer answer =
        co_await AuthenticatedRequest::send(apiRequest("/api/posts/presign", record.encode()));
    if (answer.response.statusCode != 200) {
        throw AuthError::http(*answer.response.statusCode);
    }
    co_return PresignResponse::decode(answer.data);
}

} // namespace cadora
