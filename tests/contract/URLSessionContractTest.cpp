// What every host's URL session must do, against the stand-in of the service. Run by a program that defines
// makeURLSession().

#include "contract/URLSessionUnderTest.h"

#include "base/Error.h"
#include "fakes/TemporaryDirectory.h"
#include "fakes/WaitingMainActor.h"
#include "service/ServiceProcess.h"

#include <doctest/doctest.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace cadora::test {

namespace {

using nlohmann::json;
using namespace std::chrono_literals;

// How a request ended, and how often its completion was called.
struct Ending {
    int calls = 0;
    std::optional<URLSession::Answer> answer;
    std::optional<PlatformError> error;

    std::optional<std::int64_t> status() const { return answer ? answer->response.statusCode : std::nullopt; }
};

// Content in which no two places look alike.
std::string content(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t state = 1;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    return bytes;
}

constexpr const char* uuid = "abcd1234";

class Fixture {
public:
    ServiceProcess service;
    TemporaryDirectory folder;
    WaitingMainActor actor;
    std::unique_ptr<URLSession> session = makeURLSession(actor);

    URLRequest request(const std::string& pathOrURL, const std::string& method) const {
        URLRequest request{
            URL::constant(pathOrURL.starts_with('/') ? service.origin() + pathOrURL : pathOrURL)};
        request.httpMethod = method;
        return request;
    }

    // A call of the service's API, with the credentials that it wants.
    URLRequest call(const std::string& path, const json& body) const {
        URLRequest call = request(path, "POST");
        call.headers.setValue("application/json", "Content-Type");
        call.headers.setValue("application/json", "Accept");
        call.headers.setValue(std::string("Bearer ") + ServiceProcess::token, "Authorization");
        call.headers.setValue(ServiceProcess::userId, "X-Cadora-User-Id");
        call.httpBody = body.dump();
        return call;
    }

    URLRequest presign() const {
        return call("/api/posts/presign", {{"uuid", uuid}, {"files", json::array({"audio"})}});
    }

    // The request that a presigned URL wants.
    URLRequest put() {
        const Ending presigned = data(presign());
        REQUIRE(presigned.status() == 200);
        const json answer = json::parse(presigned.answer->data);
        URLRequest put = request(answer.at("urls").at("audio").get<std::string>(), "PUT");
        put.headers.setValue("audio/mp4", "Content-Type");
        if (answer.contains("headers") && answer["headers"].contains("audio")) {
            for (const auto& [field, values] : answer["headers"]["audio"].items()) {
                put.headers.setValue(values.at(0).get<std::string>(), field);
            }
        }
        return put;
    }

    // What the object store has got.
    std::string storedObject() {
        const Ending synced = data(
            call("/api/posts/sync",
                 {{"uuid", uuid}, {"visibility", "private"}, {"uploaded_files", json::array({"audio"})}}));
        REQUIRE(synced.status() == 200);
        const Ending object = data(request(service.posts().at(0).at("audio_url").get<std::string>(), "GET"));
        REQUIRE(object.status() == 200);
        return object.answer->data;
    }

    static Completion<URLSession::Answer> into(const std::shared_ptr<Ending>& ending) {
        return [ending](Result<URLSession::Answer> result) {
            ++ending->calls;
            if (const auto* error = std::get_if<std::exception_ptr>(&result)) {
                try {
                    std::rethrow_exception(*error);
                } catch (const PlatformError& known) {
                    ending->error = known;
                }
            } else {
                ending->answer = std::get<URLSession::Answer>(std::move(result));
            }
        };
    }

    // Waits for the end; the completion is called once, and never inside the call.
    Ending ended(const std::shared_ptr<Ending>& ending) {
        CHECK(ending->calls == 0);
        REQUIRE(actor.runUntil([&] { return ending->calls != 0; }));
        actor.runPosted();
        CHECK(ending->calls == 1);
        return *ending;
    }

