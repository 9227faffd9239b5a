#include "service/ObjectStore.h"

#include "service/UrlSigner.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace cadora::service {

bool isObjectName(std::string_view text) {
    return !text.empty() && text.size() <= 64 && std::all_of(text.begin(), text.end(), [](char character) {
        return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
               (character >= '0' && character <= '9') || character == '-' || character == '_';
    });
}

ObjectStore::ObjectStore(std::filesystem::path root) : root_(std::move(root)) {
    std::filesystem::remove_all(root_ / "incoming");
    std::filesystem::create_directories(root_ / "incoming");
    std::filesystem::create_directories(root_ / "objects");
}

ObjectStore::Incoming::Incoming(std::filesystem::path temporary, std::filesystem::path target)
    : temporary_(std::move(temporary)), target_(std::move(target)),
      descriptor_(::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
    if (descriptor_ < 0) {
        throw std::system_error(errno, std::generic_category(), "open " + temporary_.string());
    }
}

ObjectStore::Incoming::~Incoming() {
    ::close(descriptor_);
    if (!temporary_.empty()) {
        ::unlink(temporary_.c_str());
    }
}

void ObjectStore::Incoming::write(std::span<const char> bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "write " + temporary_.string());
        }
        bytes = bytes.subspan(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
}

void ObjectStore::Incoming::commit() {
    std::filesystem::create_directories(target_.parent_path());
    std::filesystem::rename(temporary_, target_);
    temporary_.clear();
}

ObjectStore::Incoming ObjectStore::receive(std::string_view uuid, std::string_view key) {
    return Incoming(root_ / "incoming" / randomHex(12), path(uuid, key));
}

std::optional<std::uint64_t> ObjectStore::size(std::string_view uuid, std::string_view key) const {
    std::error_code problem;
    const std::uint64_t bytes = std::filesystem::file_size(path(uuid, key), problem);
    return problem ? std::nullopt : std::optional(bytes);
}

std::filesystem::path ObjectStore::path(std::string_view uuid, std::string_view key) const {
    return root_ / "objects" / uuid / key;
}

} // namespace cadora::service
