// Writing JSON for people and for programs, in colour or without.
#include "qo_ctl_output.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "qo_ctl_harmless.h"

namespace {

// ---- colours ----

constexpr std::string_view kNameColor = "\033[34m";
constexpr std::string_view kStringColor = "\033[32m";
constexpr std::string_view kNumberColor = "\033[36m";
constexpr std::string_view kWordColor = "\033[35m";  // true, false, null
constexpr std::string_view kPlain = "\033[0m";

/// One past the end of the string that begins at `begin`.
size_t end_of_string(std::string_view json, size_t begin) {
    size_t end = begin + 1;
    while (json[end] != '"') end += json[end] == '\\' ? 2 : 1;
    return end + 1;
}

std::string_view color_of(std::string_view json, size_t begin, size_t end) {
    if (json[begin] == '"') return json.substr(end).starts_with(':') ? kNameColor : kStringColor;
    return json[begin] >= 'a' ? kWordColor : kNumberColor;
}

/// Colours a JSON text as the library writes it, and changes nothing else.
std::string coloured(std::string_view json) {
    constexpr std::string_view kBetween = "{}[],: \t\n";
    std::string text;
    size_t begin = 0;
    while (begin < json.size()) {
        if (kBetween.find(json[begin]) != std::string_view::npos) {
            text += json[begin++];
            continue;
        }
        const size_t end = json[begin] == '"' ? end_of_string(json, begin)
                                              : std::min(json.find_first_of(kBetween, begin), json.size());
        text.append(color_of(json, begin, end)).append(json.substr(begin, end - begin)).append(kPlain);
        begin = end;
    }
    return text;
}

}  // namespace

bool qo_ctl_obeys_commands(const char* terminal_kind) {
    const std::string_view kind = terminal_kind == nullptr ? "" : terminal_kind;
    return !kind.empty() && kind != "dumb";
}

bool qo_ctl_wants_colours(const char* terminal_kind, const char* no_color) {
    return qo_ctl_obeys_commands(terminal_kind) && (no_color == nullptr || *no_color == '\0');
}

std::string qo_ctl_render(const JSONNODE* node, QoCtlStyle style) {
    // JSON itself escapes the control characters in strings below U+0020 only. Those between them are layout.
    const std::string text =
        qo_ctl_harmless(style.formatted ? qo_json_write_formatted(node) : qo_json_write(node), "\t\n");
    return (style.coloured ? coloured(text) : text) + "\n";
}

QoJsonNode qo_ctl_text_node(std::string_view text) {
    QoJsonNode node = qo_json_parse(text);
    if (!node) node.reset(json_new_a_n("", 0, text.data(), text.size()));
    // Bytes that are not UTF-8 have no JSON form.
    if (!node) node.reset(json_new_a("", "(a text that is not valid UTF-8)"));
    return node;
}

void qo_ctl_add_text(JSONNODE* object, std::string_view name, std::string_view text) {
    json_push_back(object, json_new_a_n(name.data(), name.size(), text.data(), text.size()));
}

std::string qo_ctl_render_text(std::string_view text, QoCtlStyle style) {
    return qo_ctl_render(qo_ctl_text_node(text).get(), style);
}

bool qo_ctl_write(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

void qo_ctl_say(const std::string& text) {
    // Nothing can be done, and nobody told, when standard error is closed.
    [[maybe_unused]] const bool written = qo_ctl_write(STDERR_FILENO, "pushpullctl: " + qo_ctl_harmless(text) + "\n");
}

void qo_ctl_tell_person(const std::string& text) {
    if (isatty(STDERR_FILENO) == 1) qo_ctl_say(text);
}

std::string qo_ctl_count(long number, const std::string& name) {
    return std::to_string(number) + " " + name + (number == 1 ? "" : "s");
}
