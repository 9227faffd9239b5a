#pragma once

#include "platform/WebAuthentication.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cadora::test {

class FakeWebAuthenticationSession : public WebAuthenticationSession {
public:
    FakeWebAuthenticationSession(URL startURL, std::string scheme,
                                 WebAuthentication::CompletionHandler completionHandler, bool starts,
                                 std::optional<URL> endsWith)
        : url(std::move(startURL)), callbackURLScheme(std::move(scheme)),
          handler(std::move(completionHandler)), starts_(starts), endsWith_(std::move(endsWith)) {}

    URL url;
    std::string callbackURLScheme;
    // For the test to call, once.
    WebAuthentication::CompletionHandler handler;
    PresentationContextProvider* provider = nullptr;
    bool isStarted = false;
    int cancellations = 0;

    void setPresentationContextProvider(PresentationContextProvider& contextProvider) override {
        provider = &contextProvider;
    }
    bool start() override {
        isStarted = true;
        if (endsWith_) {
            handler(endsWith_, nullptr);
        }
        return starts_;
    }
    // The test ends the session, as any other.
    void cancel() override { ++cancellations; }

private:
    bool starts_;
    std::optional<URL> endsWith_;
};

// Sessions that end when the test calls their handlers.
class FakeWebAuthentication : public WebAuthentication {
public:
    // What start() of the sessions to come returns.
    bool sessionsStart = true;
    // The URL with which the sessions to come end within start(), if they do.
    std::optional<URL> sessionsEndWith;
    std::vector<std::shared_ptr<FakeWebAuthenticationSession>> sessions;

    std::shared_ptr<WebAuthenticationSession>
    makeSession(const URL& url, const std::string& callbackURLScheme, CompletionHandler handler) override {
        sessions.push_back(std::make_shared<FakeWebAuthenticationSession>(
            url, callbackURLScheme, std::move(handler), sessionsStart, sessionsEndWith));
        return sessions.back();
    }
};

} // namespace cadora::test
