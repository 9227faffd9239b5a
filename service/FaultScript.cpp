#include "service/FaultScript.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <stdexcept>

namespace cadora::service {

namespace {

constexpr std::int64_t longestWait = 600000;
constexpr std::int64_t longestPiece = 1073741824;

[[noreturn]] void refuse(const std::string& field, const std::string& problem) {
    throw std::invalid_argument("\"" + field + "\" " + problem);
}

std::string text(const std::string& field, const nlohmann::json& value) {
    if (!value.is_string()) {
        refuse(field, "must be a string");
    }
    return value.get<std::string>();
}

bool flag(const std::string& field, const nlohmann::json& value) {
    if (!value.is_boolean()) {
        refuse(field, "must be true or false");
    }
    return value.get<bool>();
}

std::int64_t number(const std::string& field, const nlohmann::json& value, std::int64_t least,
                    std::int64_t most) {
    if (!value.is_number_integer() || value.get<std::int64_t>() < least || value.get<std::int64_t>() > most) {
        refuse(field, "must be an integer from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return value.get<std::int64_t>();
}

CutPoint cut(const std::string& field, const nlohmann::json& value, Interruption interruption) {
    return {static_cast<std::uint64_t>(number(field, value, 0, std::numeric_limits<std::int64_t>::max())),
            interruption};
}

CannedAnswer& answerOf(Fault& fault) {
    if (!fault.answer) {
        fault.answer.emplace();
    }
    return *fault.answer;
}

Pace& paceOf(Fault& fault) {
    if (!fault.pace) {
        fault.pace.emplace();
    }
    return *fault.pace;
}

using Apply = std::function<void(Fault&, const std::string&, const nlohmann::json&)>;

const std::map<std::string, Apply>& fields() {
    static const std::map<std::string, Apply> table = {
        {"delay_ms",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             fault.delay = std::chrono::milliseconds(number(field, value, 0, longestWait));
         }},
        {"stall", [](Fault& fault, const std::string& field,
                     const nlohmann::json& value) { fault.stallBeforeHandling = flag(field, value); }},
        {"stall_limit_ms",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             fault.stallLimit = std::chrono::milliseconds(number(field, value, 1, longestWait));
         }},
        {"status",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             answerOf(fault).status = static_cast<int>(number(field, value, 200, 599));
         }},
        {"body", [](Fault& fault, const std::string& field,
                    const nlohmann::json& value) { answerOf(fault).body = text(field, value); }},
        {"content_type",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             answerOf(fault).contentType = text(field, value);
         }},
        {"location",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             answerOf(fault).headers["Location"] = text(field, value);
         }},
        {"headers",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             if (!value.is_object()) {
                 refuse(field, "must be an object");
             }
             for (const auto& [name, content] : value.items()) {
                 answerOf(fault).headers[name] = text(field, content);
             }
         }},
        {"read_body",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             fault.bodyFirst = flag(field, value) ? BodyFirst::yes : BodyFirst::no;
         }},
        {"raw", [](Fault& fault, const std::string& field,
                   const nlohmann::json& value) { fault.rawAnswer = text(field, value); }},
        {"close_after_request_bytes",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             fault.requestCut = cut(field, value, Interruption::close);
         }},
        {"reset_after_request_bytes",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             fault.requestCut = cut(field, value, Interruption::reset);
         }},
        {"stall_after_request_bytes",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             fault.requestCut = cut(field, value, Interruption::stall);
         }},
        {"close_after_response_bytes",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             fault.answerCut = cut(field, value, Interruption::close);
         }},
        {"reset_after_response_bytes",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             fault.answerCut = cut(field, value, Interruption::reset);
         }},
        {"stall_after_response_bytes",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             fault.answerCut = cut(field, value, Interruption::stall);
         }},
        {"pace_bytes",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             paceOf(fault).bytes = static_cast<std::uint64_t>(number(field, value, 1, longestPiece));
         }},
        {"pace_ms",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             paceOf(fault).pause = std::chrono::milliseconds(number(field, value, 1, longestWait));
         }},
        {"count_response_from",
         [](Fault& fault, const std::string& field, const nlohmann::json& value) {
             const std::string from = text(field, value);
             if (from != "status_line" && from != "body") {
                 refuse(field, "must be \"status_line\" or \"body\"");
             }
             fault.answerCountedFrom = from == "body" ? CountedFrom::body : CountedFrom::statusLine;
         }},
    };
    return table;
}

} // namespace

FaultScript::Rule FaultScript::parse(const nlohmann::json& source) {
    if (!source.is_object()) {
        throw std::invalid_argument("a fault must be an object");
    }
    Rule rule;
    rule.source = source;
    for (const auto& [field, value] : source.items()) {
        if (field == "method") {
            rule.method = text(field, value);
        } else if (field == "path") {
            rule.path = text(field, value);
        } else if (field == "calls") {
            if (!value.is_array() || value.empty()) {
                refuse(field, "must be an array of call numbers");
            }
            for (const nlohmann::json& call : value) {
                rule.calls.push_back(number(field, call, 1, std::numeric_limits<std::int64_t>::max()));
            }
        } else if (const auto known = fields().find(field); known != fields().end()) {
            known->second(rule.fault, field, value);
        } else {
            refuse(field, "is not a field of a fault");
        }
    }
    if (source.contains("pace_bytes") != source.contains("pace_ms")) {
        refuse("pace_bytes", "and \"pace_ms\" go together");
    }
    if (rule.fault.answer && !source.contains("status")) {
        refuse("status", "is missing beside the rest of the answer");
    }
    return rule;
}

std::vector<std::int64_t> FaultScript::add(const nlohmann::json& rules) {
    std::vector<Rule> parsed;
    if (rules.is_array()) {
        for (const nlohmann::json& rule : rules) {
            parsed.push_back(parse(rule));
        }
    } else {
        parsed.push_back(parse(rules));
    }
    const std::lock_guard lock(mutex_);
    std::vector<std::int64_t> ids;
    for (Rule& rule : parsed) {
        rule.fault.id = nextId_++;
        ids.push_back(rule.fault.id);
        rules_.push_back(std::move(rule));
    }
    return ids;
}

void FaultScript::clear() {
    const std::lock_guard lock(mutex_);
    rules_.clear();
}

std::optional<Fault> FaultScript::next(std::string_view method, std::string_view path) {
    const std::lock_guard lock(mutex_);
    std::optional<Fault> chosen;
    for (Rule& rule : rules_) {
        if ((!rule.method.empty() && rule.method != method) || !path.starts_with(rule.path)) {
            continue;
        }
        ++rule.matched;
        const bool spoils = rule.calls.empty() ||
                            std::find(rule.calls.begin(), rule.calls.end(), rule.matched) != rule.calls.end();
        if (spoils && !chosen) {
            chosen = rule.fault;
        }
    }
    return chosen;
}

nlohmann::json FaultScript::list() const {
    const std::lock_guard lock(mutex_);
    nlohmann::json rules = nlohmann::json::array();
    for (const Rule& rule : rules_) {
        nlohmann::json entry = rule.source;
        entry["id"] = rule.fault.id;
        entry["matched"] = rule.matched;
        rules.push_back(std::move(entry));
    }
    return rules;
}

} // namespace cadora::service
