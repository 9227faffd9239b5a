#include "hosts/linux/system/StderrSystemLog.h"

#include "fakes/TemporaryDirectory.h"

#include <doctest/doctest.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace cadora::test {

namespace {

// What reaches standard error while the function runs.
template <class Function> std::string errorsOf(Function function) {
    const TemporaryDirectory folder;
    const auto file = folder.file("errors", "");
    const int redirected = open(file.c_str(), O_WRONLY | O_APPEND);
    const int before = dup(STDERR_FILENO);
    dup2(redirected, STDERR_FILENO);
    function();
    dup2(before, STDERR_FILENO);
    close(before);
    close(redirected);
    return readFile(file);
}

std::string logged(const std::string& line) {
    return errorsOf([&] { StderrSystemLog().log(line); });
}

} // namespace

TEST_CASE("an entry is one line, as it is") {
    CHECK(logged("[Cadora Helper] stage failed: Żółć “a\\nb” 100% %s") ==
          "[Cadora Helper] stage failed: Żółć “a\\nb” 100% %s\n");
    CHECK(logged("") == "\n");
}

TEST_CASE("line breaks and other control characters are shown, so that no text forges an entry") {
    CHECK(logged("a\n[Cadora Helper] b\r\nc\td") == "a\\n[Cadora Helper] b\\r\\nc\\td\n");
    CHECK(logged(std::string("nul\0esc\x1b[31m del\x7f", 17)) == "nul\\u0000esc\\u001b[31m del\\u007f\n");
    CHECK(logged("next line\u0085 line\u2028 paragraph\u2029 turned\u202e isolated\u2066") ==
          "next line\\u0085 line\\u2028 paragraph\\u2029 turned\\u202e isolated\\u2066\n");
}

TEST_CASE("bytes that are not UTF-8 are shown as such") {
    CHECK(logged("caf\xe9.wav \xf0\x9f") == "caf\\xe9.wav \\xf0\\x9f\n");
}

TEST_CASE("a long entry arrives whole") {
    const std::string text(100'000, 'x');
    CHECK(logged(text) == text + "\n");
}

TEST_CASE("entries of several threads are lines of their own") {
    constexpr int threads = 4;
    constexpr int entries = 50;
    const std::string text(2000, 'x');
    const std::string errors = errorsOf([&] {
        std::vector<std::thread> writers;
        for (int i = 0; i < threads; ++i) {
            writers.emplace_back([&text] {
                for (int entry = 0; entry < entries; ++entry) {
                    StderrSystemLog().log(text);
                }
            });
        }
        for (std::thread& writer : writers) {
            writer.join();
        }
    });
    std::istringstream lines(errors);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        REQUIRE(line == text);
    }
    CHECK(count == threads * entries);
}

TEST_CASE("an entry that can't be written is dropped") {
    const int before = dup(STDERR_FILENO);
    close(STDERR_FILENO);
    StderrSystemLog().log("nobody reads this");
    dup2(before, STDERR_FILENO);
    close(before);
}

} // namespace cadora::test
