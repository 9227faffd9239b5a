#include "api/PresignClient.h"

#include "api/APIRequest.h"
#include "api/AuthError.h"
#include "api/AuthenticatedRequest.h"
#include "platform/Platform.h"

namespace cadora {

Task<PresignResponse> PresignClient::presign(std::string uuid, std::vector<std::string> files) {
    const Platform& platform = Platform::current();
    const PresignRequest record{std::move(uuid), std::move(files)};
    auto building = runInBackground(platform.mainActor, platform.background,
                                    [record] { return apiRequest("/api/posts/presign", record.encode()); });
    URLRequest request = co_await building;
    auto answering = AuthenticatedRequest::send(std::move(request));
    URLSession::Answer answer = co_await std::move(answering);
    if (answer.response.statusCode != 200) {
        throw AuthError::http(*answer.response.statusCode);
    }
    auto decoding = runInBackground(platform.mainActor, platform.background, [data = std::move(answer.data)] {
        return PresignResponse::decode(data);
    });
    co_return co_await decoding;
}

} // namespace cadora
