#include "api/APIRequest.h"
#include "api/AuthError.h"
#include "api/AuthenticatedRequest.h"
#include "api/PresignClient.h"
#include "api/R2Uploader.h"
#include "api/UploadError.h"
#include "api/WireTypes.h"
#include "base/Json.h"
#include "linux/network/NetworkRoad.h"
#include "outbox/OutboxStore.h"
#include "upload/UploadQueue.h"

#include <doctest/doctest.h>

#include <chrono>
#include <string>
#include <vector>

// Every way in which the road of a file can fail on the network, met on a real one.
namespace cadora::test {

namespace {

using namespace std::chrono_literals;
using nlohmann::json;

constexpr const char* presignPath = "/api/posts/presign";
constexpr const char* storePath = "/store/";
constexpr const char* syncPath = "/api/posts/sync";

using Waits = std::vector<std::chrono::nanoseconds>;
const Waits bothWaits = {2s, 4s};

// The authority of an origin, as error texts show it.
std::string host(const NetworkRoad& road) {
    return "127.0.0.1:" + std::to_string(road.service.port());
}

template <class T> std::string text(const Outcome<T>& outcome) {
    return outcome.error ? errorText(outcome.error) : "no error";
}

// Ways in which the transport fails, and what is said of them in place of HOST.
struct TransportFailure {
    json fault;
    std::string text;
};

std::vector<TransportFailure> transportFailures(const std::string& path) {
    return {
        {{{"path", path}, {"close_after_response_bytes", 0}},
         "The connection to HOST was lost: it was closed without an answer"},
        {{{"path", path}, {"reset_after_response_bytes", 0}},
         "The connection to HOST was lost: Connection reset by peer"},
        {{{"path", path}, {"close_after_response_bytes", 5}, {"count_response_from", "body"}},
         "The connection to HOST was lost: the answer is incomplete"},
        {{{"path", path}, {"stall", true}}, "The connection to HOST timed out: no progress for 1 second"},
    };
}

std::string withHost(std::string text, const std::string& host) {
    const auto place = text.find("HOST");
    return place == std::string::npos ? text : text.replace(place, 4, host);
}

Task<PresignResponse> presign() {
    std::vector<std::string> files{"audio"};
    return PresignClient::presign("abcd1234", std::move(files));
}

// A presigned URL from the stand-in and a recording to put there.
struct Upload {
    explicit Upload(NetworkRoad& network) : road(network) {
        const auto outcome = road.await(presign());
        REQUIRE(outcome.value);
        answer = *outcome.value;
    }

    Outcome<std::monostate> put() { return road.await(R2Uploader::put("audio", recording, answer)); }
    // How many requests reached the store.
    std::size_t requests() const { return road.service.requests("PUT", storePath).size(); }

    NetworkRoad& road;
    std::filesystem::path recording = road.home.file("recording.m4a", "sound");
    PresignResponse answer;
};

// The queue with one item that is to fail and one that is to get through all the same.
struct Desk {
    Desk() {
        queue.onChange = [this] { ++changes; };
    }

    void stage(const std::string& name) {
        store.stage(road.home.file(name, "RIFF"), "private");
        ++staged;
    }

    void pass() {
        changes = 0;
        const int expected = static_cast<int>(store.load().size());
        queue.kick();
        REQUIRE(road.settle([&] { return changes == expected; }));
    }

    // The item that failed, the other one being on the service.
    OutboxItem failed() {
        const auto items = store.load();
        REQUIRE(items.size() == 1);
        CHECK(items[0].sourceFilename == "first.wav");
        CHECK(items[0].attempts == 1);
        REQUIRE(items[0].lastError);
        const std::vector<std::string> notices = {"Couldn’t send to Cadora | first.wav",
                                                  "Sent to Cadora ✓ | second.wav — private"};
        CHECK(road.notificationCenter.texts() == notices);
        return items[0];
    }

    // What is left of a failure once the fault is gone and the user tries again: nothing.
    void checkRetrySucceeds() {
        road.service.clearFaults();
        changes = 0;
        queue.retryFailed();
        REQUIRE(road.settle([&] { return changes == 2; }));
        CHECK(store.load().empty());
        CHECK(road.service.posts().size() == 2);
    }

