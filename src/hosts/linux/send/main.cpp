// cadora-send [FILE-OR-URI...]: what scripts send with, and what the file managers' "Send to Cadora" entries
// run. Hands all files to the helper in one message and starts the helper when it isn't running. Without
// arguments the files are those that Nautilus names in the environment. Exits with 0 when the helper took
// them, with 1 when it refused them or could not copy one and with 69 when it can't be reached; what went
// wrong is on the standard error and, where a display is, in a dialog.

#include "hosts/linux/bus/DBusNames.h"
#include "hosts/linux/bus/SessionBus.h"
#include "hosts/linux/files/URIList.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace cadora {

namespace {

namespace fs = std::filesystem;

constexpr const char* usage = "usage: cadora-send FILE-OR-URI...\n"
                              "\n"
                              "Sends the files to your Cadora feed in one request, as “Send to Cadora” does "
                              "in a file manager, and starts\n"
                              "Cadora Helper when it isn't running. Ends once the helper has taken the "
                              "request, not when the files are posted.\n"
                              "A file whose name begins with “-” is given as ./-name.\n"
                              "\n"
                              "Exit status: 0 when the files were taken, 1 when they were refused, 69 when "
                              "the helper can't be reached.\n";

constexpr int exitRefused = 1;
constexpr int exitUnavailable = 69; // EX_UNAVAILABLE of sysexits.h

// The helper answers at once unless it is copying a large file.
constexpr std::chrono::milliseconds answerPatience = std::chrono::minutes(2);
constexpr std::chrono::seconds startPatience(30);

// For the copies, which may be of many large files.
constexpr std::chrono::milliseconds copyPatience = std::chrono::minutes(30);

struct Answer {
    enum class Kind { taken, waiting, refused, nobodyThere, failed };

    Kind kind;
    std::string reason; // for a person; empty when every file was taken and copied
};

fs::path programBeside(const char* name) {
    std::error_code error;
    return fs::read_symlink("/proc/self/exe", error).replace_filename(name);
}

std::vector<std::string> lines(std::string_view text) {
    std::vector<std::string> result;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (!line.empty()) {
            result.emplace_back(line);
        }
    }
    return result;
}

std::vector<std::string> selectedFiles(int argc, char** argv) {
    std::error_code folderIsGone;
    std::vector<std::string> arguments(argv + 1, argv + argc);
    const char* const fromNautilus = std::getenv("NAUTILUS_SCRIPT_SELECTED_URIS");
    if (arguments.empty() && fromNautilus != nullptr) {
        arguments = lines(fromNautilus);
    }
    return uriList(arguments, fs::current_path(folderIsGone));
}

bool matches(const GError* error, std::initializer_list<GDBusError> codes) {
    for (const GDBusError code : codes) {
        if (g_error_matches(error, G_DBUS_ERROR, code) != FALSE) {
            return true;
        }
    }
    return false;
}

