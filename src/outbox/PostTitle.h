#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace cadora {

// The title of a post, made from the name of the file that was sent.
class PostTitle {
public:
    PostTitle() = delete;

    // The name without directory and extension, each run of white space made one space; absent when nothing
    // is left.
    static std::optional<std::string> clean(std::string_view fromFilename);
};

} // namespace cadora
