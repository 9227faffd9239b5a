#include "contract/MediaFrameworkUnderTest.h"

#include "contract/WaveFile.h"
#include "fakes/FakeMediaFramework.h"
#include "fakes/ManualMainActor.h"
#include "fakes/Recorders.h"
#include "fakes/TemporaryDirectory.h"
#include "fakes/WaitingMainActor.h"
#include "hosts/linux/media/FfmpegMediaFramework.h"

namespace cadora::test {

namespace {

class FakeUnderTest : public MediaFrameworkUnderTest {
public:
    const char* name() const override { return "the fake"; }
    MediaFramework& framework() override { return framework_; }
    std::filesystem::path soundFile() override { return "song.wav"; }
    std::filesystem::path otherFile() override {
        const PlatformError error("fake", 1, "It is not a sound file.");
        framework_.duration = failure<double>(error);
        framework_.exportStatus = AssetExportSession::failed;
        framework_.exportError = error;
        return "letter.txt";
    }
    std::filesystem::path output() override { return directory_.path() / "recording.m4a"; }
    bool runUntil(const std::function<bool()>& condition) override {
        actor_.runUntilIdle();
        return condition();
    }
    void runPosted() override { actor_.runUntilIdle(); }

private:
    TemporaryDirectory directory_;
    ManualMainActor actor_;
    FakeMediaFramework framework_{actor_};
};

#ifdef CADORA_EXPORT_WORKER

class FfmpegUnderTest : public MediaFrameworkUnderTest {
public:
    const char* name() const override { return "FFmpeg"; }
    MediaFramework& framework() override { return framework_; }
    std::filesystem::path soundFile() override { return directory_.file("song.wav", waveFile(4410)); }
    std::filesystem::path otherFile() override {
        return directory_.file("letter.txt", "Dear reader, this is no song.\n");
    }
    std::filesystem::path output() override { return directory_.path() / "recording.m4a"; }
    bool runUntil(const std::function<bool()>& condition) override { return actor_.runUntil(condition); }
    void runPosted() override { actor_.runPosted(); }

private:
    TemporaryDirectory directory_;
    RecordingSystemLog log_;
    WaitingMainActor actor_;
    FfmpegMediaFramework framework_{actor_, log_, CADORA_EXPORT_WORKER};
};

#endif

} // namespace

std::vector<std::unique_ptr<MediaFrameworkUnderTest>> mediaFrameworksUnderTest() {
    std::vector<std::unique_ptr<MediaFrameworkUnderTest>> all;
    all.push_back(std::make_unique<FakeUnderTest>());
#ifdef CADORA_EXPORT_WORKER
    all.push_back(hostsMediaFramework());
#endif
    return all;
}

#ifdef CADORA_EXPORT_WORKER
std::unique_ptr<MediaFrameworkUnderTest> hostsMediaFramework() {
    return std::make_unique<FfmpegUnderTest>();
}
#endif

} // namespace cadora::test
