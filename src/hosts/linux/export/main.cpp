#include "hosts/linux/export/Answer.h"
#include "hosts/linux/export/Export.h"
#include "hosts/linux/export/ParentWatch.h"
#include "hosts/linux/export/SourceLength.h"

extern "C" {
#include <libavutil/log.h>
}

#include <csignal>
#include <cstdio>
#include <new>
#include <string>
#include <string_view>

namespace {

constexpr int sourceDescriptor = 3;
constexpr int outputDescriptor = 4;

int answer(const std::string& line, int exitCode) {
    std::fputs(line.c_str(), stdout);
    return std::fflush(stdout) == 0 ? exitCode : 2;
}

} // namespace

int main(int argc, char** argv) {
    using namespace cadora;
    const std::string_view verb = argc == 2 ? argv[1] : "";
    if (verb != "duration" && verb != "export") {
        std::fputs("usage: cadora-export duration 3<SOURCE\n"
                   "       cadora-export export 3<SOURCE 4<>EMPTY-OUTPUT\n",
                   stderr);
        return 2;
    }
    // What the starter left blocked or ignored must still end this process.
    std::signal(SIGTERM, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    endWithParent();
    av_log_set_level(AV_LOG_QUIET);
    try {
        if (verb == "duration") {
            return answer(lengthAnswer(measureSource(sourceDescriptor)), 0);
        }
        return answer(
            exportAnswer(exportM4a(sourceDescriptor, outputDescriptor, EncodingPlan::forThisMachine())), 0);
    } catch (const ExportError& error) {
        return answer(errorAnswer(error), 1);
    } catch (const std::bad_alloc&) {
        return answer(errorAnswer(outOfMemory()), 1);
    }
}
