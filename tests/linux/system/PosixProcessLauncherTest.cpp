#include "hosts/linux/system/PosixProcessLauncher.h"

#include "fakes/TemporaryDirectory.h"

#include <doctest/doctest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace cadora::test {

namespace {

struct Fixture {
    TemporaryDirectory folder;
    PosixProcessLauncher launcher;

    std::filesystem::path script(const std::string& text) const {
        const auto path = folder.file("tool", "#!/bin/sh\n" + text);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path;
    }

    std::string output() const { return readFile(folder.path() / "output"); }
};

} // namespace

TEST_CASE("a program gets its arguments, whatever they hold, and is waited for") {
    Fixture fixture;
    const auto tool = fixture.script("sleep 0.1; printf '<%s>' \"$@\" > \"${0%/*}/output\"\n");
    fixture.launcher.run(tool, {"-u", "/opt/a b/$HOME \"é\"", ""});
    CHECK(fixture.output() == "<-u></opt/a b/$HOME \"é\"><>");
}

TEST_CASE("a program that fails, or that a signal ends, is waited for like any other") {
    Fixture fixture;
    fixture.launcher.run(fixture.script("echo failed > \"${0%/*}/output\"; exit 3\n"), {});
    CHECK(fixture.output() == "failed\n");
    fixture.launcher.run(fixture.script("echo killed > \"${0%/*}/output\"; kill -9 $$\n"), {});
    CHECK(fixture.output() == "killed\n");
}

TEST_CASE("what can't be started is passed over at once") {
    Fixture fixture;
    fixture.launcher.run(fixture.folder.path() / "missing", {"-u"});
    fixture.launcher.run(fixture.folder.file("data", "no program"), {"-u"});
    fixture.launcher.run(fixture.folder.path(), {});
}

TEST_CASE("a program gets neither this program's files nor its way with signals") {
    Fixture fixture;
    // Not one of those that are closed by themselves.
    const int file = open(fixture.folder.file("secret", "secret").c_str(), O_RDONLY);
    REQUIRE(file > STDERR_FILENO);
    auto* const formerHandler = std::signal(SIGPIPE, SIG_IGN);
    fixture.launcher.run(fixture.script("{ readlink /proc/$$/fd/" + std::to_string(file) +
                                        " || echo none; sed -n 's/^SigIgn:.//p' /proc/$$/status; } "
                                        "> \"${0%/*}/output\"\n"),
                         {});
    std::signal(SIGPIPE, formerHandler);
    close(file);
    const std::string output = fixture.output();
    REQUIRE(output.starts_with("none\n"));
    const auto ignored = std::stoull(output.substr(output.find('\n')), nullptr, 16);
    CHECK((ignored >> (SIGPIPE - 1) & 1) == 0);
}

TEST_CASE("an executable file is a file that may be run, and no folder") {
    Fixture fixture;
    CHECK(fixture.launcher.isExecutableFile("/bin/sh"));
    CHECK_FALSE(fixture.launcher.isExecutableFile("/bin"));
    CHECK_FALSE(fixture.launcher.isExecutableFile(fixture.folder.file("data", "no program")));
    CHECK_FALSE(fixture.launcher.isExecutableFile(fixture.folder.path() / "missing"));
}

} // namespace cadora::test
