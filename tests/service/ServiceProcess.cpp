#include "service/ServiceProcess.h"

#include "service/HttpClient.h"
#include "service/TestCertificate.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

// Not every system declares it.
extern "C" char** environ; // NOLINT(readability-redundant-declaration)

namespace cadora::test {

namespace {

constexpr std::chrono::seconds startLimit(20);
constexpr std::chrono::seconds endLimit(20);
constexpr std::chrono::milliseconds betweenLooks(5);

using Clock = std::chrono::steady_clock;

/// The first line that the pipe delivers, without its end.
std::string readLine(int pipe) {
    const auto deadline = Clock::now() + startLimit;
    std::string line;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd watched{pipe, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&watched, 1, static_cast<int>(left.count())) <= 0) {
            throw std::runtime_error("cadora-service did not say in time that it listens");
        }
        char character = 0;
        if (::read(pipe, &character, 1) != 1) {
            throw std::runtime_error("cadora-service ended before it listened");
        }
        if (character == '\n') {
            return line;
        }
        line += character;
    }
}

ServiceRequest fromJson(const nlohmann::json& record) {
    ServiceRequest request;
    record.at("id").get_to(request.id);
    record.at("method").get_to(request.method);
    record.at("path").get_to(request.path);
    record.at("http_version").get_to(request.httpVersion);
    record.at("headers").get_to(request.headerNames);
    record.at("content_type").get_to(request.contentType);
    record.at("accept").get_to(request.accept);
    record.at("expect").get_to(request.expect);
    record.at("chunked").get_to(request.chunked);
    record.at("authorization_present").get_to(request.authorizationPresent);
    record.at("authorization_valid").get_to(request.authorizationValid);
    record.at("connection").get_to(request.connection);
    record.at("received_bytes").get_to(request.receivedBytes);
    record.at("duration_ms").get_to(request.durationMs);
    record.at("ended").get_to(request.ended);
    if (!record.at("content_length").is_null()) {
        request.contentLength = record["content_length"].get<std::uint64_t>();
    }
    if (!record.at("status").is_null()) {
        request.status = record["status"].get<int>();
    }
    return request;
}

} // namespace

bool ServiceRequest::hasHeader(const std::string& lowerCaseName) const {
    return std::find(headerNames.begin(), headerNames.end(), lowerCaseName) != headerNames.end();
}

ServiceProcess::ServiceProcess(Options options)
    : data_(options.data.empty() ? temporary_.path() / "data" : options.data),
      log_(temporary_.path() / "requests.jsonl") {
    try {
        std::vector<std::string> arguments = {
            CADORA_SERVICE_PROGRAM, "--data", data_.string(), "--log", log_.string(), "--exit-with-parent"};
        if (options.transport == ServiceTransport::https) {
            const TestCertificate made = makeTestCertificate(temporary_.path());
            certificate_ = made.certificate;
            arguments.insert(arguments.end(),
                             {"--tls-cert", made.certificate.string(), "--tls-key", made.key.string()});
        }
        arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
        start(arguments);
    } catch (...) {
        terminate();
        throw;
    }
}

ServiceProcess::~ServiceProcess() {
    terminate();
}

