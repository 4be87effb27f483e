// Taking the header off a line.
#include "qo_ctl_log_line.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

#include "qo_ctl_moment.h"
#include "qo_pushpull_json.h"

namespace {

constexpr size_t kLongestHeader = 400;  // bytes; a host name has 255 at most
constexpr size_t kStampLength = 15;     // "Jan  5 13:04:59"

bool is_digit(char character) { return character >= '0' && character <= '9'; }

/// The time that the text begins with; "" when it begins with none.
std::string_view time_of(std::string_view text) {
    constexpr std::array<std::string_view, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    if (std::find(kMonths.begin(), kMonths.end(), text.substr(0, 3)) != kMonths.end() && text.size() > kStampLength &&
        text[6] == ' ' && text[9] == ':' && text[12] == ':')
        return text.substr(0, kStampLength);
    constexpr size_t kShortest = 19;  // "2026-01-05T13:04:59"
    if (text.size() > kShortest && is_digit(text[0]) && text[4] == '-' && text[7] == '-' && text[10] == 'T')
        return text.substr(0, text.find(' '));
    return "";
}

/// Where the text begins behind "PushPull: " or "PushPull[812]: "; npos when the header names another.
size_t behind_ident(std::string_view header) {
    const std::string_view ident = QO_CTL_LOG_IDENT;
    for (size_t begin = header.find(ident); begin != std::string_view::npos; begin = header.find(ident, begin + 1)) {
        if (begin > 0 && header[begin - 1] != ' ') continue;
        size_t end = begin + ident.size();
        if (end < header.size() && header[end] == '[') end = header.find_first_not_of("0123456789", end + 1);
        if (end < header.size() && header[end] == ']') ++end;
        if (end < header.size() && header.substr(end).starts_with(": ")) return end + 2;
    }
    return std::string_view::npos;
}

/// The message of a journal's entry: a text, or the numbers of its bytes when it is not plain.
std::string message_of(const JSONNODE* node) {
    if (node == nullptr) return "";
    if (json_type(node) != JSON_ARRAY) return std::string(qo_json_string(node));
    std::string text;
    for (size_t i = 0; i < json_size(node); ++i) text += static_cast<char>(json_as_int(json_at(node, i)));
    return text;
}

std::string journal_time(const JSONNODE* node) {
    const std::string_view digits = node == nullptr ? "" : qo_json_string(node);
    int64_t microseconds = 0;
    const char* const end = digits.data() + digits.size();
    if (digits.empty() || std::from_chars(digits.data(), end, microseconds).ptr != end) return "";
    return qo_ctl_moment_text(microseconds / 1000);
}

/// How long the escape of a control character is that the text begins with; 0 for none.
size_t escape_length(std::string_view text) {
    const auto octal = [&](size_t from) {
        return text.size() >= from + 3 && std::all_of(text.begin() + static_cast<std::ptrdiff_t>(from),
                                                      text.begin() + static_cast<std::ptrdiff_t>(from + 3),
                                                      [](char digit) { return digit >= '0' && digit <= '7'; });
    };
    if ((text[0] == '#' || text[0] == '\\') && octal(1)) return 4;
    return text.starts_with("\\n") || text.starts_with("\\t") ? 2 : 0;
}

}  // namespace

QoCtlLogLine qo_ctl_read_log_line(std::string_view line) {
    std::string_view rest = line;
    if (rest.starts_with('<') && rest.find('>') < 6) rest.remove_prefix(rest.find('>') + 1);
    const std::string_view time = time_of(rest);
    // A text that names the service somewhere has no header for that.
    if (time.empty() && rest.size() == line.size() && behind_ident(rest.substr(0, rest.find(' ') + 1)) == rest.npos)
        return {QoCtlLogLine::Origin::bare, "", std::string(line)};
    const size_t begin = behind_ident(rest.substr(0, kLongestHeader));
    // The first ": " ends the header: what comes later is somebody's text.
    if (begin == std::string_view::npos || rest.find(": ") + 2 < begin)
        return {QoCtlLogLine::Origin::other, std::string(time), std::string(rest.substr(time.size()))};
    return {QoCtlLogLine::Origin::service, std::string(time), std::string(rest.substr(begin))};
}

std::optional<QoCtlLogLine> qo_ctl_read_journal_line(std::string_view json) {
    const QoJsonNode entry = qo_json_parse(json);
    if (!entry || json_type(entry.get()) != JSON_NODE) return std::nullopt;
    const JSONNODE* ident = qo_json_find(entry.get(), "SYSLOG_IDENTIFIER");
    const bool service = ident != nullptr && qo_json_string(ident) == QO_CTL_LOG_IDENT;
    return QoCtlLogLine{service ? QoCtlLogLine::Origin::service : QoCtlLogLine::Origin::other,
                        journal_time(qo_json_find(entry.get(), "__REALTIME_TIMESTAMP")),
                        message_of(qo_json_find(entry.get(), "MESSAGE"))};
}

std::string qo_ctl_without_layout_escapes(std::string_view json) {
    std::string text;
    bool in_string = false;
    while (!json.empty()) {
        size_t length = in_string ? 0 : escape_length(json);
        if (length > 0) {
            text += ' ';
        } else {
            length = in_string && json[0] == '\\' ? std::min<size_t>(json.size(), 2) : 1;
            if (json[0] == '"') in_string = !in_string;
            text += json.substr(0, length);
        }
        json.remove_prefix(length);
    }
    return text;
}
