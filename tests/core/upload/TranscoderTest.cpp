#include "upload/Transcoder.h"

#include "fakes/Awaiting.h"
#include "fakes/TestPlatform.h"
#include "upload/TranscodeError.h"

#include <doctest/doctest.h>

#include <limits>

using namespace cadora;
using test::await;
using test::TestPlatform;
namespace fs = std::filesystem;

namespace {

struct Files {
    explicit Files(const TestPlatform& platform)
        : source(platform.home.file("source.wav", "RIFF")), output(platform.home.path() / "recording.m4a") {}
    fs::path source;
    fs::path output;
};

using Calls = std::vector<std::string>;

} // namespace

TEST_CASE("a source is exported with the M4A preset, and its own duration is returned") {
    TestPlatform platform;
    const Files files(platform);
    platform.mediaFramework.duration = 12.345;
    const auto outcome = await(platform.mainActor, Transcoder::toM4A(files.source, files.output));
    CHECK(outcome.value == 12.345);
    CHECK(platform.mediaFramework.calls == Calls{"duration source.wav", "export source.wav"});
    CHECK(platform.mediaFramework.presets == Calls{"AVAssetExportPresetAppleM4A"});
    CHECK(platform.mediaFramework.fileTypes == Calls{"AVFileTypeAppleM4A"});
    CHECK(platform.mediaFramework.outputs == std::vector<fs::path>{files.output});
    CHECK(fs::exists(files.output));
}

TEST_CASE("a duration that is not finite or not above zero is refused, and nothing is written or deleted") {
    for (const double seconds :
         {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity()}) {
        TestPlatform platform;
        const Files files(platform);
        const auto earlier = platform.home.file("recording.m4a", "earlier");
        platform.mediaFramework.duration = seconds;
        const auto outcome = await(platform.mainActor, Transcoder::toM4A(files.source, files.output));
        CHECK(outcome.as<TranscodeError>() == TranscodeError::noDuration());
        CHECK(platform.mediaFramework.presets.empty());
        CHECK(test::readFile(earlier) == "earlier");
    }
}

TEST_CASE("the smallest duration above zero passes") {
    TestPlatform platform;
    const Files files(platform);
    platform.mediaFramework.duration = std::numeric_limits<double>::denorm_min();
    CHECK(await(platform.mainActor, Transcoder::toM4A(files.source, files.output)).value);
}

TEST_CASE("what is not audio at all fails with the platform's error, and no export is started") {
    TestPlatform platform;
    const Files files(platform);
    const PlatformError unreadable("media", 1, "“source.wav” is not an audio file");
    platform.mediaFramework.duration = std::make_exception_ptr(unreadable);
    const auto outcome = await(platform.mainActor, Transcoder::toM4A(files.source, files.output));
    CHECK(outcome.as<PlatformError>() == unreadable);
    CHECK(platform.mediaFramework.presets.empty());
}

TEST_CASE("without an export session there is no export, and an earlier output stays") {
    TestPlatform platform;
    const Files files(platform);
    platform.home.file("recording.m4a", "earlier");
    platform.mediaFramework.createsSessions = false;
    const auto outcome = await(platform.mainActor, Transcoder::toM4A(files.source, files.output));
    CHECK(outcome.as<TranscodeError>() == TranscodeError::cannotCreateExport());
    CHECK(test::readFile(files.output) == "earlier");
}

TEST_CASE("an output of an earlier attempt is deleted before the new export begins") {
    TestPlatform platform;
    const Files files(platform);
    platform.home.file("recording.m4a", "earlier");
    bool existedAtExport = true;
    platform.mediaFramework.onExport = [&](const fs::path&) { existedAtExport = fs::exists(files.output); };
    CHECK(await(platform.mainActor, Transcoder::toM4A(files.source, files.output)).value);
    CHECK_FALSE(existedAtExport);
    CHECK(test::readFile(files.output) == "m4a");
}

TEST_CASE("an output that can't be deleted ends it with the file system's error, and nothing is exported") {
    TestPlatform platform;
    const Files files(platform);
    platform.home.file("recording.m4a", "earlier");
    platform.fileManager.irremovable = files.output;
    const auto outcome = await(platform.mainActor, Transcoder::toM4A(files.source, files.output));
    REQUIRE(outcome.as<PlatformError>());
    CHECK(outcome.as<PlatformError>()->code() == EPERM);
    CHECK(test::readFile(files.output) == "earlier");
    CHECK(platform.mediaFramework.calls == Calls{"duration source.wav"});
}

TEST_CASE("a source that is M4A already is exported again") {
    TestPlatform platform;
    const auto source = platform.home.file("source.m4a", "m4a");
    const auto outcome =
        await(platform.mainActor, Transcoder::toM4A(source, platform.home.path() / "recording.m4a"));
    CHECK(outcome.value == 12.5);
    CHECK(platform.mediaFramework.calls.back() == "export source.m4a");
}

TEST_CASE("an export that failed or was cancelled gives the platform's reason, where there is one") {
    for (const int status : {4, 5}) {
        TestPlatform platform;
        const Files files(platform);
        platform.mediaFramework.exportStatus = status;
        CHECK(await(platform.mainActor, Transcoder::toM4A(files.source, files.output)).as<TranscodeError>() ==
              TranscodeError::exportFailed(std::nullopt));
        platform.mediaFramework.exportError = PlatformError("media", 9, "The operation was cancelled");
        CHECK(await(platform.mainActor, Transcoder::toM4A(files.source, files.output)).as<TranscodeError>() ==
              TranscodeError::exportFailed("The operation was cancelled"));
    }
}

TEST_CASE("an export that ends in any other status names it") {
    for (const int status : {0, 1, 2, 6, -1}) {
        TestPlatform platform;
        const Files files(platform);
        platform.mediaFramework.exportStatus = status;
        CHECK(await(platform.mainActor, Transcoder::toM4A(files.source, files.output)).as<TranscodeError>() ==
              TranscodeError::exportFailed("unexpected status " + std::to_string(status)));
    }
}

TEST_CASE("cancelling the task cancels the export") {
    TestPlatform platform;
    const Files files(platform);
    platform.mediaFramework.holdsExports = true;
    auto awaited = test::start(platform.mainActor, Transcoder::toM4A(files.source, files.output));
    platform.mainActor.runUntilIdle();
    awaited.task.cancel();
    platform.mainActor.runUntilIdle();
    CHECK(platform.mediaFramework.cancelledExports == 1);
    CHECK(awaited.outcome->as<CancellationError>());
}

TEST_CASE("an output of an earlier attempt is deleted in the background, after the session is made") {
    TestPlatform platform;
    const auto output = platform.home.file("recording.m4a", "earlier");
    bool isInBackground = false;
    bool wasThere = false;
    platform.background.onRun = [&](bool isRunning) {
        isInBackground = isRunning;
        wasThere = wasThere || (isRunning && std::filesystem::exists(output));
        CHECK(platform.mediaFramework.presets.size() == 1);
    };
    platform.mediaFramework.onExport = [&](const auto&) { CHECK_FALSE(std::filesystem::exists(output)); };
    const auto outcome =
        test::await(platform.mainActor, Transcoder::toM4A(platform.home.file("a.wav", "x"), output));
    CHECK(outcome.value == 12.5);
    CHECK(wasThere);
    CHECK_FALSE(isInBackground);
}
