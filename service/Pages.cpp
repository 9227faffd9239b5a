#include "service/Pages.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace cadora::service {

namespace {

constexpr std::string_view style = R"(
:root { color-scheme: light dark; --ink: #1d1b22; --soft: #5d5967; --paper: #faf8f5; --card: #ffffff;
        --line: #ddd8d0; --edge: #85808e; --accent: #7a2e5d; --accent-ink: #ffffff; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #f2eff5; --soft: #b5afbf; --paper: #17151b; --card: #221f28; --line: #3a3642;
          --edge: #817b8c; --accent: #e7a3cb; --accent-ink: #2a1120; }
}
* { box-sizing: border-box; }
body { margin: 0; background: var(--paper); color: var(--ink); font: 1rem/1.5 system-ui, sans-serif; }
main { max-width: 40rem; margin: 0 auto; padding: 3rem 1.25rem; }
h1 { font-size: 1.75rem; line-height: 1.2; margin: 0 0 .5rem; }
h2 { font-size: 1.1rem; margin: 0; overflow-wrap: anywhere; }
p { margin: 0 0 1.5rem; color: var(--soft); }
.card { background: var(--card); border: 1px solid var(--line); border-radius: .75rem; padding: 1.25rem;
        margin: 0 0 1rem; }
ol { list-style: none; margin: 0; padding: 0; }
dl { display: flex; flex-wrap: wrap; gap: .25rem 1.25rem; margin: .25rem 0 .75rem; color: var(--soft);
     font-size: .9rem; }
dl div { display: flex; gap: .35rem; }
dt::after { content: ":"; }
dd { margin: 0; }
.card > :last-child { margin-bottom: 0; }
audio { display: block; width: 100%; }
button { display: block; width: 100%; margin: 0 0 .75rem; padding: .75rem 1rem; font: inherit;
         border: 1px solid var(--edge); border-radius: .5rem; background: var(--card); color: var(--ink);
         cursor: pointer; }
button.first { background: var(--accent); border-color: var(--accent); color: var(--accent-ink); }
button:focus-visible, audio:focus-visible { outline: 3px solid var(--accent); outline-offset: 2px; }
)";

std::string escaped(std::string_view text) {
    std::string html;
    for (const char character : text) {
        switch (character) {
        case '&':
            html += "&amp;";
            break;
        case '<':
            html += "&lt;";
            break;
        case '>':
            html += "&gt;";
            break;
        case '"':
            html += "&quot;";
            break;
        case '\'':
            html += "&#39;";
            break;
        default:
            html += character;
        }
    }
    return html;
}

std::string page(std::string_view title, std::string_view content) {
    std::string html = "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
                       "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>";
    html.append(escaped(title)).append("</title>\n<style>").append(style);
    html.append("</style>\n</head>\n<body>\n<main>\n").append(content).append("</main>\n</body>\n</html>\n");
    return html;
}

std::string clock(double seconds) {
    const auto whole = std::llround(seconds);
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), "%lld:%02lld", whole / 60, whole % 60);
    return text.data();
}

std::string percentEncoded(std::string_view text) {
    std::string encoded;
    for (const char character : text) {
        const bool plain = (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
                           (character >= '0' && character <= '9') ||
                           std::string_view("-._~").find(character) != std::string_view::npos;
        if (plain) {
            encoded += character;
        } else {
            std::array<char, 4> code{};
            std::snprintf(code.data(), code.size(), "%%%02X", static_cast<unsigned char>(character));
            encoded += code.data();
        }
    }
    return encoded;
}

std::string fact(std::string_view name, std::string_view value) {
    return "<div><dt>" + escaped(name) + "</dt><dd>" + escaped(value) + "</dd></div>\n";
}

} // namespace

std::string signInPage() {
    return page("Sign in to Cadora", R"(<h1>Sign in to Cadora</h1>
<p>This is the local stand-in of the service. Choose how the sign-in ends.</p>
<form class="card" method="get" action="/auth/apple/desktop/continue">
<button class="first" name="outcome" value="account">Continue with an account</button>
<button name="outcome" value="account-without-email">Continue with an account that hides its e-mail</button>
<button name="outcome" value="no-account">Continue without an account</button>
<button name="outcome" value="denied">Don’t allow</button>
</form>
)");
}

std::string postsPage(const std::vector<Post>& posts) {
    std::string content = "<h1>Your feed</h1>\n";
    if (posts.empty()) {
        content += "<p>No posts yet.</p>\n";
        return page("Your feed", content);
    }
    content += posts.size() == 1 ? "<p>1 post</p>\n" : "<p>" + std::to_string(posts.size()) + " posts</p>\n";
    content += "<ol>\n";
    for (const Post& post : posts) {
        const std::string title = post.body.value_or("Untitled");
        content += "<li class=\"card\">\n<article>\n<h2>" + escaped(title) + "</h2>\n<dl>\n";
        content += fact("Visibility", post.visibility);
        content += fact("Duration", post.duration ? clock(*post.duration) : "unknown");
        content += "<div><dt>Posted</dt><dd><time datetime=\"" + escaped(post.createdAt) + "\">" +
                   escaped(post.createdAt) + "</time></dd></div>\n</dl>\n";
        content += "<audio controls preload=\"metadata\" aria-label=\"" + escaped(title) +
                   "\" src=\"/audio/" + std::to_string(post.postId) + "\"></audio>\n</article>\n</li>\n";
    }
    content += "</ol>\n";
    return page("Your feed", content);
}

std::optional<std::string> callbackUrl(std::string_view outcome, std::string_view token,
                                       std::string_view userId, std::string_view email) {
    std::string account =
        "cadora://callback?token=" + percentEncoded(token) + "&user_id=" + percentEncoded(userId);
    if (outcome == "account") {
        return account + "&email=" + percentEncoded(email);
    }
    if (outcome == "account-without-email") {
        return account;
    }
    if (outcome == "no-account") {
        return "cadora://callback?error=no_account";
    }
    if (outcome == "denied") {
        return "cadora://callback?error=access_denied";
    }
    return std::nullopt;
}

} // namespace cadora::service
