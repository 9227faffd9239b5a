#include "service/ServiceCalls.h"
#include "service/ServiceProcess.h"

#include "fakes/TemporaryDirectory.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <doctest/doctest.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace cadora::test;

namespace {

constexpr std::chrono::seconds bound(20);

/// A program with what it writes to standard output and standard error, together.
class Program {
public:
    explicit Program(std::vector<std::string> arguments) {
        std::array<int, 2> output{};
        REQUIRE(::pipe2(output.data(), O_CLOEXEC) == 0);
        output_ = output[0];
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, output[1], STDERR_FILENO);
        std::vector<char*> texts;
        texts.reserve(arguments.size() + 1);
        for (std::string& argument : arguments) {
            texts.push_back(argument.data());
        }
        texts.push_back(nullptr);
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
        const int problem =
            ::posix_spawnp(&pid_, texts.front(), &actions, &attributes, texts.data(), environ);
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
        ::close(output[1]);
        REQUIRE(problem == 0);
    }
    ~Program() {
        if (pid_ > 0) {
            // The whole group: what the program itself started must not outlive a test that failed.
            ::kill(-pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
        ::close(output_);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void signal(int number) const { ::kill(pid_, number); }

    /// Its output up to the first `end`, or to the end of the output for an empty one.
    std::string readUntil(const std::string& end) const {
        std::string text;
        while (end.empty() || text.find(end) == std::string::npos) {
            pollfd watched{output_, POLLIN, 0};
            char character = 0;
            if (::poll(&watched, 1, static_cast<int>(std::chrono::milliseconds(bound).count())) <= 0) {
                throw std::runtime_error("nothing came after: " + text);
            }
            if (::read(output_, &character, 1) != 1) {
                break;
            }
            text += character;
        }
        return text;
    }

    /// Waits for its end and gives its exit status.
    int exitStatus() {
        const auto deadline = std::chrono::steady_clock::now() + bound;
        int status = 0;
        while (::waitpid(pid_, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > deadline) {
                throw std::runtime_error("the program did not end");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t pid_ = -1;
    int output_ = -1;
};

struct Outcome {
    int status;
    std::string output;
};

Outcome run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), CADORA_SERVICE_PROGRAM);
    Program program(std::move(arguments));
    const std::string output = program.readUntil("");
    return {program.exitStatus(), output};
}

} // namespace

TEST_CASE("help names every option") {
    const Outcome outcome = run({"--help"});
    CHECK(outcome.status == 0);
    for (const char* option : {"--data", "--port", "--token", "--user-id", "--email", "--expires-in", "--log",
                               "--tls-cert", "--tls-key", "--exit-with-parent", "--help"}) {
        CHECK(outcome.output.find(option) != std::string::npos);
    }
}

TEST_CASE("a start that can't be is refused with the reason") {
    const TemporaryDirectory folder;
    const std::string data = (folder.path() / "data").string();
    const auto reason = [](std::vector<std::string> arguments) {
        const Outcome outcome = run(std::move(arguments));
        CHECK(outcome.status == 1);
        return outcome.output;
    };
    CHECK(reason({}) == "cadora-service: --data is missing\n");
    CHECK(reason({"--data", data, "extra"}) == "cadora-service: unexpected argument: extra\n");
    CHECK(reason({"--data", data, "--port", "65536"}) ==
          "cadora-service: --port takes a number from 0 to 65535\n");
    CHECK(reason({"--data", data, "--tls-cert", "x"}) ==
          "cadora-service: --tls-cert and --tls-key go together\n");
    CHECK(reason({"--data", data, "--tls-cert", "x", "--tls-key", "y"})
              .starts_with("cadora-service: can't use the certificate x with the key y: "));
    CHECK(reason({"--data", data, "--log", "/"}) == "cadora-service: can't write the log /\n");
    CHECK(reason({"--data", folder.file("taken", "").string()}).starts_with("cadora-service: "));
    folder.file("data/signing-key", "short");
    CHECK(reason({"--data", data}).find("signing key") != std::string::npos);
}

TEST_CASE("two servers can't share a port") {
    const ServiceProcess first;
    const TemporaryDirectory folder;
    const Outcome second = run({"--data", folder.path().string(), "--port", std::to_string(first.port())});
    CHECK(second.status == 1);
    CHECK(second.output ==
          "cadora-service: can't listen on port " + std::to_string(first.port()) + " of 127.0.0.1\n");
}

TEST_CASE("it ends cleanly on the signals that ask for it, also with requests under way") {
    const TemporaryDirectory folder;
    for (const int number : {SIGTERM, SIGINT}) {
        Program program({CADORA_SERVICE_PROGRAM, "--data", folder.path().string()});
        CHECK(program.readUntil("\n").starts_with("listening http://127.0.0.1:"));
        program.signal(number);
        CHECK(program.exitStatus() == 0);
    }
    ServiceProcess service;
    service.addFault({{"path", "/posts"}, {"stall", true}});
    HttpClient client = clientOf(service);
    std::thread waiting([&] { client.get("/posts"); });
    service.awaitRequests(1, "GET", "/posts");
    CHECK(service.terminate() == 0);
    waiting.join();
}

TEST_CASE("it ends with its parent when told so") {
    const TemporaryDirectory folder;
    // The shell goes on after the line, so that it is the parent and not replaced by the program.
    Program shell({"/bin/sh", "-c", "\"$0\" --exit-with-parent --data \"$1\"; true", CADORA_SERVICE_PROGRAM,
                   folder.path().string()});
    CHECK(shell.readUntil("\n").starts_with("listening "));
    shell.signal(SIGKILL);
    CHECK(shell.readUntil("").empty());
}

TEST_CASE("a restart keeps objects, posts and the URLs handed out") {
    const TemporaryDirectory folder;
    ServiceProcess::Options options;
    options.data = folder.path() / "data";
    PresignedUpload upload;
    {
        const ServiceProcess first(options);
        put(first, presign(first, "aaaaaaaa"), "one");
        sync(first, "aaaaaaaa", {{"body", "Kept"}});
        put(first, presign(first, "bbbbbbbb"), "two");
        upload = presign(first, "cccccccc");
    }
    const ServiceProcess second(options);
    REQUIRE(second.posts().size() == 1);
    CHECK(second.posts().front().at("body") == "Kept");
    CHECK(get(second, "/audio/1").body == "one");
    CHECK(sync(second, "bbbbbbbb").status == 200);
    CHECK(put(second, upload, "three").status == 200);
}

TEST_CASE("nobody else may read the signing key") {
    const ServiceProcess service;
    const auto permissions = std::filesystem::status(service.data() / "signing-key").permissions();
    CHECK((permissions & (std::filesystem::perms::group_all | std::filesystem::perms::others_all)) ==
          std::filesystem::perms::none);
}