Answer send(GDBusConnection* bus, const std::vector<std::string>& uris, GDBusCallFlags flags) {
    GVariantBuilder list;
    g_variant_builder_init(&list, G_VARIANT_TYPE("as"));
    for (const std::string& uri : uris) {
        g_variant_builder_add(&list, "s", uri.c_str());
    }
    GError* error = nullptr;
    const gio::Owned<GVariant> answer(
        g_dbus_connection_call_sync(bus, dbus::busName, dbus::objectPath, dbus::servicesInterface,
                                    "sendToCadora", g_variant_new("(ass)", &list, ""), G_VARIANT_TYPE("(s)"),
                                    flags, static_cast<int>(answerPatience.count()), nullptr, &error));
    if (answer) {
        const char* text = nullptr;
        g_variant_get(answer.get(), "(&s)", &text);
        return {*text == '\0' ? Answer::Kind::taken : Answer::Kind::refused, text};
    }
    if (g_error_matches(error, G_IO_ERROR, G_IO_ERROR_TIMED_OUT) != FALSE ||
        g_error_matches(error, G_DBUS_ERROR, G_DBUS_ERROR_TIMEOUT) != FALSE) {
        // The bus has delivered the request, which stays with the helper.
        g_error_free(error);
        return {
            Answer::Kind::waiting,
            "Cadora Helper is busy, for example with copying a large file. It takes these files after that."};
    }
    // Nobody runs, and the bus could start nobody; or the helper ended before it had taken anything.
    const bool nobodyIsThere =
        matches(error, {G_DBUS_ERROR_SERVICE_UNKNOWN, G_DBUS_ERROR_NAME_HAS_NO_OWNER, G_DBUS_ERROR_NO_REPLY,
                        G_DBUS_ERROR_SPAWN_EXEC_FAILED, G_DBUS_ERROR_SPAWN_CHILD_EXITED,
                        G_DBUS_ERROR_SPAWN_CHILD_SIGNALED, G_DBUS_ERROR_SPAWN_FAILED,
                        G_DBUS_ERROR_SPAWN_SERVICE_INVALID, G_DBUS_ERROR_SPAWN_FILE_INVALID});
    return {nobodyIsThere ? Answer::Kind::nobodyThere : Answer::Kind::failed,
            "Cadora Helper did not answer: " + gio::takeReason(error)};
}

// As many as a dialog shows at a glance.
constexpr std::size_t mostProblemsTold = 10;

// What the helper could not copy of the files that it took from here, once it is done with them. A helper
// that is older than this program, or ends meanwhile, has nothing to say.
std::string askForProblems(GDBusConnection* bus) {
    GError* error = nullptr;
    const gio::Owned<GVariant> answer(
        g_dbus_connection_call_sync(bus, dbus::busName, dbus::objectPath, dbus::stagingInterface, "problems",
                                    nullptr, G_VARIANT_TYPE("(as)"), G_DBUS_CALL_FLAGS_NO_AUTO_START,
                                    static_cast<int>(copyPatience.count()), nullptr, &error));
    if (!answer) {
        g_error_free(error);
        return {};
    }
    GVariantIter* list = nullptr;
    g_variant_get(answer.get(), "(as)", &list);
    const std::size_t count = g_variant_iter_n_children(list);
    std::string problems;
    const char* problem = nullptr;
    for (std::size_t i = 0; i < mostProblemsTold && g_variant_iter_next(list, "&s", &problem) != FALSE; ++i) {
        problems.append(i == 0 ? "" : "\n").append(problem);
    }
    g_variant_iter_free(list);
    if (count > mostProblemsTold) {
        problems.append("\nand ").append(std::to_string(count - mostProblemsTold)).append(" more");
    }
    return problems;
}

