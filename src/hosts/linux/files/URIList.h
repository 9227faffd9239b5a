#pragma once

#include "platform/Application.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

// What file managers and command lines hand over: URIs and paths, mixed.
namespace cadora {

// The text with every byte escaped that a URI can't hold; escapes that are there stay. Programs that show
// names unescaped also pass them on so.
std::string escapedURI(std::string_view text);

// Whether the text is of the scheme that the program itself is opened with.
bool isOwnURL(std::string_view text);

// Overwrites those of the program's own arguments that are of its scheme: a sign-in's callback carries a
// token, and everybody on the machine can read the list of processes.
void hideOwnURLs(const std::vector<char*>& arguments);

// Command-line arguments as URIs, which another process understands whatever its working directory, and which
// carry any bytes. What doesn't look like a URI is a path.
std::vector<std::string> uriList(const std::vector<std::string>& arguments,
                                 const std::filesystem::path& workingDirectory);

// A pasteboard made from URIs and absolute paths. What is neither is left out, and so is a file's URI that is
// not well-formed, which is remembered apart.
class URIListPasteboard : public Pasteboard {
public:
    explicit URIListPasteboard(const std::vector<std::string>& urisAndPaths);

    std::vector<URL> readURLs() const override { return urls_; }

    // As they came, in order.
    const std::vector<std::string>& malformedFileURIs() const { return malformedFileURIs_; }

private:
    std::vector<URL> urls_;
    std::vector<std::string> malformedFileURIs_;
};

} // namespace cadora
