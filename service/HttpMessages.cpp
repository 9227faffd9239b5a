#include "service/HttpMessages.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/fields.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>

namespace cadora::service {

namespace {

namespace http = boost::beast::http;

enum class PlusIs { plus, blank };

std::string percentDecoded(std::string_view text, PlusIs plus) {
    std::string decoded;
    for (std::size_t place = 0; place < text.size(); ++place) {
        unsigned char code = 0;
        const char* const digits = text.data() + place + 1;
        if (text[place] == '%' && place + 2 < text.size() &&
            std::from_chars(digits, digits + 2, code, 16).ptr == digits + 2) {
            decoded += static_cast<char>(code);
            place += 2;
        } else {
            decoded += text[place] == '+' && plus == PlusIs::blank ? ' ' : text[place];
        }
    }
    return decoded;
}

std::multimap<std::string, std::string> parseQuery(std::string_view query) {
    std::multimap<std::string, std::string> parameters;
    while (!query.empty()) {
        const std::string_view pair = query.substr(0, query.find('&'));
        const std::size_t equals = std::min(pair.find('='), pair.size());
        parameters.emplace(percentDecoded(pair.substr(0, equals), PlusIs::blank),
                           percentDecoded(pair.substr(std::min(equals + 1, pair.size())), PlusIs::blank));
        query.remove_prefix(std::min(pair.size() + 1, query.size()));
    }
    return parameters;
}

std::string_view view(boost::beast::string_view text) {
    return {text.data(), text.size()};
}

/// Absent for no digits at all, which is no mistake here; `text` keeps what is no digit.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
    std::uint64_t value = 0;
    const auto [stop, problem] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (problem != std::errc()) {
        return std::nullopt;
    }
    text.remove_prefix(static_cast<std::size_t>(stop - text.data()));
    return value;
}

} // namespace

std::optional<std::string> Request::parameter(const std::string& name) const {
    return parameters.count(name) == 1 ? std::optional(parameters.find(name)->second) : std::nullopt;
}

std::optional<Request> parseRequest(std::string_view head) {
    http::request_parser<http::empty_body> parser;
    parser.header_limit(static_cast<std::uint32_t>(longestHead));
    // Whoever reads the body decides how long it may be.
    parser.body_limit(std::numeric_limits<std::uint64_t>::max());
    boost::beast::error_code problem;
    parser.put(boost::asio::const_buffer(head.data(), head.size()), problem);
    if (problem || !parser.is_header_done()) {
        return std::nullopt;
    }
    const http::request<http::empty_body>& message = parser.get();
    Request request;
    request.method = view(message.method_string());
    const std::string_view target = view(message.target());
    const std::size_t question = std::min(target.find('?'), target.size());
    request.path = percentDecoded(target.substr(0, question), PlusIs::plus);
    request.parameters = parseQuery(target.substr(std::min(question + 1, target.size())));
    request.version =
        "HTTP/" + std::to_string(message.version() / 10) + "." + std::to_string(message.version() % 10);
    for (const auto& field : message) {
        request.headers.add(view(field.name_string()), view(field.value()));
    }
    request.keepsConnection = message.keep_alive();
    return request;
}

std::optional<ByteRange> parseRange(std::string_view field) {
    constexpr std::string_view unit = "bytes=";
    if (!field.starts_with(unit)) {
        return std::nullopt;
    }
    field.remove_prefix(unit.size());
    ByteRange range;
    range.first = takeNumber(field);
    if (!field.starts_with('-')) {
        return std::nullopt;
    }
    field.remove_prefix(1);
    range.last = takeNumber(field);
    const bool backwards = range.first && range.last && *range.last < *range.first;
    return field.empty() && (range.first || range.last) && !backwards ? std::optional(range) : std::nullopt;
}

void Response::setBody(std::string text, const std::string& contentType) {
    body = std::move(text);
    headers.emplace("Content-Type", contentType);
}

std::string headOf(const Response& response) {
    http::fields fields;
    for (const auto& [name, value] : response.headers) {
        fields.insert(name, value);
    }
    http::fields::writer writer(fields, 11, static_cast<unsigned>(response.status));
    return boost::beast::buffers_to_string(writer.get());
}

} // namespace cadora::service
