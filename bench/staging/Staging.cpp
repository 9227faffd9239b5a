// Stages one file into a fresh outbox below TMPDIR and prints the seconds that this took.

#include "fakes/TestPlatform.h"
#include "outbox/OutboxStore.h"

#include <chrono>
#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: bench-staging FILE\n", stderr);
        return 2;
    }
    const cadora::test::TestPlatform platform;
    cadora::OutboxStore store;
    const auto begin = std::chrono::steady_clock::now();
    try {
        store.stage(argv[1], "private");
    } catch (const cadora::Error& error) {
        std::fprintf(stderr, "%s\n", error.text().c_str());
        return 1;
    }
    std::printf("%.9f\n", std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    return 0;
}