    Ending data(URLRequest request) {
        const auto ending = std::make_shared<Ending>();
        session->data(std::move(request), into(ending));
        return ended(ending);
    }

    Ending upload(URLRequest request, std::filesystem::path file) {
        const auto ending = std::make_shared<Ending>();
        session->upload(std::move(request), std::move(file), into(ending));
        return ended(ending);
    }

    // A failure must tell something, and nothing that lets somebody else upload or sign in.
    static void checkFailure(const Ending& ending) {
        REQUIRE(ending.error);
        CHECK_FALSE(ending.error->domain().empty());
        CHECK_FALSE(ending.error->message().empty());
        for (const char* secret : {"/store/", "signature", "Bearer", ServiceProcess::token}) {
            CHECK(ending.error->message().find(secret) == std::string::npos);
        }
    }
};

} // namespace

TEST_CASE("a request goes out with its method, headers and body, and its answer comes back whole") {
    Fixture fixture;
    const URLRequest presign = fixture.presign();
    const Ending ending = fixture.data(presign);
    CHECK(ending.status() == 200);
    CHECK(json::parse(ending.answer->data).at("urls").contains("audio"));
    const ServiceRequest seen = fixture.service.requests("POST", "/api/posts/presign").at(0);
    CHECK(seen.contentType == "application/json");
    CHECK(seen.accept == "application/json");
    CHECK(seen.authorizationValid);
    CHECK(seen.hasHeader("x-cadora-user-id"));
    CHECK(seen.contentLength == presign.httpBody.size());
    CHECK_FALSE(seen.chunked);
}

TEST_CASE("a file goes up byte for byte, with its length and never in chunks") {
    for (const std::size_t size : {std::size_t{1}, std::size_t{3} * 1024 * 1024 + 1}) {
        CAPTURE(size);
        Fixture fixture;
        const auto file = fixture.folder.file("recording.m4a", content(size));
        CHECK(fixture.upload(fixture.put(), file).status() == 200);
        const ServiceRequest seen = fixture.service.requests("PUT", "/store/").at(0);
        CHECK(seen.contentLength == size);
        CHECK(seen.receivedBytes == size);
        CHECK(seen.contentType == "audio/mp4");
        CHECK_FALSE(seen.chunked);
        CHECK_FALSE(seen.authorizationPresent);
        CHECK((fixture.storedObject() == content(size)));
    }
}

TEST_CASE("an upload keeps the file that it was given, whatever becomes of the name") {
    Fixture fixture;
    const auto file = fixture.folder.file("recording.m4a", content(2'000'000));
    const URLRequest put = fixture.put();
    const auto ending = std::make_shared<Ending>();
    fixture.session->upload(put, file, Fixture::into(ending));
    std::filesystem::remove(file);
    fixture.folder.file("recording.m4a", "another recording");
    CHECK(fixture.ended(ending).status() == 200);
    CHECK((fixture.storedObject() == content(2'000'000)));
}

TEST_CASE("every status is an answer, with its body") {
    Fixture fixture;
    for (const int status : {201, 400, 401, 403, 404, 408, 429, 500, 503}) {
        CAPTURE(status);
        fixture.service.clearFaults();
        fixture.service.addFault({{"status", status}, {"body", "so it is"}});
        const Ending ending = fixture.data(fixture.presign());
        CHECK(ending.status() == status);
        CHECK(ending.answer->data == "so it is");
    }
}

TEST_CASE("an upload's refusal is an answer too") {
    Fixture fixture;
    const auto file = fixture.folder.file("recording.m4a", content(1000));
    const URLRequest put = fixture.put();
    for (const int status : {403, 500}) {
        CAPTURE(status);
        fixture.service.clearFaults();
        fixture.service.addFault({{"method", "PUT"}, {"status", status}});
        CHECK(fixture.upload(put, file).status() == status);
    }
}

