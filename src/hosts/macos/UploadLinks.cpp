#include "hosts/macos/UploadLinks.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <functional>
#include <optional>
#include <string>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

namespace cadora {

namespace {

namespace fs = std::filesystem;

constexpr const char* extension = ".upload";

// The process that made the link, absent for what is none.
std::optional<pid_t> makerOf(const fs::path& link) {
    const std::string name = link.filename().native();
    pid_t maker = 0;
    const auto [stop, problem] = std::from_chars(name.data(), name.data() + name.size(), maker);
    const bool isLink = problem == std::errc() && *stop == '-' && link.extension() == extension && maker > 0;
    return isLink ? std::optional(maker) : std::nullopt;
}

bool hasEnded(pid_t process) {
    return kill(process, 0) != 0 && errno == ESRCH;
}

void removeLinks(const fs::path& folder, const std::function<bool(pid_t)>& ofMaker) {
    std::error_code problem;
    fs::directory_iterator entry(folder, problem);
    for (; !problem && entry != fs::directory_iterator(); entry.increment(problem)) {
        if (const auto maker = makerOf(entry->path()); maker && ofMaker(*maker)) {
            unlink(entry->path().c_str());
        }
    }
    rmdir(folder.c_str());
}

} // namespace

UploadLink::~UploadLink() {
    unlink(path_.c_str());
}

UploadLinks::UploadLinks(fs::path folder) : folder_(std::move(folder)) {
    // Nothing of this process can be left yet: a link of its number is an earlier one's.
    removeLinks(folder_, [](pid_t maker) { return maker == getpid() || hasEnded(maker); });
}

std::shared_ptr<UploadLink> UploadLinks::link(const fs::path& file) {
    static std::atomic<unsigned> made = 0;
    mkdir(folder_.c_str(), S_IRWXU);
    const fs::path path = folder_ / (std::to_string(getpid()) + "-" + std::to_string(++made) + extension);
    return ::link(file.c_str(), path.c_str()) == 0 ? std::shared_ptr<UploadLink>(new UploadLink(path))
                                                   : nullptr;
}

void UploadLinks::removeOwn() noexcept {
    removeLinks(folder_, [](pid_t maker) { return maker == getpid(); });
}

} // namespace cadora
