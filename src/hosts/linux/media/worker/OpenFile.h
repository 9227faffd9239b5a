#pragma once

#include <cstdint>

namespace cadora {

// A regular file that is open already; the descriptor belongs to somebody else. The size, in bytes, is
// what it was when the worker started: inside the sandbox it can't be asked for any more, and a file that
// grows meanwhile keeps the length that was measured.
struct OpenFile {
    int descriptor = -1;
    std::int64_t size = 0;

    // Throw ExportError (unreadable or cannotWrite) for what isn't an open regular file.
    static OpenFile source(int descriptor);
    static OpenFile output(int descriptor);
};

} // namespace cadora
