#include "hosts/linux/media/worker/CafPacketTable.h"

#include "fakes/TemporaryDirectory.h"
#include "linux/media/worker/Tools.h"

#include <doctest/doctest.h>

#include <string>

using namespace cadora;
using namespace cadora::test;

namespace {

std::string number(std::uint64_t value, int bytes) {
    std::string text;
    for (int i = bytes - 1; i >= 0; --i) {
        text += static_cast<char>(value >> (8 * i) & 0xff);
    }
    return text;
}

std::string chunk(const std::string& type, const std::string& content) {
    return type + number(content.size(), 8) + content;
}

std::string table(std::uint64_t valid, std::uint32_t priming) {
    return chunk("pakt", number(10, 8) + number(valid, 8) + number(priming, 4) + number(700, 4));
}

std::optional<CafPacketTable> read(const std::string& bytes) {
    const TemporaryDirectory folder;
    const OpenedFile file(folder.file("sound.caf", bytes), OpenedFile::Use::read);
    return readCafPacketTable(file.source());
}

const std::string head = "caff" + number(0x10000, 4);

} // namespace

TEST_CASE("the packet table of a CAF file is found behind other chunks") {
    const auto found =
        read(head + chunk("desc", std::string(32, 'x')) + chunk("data", "sound") + table(8128, 2112));
    REQUIRE(found);
    CHECK(found->validSamples == 8128);
    CHECK(found->primingSamples == 2112);
}

TEST_CASE("a packet table that makes no sense, or none, isn't used") {
    CHECK_FALSE(read(head + chunk("desc", std::string(32, 'x'))));
    CHECK_FALSE(read(head + table(0, 2112)));
    CHECK_FALSE(read(head + table(~std::uint64_t{0}, 0)));
    CHECK_FALSE(read(head + table(100, 0xffffffff)));
    CHECK_FALSE(read(head + table(100, 0).substr(0, 20)));
    CHECK_FALSE(read(head + "data" + number(~std::uint64_t{0}, 8) + table(100, 0)));
    CHECK_FALSE(read("RIFF" + table(100, 0)));
    CHECK_FALSE(read(""));
}
