#include "hosts/linux/file-managers/ThunarActions.h"

#include <expat.h>

#include <limits>
#include <memory>
#include <string_view>
#include <utility>

namespace cadora {

class ThunarActionsParser {
public:
    explicit ThunarActionsParser(const std::string& uniqueID) : uniqueID_(uniqueID) {
        XML_SetUserData(parser_.get(), this);
        XML_SetElementHandler(parser_.get(), begin, end);
        XML_SetCharacterDataHandler(parser_.get(), characters);
    }

    std::optional<ThunarActions> parse(std::string text) {
        // Nothing could be put into what has no ASCII in it.
        if (text.find('\0') != std::string::npos || text.size() > std::numeric_limits<int>::max() ||
            !read(text) || !isList_) {
            return std::nullopt;
        }
        if (!text.substr(end_).starts_with("</")) {
            // An empty list in one tag, which ends here.
            text.replace(end_ - 2, 2, "></actions>");
            --end_;
        }
        return ThunarActions(std::move(text), std::move(found_), end_);
    }

private:
    struct Free {
        void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
    };

    bool read(std::string text) {
        // As older versions of Thunar began the list, and as only their own reader takes it.
        constexpr std::string_view olderBegin = "<?xml encoding=\"UTF-8\" version=\"1.0\"?>";
        if (text.starts_with(olderBegin)) {
            text.replace(0, olderBegin.size(), olderBegin.size(), ' ');
        }
        return XML_Parse(parser_.get(), text.data(), static_cast<int>(text.size()), XML_TRUE) ==
               XML_STATUS_OK;
    }

    std::size_t position() const { return static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_.get())); }

    static void begin(void* self, const char* name, const char**) {
        auto& parser = *static_cast<ThunarActionsParser*>(self);
        const std::string_view element = name;
        ++parser.depth_;
        if (parser.depth_ == 1) {
            parser.isList_ = element == "actions";
        } else if (parser.depth_ == 2) {
            parser.actionBegin_ = parser.position();
            parser.isOurs_ = false;
        }
        parser.isUniqueID_ = parser.depth_ == 3 && element == "unique-id";
        parser.characters_.clear();
    }

    static void end(void* self, const char*) {
        auto& parser = *static_cast<ThunarActionsParser*>(self);
        if (parser.isUniqueID_) {
            parser.isOurs_ = parser.characters_ == parser.uniqueID_;
            parser.isUniqueID_ = false;
        }
        const std::size_t position = parser.position();
        if (parser.depth_ == 2 && parser.isOurs_) {
            const auto length = static_cast<std::size_t>(XML_GetCurrentByteCount(parser.parser_.get()));
            parser.found_.push_back({parser.actionBegin_, position + length});
        } else if (parser.depth_ == 1) {
            parser.end_ = position;
        }
        --parser.depth_;
    }

    static void characters(void* self, const char* text, int length) {
        auto& parser = *static_cast<ThunarActionsParser*>(self);
        if (parser.isUniqueID_) {
            parser.characters_.append(text, static_cast<std::size_t>(length));
        }
    }

    std::unique_ptr<XML_ParserStruct, Free> parser_{XML_ParserCreate(nullptr)};
    const std::string& uniqueID_;
    std::string characters_;
    std::vector<ThunarActions::Range> found_;
    std::size_t actionBegin_ = 0;
    std::size_t end_ = 0;
    int depth_ = 0;
    bool isList_ = false;
    bool isOurs_ = false;
    bool isUniqueID_ = false;
};

std::optional<ThunarActions> ThunarActions::parse(std::string text, const std::string& uniqueID) {
    return ThunarActionsParser(uniqueID).parse(std::move(text));
}

std::optional<std::string> ThunarActions::action() const {
    if (found_.empty()) {
        return std::nullopt;
    }
    return text_.substr(found_.front().begin, found_.front().end - found_.front().begin);
}

void ThunarActions::put(std::string_view action) {
    if (found_.empty()) {
        text_.insert(end_, std::string(action) + '\n');
        found_.push_back({end_, end_ + action.size()});
        end_ += action.size() + 1;
        return;
    }
    Range& range = found_.front();
    const std::size_t before = range.end - range.begin;
    text_.replace(range.begin, before, action);
    range.end = range.begin + action.size();
    for (std::size_t i = 1; i < found_.size(); ++i) {
        found_[i].begin += action.size() - before;
        found_[i].end += action.size() - before;
    }
    end_ += action.size() - before;
}

void ThunarActions::remove() {
    for (; !found_.empty(); found_.pop_back()) {
        const Range range = found_.back();
        const std::size_t length = range.end - range.begin + (text_[range.end] == '\n' ? 1 : 0);
        text_.erase(range.begin, length);
        end_ -= length;
    }
}

} // namespace cadora
