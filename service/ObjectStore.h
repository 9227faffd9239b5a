#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace cadora::service {

/// Whether a text may name an upload or a file of it: 1 to 64 letters, digits, hyphens or underscores.
/// Nothing else ever becomes part of a path.
bool isObjectName(std::string_view text);

/// The uploaded objects, one file each under `root/objects/<uuid>/<key>`. An object appears whole or not
/// at all: its bytes are gathered in `root/incoming` and renamed. Any thread may use it.
class ObjectStore {
public:
    /// Creates the folders, and clears what an earlier run left half received. Throws
    /// std::filesystem::filesystem_error when it can't.
    explicit ObjectStore(std::filesystem::path root);

    /// The bytes of one object on their way in. Unless committed, they are removed with it.
    class Incoming {
    public:
        Incoming(std::filesystem::path temporary, std::filesystem::path target);
        Incoming(const Incoming&) = delete;
        Incoming& operator=(const Incoming&) = delete;
        ~Incoming();

        /// Throws std::system_error when the disk refuses the bytes.
        void write(std::span<const char> bytes);
        /// Makes the object visible under its name, replacing an older one. Throws as write does.
        void commit();

    private:
        std::filesystem::path temporary_;
        std::filesystem::path target_;
        int descriptor_;
    };

    Incoming receive(std::string_view uuid, std::string_view key);

    /// The size in bytes of an object that was wholly received, absent otherwise.
    std::optional<std::uint64_t> size(std::string_view uuid, std::string_view key) const;
    std::filesystem::path path(std::string_view uuid, std::string_view key) const;

private:
    std::filesystem::path root_;
};

} // namespace cadora::service
