#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace cadora {

bool isValidUTF8(std::string_view bytes);

// The same text with every ill-formed sequence shown as U+FFFD, so that it can be displayed and encoded.
std::string repairedUTF8(std::string_view bytes);

// The text itself, or, if it has more characters than `most`, its beginning and its end with an ellipsis
// between, as many together.
std::string shortenedInTheMiddle(std::string_view text, std::size_t most);

// Takes one character off the front of `bytes`, which must not be empty. An ill-formed sequence is taken as
// one replacement character for its longest well-begun part, as decoders commonly do.
struct UTF8Character {
    static constexpr char32_t replacement = 0xFFFD;

    char32_t scalar;
    std::string_view bytes;
    bool isWellFormed;
};
UTF8Character takeUTF8Character(std::string_view& bytes);

} // namespace cadora
