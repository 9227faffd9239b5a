#include "service/Pages.h"

#include "service/PageTexts.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <utility>

namespace cadora::service {

namespace {

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

using Values = std::map<std::string_view, std::string>;

/// The text with each {{name}} replaced by its value, once: what a value holds stays as it is.
std::string filled(std::string_view text, const Values& values) {
    std::string result;
    while (true) {
        const std::size_t begin = text.find("{{");
        result += text.substr(0, begin);
        if (begin == std::string_view::npos) {
            return result;
        }
        const std::size_t end = text.find("}}", begin);
        result += values.at(text.substr(begin + 2, end - begin - 2));
        text.remove_prefix(end + 2);
    }
}

std::string page(std::string_view title, std::string content) {
    return filled(
        pages::page,
        {{"title", escaped(title)}, {"style", std::string(pages::style)}, {"content", std::move(content)}});
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

} // namespace

std::string signInPage() {
    return page("Sign in to Cadora", std::string(pages::signIn));
}

std::string postsPage(const std::vector<Post>& posts) {
    std::string content = "<h1>Your feed</h1>\n";
    if (posts.empty()) {
        return page("Your feed", content + "<p>No posts yet.</p>\n");
    }
    content += posts.size() == 1 ? "<p>1 post</p>\n" : "<p>" + std::to_string(posts.size()) + " posts</p>\n";
    content += "<ol>\n";
    for (const Post& post : posts) {
        content += filled(pages::post, {{"title", escaped(post.body.value_or("Untitled"))},
                                        {"visibility", escaped(post.visibility)},
                                        {"duration", post.duration ? clock(*post.duration) : "unknown"},
                                        {"time", escaped(post.createdAt)},
                                        {"id", std::to_string(post.postId)}});
    }
    return page("Your feed", content + "</ol>\n");
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
