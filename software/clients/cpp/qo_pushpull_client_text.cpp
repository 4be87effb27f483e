// A walk over the members of a JSON text that remembers one path only, so that no text makes it recurse or allocate.
#include "qo_pushpull_client_text.h"

namespace {

constexpr char kBlanks[] = " \t\r\n";

class Walk {
public:
    Walk(std::string_view text, const std::vector<std::string>& names) : text_(text), names_(names) {}

    bool reaches() {
        for (; position_ < text_.size(); ++position_) {
            const char character = text_[position_];
            if (character == '{' || character == '[')
                ++depth_;
            else if (character == '}' || character == ']')
                leave();
            else if (character == '"' && ends_at_name())
                return true;
        }
        return false;
    }

private:
    void leave() {
        if (depth_ > 0) --depth_;
        if (found_ >= depth_) found_ = depth_ > 0 ? depth_ - 1 : 0;
    }

    /// At a string: whether it is the name that the path ends with, or one of its names in front of an array. Steps to
    /// the string's closing quote.
    bool ends_at_name() {
        const std::string_view string = skip_string();
        const size_t colon = text_.find_first_not_of(kBlanks, position_ + 1);
        if (colon == std::string_view::npos || text_[colon] != ':') return false;
        // The members of the object that the path has led to, and no others.
        if (depth_ != found_ + 1 || !may_be(string, names_[found_])) return false;
        if (depth_ == names_.size()) return true;
        const size_t value = text_.find_first_not_of(kBlanks, colon + 1);
        if (value == std::string_view::npos) return false;
        if (text_[value] == '{') ++found_;
        return text_[value] == '[';
    }

    std::string_view skip_string() {
        const size_t begin = ++position_;
        while (position_ < text_.size() && text_[position_] != '"') position_ += text_[position_] == '\\' ? 2 : 1;
        return text_.substr(begin, position_ - begin);
    }

    static bool may_be(std::string_view written, const std::string& name) {
        return written == name || written.find('\\') != std::string_view::npos;
    }

    const std::string_view text_;
    const std::vector<std::string>& names_;
    size_t position_ = 0;
    size_t depth_ = 0;  // objects and arrays that are open
    size_t found_ = 0;  // names of the path, of the objects that are open
};

}  // namespace

std::vector<std::string> qo_pointer_names(std::string_view pointer) {
    std::vector<std::string> names;
    while (!pointer.empty()) {
        const size_t end = pointer.find('/');
        const std::string_view name = pointer.substr(0, end);
        if (!name.empty()) names.emplace_back(name);
        pointer.remove_prefix(end == std::string_view::npos ? pointer.size() : end + 1);
    }
    return names;
}

bool qo_text_reaches(std::string_view text, std::string_view pointer) {
    const std::vector<std::string> names = qo_pointer_names(pointer);
    return names.empty() || Walk(text, names).reaches();
}
