#include "linux/media/worker/Tools.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace cadora::test {

namespace {

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Starts a program whose descriptors from 0 on are the given ones.
int spawn(const std::vector<std::string>& arguments, const std::vector<int>& descriptors) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    std::vector<int> above;
    for (const int descriptor : descriptors) {
        above.push_back(fcntl(descriptor, F_DUPFD_CLOEXEC, 20));
        posix_spawn_file_actions_adddup2(&actions, above.back(), static_cast<int>(above.size()) - 1);
    }
    posix_spawn_file_actions_addclosefrom_np(&actions, static_cast<int>(descriptors.size()));
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    int pid = -1;
    const int result = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    for (const int descriptor : above) {
        close(descriptor);
    }
    if (result != 0) {
        errno = result;
        fail(arguments[0]);
    }
    return pid;
}

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        fail("pipe");
    }
    return ends;
}

std::string readAll(int descriptor, int milliseconds) {
    std::string text;
    std::array<char, 4096> buffer{};
    for (;;) {
        pollfd waiting{descriptor, POLLIN, 0};
        if (poll(&waiting, 1, milliseconds) <= 0) {
            return text;
        }
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        if (count <= 0) {
            return text;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

WorkerEnd run(const std::string& verb, const std::vector<int>& descriptors) {
    RunningWorker worker(verb, descriptors);
    return worker.wait();
}

} // namespace

std::string runTool(const std::vector<std::string>& arguments) {
    const auto output = makePipe();
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    const int pid = spawn(arguments, {null, output[1], null});
    close(null);
    close(output[1]);
    const std::string text = readAll(output[0], -1);
    close(output[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::string line;
        for (const std::string& argument : arguments) {
            line += argument + " ";
        }
        throw std::runtime_error("failed: " + line);
    }
    return text;
}

OpenedFile::OpenedFile(const std::filesystem::path& path, Use use)
    : descriptor_(use == Use::read ? open(path.c_str(), O_RDONLY | O_CLOEXEC)
                                   : open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)) {
    if (descriptor_ < 0) {
        fail(path.string());
    }
}

OpenedFile::~OpenedFile() {
    close(descriptor_);
}

std::optional<double> WorkerEnd::number(const std::string& field) const {
    const std::size_t at = answer.find("\"" + field + "\":");
    if (at == std::string::npos) {
        return std::nullopt;
    }
    return std::strtod(answer.c_str() + at + field.size() + 3, nullptr);
}

std::string WorkerEnd::message() const {
    const std::string begin = "\"message\":\"";
    const std::size_t at = answer.find(begin);
    return at == std::string::npos ? ""
                                   : answer.substr(at + begin.size(), answer.rfind('"') - at - begin.size());
}

WorkerEnd runDuration(const std::filesystem::path& source) {
    const OpenedFile file(source, OpenedFile::Use::read);
    return run("duration", {file.descriptor()});
}

WorkerEnd runExport(const std::filesystem::path& source, const std::filesystem::path& output) {
    const OpenedFile from(source, OpenedFile::Use::read);
    const OpenedFile to(output, OpenedFile::Use::create);
    return run("export", {from.descriptor(), to.descriptor()});
}

RunningWorker::RunningWorker(const std::string& verb, const std::vector<int>& descriptors) {
    const auto input = makePipe();
    const auto answer = makePipe();
    std::vector<int> all = {input[0], answer[1], STDERR_FILENO};
    all.insert(all.end(), descriptors.begin(), descriptors.end());
    input_ = input[1];
    answer_ = answer[0];
    pid_ = spawn({CADORA_EXPORT_WORKER, verb}, all);
    close(input[0]);
    close(answer[1]);
}

RunningWorker::~RunningWorker() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    closeInput();
    close(answer_);
}

void RunningWorker::closeInput() {
    if (input_ >= 0) {
        close(input_);
        input_ = -1;
    }
}

WorkerEnd RunningWorker::wait() {
    constexpr int longest = 120000; // ms without a word
    WorkerEnd end;
    end.answer = readAll(answer_, longest);
    const auto process = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
    pollfd waiting{process, POLLIN, 0};
    if (poll(&waiting, 1, longest) == 0) {
        kill(pid_, SIGKILL);
    }
    close(process);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    end.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    end.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    return end;
}

} // namespace cadora::test