    NetworkRoad road;
    OutboxStore store;
    UploadQueue queue{store};
    int changes = 0;
    int staged = 0;
};

// One item fails by this fault, of which only the first call of its kind is spoiled.
void checkRow(const json& fault, const std::string& state, const std::string& lastError) {
    CAPTURE(fault.dump());
    Desk desk;
    json first = fault;
    if (!first.contains("calls")) {
        first["calls"] = {1};
    }
    desk.road.service.addFault(first);
    desk.stage("first.wav");
    desk.stage("second.wav");
    desk.pass();
    const OutboxItem item = desk.failed();
    CHECK(rawValue(item.state) == state);
    CHECK(*item.lastError == withHost(lastError, host(desk.road)));
    desk.checkRetrySucceeds();
}

} // namespace

TEST_CASE("over the network, send: a transport failure is thrown unchanged, and nothing is sent twice") {
    for (const TransportFailure& expected : transportFailures(syncPath)) {
        CAPTURE(expected.fault.dump());
        NetworkRoad road;
        road.service.addFault(expected.fault);
        const auto outcome = road.await(AuthenticatedRequest::send(apiRequest(syncPath, "{}")));
        REQUIRE(outcome.template as<PlatformError>());
        CHECK(outcome.template as<PlatformError>()->domain() == "URLSession");
        CHECK(text(outcome) == withHost(expected.text, host(road)));
        CHECK(road.service.requests().size() == 1);
    }
}

TEST_CASE("over the network, send: a service that isn't there is a transport failure") {
    NetworkRoad road;
    road.service.terminate();
    const auto outcome = road.await(AuthenticatedRequest::send(apiRequest(syncPath, "{}")));
    CHECK(text(outcome) == "Couldn’t connect to " + host(road) + ": Connection refused");
}

TEST_CASE("over the network, send: an answer that is not HTTP is a bad response") {
    NetworkRoad road;
    road.service.addFault({{"path", syncPath}, {"raw", "220 ready for mail\r\n"}});
    const auto outcome = road.await(AuthenticatedRequest::send(apiRequest(syncPath, "{}")));
    CHECK(outcome.template as<AuthError>() == AuthError::badResponse());
}

TEST_CASE("over the network, send: rejected credentials need a sign-in, and stay stored") {
    NetworkRoad road;
    road.keychain.store("cadoraToken", "expired");
    const auto outcome = road.await(AuthenticatedRequest::send(apiRequest(syncPath, "{}")));
    CHECK(outcome.template as<AuthError>() == AuthError::refreshRequiresUI());
    CHECK(road.keychain.stored("cadoraToken") == "expired");
    CHECK(road.service.requests().size() == 1);
}

TEST_CASE("over the network, send: every other status is the caller's") {
    for (const int status : {201, 204, 304, 400, 403, 404, 418, 500, 503}) {
        CAPTURE(status);
        NetworkRoad road;
        road.service.addFault({{"path", syncPath}, {"status", status}});
        const auto outcome = road.await(AuthenticatedRequest::send(apiRequest(syncPath, "{}")));
        REQUIRE(outcome.value);
        CHECK(outcome.value->response.statusCode == status);
    }
}

TEST_CASE("over the network, presign: a transport failure is thrown unchanged") {
    for (const TransportFailure& expected : transportFailures(presignPath)) {
        CAPTURE(expected.fault.dump());
        NetworkRoad road;
        road.service.addFault(expected.fault);
        CHECK(text(road.await(presign())) == withHost(expected.text, host(road)));
        CHECK(road.service.requests().size() == 1);
    }
    NetworkRoad road;
    road.service.terminate();
    CHECK(text(road.await(presign())) == "Couldn’t connect to " + host(road) + ": Connection refused");
}

TEST_CASE("over the network, presign: cancelled, the request is taken off the network") {
    NetworkRoad road;
    road.service.addFault({{"path", presignPath}, {"stall", true}});
    const auto outcome = road.begin(presign());
    REQUIRE(road.actor.runUntil([&] { return road.service.requests().size() == 1; }));
    road.started.back().cancel();
    REQUIRE(road.actor.runUntil([&] { return outcome->ended(); }));
    CHECK(outcome->as<CancellationError>());
    road.service.awaitEnded();
}

TEST_CASE("over the network, presign: not HTTP, rejected credentials, any status but 200") {
    {
        NetworkRoad road;
        road.service.addFault({{"path", presignPath}, {"raw", "220 ready for mail\r\n"}});
        CHECK(road.await(presign()).template as<AuthError>() == AuthError::badResponse());
    }
    {
        NetworkRoad road;
        road.keychain.store("cadoraToken", "expired");
        CHECK(road.await(presign()).template as<AuthError>() == AuthError::refreshRequiresUI());
    }
    for (const int status : {201, 204, 302, 400, 403, 404, 429, 500, 503}) {
        CAPTURE(status);
        NetworkRoad road;
        road.service.addFault(
            {{"path", presignPath}, {"status", status}, {"body", R"({"urls":{"audio":"http://x/"}})"}});
        CHECK(road.await(presign()).template as<AuthError>() == AuthError::http(status));
        CHECK(road.service.requests().size() == 1);
    }
}

TEST_CASE("over the network, presign: a body that is no presign answer is the decoder's error") {
    for (const char* body : {"{}", "", "{\"urls\":", "[]", R"({"urls":{"audio":1}})", R"({"urls":{}} x)"}) {
        CAPTURE(std::string(body));
        NetworkRoad road;
        road.service.addFault({{"path", presignPath}, {"status", 200}, {"body", body}});
        CHECK(road.await(presign()).template as<cadora::json::DecodingError>());
        CHECK(road.service.requests().size() == 1);
    }
}

TEST_CASE("over the network, put: no URL for the key, or an unusable one, and nothing is sent") {
    NetworkRoad road;
    Upload upload(road);
    upload.answer.urls = {{"audio", "not a URL"}};
    CHECK(upload.put().as<UploadError>() == UploadError::missingURL("audio"));
    upload.answer.urls = {{"cover", road.service.origin() + "/store/x"}};
    CHECK(upload.put().as<UploadError>() == UploadError::missingURL("audio"));
    CHECK(road.urlSession.uploads == 0);
    CHECK(upload.requests() == 0);
}

TEST_CASE("over the network, put: any 2xx is success") {
    for (const int status : {200, 201, 202, 204, 206, 299}) {
        CAPTURE(status);
        NetworkRoad road;
        Upload upload(road);
        road.service.addFault({{"method", "PUT"}, {"status", status}});
        CHECK(upload.put().value);
        CHECK(upload.requests() == 1);
        CHECK(road.clock.sleeps.empty());
    }
}

TEST_CASE("over the network, put: what passes is tried again after 2 s and then 4 s") {
    for (const int status : {408, 429, 500, 502, 503, 599}) {
        CAPTURE(status);
        NetworkRoad road;
        Upload upload(road);
        road.service.addFault({{"method", "PUT"}, {"calls", {1, 2}}, {"status", status}});
        CHECK(upload.put().value);
        CHECK(road.clock.sleeps == bothWaits);
        CHECK(upload.requests() == 3);
    }
}

TEST_CASE("over the network, put: a status that stays to the last attempt is the error") {
    for (const int status : {408, 429, 500, 503, 599}) {
        CAPTURE(status);
        NetworkRoad road;
        Upload upload(road);
        road.service.addFault({{"method", "PUT"}, {"status", status}});
        CHECK(upload.put().as<UploadError>() == UploadError::http(status));
        CHECK(road.clock.sleeps == bothWaits);
        CHECK(upload.requests() == 3);
    }
}

TEST_CASE("over the network, put: any other status is the error at once, on whichever attempt") {
    for (const int status : {300, 304, 400, 401, 403, 404, 409, 411, 412, 413, 418, 499}) {
        CAPTURE(status);
        NetworkRoad road;
        Upload upload(road);
        road.service.addFault({{"method", "PUT"}, {"status", status}});
        CHECK(upload.put().as<UploadError>() == UploadError::http(status));
        CHECK(road.clock.sleeps.empty());
        CHECK(upload.requests() == 1);
    }
    NetworkRoad road;
    Upload upload(road);
    road.service.addFault({{{"method", "PUT"}, {"calls", {1}}, {"status", 500}},
                           {{"method", "PUT"}, {"calls", {2}}, {"status", 403}}});
    CHECK(upload.put().as<UploadError>() == UploadError::http(403));
    CHECK(road.clock.sleeps == Waits{2s});
}

TEST_CASE("over the network, put: a URL that was changed or has run out is refused for good") {
    NetworkRoad road;
    Upload upload(road);
    upload.answer.urls["audio"] += "0";
    CHECK(upload.put().as<UploadError>() == UploadError::http(403));
    CHECK(upload.requests() == 1);
}

TEST_CASE("over the network, put: an answer that is not HTTP is -1 at once") {
    NetworkRoad road;
    Upload upload(road);
    road.service.addFault({{"method", "PUT"}, {"raw", "220 ready for mail\r\n"}});
    CHECK(upload.put().as<UploadError>() == UploadError::http(-1));
    CHECK(road.clock.sleeps.empty());
    CHECK(upload.requests() == 1);
}

TEST_CASE("over the network, put: a transport failure is tried again, and is the error if it stays") {
    const std::vector<TransportFailure> failures = {
        {{{"method", "PUT"}, {"close_after_response_bytes", 0}},
         "The connection to HOST was lost while uploading “recording.m4a”: it was closed without an answer"},
        {{{"method", "PUT"}, {"reset_after_response_bytes", 0}},
         "The connection to HOST was lost while uploading “recording.m4a”: Connection reset by peer"},
        {{{"method", "PUT"}, {"stall_after_request_bytes", 1}},
         "The connection to HOST timed out while uploading “recording.m4a”: no progress for 1 second"},
    };
    for (const TransportFailure& expected : failures) {
        CAPTURE(expected.fault.dump());
        NetworkRoad road;
        Upload upload(road);
        json passing = expected.fault;
        passing["calls"] = {1, 2};
        road.service.addFault(passing);
        CHECK(upload.put().value);
        CHECK(road.clock.sleeps == bothWaits);
        CHECK(upload.requests() == 3);

        road.service.clearFaults();
        road.clock.sleeps.clear();
        road.service.addFault(expected.fault);
        const auto outcome = upload.put();
        REQUIRE(outcome.as<PlatformError>());
        CHECK(text(outcome) == withHost(expected.text, host(road)));
        CHECK(road.clock.sleeps == bothWaits);
        CHECK(upload.requests() == 6);
    }
}

TEST_CASE("over the network, put: a connection that breaks within the body is tried again") {
    NetworkRoad road;
    Upload upload(road);
    upload.recording = road.home.file("large.m4a", std::string(std::size_t{8} * 1024 * 1024, 'x'));
    road.service.addFault({{"method", "PUT"}, {"calls", {1, 2}}, {"reset_after_request_bytes", 100000}});
    CHECK(upload.put().value);
    CHECK(road.clock.sleeps == bothWaits);
    const auto requests = road.service.awaitEnded();
    CHECK(requests.back().receivedBytes == std::size_t{8} * 1024 * 1024);
}

TEST_CASE("over the network, put: a presigned header that would end its line is never sent") {
    for (const std::string& value :
         {std::string("a\r\nX-Forged: b"), std::string("a\nb"), std::string("a\0b", 3)}) {
        NetworkRoad road;
        Upload upload(road);
        upload.answer.headers = {{"audio", {{"X-Meta", {value}}}}};
        CHECK(text(upload.put()) == "The data couldn’t be read: “headers.audio” holds what HTTP can’t carry");
        CHECK(road.urlSession.uploads == 0);
        CHECK(upload.requests() == 0);
    }
}

TEST_CASE("over the network, put: a store that isn't there is tried three times") {
    NetworkRoad road;
    Upload upload(road);
    road.service.terminate();
    CHECK(text(upload.put()) == "Couldn’t connect to " + host(road) + ": Connection refused");
    CHECK(road.clock.sleeps == bothWaits);
    CHECK(road.urlSession.uploads == 3);
}

TEST_CASE("over the network, put: a missing file fails after three attempts with the file's error") {
    NetworkRoad road;
    Upload upload(road);
    std::filesystem::remove(upload.recording);
    const auto outcome = upload.put();
    REQUIRE(outcome.as<PlatformError>());
    CHECK(text(outcome) == "“recording.m4a” couldn’t be opened: No such file or directory");
    CHECK(road.clock.sleeps == bothWaits);
    CHECK(road.urlSession.uploads == 3);
    CHECK(upload.requests() == 0);
}

TEST_CASE("over the network, put: cancelled during a wait, it ends without another attempt") {
    NetworkRoad road;
    Upload upload(road);
    road.service.addFault({{"method", "PUT"}, {"status", 503}});
    const auto outcome = road.begin(R2Uploader::put("audio", upload.recording, upload.answer));
    REQUIRE(road.actor.runUntil([&] { return road.clock.sleeperCount() == 1; }));
    road.started.back().cancel();
    REQUIRE(road.actor.runUntil([&] { return outcome->ended(); }));
    CHECK(outcome->as<CancellationError>());
    CHECK(upload.requests() == 1);
}

TEST_CASE("over the network, the queue: signed out, nothing goes out and the item waits for a sign-in") {
    Desk desk;
    desk.road.keychain.items.clear();
    desk.stage("first.wav");
    desk.pass();
    const OutboxItem item = desk.store.load().at(0);
    CHECK(item.state == OutboxState::deferredAuth);
    CHECK(item.lastError == "notSignedIn");
    CHECK(item.attempts == 1);
    CHECK(desk.road.service.requests().empty());
}

TEST_CASE("over the network, the queue: without its staged copy an item fails, and nothing goes out for it") {
    Desk desk;
    desk.stage("first.wav");
    desk.stage("second.wav");
    const OutboxItem first = desk.store.load().at(0);
    std::filesystem::remove(*desk.store.sourceURL(first));
    desk.pass();
    const OutboxItem item = desk.failed();
    CHECK(item.state == OutboxState::failed);
    CHECK(item.lastError == "missingURL(\"source\")");
    CHECK(desk.road.service.posts().size() == 1);
}

TEST_CASE("over the network, the queue: a presign that fails") {
    checkRow({{"path", presignPath}, {"status", 401}}, "deferredAuth", "refreshRequiresUI");
    checkRow({{"path", presignPath}, {"status", 403}}, "failed", "http(403)");
    checkRow({{"path", presignPath}, {"status", 500}}, "failed", "http(500)");
    checkRow({{"path", presignPath}, {"status", 201}, {"body", R"({"urls":{}})"}}, "failed", "http(201)");
    checkRow({{"path", presignPath}, {"status", 200}, {"body", R"({"urls":{}})"}}, "failed",
             "missingURL(\"audio\")");
    checkRow({{"path", presignPath}, {"status", 200}, {"body", "{}"}}, "failed",
             "The data couldn’t be read: “urls” is missing");
    checkRow({{"path", presignPath}, {"raw", "220 ready for mail\r\n"}}, "failed", "badResponse");
    for (const TransportFailure& expected : transportFailures(presignPath)) {
        checkRow(expected.fault, "failed", expected.text);
    }
}

TEST_CASE("over the network, the queue: an upload that fails") {
    checkRow({{"method", "PUT"}, {"status", 403}}, "failed", "http(403)");
    checkRow({{"method", "PUT"}, {"calls", {1, 2, 3}}, {"status", 503}}, "failed", "http(503)");
    checkRow({{"method", "PUT"}, {"raw", "220 ready for mail\r\n"}}, "failed", "http(-1)");
    checkRow(
        {{"method", "PUT"}, {"calls", {1, 2, 3}}, {"close_after_response_bytes", 0}}, "failed",
        "The connection to HOST was lost while uploading “recording.m4a”: it was closed without an answer");
}

TEST_CASE("over the network, the queue: a sync that fails") {
    checkRow({{"path", syncPath}, {"status", 401}}, "deferredAuth", "refreshRequiresUI");
    checkRow({{"path", syncPath}, {"status", 201}, {"body", R"({"success":true})"}}, "failed", "http(201)");
    checkRow({{"path", syncPath}, {"status", 403}}, "failed", "http(403)");
    checkRow({{"path", syncPath}, {"status", 500}}, "failed", "http(500)");
    checkRow({{"path", syncPath}, {"raw", "220 ready for mail\r\n"}}, "failed", "badResponse");
    for (const TransportFailure& expected : transportFailures(syncPath)) {
        checkRow(expected.fault, "failed", expected.text);
    }
}

TEST_CASE("over the network, the queue: a sync answer that can't be read") {
    for (const char* body : {"", "posted", "{\"success\":", "[]", R"({"success":"yes"})"}) {
        CAPTURE(std::string(body));
        Desk desk;
        desk.road.service.addFault({{"path", syncPath}, {"calls", {1}}, {"status", 200}, {"body", body}});
        desk.stage("first.wav");
        desk.stage("second.wav");
        desk.pass();
        const OutboxItem item = desk.failed();
        CHECK(item.state == OutboxState::failed);
        CHECK(item.lastError->rfind("The data couldn’t be read: ", 0) == 0);
        desk.checkRetrySucceeds();
    }
}

TEST_CASE("over the network, the queue: a post whose answer was lost is not made twice") {
    Desk desk;
    desk.road.service.addFault({{"path", syncPath}, {"calls", {1}}, {"close_after_response_bytes", 0}});
    desk.stage("first.wav");
    desk.stage("second.wav");
    desk.pass();
    CHECK(desk.road.service.posts().size() == 2);
    CHECK(desk.failed().state == OutboxState::failed);
    desk.checkRetrySucceeds();
}

} // namespace cadora::test
