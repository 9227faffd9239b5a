// A stand-in for the audio converter that writes down how it was started, into its output, and reads its
// source as the real one would.

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

namespace {

std::string openDescriptors() {
    std::set<int> numbers;
    DIR* const folder = opendir("/proc/self/fd");
    while (const dirent* const entry = readdir(folder)) {
        if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != dirfd(folder)) {
            numbers.insert(std::atoi(entry->d_name));
        }
    }
    closedir(folder);
    std::string text;
    for (const int number : numbers) {
        text += " " + std::to_string(number);
    }
    return text;
}

std::string unusualSignals() {
    std::string text;
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action{};
        if (sigismember(&blocked, number) == 1 ||
            (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)) {
            text += " " + std::to_string(number);
        }
    }
    return text;
}

} // namespace

int main(int argc, char** argv) {
    std::string report = "arguments:";
    for (int i = 1; i < argc; ++i) {
        report += " " + std::string(argv[i]);
    }
    report += "\ndescriptors:" + openDescriptors() + "\nenvironment:";
    for (char** variable = environ; *variable != nullptr; ++variable) {
        report += " " + std::string(*variable);
    }
    char folder[4096];
    report += "\nfolder: " + std::string(getcwd(folder, sizeof folder));
    report += "\nsignals:" + unusualSignals();
    report += "\nsource writable: " + std::string((fcntl(3, F_GETFL) & O_ACCMODE) == O_RDONLY ? "no" : "yes");
    char text[64];
    const ssize_t count = pread(3, text, sizeof text, 0);
    report += "\nsource: " + std::string(text, count > 0 ? static_cast<std::size_t>(count) : 0) + "\n";
    const bool written = pwrite(4, report.data(), report.size(), 0) == static_cast<ssize_t>(report.size());
    std::puts(R"({"seconds":1,"samples":44100,"rate":44100})");
    return written ? 0 : 2;
}
