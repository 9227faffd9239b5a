#pragma once

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace cadora::service {

/// A post as the service recorded it. Absent optionals are those that the client left out.
struct Post {
    std::int64_t postId = 0;
    std::string uuid;
    std::optional<std::string> body;
    std::string visibility;
    std::vector<std::string> uploadedFiles;
    std::optional<double> duration; ///< seconds
    std::optional<std::string> recordedAt;
    std::string createdAt; ///< UTC, as in 2026-01-31T12:34:56Z
};

nlohmann::json toJson(const Post& post);

/// The posts in order of creation, kept in one JSON file that is replaced whole. Any thread may use it.
class PostBook {
public:
    /// Reads what an earlier run kept. Throws std::runtime_error when the file is there but unreadable:
    /// starting with an empty book would hide the loss.
    explicit PostBook(std::filesystem::path file);

    /// Records a post, or gives the one already recorded under the same uuid, unchanged. `postId` and
    /// `createdAt` of the argument are set here. Throws std::runtime_error when it can't be kept.
    Post add(Post post);

    std::vector<Post> all() const;
    std::optional<Post> find(std::int64_t postId) const;

private:
    void save() const;

    std::filesystem::path file_;
    mutable std::mutex mutex_;
    std::vector<Post> posts_;
};

/// A point in time as UTC text with seconds.
std::string utcText(std::int64_t secondsSince1970);

} // namespace cadora::service
