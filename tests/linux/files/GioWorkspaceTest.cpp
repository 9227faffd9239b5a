#include "hosts/linux/files/GioWorkspace.h"

#include "base/URL.h"
#include "hosts/linux/system/ThreadBackgroundExecutor.h"
#include "linux/EventLoop.h"

#include <doctest/doctest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <iterator>
#include <stdexcept>
#include <string>

namespace cadora::test {

namespace {

namespace fs = std::filesystem;

fs::path folderOf(const char* variable) {
    const char* const value = std::getenv(variable);
    if (value == nullptr) {
        throw std::runtime_error("there is no private session around this test");
    }
    return value;
}

void write(const fs::path& file, const std::string& content) {
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << content;
}

std::string read(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

struct Fixture {
    const fs::path home = folderOf("HOME");
    const fs::path data = folderOf("XDG_DATA_HOME");
    ThreadBackgroundExecutor background;
    GioWorkspace workspace{background};

    // Returns once the handler was called.
    void recycle(const fs::path& item) {
        std::promise<void> handled;
        workspace.recycle(item, [&handled] { handled.set_value(); });
        auto done = handled.get_future();
        REQUIRE(done.wait_for(std::chrono::seconds(60)) == std::future_status::ready);
        done.get();
    }
};

} // namespace

TEST_CASE("a folder goes to the Trash with all that is in it") {
    Fixture fixture;
    const fs::path folder = fixture.home / "installed é" / "cadora-helper";
    write(folder / "bin/program", "program");
    fixture.recycle(folder);
    CHECK_FALSE(fs::exists(folder));
    CHECK(fs::exists(folder.parent_path()));
    CHECK(read(fixture.data / "Trash/files/cadora-helper/bin/program") == "program");
    CHECK(fs::exists(fixture.data / "Trash/info/cadora-helper.trashinfo"));
}

TEST_CASE("the handler is called also when there is nothing to move to the Trash") {
    Fixture fixture;
    fixture.recycle(fixture.home / "missing");
    fixture.recycle("/proc/self/status");
    CHECK(fs::exists("/proc/self/status"));
}

TEST_CASE("a URL is opened by the user's program for it, and one that nobody opens is passed over") {
    Fixture fixture;
    const fs::path opened = fixture.home / "opened";
    write(fixture.data / "applications/opener.desktop",
          "[Desktop Entry]\nType=Application\nName=Opener\nMimeType=x-scheme-handler/cadora-test;\n"
          "Exec=sh -c \"printf %%s \\\\\"\\\\$1\\\\\" > '" +
              opened.string() + ".part' && mv '" + opened.string() + ".part' '" + opened.string() +
              "'\" sh %u\n");
    write(folderOf("XDG_CONFIG_HOME") / "mimeapps.list",
          "[Default Applications]\nx-scheme-handler/cadora-test=opener.desktop\n");
    const std::string text = "cadora-test://page/a%20b?c=d&e='f'#g";
    fixture.workspace.openURL(URL::constant("nobody-opens-this://page"));
    fixture.workspace.openURL(URL::constant(text));
    EventLoop loop;
    REQUIRE(loop.runUntil([&opened] { return fs::exists(opened); }));
    CHECK(read(opened) == text);
}

} // namespace cadora::test
