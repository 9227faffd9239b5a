#include "service/PostBook.h"

#include "fakes/TemporaryDirectory.h"

#include <stdexcept>

#include <doctest/doctest.h>

using cadora::service::Post;
using cadora::service::PostBook;
using cadora::service::utcText;
using cadora::test::TemporaryDirectory;

namespace {

Post order(const std::string& uuid) {
    Post post;
    post.uuid = uuid;
    post.visibility = "private";
    post.uploadedFiles = {"audio"};
    return post;
}

} // namespace

TEST_CASE("posts are numbered from 1 and found by number") {
    const TemporaryDirectory folder;
    PostBook book(folder.path() / "posts.json");
    CHECK(book.add(order("aaaaaaaa")).postId == 1);
    CHECK(book.add(order("bbbbbbbb")).postId == 2);
    REQUIRE(book.find(2));
    CHECK(book.find(2)->uuid == "bbbbbbbb");
    CHECK_FALSE(book.find(3));
}

TEST_CASE("a second order with a known uuid gives the post that is there, unchanged") {
    const TemporaryDirectory folder;
    PostBook book(folder.path() / "posts.json");
    Post first = order("aaaaaaaa");
    first.body = "First";
    book.add(first);
    Post second = order("aaaaaaaa");
    second.body = "Second";
    const Post kept = book.add(second);
    CHECK(kept.postId == 1);
    CHECK(kept.body == "First");
    CHECK(book.all().size() == 1);
}

TEST_CASE("a later run has the posts as they were recorded") {
    const TemporaryDirectory folder;
    const auto file = folder.path() / "posts.json";
    Post full = order("aaaaaaaa");
    full.body = "Take “five”";
    full.duration = 12.25;
    full.recordedAt = "2026-01-01";
    {
        PostBook book(file);
        book.add(full);
        book.add(order("bbbbbbbb"));
    }
    PostBook later(file);
    REQUIRE(later.all().size() == 2);
    const Post kept = later.all().front();
    CHECK(kept.postId == 1);
    CHECK(kept.body == full.body);
    CHECK(kept.duration == full.duration);
    CHECK(kept.recordedAt == full.recordedAt);
    CHECK(kept.uploadedFiles == full.uploadedFiles);
    CHECK_FALSE(kept.createdAt.empty());
    CHECK_FALSE(later.all().back().body);
    CHECK_FALSE(later.all().back().duration);
    CHECK(later.add(order("cccccccc")).postId == 3);
}

TEST_CASE("posts that can't be read are not taken for none") {
    const TemporaryDirectory folder;
    CHECK_THROWS_AS(PostBook(folder.file("posts.json", "[{")), std::runtime_error);
    CHECK_THROWS_AS(PostBook(folder.file("posts.json", "[{}]")), std::runtime_error);
}

TEST_CASE("a post that can't be kept is not a post") {
    const TemporaryDirectory folder;
    PostBook book(folder.path() / "missing" / "posts.json");
    CHECK_THROWS_AS(book.add(order("aaaaaaaa")), std::runtime_error);
    CHECK(book.all().empty());
}

TEST_CASE("the JSON of a post leaves out what the client left out") {
    CHECK_FALSE(toJson(order("aaaaaaaa")).contains("body"));
    CHECK_FALSE(toJson(order("aaaaaaaa")).contains("duration"));
    CHECK_FALSE(toJson(order("aaaaaaaa")).contains("recorded_at"));
}

TEST_CASE("times are written in UTC") {
    CHECK(utcText(0) == "1970-01-01T00:00:00Z");
    CHECK(utcText(951827696) == "2000-02-29T12:34:56Z");
}
