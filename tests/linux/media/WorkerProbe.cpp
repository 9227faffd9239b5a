// A stand-in for the audio converter that writes down how it was started, into its output, and reads its
// source as the real one would.

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

namespace {

void writeOpenDescriptors(std::ostream& report) {
    std::set<int> numbers;
    DIR* const folder = opendir("/proc/self/fd");
    while (const dirent* const entry = readdir(folder)) {
        if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != dirfd(folder)) {
            numbers.insert(std::atoi(entry->d_name));
        }
    }
    closedir(folder);
    for (const int number : numbers) {
        report << ' ' << number;
    }
}

void writeUnusualSignals(std::ostream& report) {
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action{};
        if (sigismember(&blocked, number) == 1 ||
            (sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)) {
            report << ' ' << number;
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    std::ostringstream report;
    report << "arguments:";
    for (int i = 1; i < argc; ++i) {
        report << ' ' << argv[i];
    }
    report << "\ndescriptors:";
    writeOpenDescriptors(report);
    report << "\nenvironment:";
    for (char** variable = environ; *variable != nullptr; ++variable) {
        report << ' ' << *variable;
    }
    report << "\nfolder: " << std::filesystem::current_path().native();
    report << "\nsignals:";
    writeUnusualSignals(report);
    report << "\nsource writable: " << ((fcntl(3, F_GETFL) & O_ACCMODE) == O_RDONLY ? "no" : "yes");
    std::array<char, 64> text{};
    const ssize_t count = pread(3, text.data(), text.size(), 0);
    report << "\nsource: " << std::string_view(text.data(), count > 0 ? static_cast<std::size_t>(count) : 0)
           << '\n';
    const std::string bytes = report.str();
    const bool written = pwrite(4, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size());
    std::puts(R"({"seconds":1,"samples":44100,"rate":44100})");
    return written ? 0 : 2;
}