void ServiceProcess::start(const std::vector<std::string>& arguments) {
    std::array<int, 2> output{};
    if (::pipe(output.data()) != 0 || ::fcntl(output[0], F_SETFD, FD_CLOEXEC) != 0 ||
        ::fcntl(output[1], F_SETFD, FD_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    std::vector<char*> texts;
    texts.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        texts.push_back(const_cast<char*>(argument.c_str()));
    }
    texts.push_back(nullptr);
    const int problem = ::posix_spawn(&pid_, texts.front(), &actions, nullptr, texts.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(output[1]);
    try {
        if (problem != 0) {
            pid_ = -1;
            throw std::system_error(problem, std::generic_category(), arguments.front());
        }
        const std::string line = readLine(output[0]);
        const std::string announcement = "listening ";
        if (!line.starts_with(announcement)) {
            throw std::runtime_error("cadora-service said: " + line);
        }
        origin_ = line.substr(announcement.size());
    } catch (...) {
        ::close(output[0]);
        throw;
    }
    ::close(output[0]);
}

int ServiceProcess::terminate() {
    if (pid_ < 0) {
        return -1;
    }
    ::kill(pid_, SIGTERM);
    const auto deadline = Clock::now() + endLimit;
    int status = 0;
    bool killed = false;
    while (::waitpid(pid_, &status, WNOHANG) == 0) {
        if (!killed && Clock::now() > deadline) {
            ::kill(pid_, SIGKILL);
            killed = true;
        }
        std::this_thread::sleep_for(betweenLooks);
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::uint16_t ServiceProcess::port() const {
    return static_cast<std::uint16_t>(std::stoul(origin_.substr(origin_.rfind(':') + 1)));
}

std::string ServiceProcess::logText() const {
    return readFile(log_);
}

void ServiceProcess::addFault(const nlohmann::json& fault) {
    call("POST", "/faults", fault);
}

void ServiceProcess::clearFaults() {
    call("DELETE", "/faults");
}

void ServiceProcess::releaseStalls() {
    call("POST", "/faults/release", nlohmann::json::object());
}

std::vector<ServiceRequest> ServiceProcess::requests() const {
    std::vector<ServiceRequest> all;
    const nlohmann::json answer = call("GET", "/log");
    for (const nlohmann::json& record : answer.at("requests")) {
        all.push_back(fromJson(record));
    }
    return all;
}

std::vector<ServiceRequest> ServiceProcess::requests(const std::string& method,
                                                     const std::string& pathPrefix) const {
    std::vector<ServiceRequest> some = requests();
    std::erase_if(some, [&](const ServiceRequest& request) {
        return request.method != method || !request.path.starts_with(pathPrefix);
    });
    return some;
}

std::vector<ServiceRequest> ServiceProcess::awaitRequests(std::size_t count, const std::string& method,
                                                          const std::string& pathPrefix,
                                                          std::chrono::milliseconds limit) const {
    const auto deadline = Clock::now() + limit;
    for (;;) {
        std::vector<ServiceRequest> found = requests(method, pathPrefix);
        if (found.size() >= count) {
            return found;
        }
        if (Clock::now() > deadline) {
            std::string problem = std::to_string(found.size()) + " of " + std::to_string(count);
            problem.append(" requests came: ").append(method).append(" ").append(pathPrefix);
            throw std::runtime_error(problem);
        }
        std::this_thread::sleep_for(betweenLooks);
    }
}

std::vector<ServiceRequest> ServiceProcess::awaitEnded(std::chrono::milliseconds limit) const {
    const auto deadline = Clock::now() + limit;
    for (;;) {
        std::vector<ServiceRequest> all = requests();
        if (std::all_of(all.begin(), all.end(),
                        [](const ServiceRequest& request) { return request.ended; })) {
            return all;
        }
        if (Clock::now() > deadline) {
            throw std::runtime_error("a request did not end in time");
        }
        std::this_thread::sleep_for(betweenLooks);
    }
}

std::vector<nlohmann::json> ServiceProcess::posts() const {
    return call("GET", "/api/posts").at("posts").get<std::vector<nlohmann::json>>();
}

nlohmann::json ServiceProcess::call(const std::string& method, const std::string& path,
                                    const std::optional<nlohmann::json>& body) const {
    HttpClient client(origin_, certificate_);
    const HttpResult result =
        body ? client.post(path, {}, body->dump(), "application/json") : client.send(method, path, {});
    if (!result) {
        throw std::runtime_error(method + " " + path + ": " + result.problem);
    }
    if (result->status != 200) {
        throw std::runtime_error(method + " " + path + " answered " + std::to_string(result->status) + ": " +
                                 result->body);
    }
    return nlohmann::json::parse(result->body);
}

} // namespace cadora::test
