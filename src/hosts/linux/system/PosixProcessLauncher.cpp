#include "hosts/linux/system/PosixProcessLauncher.h"

#include "hosts/posix/Programs.h"

#include <csignal>
#include <spawn.h>
#include <unistd.h>

namespace cadora {

bool PosixProcessLauncher::isExecutableFile(const std::filesystem::path& path) {
    return posix::isExecutableFile(path);
}

void PosixProcessLauncher::run(const std::filesystem::path& executable,
                               const std::vector<std::string>& arguments) {
    const posix::ArgumentVector words(executable, arguments);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    // Which signals this program ignores or blocks is no business of another's.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes, &signals);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    pid_t process = 0;
    const int failure =
        posix_spawn(&process, executable.c_str(), &actions, &attributes, words.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failure == 0) {
        posix::waitForEnd(process);
    }
}

} // namespace cadora
