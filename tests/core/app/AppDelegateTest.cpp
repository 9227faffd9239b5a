#include "app/AppDelegate.h"

#include "fakes/TestPlatform.h"

#include <doctest/doctest.h>

using namespace cadora;
using test::TestPlatform;

TEST_CASE(
    "at its start the program takes send requests, asks to notify, and sends what an earlier run left") {
    TestPlatform platform;
    OutboxStore store;
    UploadQueue queue(store);
    const auto staged = store.stage(platform.home.file("song.wav", "x"), "private");
    AppDelegate delegate(queue);
    CHECK(platform.application.provider == nullptr);

    delegate.applicationDidFinishLaunching();
    CHECK(platform.application.provider != nullptr);
    CHECK(platform.application.calls ==
          std::vector<std::string>{"setServicesProvider", "updateDynamicServices"});
    CHECK(platform.notificationCenter.authorizations.size() == 1);
    CHECK(store.load().at(0).attempts == 0);

    platform.mainActor.runUntilIdle();
    CHECK(store.load().at(0).state == OutboxState::deferredAuth);
}

TEST_CASE("files sent by the desktop reach the outbox") {
    TestPlatform platform;
    OutboxStore store;
    UploadQueue queue(store);
    AppDelegate delegate(queue);
    delegate.applicationDidFinishLaunching();
    std::string error;
    const URL file = URL::file(platform.home.file("song.wav", "x"));
    platform.application.provider->sendToCadora(test::FakePasteboard({file}), std::nullopt, error);
    platform.mainActor.runUntilIdle();
    CHECK(error.empty());
    CHECK(store.load().size() == 1);
}
