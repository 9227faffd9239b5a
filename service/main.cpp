#include "service/Server.h"

#include <array>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include <getopt.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif
#include <unistd.h>

using cadora::service::Server;
using cadora::service::Settings;
using cadora::service::StartError;

namespace {

constexpr const char* help =
    R"(Usage: cadora-service --data DIR [OPTION]...

The local stand-in of the service: its API, its object store behind presigned
URLs, its sign-in page and a page of posts, on the loopback interface. Prints
"listening ORIGIN" when it is ready and ends on SIGTERM or SIGINT.

  --data DIR          keep objects and posts in DIR, which is made if missing
  --port PORT         listen on PORT (default: a free one)
  --token TOKEN       the bearer token of the account (default: local-token)
  --user-id ID        the user id of the account (default: 1001)
  --email ADDRESS     the e-mail of the account (default: musician@example.com)
  --expires-in SECS   lifetime of a presigned URL (default: 900)
  --log FILE          append one JSON line for each request to FILE
                      (default: standard error)
  --tls-cert FILE     serve HTTPS with this certificate chain (PEM) ...
  --tls-key FILE      ... and this private key (PEM)
  --exit-with-parent  end when the process that started it ends
  --help              show this text

Tests spoil requests with POST /faults, read what arrived from GET /log and the
posts from GET /api/posts.
)";

struct Arguments {
    Settings settings;
    std::string log;
    bool exitWithParent = false;
    bool helpWanted = false;
};

long long integer(const std::string& option, std::string_view text, long long least, long long most) {
    long long value = 0;
    const auto [stop, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (problem != std::errc() || stop != text.data() + text.size() || value < least || value > most) {
        throw StartError("--" + option + " takes a number from " + std::to_string(least) + " to " +
                         std::to_string(most));
    }
    return value;
}

Arguments parse(int count, char** texts) {
    enum Option {
        data = 1,
        port,
        token,
        userId,
        email,
        expiresIn,
        log,
        certificate,
        key,
        parent,
        helpOption
    };
    static const std::array<option, 12> options = {{{"data", required_argument, nullptr, data},
                                                    {"port", required_argument, nullptr, port},
                                                    {"token", required_argument, nullptr, token},
                                                    {"user-id", required_argument, nullptr, userId},
                                                    {"email", required_argument, nullptr, email},
                                                    {"expires-in", required_argument, nullptr, expiresIn},
                                                    {"log", required_argument, nullptr, log},
                                                    {"tls-cert", required_argument, nullptr, certificate},
                                                    {"tls-key", required_argument, nullptr, key},
                                                    {"exit-with-parent", no_argument, nullptr, parent},
                                                    {"help", no_argument, nullptr, helpOption},
                                                    {nullptr, 0, nullptr, 0}}};
    Arguments arguments;
    Settings& settings = arguments.settings;
    for (;;) {
        const int found = getopt_long(count, texts, "", options.data(), nullptr);
        switch (found) {
        case -1:
            if (optind < count) {
                throw StartError(std::string("unexpected argument: ") + texts[optind]);
            }
            if (settings.data.empty() && !arguments.helpWanted) {
                throw StartError("--data is missing");
            }
            if (settings.certificate.empty() != settings.key.empty()) {
                throw StartError("--tls-cert and --tls-key go together");
            }
            return arguments;
        case data:
            settings.data = optarg;
            break;
        case port:
            settings.port = static_cast<std::uint16_t>(integer("port", optarg, 0, 65535));
            break;
        case token:
            settings.account.token = optarg;
            break;
        case userId:
            settings.account.userId = optarg;
            break;
        case email:
            settings.account.email = optarg;
            break;
        case expiresIn:
            settings.expiresIn = integer("expires-in", optarg, 0, 604800);
            break;
        case log:
            arguments.log = optarg;
            break;
        case certificate:
            settings.certificate = optarg;
            break;
        case key:
            settings.key = optarg;
            break;
        case parent:
            arguments.exitWithParent = true;
            break;
        case helpOption:
            arguments.helpWanted = true;
            break;
        default:
            throw StartError("see --help");
        }
    }
}

int run(const Arguments& arguments) {
    // Blocked before any thread exists, so that only sigwait() below takes them.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    std::ofstream logFile;
    if (!arguments.log.empty()) {
        logFile.open(arguments.log, std::ios::app);
        if (!logFile) {
            throw StartError("can't write the log " + arguments.log);
        }
    }
    Server server(arguments.settings, arguments.log.empty() ? std::cerr : logFile);
    std::thread serving([&] { server.serve(); });
    std::cout << "listening " << server.origin() << '\n' << std::flush;
    if (std::cout) {
        int received = 0;
        sigwait(&ends, &received);
    }
    server.stop();
    serving.join();
    return std::cout ? EXIT_SUCCESS : EXIT_FAILURE;
}

// False when the parent is gone already.
bool endWithParent() {
    const pid_t parent = getppid();
#ifdef __linux__
    prctl(PR_SET_PDEATHSIG, SIGTERM);
#else
    std::thread([parent] {
        while (getppid() == parent) {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
        }
        kill(getpid(), SIGTERM);
    }).detach();
#endif
    return getppid() == parent;
}

} // namespace

int main(int count, char** texts) {
    try {
        const Arguments arguments = parse(count, texts);
        if (arguments.helpWanted) {
            std::cout << help;
            return EXIT_SUCCESS;
        }
        if (arguments.exitWithParent && !endWithParent()) {
            return EXIT_SUCCESS;
        }
        return run(arguments);
    } catch (const std::exception& error) {
        std::cerr << "cadora-service: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
