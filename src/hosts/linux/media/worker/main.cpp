#include "hosts/linux/media/worker/Answer.h"
#include "hosts/linux/media/worker/Bounds.h"
#include "hosts/linux/media/worker/Export.h"
#include "hosts/linux/media/worker/Lifeline.h"
#include "hosts/linux/media/worker/Sandbox.h"
#include "hosts/linux/media/worker/SourceLength.h"

extern "C" {
#include <libavutil/log.h>
#include <libavutil/mem.h>
}

#include <csignal>
#include <cstdio>
#include <malloc.h>
#include <new>
#include <optional>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

using namespace cadora;

constexpr int sourceDescriptor = 3;
constexpr int outputDescriptor = 4;

enum class Verb { duration, exportSound };

// What the starter left blocked or ignored must still be able to end this process.
void restoreSignals() {
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGPIPE, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

void arrangeMemory() {
    constexpr int largeBlock = 1 << 20;
    // Blocks of samples go back to the system at once, instead of fragmenting the heap.
    mallopt(M_MMAP_THRESHOLD, largeBlock);
    // A heap for each thread would take much of the address space, which is bounded, and gain nothing.
    mallopt(M_ARENA_MAX, 1);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    constexpr std::size_t stackSize = std::size_t{4} << 20;
    pthread_attr_setstacksize(&attributes, stackSize);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}

std::string work(Verb verb) {
    const OpenFile source = OpenFile::source(sourceDescriptor);
    OpenFile output;
    if (verb == Verb::exportSound) {
        output = OpenFile::output(outputDescriptor);
    }
    av_max_alloc(static_cast<std::size_t>(largestBlock(source.size)));
    const Lifeline lifeline;
    const int members = verb == Verb::exportSound ? crewForThisMachine() : 0;
    std::optional<Crew> crew;
    yieldToTheUser();
    endWhenStuck();
    enterSandbox(verb == Verb::duration ? SandboxAccess::readSource : SandboxAccess::readSourceAndWriteOutput,
                 source.size, [&] {
                     lifeline.watch();
                     crew.emplace(members);
                 });
    const SourceLength length = measureSource(source);
    if (verb == Verb::duration) {
        return lengthAnswer(length);
    }
    limitExport(length.seconds(), source.size);
    const ExportResult result = exportM4a(source, length, output, &*crew);
    if (!result.remark.empty()) {
        std::fprintf(stderr, "%s\n", result.remark.c_str());
    }
    return exportAnswer(result);
}

// Ends the process without the exit handlers of the libraries, which are for those that live on.
[[noreturn]] void end(const std::string& answer, int exitCode) {
    const ssize_t written = write(STDOUT_FILENO, answer.data(), answer.size());
    _exit(written == static_cast<ssize_t>(answer.size()) ? exitCode : 2);
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view verb = argc == 2 ? argv[1] : "";
    if (verb != "duration" && verb != "export") {
        std::fputs("usage: cadora-export duration 3<SOURCE\n"
                   "       cadora-export export 3<SOURCE 4<>EMPTY-OUTPUT\n",
                   stderr);
        return 2;
    }
    restoreSignals();
    arrangeMemory();
    av_log_set_level(AV_LOG_QUIET);
    try {
        end(work(verb == "duration" ? Verb::duration : Verb::exportSound), 0);
    } catch (const ExportError& error) {
        end(errorAnswer(error), 1);
    } catch (const std::bad_alloc&) {
        end(errorAnswer(outOfMemory()), 1);
    } catch (const std::exception& error) {
        // The sandbox couldn't be closed, so nothing was read.
        std::fprintf(stderr, "cadora-export: %s\n", error.what());
        return 2;
    }
}
