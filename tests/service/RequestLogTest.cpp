#include "service/RequestLog.h"

#include <sstream>

#include <doctest/doctest.h>
#include <nlohmann/json.hpp>

using cadora::service::LoggedRequest;
using cadora::service::RequestLog;
using nlohmann::json;

namespace {

LoggedRequest request(const std::string& path) {
    LoggedRequest made;
    made.method = "PUT";
    made.path = path;
    return made;
}

} // namespace

TEST_CASE("requests are listed as they arrive and written as they end") {
    std::ostringstream lines;
    RequestLog log(lines);
    LoggedRequest first = request("/first");
    first.id = log.begin(first);
    LoggedRequest second = request("/second");
    second.id = log.begin(second);
    CHECK(lines.str().empty());
    CHECK(log.list().at(0).at("ended") == false);
    CHECK(log.list().at(0).at("status").is_null());

    second.ended = true;
    second.status = 200;
    log.end(second);
    first.ended = true;
    log.end(first);

    CHECK(log.list().at(0).at("path") == "/first");
    CHECK(log.list().at(1).at("status") == 200);
    std::istringstream written(lines.str());
    std::string line;
    std::getline(written, line);
    CHECK(json::parse(line).at("path") == "/second");
    std::getline(written, line);
    CHECK(json::parse(line).at("path") == "/first");
    CHECK(json::parse(line) == log.list().at(0));
    CHECK_FALSE(std::getline(written, line));
}

TEST_CASE("a path that is no UTF-8 or holds a line feed is one line of JSON all the same") {
    std::ostringstream lines;
    RequestLog log(lines);
    LoggedRequest odd = request("/\xff\n");
    odd.id = log.begin(odd);
    log.end(odd);
    CHECK(lines.str().find('\n') == lines.str().size() - 1);
    CHECK(json::parse(lines.str()).at("path") == "/\xEF\xBF\xBD\n");
}
