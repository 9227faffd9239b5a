#pragma once

#include "service/HeaderFields.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace cadora::service {

/// A request's head is no longer than this; what is longer can't be parsed.
constexpr std::size_t longestHead = 64UL * 1024;

/// What the head of a request says.
struct Request {
    std::string method;
    std::string path;    ///< percent-decoded, without the query
    std::string version; ///< for example "HTTP/1.1"
    HeaderFields headers;
    std::multimap<std::string, std::string> parameters; ///< of the query, decoded
    bool keepsConnection = true;                        ///< whether the client lets the connection go on

    /// The value of a parameter that is given once, absent otherwise.
    std::optional<std::string> parameter(const std::string& name) const;
};

/// Takes a head with its empty line apart. Absent when it is no head of an HTTP/1 request, or announces its
/// body in a way that can't be understood.
std::optional<Request> parseRequest(std::string_view head);

/// What a Range field asks for: the bytes from `first` to `last`, both counted; without a last one up to
/// the end; without a first one the last `last` bytes.
struct ByteRange {
    std::optional<std::uint64_t> first;
    std::optional<std::uint64_t> last;
};

/// Absent when the field doesn't ask for exactly one range; the whole is sent then.
std::optional<ByteRange> parseRange(std::string_view field);

/// Part of a file, sent as a body without being held in memory.
struct FilePart {
    std::filesystem::path file;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};

struct Response {
    int status = 200;
    std::multimap<std::string, std::string> headers;
    std::string body;
    std::optional<FilePart> file; ///< in place of `body`

    void setBody(std::string text, const std::string& contentType);
    bool has(const std::string& name) const { return headers.contains(name); }
    std::uint64_t length() const { return file ? file->length : body.size(); }
};

/// The status line and the fields, with the empty line after them.
std::string headOf(const Response& response);

} // namespace cadora::service
