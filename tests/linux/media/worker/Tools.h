#pragma once

#include "hosts/linux/media/worker/OpenFile.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace cadora::test {

// Runs one of the system's programs to its end; its standard output is the result. Throws if it fails.
std::string runTool(const std::vector<std::string>& arguments);

// A file that stays open as the worker has its files open.
class OpenedFile {
public:
    enum class Use { read, create };
    OpenedFile(const std::filesystem::path& path, Use use);
    ~OpenedFile();
    OpenedFile(const OpenedFile&) = delete;
    OpenedFile& operator=(const OpenedFile&) = delete;

    int descriptor() const { return descriptor_; }
    OpenFile source() const { return OpenFile::source(descriptor_); }
    OpenFile output() const { return OpenFile::output(descriptor_); }

private:
    int descriptor_;
};

// How a worker ended: its exit code or the signal, and what it wrote on standard output.
struct WorkerEnd {
    int exitCode = -1;
    int signal = 0;
    std::string answer;

    // A number of the answer; none if it has no such field.
    std::optional<double> number(const std::string& field) const;
    std::string message() const;
};

// Runs the built cadora-export as its parent would.
WorkerEnd runDuration(const std::filesystem::path& source);
WorkerEnd runExport(const std::filesystem::path& source, const std::filesystem::path& output);

// A worker that is still at work. Its standard input is a pipe that this object holds open.
class RunningWorker {
public:
    RunningWorker(const std::string& verb, const std::vector<int>& descriptors);
    ~RunningWorker();
    RunningWorker(const RunningWorker&) = delete;
    RunningWorker& operator=(const RunningWorker&) = delete;

    int pid() const { return pid_; }
    void closeInput();
    WorkerEnd wait(); // to its end, at most two minutes; then it is killed

private:
    int pid_ = -1;
    int input_ = -1;
    int answer_ = -1;
};

} // namespace cadora::test
