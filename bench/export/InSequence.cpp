#include "hosts/linux/media/worker/Answer.h"
#include "hosts/linux/media/worker/Export.h"

extern "C" {
#include <libavutil/log.h>
}

#include <cstdio>
#include <exception>
#include <fcntl.h>

// The export as the worker does it, but with a single encoder for the whole sound: what it costs where the
// sound offers no seam.
int main(int argc, char** argv) {
    using namespace cadora;
    av_log_set_level(AV_LOG_QUIET);
    if (argc != 3) {
        std::fputs("usage: export-in-sequence SOURCE OUTPUT\n", stderr);
        return 2;
    }
    try {
        const OpenFile source = OpenFile::source(open(argv[1], O_RDONLY | O_CLOEXEC));
        const OpenFile output = OpenFile::output(open(argv[2], O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        std::fputs(exportAnswer(exportM4a(source, measureSource(source), output, nullptr)).c_str(), stdout);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
