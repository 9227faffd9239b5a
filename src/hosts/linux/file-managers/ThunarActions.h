#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace cadora {

// Thunar's custom actions: its uca.xml, in which one action is put, replaced and removed without touching a
// byte of the rest.
class ThunarActions {
public:
    // The actions that bear the unique id are the ones in question. Absent when the text is not a well-formed
    // list of actions, which Thunar itself would not read either.
    static std::optional<ThunarActions> parse(std::string text, const std::string& uniqueID);

    // The action in question, with its tags; absent when there is none.
    std::optional<std::string> action() const;

    // Puts the action, ASCII with its tags, behind the others, or in place of the one that is there.
    void put(std::string_view action);

    void remove();

    const std::string& text() const { return text_; }

private:
    struct Range {
        std::size_t begin;
        std::size_t end;
    };

    ThunarActions(std::string text, std::vector<Range> found, std::size_t end)
        : text_(std::move(text)), found_(std::move(found)), end_(end) {}

    friend class ThunarActionsParser;

    std::string text_;
    std::vector<Range> found_;
    std::size_t end_; // of the last action: where the list's closing tag is
};

} // namespace cadora
