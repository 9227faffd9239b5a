#include "sharing/SharedFileManager.h"

#include <utility>

namespace cadora {

namespace fs = std::filesystem;

std::optional<fs::path> SharedFileManager::applicationSupportDirectory() {
    return files_.applicationSupportDirectory();
}

bool SharedFileManager::fileExists(const fs::path& path) {
    return files_.fileExists(path);
}

std::optional<FileIdentity> SharedFileManager::identity(const fs::path& path) {
    return files_.identity(path);
}

void SharedFileManager::createDirectory(const fs::path& path) {
    files_.createDirectory(path);
}

std::vector<fs::path> SharedFileManager::contentsOfDirectory(const fs::path& path) {
    return files_.contentsOfDirectory(path);
}

void SharedFileManager::copyItem(const fs::path& from, const fs::path& to) {
    files_.copyItem(from, to);
}

void SharedFileManager::linkItem(const fs::path& from, const fs::path& to) {
    files_.linkItem(from, to);
}

void SharedFileManager::keepRoom(const fs::path& folder, std::size_t bytes) {
    files_.keepRoom(folder, bytes);
}

void SharedFileManager::removeItem(const fs::path& path) {
    {
        const std::lock_guard guard(mutex_);
        removed_.insert(path);
    }
    files_.removeItem(path);
}

std::string SharedFileManager::contents(const fs::path& path) {
    return files_.contents(path);
}

bool SharedFileManager::holds(const fs::path& path, std::string_view bytes) {
    return files_.holds(path, bytes);
}

void SharedFileManager::writeAtomically(const fs::path& path, std::string_view bytes) {
    if (isSafelyWritten(path) && files_.holds(path, bytes)) {
        return;
    }
    {
        const std::lock_guard guard(mutex_);
        safelyWritten_.erase(path);
    }
    files_.writeAtomically(path, bytes);
    const std::lock_guard guard(mutex_);
    safelyWritten_.insert(path);
}

std::set<fs::path> SharedFileManager::takeRemoved() {
    const std::lock_guard guard(mutex_);
    return std::exchange(removed_, {});
}

bool SharedFileManager::isSafelyWritten(const fs::path& path) {
    const std::lock_guard guard(mutex_);
    return safelyWritten_.contains(path);
}

} // namespace cadora
