#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace cadora::service {

/// The header fields of a request exactly as they were sent.
class HeaderFields {
public:
    void add(std::string_view name, std::string_view value);

    /// The values of a field in the order sent, without the blanks around them. The name is in lower case.
    std::vector<std::string> values(const std::string& name) const;
    /// The first value, empty when there is none.
    std::string value(const std::string& name) const;
    bool has(const std::string& name) const { return fields_.contains(name); }

    /// All names, in lower case, sorted, each once.
    std::vector<std::string> names() const;

private:
    std::multimap<std::string, std::string> fields_;
};

/// The text with A to Z as a to z.
std::string lowered(std::string text);
/// The text without blanks and tabs at its ends.
std::string_view trimmed(std::string_view text);

} // namespace cadora::service
