#include "hosts/macos/SpawnProcessLauncher.h"

#include "hosts/posix/Programs.h"

#include <spawn.h>
#include <unistd.h>

#include <crt_externs.h>

namespace cadora {

bool SpawnProcessLauncher::isExecutableFile(const std::filesystem::path& path) {
    return posix::isExecutableFile(path);
}

void SpawnProcessLauncher::run(const std::filesystem::path& executable,
                               const std::vector<std::string>& arguments) {
    const posix::ArgumentVector words(executable, arguments);
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_t actions;
    if (posix_spawnattr_init(&attributes) != 0) {
        return;
    }
    if (posix_spawn_file_actions_init(&actions) != 0) {
        posix_spawnattr_destroy(&attributes);
        return;
    }
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_CLOEXEC_DEFAULT);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        posix_spawn_file_actions_addinherit_np(&actions, descriptor);
    }
    pid_t process = 0;
    const int failure =
        posix_spawn(&process, executable.c_str(), &actions, &attributes, words.data(), *_NSGetEnviron());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (failure == 0) {
        posix::waitForEnd(process);
    }
}

} // namespace cadora
