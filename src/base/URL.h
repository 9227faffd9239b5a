#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace cadora {

// A well-formed URL or relative reference, kept exactly as it was written.
class URL {
public:
    // Absent when the text is empty, holds a character that a URL can't, a '%' without two hexadecimal digits
    // after it, or a host or port that is none by its form. What the scheme means, or whether anybody answers
    // there, is not judged.
    static std::optional<URL> parse(std::string text);

    // For fixed texts: one that doesn't parse is a programming error and ends the program.
    static URL constant(const std::string& text);

    // The file URL of a path, whatever its bytes.
    static URL file(const std::filesystem::path& path);

    const std::string& text() const { return text_; }

    // In lower case; empty for a relative reference.
    std::string scheme() const;

    // The host and port as written, without user information; empty when there is none.
    std::string authority() const;

    // Scheme, host and port without anything behind them: what may be logged of a URL that carries a secret.
    std::string origin() const;

    // Whether HTTP can be spoken there: http or https, a host's name or address, a port that exists, and no
    // user information.
    bool isHTTPAddress() const;

    bool isFileURL() const { return scheme() == "file"; }

    // The path of a file URL, percent-escapes decoded; absent for any other URL, for one that names another
    // host, and for one whose path holds a NUL byte.
    std::optional<std::filesystem::path> filePath() const;

    // The query's items in order, percent-escapes decoded ('+' stays a plus); an item without '=' has no
    // value. Empty without a query.
    std::vector<std::pair<std::string, std::optional<std::string>>> queryItems() const;

    friend bool operator==(const URL&, const URL&) = default;

private:
    explicit URL(std::string text) : text_(std::move(text)) {}

    std::string text_;
};

} // namespace cadora
