#include "hosts/macos/SpawnProcessLauncher.h"

#include <cerrno>

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <crt_externs.h>

namespace cadora {

bool SpawnProcessLauncher::isExecutableFile(const std::filesystem::path& path) {
    struct stat status{};
    return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && access(path.c_str(), X_OK) == 0;
}

void SpawnProcessLauncher::run(const std::filesystem::path& executable,
                               const std::vector<std::string>& arguments) {
    std::vector<std::string> texts{executable.string()};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    argv.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);

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
        posix_spawn(&process, executable.c_str(), &actions, &attributes, argv.data(), *_NSGetEnviron());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (failure != 0) {
        return;
    }
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace cadora
