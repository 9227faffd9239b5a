#include "service/PostBook.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace cadora::service {

namespace {

Post fromJson(const nlohmann::json& record) {
    Post post;
    post.postId = record.at("post_id").get<std::int64_t>();
    post.uuid = record.at("uuid").get<std::string>();
    post.visibility = record.at("visibility").get<std::string>();
    post.uploadedFiles = record.at("uploaded_files").get<std::vector<std::string>>();
    post.createdAt = record.at("created_at").get<std::string>();
    if (record.contains("body")) {
        post.body = record["body"].get<std::string>();
    }
    if (record.contains("duration")) {
        post.duration = record["duration"].get<double>();
    }
    if (record.contains("recorded_at")) {
        post.recordedAt = record["recorded_at"].get<std::string>();
    }
    return post;
}

} // namespace

nlohmann::json toJson(const Post& post) {
    nlohmann::json record = {{"post_id", post.postId},
                             {"uuid", post.uuid},
                             {"visibility", post.visibility},
                             {"uploaded_files", post.uploadedFiles},
                             {"created_at", post.createdAt}};
    if (post.body) {
        record["body"] = *post.body;
    }
    if (post.duration) {
        record["duration"] = *post.duration;
    }
    if (post.recordedAt) {
        record["recorded_at"] = *post.recordedAt;
    }
    return record;
}

PostBook::PostBook(std::filesystem::path file) : file_(std::move(file)) {
    if (!std::filesystem::exists(file_)) {
        return;
    }
    std::ifstream stream(file_);
    try {
        for (const nlohmann::json& record : nlohmann::json::parse(stream)) {
            posts_.push_back(fromJson(record));
        }
    } catch (const nlohmann::json::exception& error) {
        throw std::runtime_error("can't read the posts in " + file_.string() + ": " + error.what());
    }
}

Post PostBook::add(Post post) {
    const std::lock_guard lock(mutex_);
    const auto known = std::find_if(posts_.begin(), posts_.end(),
                                    [&](const Post& other) { return other.uuid == post.uuid; });
    if (known != posts_.end()) {
        return *known;
    }
    post.postId = posts_.empty() ? 1 : posts_.back().postId + 1;
    post.createdAt = utcText(std::time(nullptr));
    posts_.push_back(post);
    try {
        save();
    } catch (...) {
        posts_.pop_back();
        throw;
    }
    return post;
}

std::vector<Post> PostBook::all() const {
    const std::lock_guard lock(mutex_);
    return posts_;
}

std::optional<Post> PostBook::find(std::int64_t postId) const {
    const std::lock_guard lock(mutex_);
    const auto found =
        std::find_if(posts_.begin(), posts_.end(), [&](const Post& post) { return post.postId == postId; });
    return found == posts_.end() ? std::nullopt : std::optional(*found);
}

void PostBook::save() const {
    nlohmann::json records = nlohmann::json::array();
    for (const Post& post : posts_) {
        records.push_back(toJson(post));
    }
    std::filesystem::path temporary = file_;
    temporary += ".new";
    std::ofstream stream(temporary, std::ios::trunc);
    stream << records.dump(1) << '\n';
    stream.close();
    if (!stream) {
        throw std::runtime_error("can't write " + temporary.string());
    }
    std::filesystem::rename(temporary, file_);
}

std::string utcText(std::int64_t secondsSince1970) {
    const std::time_t time = secondsSince1970;
    std::tm parts{};
    gmtime_r(&time, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

} // namespace cadora::service
