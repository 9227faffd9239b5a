// Updates one item of an outbox below TMPDIR, again and again, and prints the milliseconds of each update
// beside those of the atomic write of the same bytes alone, one pair on a line.

#include "fakes/TestPlatform.h"
#include "outbox/OutboxStore.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

using namespace cadora;

template <class Function> double milliseconds(Function function) {
    const auto begin = std::chrono::steady_clock::now();
    function();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count();
}

OutboxItem makeItem(int number) {
    char shortID[16];
    std::snprintf(shortID, sizeof shortID, "item%04d", number % 10000);
    OutboxItem item;
    item.shortID = shortID;
    item.sourceFilename = "Rough mix " + std::to_string(number) + " (with Björk’s vocals).wav";
    item.state = OutboxState::failed;
    item.attempts = 1;
    item.lastError = "http(503)";
    item.duration = 215.346939 + number;
    item.createdAt = {816480000.25 + number};
    item.visibility = "private";
    return item;
}

} // namespace

int main(int argc, char** argv) {
    const int count = argc == 3 ? std::atoi(argv[1]) : 0;
    const int rounds = argc == 3 ? std::atoi(argv[2]) : 0;
    if (count < 1 || count > 10000 || rounds < 1) {
        std::fputs("usage: bench-index ITEMS ROUNDS\n", stderr);
        return 2;
    }
    test::TestPlatform platform;
    OutboxStore store;
    std::vector<OutboxItem> items;
    items.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        items.push_back(makeItem(i));
    }
    const auto index = store.root() / "outbox.json";
    platform.fileManager.writeAtomically(index, encodeOutbox(items));
    OutboxItem changing = items[items.size() / 2];
    for (int round = -1; round < rounds; ++round) {
        changing.attempts = round;
        const double update = milliseconds([&] { store.upsert(changing); });
        const std::string bytes = platform.fileManager.contents(index);
        const double write = milliseconds([&] { platform.fileManager.writeAtomically(index, bytes); });
        // The first warms things up.
        if (round >= 0) {
            std::printf("%.6f %.6f\n", update, write);
        }
    }
    return store.load().size() == items.size() ? 0 : 1;
}