// Starts a program with one argument at most. Returns its process, or 0 with errno set. It has a session of
// its own when it is to outlive this one, and this one's terminal or file manager.
enum class Life { ownSession, untilAnswered };
pid_t start(const fs::path& program, const std::string& argument, Life life) {
    std::string name = program.string();
    std::string text = argument;
    const std::array<char*, 3> arguments{name.data(), text.empty() ? nullptr : text.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    if (life == Life::ownSession) {
        // Whoever reads what this program writes would wait for the other's end too.
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    }
    pid_t process = 0;
    errno = posix_spawn(&process, name.c_str(), &actions, &attributes, arguments.data(), environ);
    const int code = errno;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    errno = code;
    return code == 0 ? process : 0;
}

struct Wait {
    gio::Owned<GMainLoop> loop{g_main_loop_new(nullptr, FALSE)};
    int status = 0; // of the helper's end, where it ended
    bool isTooLong = false;
};

void stopWaiting(GDBusConnection*, const char*, const char*, gpointer wait) {
    g_main_loop_quit(static_cast<Wait*>(wait)->loop.get());
}

// Starts the helper that stands beside this program and waits until it has its name on the bus, or has ended.
// Returns why that failed.
std::string startHelper(GDBusConnection* bus) {
    const fs::path helper = programBeside("cadora-helper");
    Wait wait;
    const guint watch = g_bus_watch_name_on_connection(bus, dbus::busName, G_BUS_NAME_WATCHER_FLAGS_NONE,
                                                       stopWaiting, nullptr, &wait, nullptr);
    const pid_t process = start(helper, "--service", Life::ownSession);
    if (process == 0) {
        const std::string reason = std::strerror(errno);
        g_bus_unwatch_name(watch);
        return helper.string() + ": " + reason;
    }
    g_child_watch_add(
        process,
        [](GPid, int status, gpointer data) {
            auto& ended = *static_cast<Wait*>(data);
            ended.status = status;
            g_main_loop_quit(ended.loop.get());
        },
        &wait);
    const guint timeout = g_timeout_add_seconds(
        static_cast<guint>(startPatience.count()),
        [](gpointer data) -> gboolean {
            auto& late = *static_cast<Wait*>(data);
            late.isTooLong = true;
            g_main_loop_quit(late.loop.get());
            return G_SOURCE_CONTINUE;
        },
        &wait);
    g_main_loop_run(wait.loop.get());
    g_source_remove(timeout);
    g_bus_unwatch_name(watch);
    if (wait.isTooLong) {
        return "it did not appear within " + std::to_string(startPatience.count()) + " seconds";
    }
    // One that ends well has found another that runs already.
    return wait.status == 0 ? std::string() : "it ended again at once";
}

Answer deliver(const std::vector<std::string>& uris) {
    std::string reason;
    const gio::Owned<GDBusConnection> bus = gio::openSessionBus(reason);
    if (!bus) {
        return {Answer::Kind::failed, "Cadora Helper can’t be reached without a session bus: " + reason};
    }
    Answer answer = send(bus.get(), uris, G_DBUS_CALL_FLAGS_NONE);
    if (answer.kind == Answer::Kind::nobodyThere) {
        if (reason = startHelper(bus.get()); !reason.empty()) {
            return {Answer::Kind::failed, "Cadora Helper could not be started: " + reason};
        }
        answer = send(bus.get(), uris, G_DBUS_CALL_FLAGS_NO_AUTO_START);
    }
    if (answer.kind == Answer::Kind::taken) {
        answer.reason = askForProblems(bus.get());
    }
    return answer;
}

bool hasDisplay() {
    for (const char* const name : {"WAYLAND_DISPLAY", "DISPLAY"}) {
        const char* const display = std::getenv(name);
        if (display != nullptr && *display != '\0') {
            return true;
        }
    }
    return false;
}

// Tells the user, who sees no standard error of what a file manager starts, and waits until it was read.
void report(const std::string& problem) {
    std::fprintf(stderr, "cadora-send: %s\n", problem.c_str());
    if (!hasDisplay()) {
        return;
    }
    const pid_t dialog = start(programBeside("cadora-alert"), problem, Life::untilAnswered);
    while (dialog != 0 && waitpid(dialog, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace

} // namespace cadora

int main(int argc, char** argv) {
    using namespace cadora;
    if (argc == 2 && std::string_view(argv[1]) == "--help") {
        std::fputs(usage, stdout);
        return EXIT_SUCCESS;
    }
    const Answer answer = deliver(selectedFiles(argc, argv));
    const bool isTaken = answer.kind == Answer::Kind::taken;
    if (isTaken && answer.reason.empty()) {
        return EXIT_SUCCESS;
    }
    if (answer.kind == Answer::Kind::waiting) {
        std::fprintf(stderr, "cadora-send: %s\n", answer.reason.c_str());
        return EXIT_SUCCESS;
    }
    report(answer.reason);
    return isTaken || answer.kind == Answer::Kind::refused ? exitRefused : exitUnavailable;
}
