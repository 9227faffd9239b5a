#pragma once

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace cadora::test {

// A program that runs beside the test and ends with it, whatever happens to the test. It is given a text as
// its standard input, and the test can read its standard output.
class ChildProcess {
public:
    struct Setup {
        std::vector<std::string> command;
        // Added to the test's own; an empty value takes a variable away.
        std::map<std::string, std::string> environment{};
        std::string input{};
        // Where standard error goes.
        std::filesystem::path errors = "/dev/null";
        std::filesystem::path workingDirectory = "/";
    };

    explicit ChildProcess(const Setup& setup) {
        std::vector<char*> arguments;
        arguments.reserve(setup.command.size() + 1);
        for (const std::string& argument : setup.command) {
            arguments.push_back(const_cast<char*>(argument.c_str()));
        }
        arguments.push_back(nullptr);
        std::vector<std::string> variables;
        for (char** entry = environ; *entry != nullptr; ++entry) {
            const std::string variable = *entry;
            if (setup.environment.count(variable.substr(0, variable.find('='))) == 0) {
                variables.push_back(variable);
            }
        }
        for (const auto& [name, value] : setup.environment) {
            if (!value.empty()) {
                variables.push_back(std::string(name).append("=").append(value));
            }
        }
        std::vector<char*> environment;
        environment.reserve(variables.size() + 1);
        for (std::string& variable : variables) {
            environment.push_back(variable.data());
        }
        environment.push_back(nullptr);
        int input[2] = {-1, -1};
        int output[2] = {-1, -1};
        if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
            throw std::runtime_error("no pipe");
        }
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int errors = open(setup.errors.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
            dup2(input[0], STDIN_FILENO);
            dup2(output[1], STDOUT_FILENO);
            dup2(errors, STDERR_FILENO);
            if (chdir(setup.workingDirectory.c_str()) == 0) {
                execvpe(arguments[0], arguments.data(), environment.data());
            }
            _exit(127);
        }
        close(input[0]);
        [[maybe_unused]] const ssize_t written = write(input[1], setup.input.data(), setup.input.size());
        close(input[1]);
        close(output[1]);
        output_ = output[0];
        if (pid_ < 0) {
            throw std::runtime_error("no process");
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess() {
        signal(SIGKILL);
        wait();
        close(output_);
    }

    pid_t pid() const { return pid_; }

    void signal(int number) const {
        if (pid_ > 0) {
            kill(pid_, number);
        }
    }

    // The next line of its standard output, without its end; empty when there is none any more.
    std::string readLine() const {
        std::string line;
        char c = 0;
        while (read(output_, &c, 1) == 1 && c != '\n') {
            line += c;
        }
        return line;
    }

    // Waits for the end: the exit status, or the number of the signal that ended it, negative.
    int wait() {
        if (pid_ > 0) {
            int status = 0;
            waitpid(pid_, &status, 0);
            pid_ = -1;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        }
        return status_;
    }

    // Whether it has ended; does not wait.
    bool hasEnded() {
        int status = 0;
        if (pid_ > 0 && waitpid(pid_, &status, WNOHANG) == pid_) {
            pid_ = -1;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        }
        return pid_ < 0;
    }

private:
    pid_t pid_ = -1;
    int status_ = 0;
    int output_ = -1;
};

} // namespace cadora::test
