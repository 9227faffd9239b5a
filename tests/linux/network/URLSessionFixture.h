#pragma once

#include "base/Error.h"
#include "fakes/WaitingMainActor.h"
#include "hosts/linux/network/CurlURLSession.h"
#include "linux/network/ScriptedServer.h"

#include <doctest/doctest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace cadora::test {

// How a request ended, and how often its completion was called.
struct RequestOutcome {
    int calls = 0;
    std::optional<URLSession::Answer> answer;
    std::optional<PlatformError> error;

    std::int64_t status() const { return answered().response.statusCode.value_or(-1); }
    std::string data() const { return answered().data; }

    std::string domain() const { return failed().domain(); }
    long long code() const { return failed().code(); }
    // The error's text. Whatever failed, it must not show what these tests put into every request.
    std::string failure() const {
        const PlatformError& known = failed();
        CHECK(known.text() == known.message());
        for (const char* secret : {"hidden", "signature", "token", "Authorization"}) {
            CHECK(known.message().find(secret) == std::string::npos);
        }
        return known.message();
    }

private:
    const URLSession::Answer& answered() const {
        if (!answer) {
            throw std::runtime_error("failed: " + (error ? error->message() : "never ended"));
        }
        return *answer;
    }
    const PlatformError& failed() const {
        if (!error) {
            throw std::runtime_error(answer ? "answered" : "never ended");
        }
        return *error;
    }
};

// A path and query that must show up in no error text.
inline const std::string secretPath = "/hidden/place?signature=hidden";

class URLSessionFixture {
public:
    explicit URLSessionFixture(CurlURLSession::Configuration configuration = {})
        : session(std::make_unique<CurlURLSession>(actor, std::move(configuration))) {}

    WaitingMainActor actor;
    std::unique_ptr<CurlURLSession> session;

    static URLRequest request(const std::string& url, const std::string& method = "GET") {
        URLRequest request{URL::constant(url)};
        request.httpMethod = method;
        request.headers.setValue("Bearer hidden-token", "Authorization");
        return request;
    }

    static Completion<URLSession::Answer> into(const std::shared_ptr<RequestOutcome>& outcome) {
        return [outcome](Result<URLSession::Answer> result) {
            ++outcome->calls;
            if (const auto* error = std::get_if<std::exception_ptr>(&result)) {
                try {
                    std::rethrow_exception(*error);
                } catch (const PlatformError& known) {
                    outcome->error = known;
                }
            } else {
                outcome->answer = std::get<URLSession::Answer>(std::move(result));
            }
        };
    }

    RequestOutcome data(URLRequest request) {
        const auto outcome = std::make_shared<RequestOutcome>();
        session->data(std::move(request), into(outcome));
        return ended(outcome);
    }

    RequestOutcome upload(URLRequest request, std::filesystem::path file) {
        const auto outcome = std::make_shared<RequestOutcome>();
        session->upload(std::move(request), std::move(file), into(outcome));
        return ended(outcome);
    }

    RequestOutcome ended(const std::shared_ptr<RequestOutcome>& outcome) {
        CHECK_MESSAGE(outcome->calls == 0, "the completion was called inside the call");
        REQUIRE(actor.runUntil([&] { return outcome->calls != 0; }));
        CHECK(outcome->calls == 1);
        return *outcome;
    }
};

} // namespace cadora::test
