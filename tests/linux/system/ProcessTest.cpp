#include "hosts/linux/system/Process.h"

#include <doctest/doctest.h>

#include <cstdlib>

#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace cadora::test {

TEST_CASE("a prepared process has nothing but the null device where its standard descriptors were closed") {
    const pid_t child = ::fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        for (int descriptor = 0; descriptor <= STDERR_FILENO; ++descriptor) {
            ::close(descriptor);
        }
        prepareProcess();
        struct stat null{};
        bool allNull = ::stat("/dev/null", &null) == 0;
        for (int descriptor = 0; descriptor <= STDERR_FILENO; ++descriptor) {
            struct stat status{};
            allNull = allNull && ::fstat(descriptor, &status) == 0 && status.st_rdev == null.st_rdev;
        }
        ::_exit(allNull ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = 0;
    REQUIRE(::waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status));
    CHECK(WEXITSTATUS(status) == EXIT_SUCCESS);
}

TEST_CASE("a prepared process gives away neither its memory nor the keys of its connections") {
    const pid_t child = ::fork();
    REQUIRE(child >= 0);
    if (child == 0) {
        ::setenv("SSLKEYLOGFILE", "/dev/null", 1);
        const bool dumpableBefore = ::prctl(PR_GET_DUMPABLE) == 1;
        prepareProcess();
        const bool isPrivate = ::prctl(PR_GET_DUMPABLE) == 0 && std::getenv("SSLKEYLOGFILE") == nullptr;
        ::_exit(dumpableBefore && isPrivate ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = 0;
    REQUIRE(::waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status));
    CHECK(WEXITSTATUS(status) == EXIT_SUCCESS);
}

} // namespace cadora::test
