#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace cadora::service {

/// The header fields of a request exactly as they were sent. The library's own percent-decodes their values
/// and drops empty ones, which would let a wrong credential or length pass for a right one.
class HeaderFields {
public:
    HeaderFields() = default;
    /// Takes a request's head apart, from its request line to the empty line.
    explicit HeaderFields(std::string_view head);

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
