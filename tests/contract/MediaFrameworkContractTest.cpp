// What the core may rely on in every media framework, the tests' own included.

#include "contract/MediaFrameworkUnderTest.h"

#include "base/Error.h"

#include <doctest/doctest.h>

#include <optional>

using cadora::AssetExportSession;
using cadora::Result;
using cadora::test::mediaFrameworksUnderTest;
using cadora::test::MediaFrameworkUnderTest;
namespace fs = std::filesystem;

namespace {

std::unique_ptr<AssetExportSession> startExport(MediaFrameworkUnderTest& media, const fs::path& source,
                                                std::function<void()> handler) {
    auto session = media.framework().makeExportSession(source, "AVAssetExportPresetAppleM4A");
    REQUIRE(session);
    session->setOutputURL(media.output());
    session->setOutputFileType("AVFileTypeAppleM4A");
    session->exportAsynchronously(std::move(handler));
    return session;
}

} // namespace

TEST_CASE("a duration comes once, and not inside the call that asks for it") {
    for (const auto& media : mediaFrameworksUnderTest()) {
        CAPTURE(media->name());
        int calls = 0;
        std::optional<Result<double>> result;
        media->framework().loadDuration(media->soundFile(), [&](Result<double> loaded) {
            ++calls;
            result = std::move(loaded);
        });
        CHECK(calls == 0);
        REQUIRE(media->runUntil([&] { return calls > 0; }));
        media->runPosted();
        CHECK(calls == 1);
        REQUIRE(result);
        CHECK(std::get<double>(*result) > 0);
    }
}

TEST_CASE("the duration of what isn't media fails with the platform's error") {
    for (const auto& media : mediaFrameworksUnderTest()) {
        CAPTURE(media->name());
        std::optional<Result<double>> result;
        media->framework().loadDuration(media->otherFile(),
                                        [&](Result<double> loaded) { result = std::move(loaded); });
        CHECK_FALSE(result);
        REQUIRE(media->runUntil([&] { return result.has_value(); }));
        REQUIRE(std::holds_alternative<std::exception_ptr>(*result));
        CHECK_THROWS_AS(std::rethrow_exception(std::get<std::exception_ptr>(*result)), cadora::PlatformError);
    }
}

TEST_CASE("when an export's handler is called, once and later, its output is in place") {
    for (const auto& media : mediaFrameworksUnderTest()) {
        CAPTURE(media->name());
        int calls = 0;
        bool wasThere = false;
        const auto session = startExport(*media, media->soundFile(), [&] {
            ++calls;
            wasThere = fs::exists(media->output());
        });
        CHECK(calls == 0);
        REQUIRE(media->runUntil([&] { return calls > 0; }));
        media->runPosted();
        CHECK(calls == 1);
        CHECK(wasThere);
        CHECK(session->status() == AssetExportSession::completed);
        CHECK_FALSE(session->error());
    }
}

TEST_CASE("an export that fails says why and leaves no output") {
    for (const auto& media : mediaFrameworksUnderTest()) {
        CAPTURE(media->name());
        int calls = 0;
        const auto session = startExport(*media, media->otherFile(), [&] { ++calls; });
        REQUIRE(media->runUntil([&] { return calls > 0; }));
        CHECK(session->status() == AssetExportSession::failed);
        REQUIRE(session->error());
        CHECK_FALSE(session->error()->message().empty());
        CHECK_FALSE(fs::exists(media->output()));
    }
}
