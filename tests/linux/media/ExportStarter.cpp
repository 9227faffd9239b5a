// Starts an export with the given worker, source and output, and waits for its end, or its own.

#include "fakes/WaitingMainActor.h"
#include "hosts/linux/media/FfmpegMediaFramework.h"

namespace {

class SilentLog : public cadora::SystemLog {
public:
    void log(const std::string&) override {}
};

} // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return 2;
    }
    SilentLog log;
    cadora::test::WaitingMainActor actor;
    cadora::FfmpegMediaFramework framework(actor, log, argv[1]);
    const auto session = framework.makeExportSession(argv[2], "AVAssetExportPresetAppleM4A");
    session->setOutputURL(argv[3]);
    session->setOutputFileType("AVFileTypeAppleM4A");
    bool ended = false;
    session->exportAsynchronously([&] { ended = true; });
    return actor.runUntil([&] { return ended; }) ? 0 : 1;
}
