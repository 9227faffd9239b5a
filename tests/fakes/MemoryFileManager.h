#pragma once

#include "base/Error.h"
#include "platform/FileManager.h"

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace cadora::test {

// A file system in memory, for tests that make thousands of outboxes. Folders are there when asked for.
class MemoryFileManager : public FileManager {
public:
    struct File {
        std::string bytes;
        std::uint64_t number = 0;
    };

    std::map<std::filesystem::path, File> files;
    std::set<std::filesystem::path> folders;
    // How often a file was replaced, by its name.
    std::map<std::string, int> writes;

    void put(const std::filesystem::path& path, std::string bytes) {
        files[path] = {std::move(bytes), ++lastNumber_};
    }

    std::optional<std::filesystem::path> applicationSupportDirectory() override { return "/data"; }
    bool fileExists(const std::filesystem::path& path) override {
        return files.contains(path) || folders.contains(path);
    }
    std::optional<FileIdentity> identity(const std::filesystem::path& path) override {
        const auto found = files.find(path);
        if (found == files.end()) {
            return std::nullopt;
        }
        return FileIdentity{1, found->second.number, static_cast<std::int64_t>(found->second.bytes.size())};
    }
    void createDirectory(const std::filesystem::path& path) override { folders.insert(path); }
    std::vector<std::filesystem::path> contentsOfDirectory(const std::filesystem::path& path) override {
        if (!folders.contains(path)) {
            fail(path);
        }
        std::vector<std::filesystem::path> names;
        for (const auto& [file, content] : files) {
            if (file.parent_path() == path) {
                names.push_back(file.filename());
            }
        }
        return names;
    }
    void copyItem(const std::filesystem::path& from, const std::filesystem::path& to) override {
        put(to, contents(from));
    }
    void linkItem(const std::filesystem::path& from, const std::filesystem::path& to) override {
        copyItem(from, to);
    }
    void removeItem(const std::filesystem::path& path) override {
        if (files.erase(path) + folders.erase(path) == 0) {
            fail(path);
        }
        std::erase_if(files, [&](const auto& entry) { return entry.first.parent_path() == path; });
    }
    std::string contents(const std::filesystem::path& path) override {
        const auto found = files.find(path);
        if (found == files.end()) {
            fail(path);
        }
        return found->second.bytes;
    }
    bool holds(const std::filesystem::path& path, std::string_view bytes) override {
        const auto found = files.find(path);
        return found != files.end() && found->second.bytes == bytes;
    }
    void writeAtomically(const std::filesystem::path& path, std::string_view bytes) override {
        ++writes[path.filename().string()];
        put(path, std::string(bytes));
    }
    void keepRoom(const std::filesystem::path&, std::size_t) override {}

private:
    [[noreturn]] static void fail(const std::filesystem::path& path) {
        throw PlatformError("memory", 2, "there is no " + path.string());
    }

    std::uint64_t lastNumber_ = 0;
};

} // namespace cadora::test
