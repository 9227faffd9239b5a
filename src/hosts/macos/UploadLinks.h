#pragma once

#include <filesystem>
#include <memory>

namespace cadora {

// A second name for a file, gone with the last copy of the pointer to it. Any thread.
class UploadLink {
public:
    UploadLink(const UploadLink&) = delete;
    UploadLink& operator=(const UploadLink&) = delete;
    ~UploadLink();

    const std::filesystem::path& path() const { return path_; }

private:
    friend class UploadLinks;
    explicit UploadLink(std::filesystem::path path) : path_(std::move(path)) {}

    std::filesystem::path path_;
};

// The hard links that uploads read, in a folder of their own. A link that outlived its program would keep a
// recording on the disk that its user has deleted, so each bears the number of the process that made it, and
// is taken away when that has ended. Needs nothing but the system's calls.
class UploadLinks {
public:
    // Takes away what programs that have ended left in the folder, which need not exist.
    explicit UploadLinks(std::filesystem::path folder);

    // Null where no link can be made: the file is on another volume, or not there.
    std::shared_ptr<UploadLink> link(const std::filesystem::path& file);

    // Takes away the links of this process, and the folder when it is empty then. For a program that ends
    // without its objects' ends.
    void removeOwn() noexcept;

private:
    std::filesystem::path folder_;
};

} // namespace cadora
