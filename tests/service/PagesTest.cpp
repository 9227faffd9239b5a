#include "service/Pages.h"

#include <string>

#include <doctest/doctest.h>

using cadora::service::callbackUrl;
using cadora::service::Post;
using cadora::service::postsPage;
using cadora::service::signInPage;

namespace {

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

Post post(std::int64_t number, const std::string& title) {
    Post made;
    made.postId = number;
    made.body = title;
    made.visibility = "private";
    made.createdAt = "2026-01-31T12:34:56Z";
    return made;
}

} // namespace

TEST_CASE("each outcome of a sign-in has its callback") {
    CHECK(callbackUrl("account", "t", "u", "e@example.com") ==
          "cadora://callback?token=t&user_id=u&email=e%40example.com");
    CHECK(callbackUrl("account-without-email", "t", "u", "e") == "cadora://callback?token=t&user_id=u");
    CHECK(callbackUrl("no-account", "t", "u", "e") == "cadora://callback?error=no_account");
    CHECK(callbackUrl("denied", "t", "u", "e") == "cadora://callback?error=access_denied");
    CHECK_FALSE(callbackUrl("other", "t", "u", "e"));
}

TEST_CASE("what could break a callback apart is percent-encoded") {
    CHECK(callbackUrl("account-without-email", "a+b/c=&d e", "é~-._", "") ==
          "cadora://callback?token=a%2Bb%2Fc%3D%26d%20e&user_id=%C3%A9~-._");
}

TEST_CASE("the sign-in page has a button for every outcome") {
    const std::string page = signInPage();
    for (const std::string outcome : {"account", "account-without-email", "no-account", "denied"}) {
        CHECK(contains(page, "<button name=\"outcome\" value=\"" + outcome + "\">") !=
              contains(page, "<button class=\"first\" name=\"outcome\" value=\"" + outcome + "\">"));
        CHECK(callbackUrl(outcome, "t", "u", "e"));
    }
    CHECK(contains(page, "action=\"/auth/apple/desktop/continue\""));
}

TEST_CASE("the page of posts shows title, visibility, duration, time and a player") {
    Post long_ = post(7, "A song");
    long_.duration = 185.4;
    const std::string page = postsPage({long_});
    CHECK(contains(page, "<h2>A song</h2>"));
    CHECK(contains(page, "<dd>private</dd>"));
    CHECK(contains(page, "<dd>3:05</dd>"));
    CHECK(contains(page, "datetime=\"2026-01-31T12:34:56Z\""));
    CHECK(contains(page, "<audio controls"));
    CHECK(contains(page, "src=\"/audio/7\""));
    CHECK(contains(page, "1 post"));
}

TEST_CASE("posts are shown in the order given") {
    const std::string page = postsPage({post(2, "Newer"), post(1, "Older")});
    CHECK(page.find("Newer") < page.find("Older"));
    CHECK(contains(page, "2 posts"));
}

TEST_CASE("a post without title or duration says so, and no posts say so too") {
    Post bare = post(1, "");
    bare.body.reset();
    CHECK(contains(postsPage({bare}), "<h2>Untitled</h2>"));
    CHECK(contains(postsPage({bare}), "<dd>unknown</dd>"));
    CHECK(contains(postsPage({}), "No posts yet."));
}

TEST_CASE("a title is text, whatever it holds") {
    const std::string page = postsPage({post(1, "<script>\"&'</script>")});
    CHECK(contains(page, "&lt;script&gt;&quot;&amp;&#39;&lt;/script&gt;"));
    CHECK_FALSE(contains(page, "<script>"));
}
