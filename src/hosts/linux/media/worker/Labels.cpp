#include "hosts/linux/media/worker/Labels.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>

namespace cadora {

namespace {

constexpr std::array<std::uint8_t, 3> jpegStart = {0xff, 0xd8, 0xff};
constexpr std::array<std::uint8_t, 8> pngStart = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};

// The kinds of data that the container's list knows.
enum class Kind : std::uint8_t { text = 1, jpeg = 13, png = 14, integer = 21 };

bool startsWith(std::span<const std::uint8_t> bytes, std::span<const std::uint8_t> start) {
    return bytes.size() >= start.size() && std::equal(start.begin(), start.end(), bytes.begin());
}

std::string bigEndian(std::size_t value) {
    std::string bytes;
    for (const int shift : {24, 16, 8, 0}) {
        bytes += static_cast<char>(value >> shift & 0xffU);
    }
    return bytes;
}

std::string box(const char* type, const std::string& content) {
    return bigEndian(content.size() + 8) + type + content;
}

std::string data(Kind kind, const std::string& content) {
    return box("data", bigEndian(static_cast<std::size_t>(kind)) + bigEndian(0) + content);
}

std::string freeformItem(const std::string& name, const std::string& text) {
    return box("----", box("mean", bigEndian(0) + "com.apple.iTunes") + box("name", bigEndian(0) + name) +
                           data(Kind::text, text));
}

template <class... Values> std::string formatted(const char* format, Values... values) {
    std::array<char, 160> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

std::string upperCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return text;
}

std::optional<double> numberIn(const std::string& text, double least, double most) {
    const double value = std::strtod(text.c_str(), nullptr);
    return std::isfinite(value) && value >= least && value <= most && value != 0 ? std::optional(value)
                                                                                 : std::nullopt;
}

// Two letters of a country, three of a registrant, a year and a number; none if it is anything else.
std::string recordingCode(const std::string& text) {
    std::string code = upperCase(text);
    std::erase(code, '-');
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const auto isLetter = [](char c) { return c >= 'A' && c <= 'Z'; };
    constexpr std::size_t length = 12;
    constexpr std::size_t letters = 2;
    constexpr std::size_t registrant = 5;
    if (code.size() != length || !std::all_of(code.begin(), code.begin() + letters, isLetter) ||
        !std::all_of(code.begin() + letters, code.begin() + registrant,
                     [&](char c) { return isDigit(c) || isLetter(c); }) ||
        !std::all_of(code.begin() + registrant, code.end(), isDigit)) {
        return "";
    }
    return code;
}

} // namespace

bool isCover(std::span<const std::uint8_t> bytes) {
    return bytes.size() <= largestCover && (startsWith(bytes, jpegStart) || startsWith(bytes, pngStart));
}

Labels labelsFrom(const std::map<std::string, std::string>& tags, float gain) {
    constexpr double fastest = 999;
    constexpr double loudest = 100;
    const double lowered = 20 * std::log10(static_cast<double>(gain));
    Labels labels;
    for (const auto& [key, text] : tags) {
        const std::string name = upperCase(key);
        if (name == "BPM" || name == "TBPM" || name == "TMPO") {
            labels.beatsPerMinute = static_cast<int>(std::lround(numberIn(text, 1, fastest).value_or(0)));
        } else if (name == "ISRC" || name == "TSRC") {
            if (const std::string code = recordingCode(text); !code.empty()) {
                labels.freeform["ISRC"] = code;
            }
        } else if (name == "REPLAYGAIN_TRACK_GAIN" || name == "REPLAYGAIN_ALBUM_GAIN") {
            if (const auto decibels = numberIn(text, -loudest, loudest)) {
                labels.freeform[name] = formatted("%.2f dB", *decibels - lowered);
            }
        } else if (name == "REPLAYGAIN_TRACK_PEAK" || name == "REPLAYGAIN_ALBUM_PEAK") {
            if (const auto peak = numberIn(text, 0, loudest)) {
                labels.freeform[name] = formatted("%.6f", *peak * static_cast<double>(gain));
            }
        }
    }
    return labels;
}

std::string labelItems(const Labels& labels, std::int64_t before, std::int64_t behind, std::int64_t samples) {
    std::string items;
    if (labels.beatsPerMinute > 0) {
        items += box("tmpo", data(Kind::integer,
                                  bigEndian(static_cast<std::size_t>(labels.beatsPerMinute)).substr(2)));
    }
    for (const auto& [name, text] : labels.freeform) {
        items += freeformItem(name, text);
    }
    if (!labels.cover.empty()) {
        const Kind kind = startsWith(labels.cover, jpegStart) ? Kind::jpeg : Kind::png;
        items += box("covr", data(kind, std::string(labels.cover.begin(), labels.cover.end())));
    }
    constexpr const char* unused = " 00000000 00000000 00000000 00000000 00000000 00000000 00000000 00000000";
    return items +
           freeformItem("iTunSMPB", formatted(" 00000000 %08X %08X %016llX%s", static_cast<unsigned>(before),
                                              static_cast<unsigned>(behind),
                                              static_cast<unsigned long long>(samples), unused));
}

} // namespace cadora
