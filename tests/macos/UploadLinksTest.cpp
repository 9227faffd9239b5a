#include "hosts/macos/UploadLinks.h"

#include "fakes/TemporaryDirectory.h"

#include <string>

#include <doctest/doctest.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace cadora;
using test::TemporaryDirectory;

namespace {

namespace fs = std::filesystem;

/// The number of a process that has ended.
pid_t endedProcess() {
    const pid_t child = fork();
    if (child == 0) {
        _exit(0);
    }
    REQUIRE(child > 0);
    REQUIRE(waitpid(child, nullptr, 0) == child);
    return child;
}

} // namespace

TEST_CASE("a link reads on when its file is gone, and goes with its last user") {
    const TemporaryDirectory folder;
    const fs::path file = folder.file("recording.m4a", "m4a");
    UploadLinks links(folder.path() / "links");
    std::shared_ptr<UploadLink> link = links.link(file);
    REQUIRE(link);
    const std::shared_ptr<UploadLink> other = links.link(file);
    CHECK(other->path() != link->path());
    fs::remove(file);
    CHECK(test::readFile(link->path()) == "m4a");
    const fs::path path = link->path();
    link.reset();
    CHECK_FALSE(fs::exists(path));
    CHECK(fs::exists(other->path()));
}

TEST_CASE("there is no link to what is not there") {
    const TemporaryDirectory folder;
    UploadLinks links(folder.path() / "links");
    CHECK_FALSE(links.link(folder.path() / "missing.m4a"));
}

TEST_CASE("a start takes away what ended programs left, and nothing else") {
    const TemporaryDirectory folder;
    const std::string ended = std::to_string(endedProcess());
    const std::string running = std::to_string(getppid());
    const std::string own = std::to_string(getpid());
    for (const std::string& name :
         {ended + "-1.upload", own + "-7.upload", running + "-1.upload", ended + "-1.txt", ended + ".upload",
          std::string("x-1.upload"), "-" + ended + "-1.upload"}) {
        folder.file("links/" + name, "m4a");
    }
    const UploadLinks links(folder.path() / "links");
    CHECK_FALSE(fs::exists(folder.path() / "links" / (ended + "-1.upload")));
    CHECK_FALSE(fs::exists(folder.path() / "links" / (own + "-7.upload")));
    CHECK(fs::exists(folder.path() / "links" / (running + "-1.upload")));
    CHECK(std::distance(fs::directory_iterator(folder.path() / "links"), fs::directory_iterator()) == 5);
}

TEST_CASE("a program that ends takes its links away, and the folder with the last") {
    const TemporaryDirectory folder;
    const fs::path file = folder.file("recording.m4a", "m4a");
    UploadLinks links(folder.path() / "links");
    const std::shared_ptr<UploadLink> link = links.link(file);
    links.removeOwn();
    CHECK_FALSE(fs::exists(folder.path() / "links"));
    CHECK(test::readFile(file) == "m4a");
    CHECK(links.link(file));
}