TEST_CASE("a redirect is followed, and an upload's with the whole file again") {
    Fixture fixture;
    fixture.service.addFault(
        {{"path", "/elsewhere"}, {"status", 302}, {"location", fixture.service.origin() + "/posts"}});
    const Ending page = fixture.data(fixture.request("/elsewhere", "GET"));
    CHECK(page.status() == 200);
    CHECK(page.answer->data.find("<html") != std::string::npos);

    const auto file = fixture.folder.file("recording.m4a", content(100'000));
    const URLRequest put = fixture.put();
    fixture.service.addFault(
        {{"method", "PUT"}, {"calls", {1}}, {"status", 307}, {"location", put.url.text()}});
    CHECK(fixture.upload(put, file).status() == 200);
    CHECK(fixture.service.requests("PUT", "/store/").size() == 2);
    CHECK((fixture.storedObject() == content(100'000)));
}

TEST_CASE("a connection that ends without an answer is a failure") {
    Fixture fixture;
    const auto file = fixture.folder.file("recording.m4a", content(100'000));
    const URLRequest put = fixture.put();
    fixture.service.addFault({{"close_after_response_bytes", 0}});
    Fixture::checkFailure(fixture.data(fixture.presign()));
    Fixture::checkFailure(fixture.upload(put, file));
}

TEST_CASE("an answer that breaks off is a failure, not a short answer") {
    Fixture fixture;
    fixture.service.addFault({{"count_response_from", "body"}, {"close_after_response_bytes", 5}});
    Fixture::checkFailure(fixture.data(fixture.presign()));
}

TEST_CASE("nobody there is a failure") {
    Fixture fixture;
    const URLRequest put = fixture.put();
    fixture.service.terminate();
    Fixture::checkFailure(fixture.data(put));
}

TEST_CASE("a server that falls silent is given up after the request's interval") {
    Fixture fixture;
    const auto file = fixture.folder.file("recording.m4a", content(1000));
    URLRequest put = fixture.put();
    URLRequest presign = fixture.presign();
    put.timeoutInterval = 1s;
    presign.timeoutInterval = 1s;
    fixture.service.addFault({{"stall", true}});
    Fixture::checkFailure(fixture.data(presign));
    Fixture::checkFailure(fixture.upload(put, file));
}

TEST_CASE("a file that isn't there is a failure, and so is a folder") {
    Fixture fixture;
    const URLRequest put = fixture.put();
    Fixture::checkFailure(fixture.upload(put, fixture.folder.path() / "none.m4a"));
    Fixture::checkFailure(fixture.upload(put, fixture.folder.path()));
}

TEST_CASE("a request that is called off leaves the server") {
    Fixture fixture;
    fixture.service.addFault({{"path", "/api/posts/presign"}, {"stall", true}});
    const auto ending = std::make_shared<Ending>();
    const CancelAction cancel = fixture.session->data(fixture.presign(), Fixture::into(ending));
    REQUIRE(cancel);
    fixture.service.awaitRequests(1, "POST", "/api/posts/presign");
    cancel();
    // Letting go on the stall, the service finds nobody to answer; until then it may not have noticed.
    fixture.service.releaseStalls();
    fixture.service.awaitEnded();
    fixture.actor.runPosted();
    CHECK_FALSE(ending->answer);
}

TEST_CASE("requests run side by side") {
    Fixture fixture;
    fixture.service.addFault({{"path", "/api/posts/presign"}, {"calls", {1}}, {"stall", true}});
    const auto first = std::make_shared<Ending>();
    fixture.session->data(fixture.presign(), Fixture::into(first));
    fixture.service.awaitRequests(1, "POST", "/api/posts/presign");
    CHECK(fixture.data(fixture.presign()).status() == 200);
    CHECK(first->calls == 0);
    fixture.service.releaseStalls();
    CHECK(fixture.ended(first).status() == 200);
}

} // namespace cadora::test
