/// Reads the JSON texts that components write, several times as fast as a reader that knows all of JSON.
#ifndef QO_JSON_FAST_READER_H
#define QO_JSON_FAST_READER_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

#include "json_scan.h"
#include "json_text.h"
#include "qo_json.h"

namespace qo_json {

/// Where decoded strings, names and numbers stand, each followed by a NUL.
enum class Decoded {
    kept,    // behind each other, as long as the space lives
    passing  // each only until the next one
};

/// It only ever accepts: what it does not know, valid or not, it leaves to the other reader, which stays the judge. It
/// does not know exponents, "\u" escapes, numbers of hundreds of digits and nesting beyond JSON_MAX_PARSE_DEPTH.
///
/// The handler is called as the other reader calls it, and likewise ends the reading by a false answer. What it is
/// given before the text proves to be unknown is void.
template <Decoded decoded, typename Handler>
class FastReader {
public:
    /// Bytes that the decoded parts of a text of that length may need.
    static constexpr size_t space_for(size_t length) { return length + 1 + kBlockBytes; }

    /// @param space of space_for(text.size()) bytes
    FastReader(std::string_view text, char* space, Handler& handler)
        : at_(text.data()), end_(at_ + text.size()), space_(space), out_(space), handler_(handler) {}

    /// Whether all of the text was one value that the handler accepts.
    bool read() {
        for (;;) {
            skip_space();
            if (at_ == end_) return false;
            switch (*at_) {
                case '{':
                    if (!open('}')) return false;
                    if (!take('}')) {
                        if (!read_key()) return false;
                        continue;
                    }
                    if (!close()) return false;
                    break;
                case '[':
                    if (!open(']')) return false;
                    if (!take(']')) continue;
                    if (!close()) return false;
                    break;
                case '"':
                    if (!read_text()) return false;
                    break;
                default:
                    if (!read_scalar()) return false;
            }
            switch (leave_value()) {
                case Next::value:
                    continue;
                case Next::end:
                    return true;
                case Next::unknown:
                    return false;
            }
        }
    }

private:
    enum class Next { value, end, unknown };

    /// By the letter of an escape what it means; NUL for one that is not known here.
    static constexpr std::array<char, 256> kUnescaped = [] {
        std::array<char, 256> meant{};
        for (const char itself : {'"', '\\', '/'}) meant[static_cast<unsigned char>(itself)] = itself;
        meant['b'] = '\b';
        meant['f'] = '\f';
        meant['n'] = '\n';
        meant['r'] = '\r';
        meant['t'] = '\t';
        return meant;
    }();

    static constexpr std::ptrdiff_t kLongestNumber = 300;  // digits that are surely in the range of a double

    // ---- structure ----

    bool open(char end) {
        ++at_;
        if (depth_ == levels_.size()) return false;
        levels_[depth_++] = {end, 0};
        return end == '}' ? handler_.StartObject() : handler_.StartArray();
    }

    bool close() {
        const Level level = levels_[--depth_];
        return level.end == '}' ? handler_.EndObject(level.count) : handler_.EndArray(level.count);
    }

    /// Behind a value: closes what ends there, and goes on to the next value.
    Next leave_value() {
        while (depth_ > 0) {
            Level& level = levels_[depth_ - 1];
            ++level.count;
            if (take(',')) return level.end == ']' || read_key() ? Next::value : Next::unknown;
            if (!take(level.end) || !close()) return Next::unknown;
        }
        skip_space();
        return at_ == end_ ? Next::end : Next::unknown;
    }

    void skip_space() {
        const char* at = at_;
        // Nearly always there is none.
        while (at != end_ && static_cast<unsigned char>(*at) <= ' ' && is_space(*at)) ++at;
        at_ = at;
    }

    static bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

    /// A character of the structure, with the white space before it.
    bool take(char wanted) {
        if (at_ == end_ || *at_ != wanted) [[unlikely]] {
            skip_space();
            if (at_ == end_ || *at_ != wanted) return false;
        }
        ++at_;
        return true;
    }

    bool read_key() {
        std::string_view name;
        return take('"') && read_string(name) && handler_.Key(name.data(), length_of(name), true) && take(':');
    }

    // ---- values ----

    bool read_text() {
        ++at_;
        std::string_view text;
        return read_string(text) && handler_.String(text.data(), length_of(text), true);
    }

    bool read_scalar() {
        std::string_view number;
        switch (*at_) {
            case 't':
                return take_word("true") && handler_.Bool(true);
            case 'f':
                return take_word("false") && handler_.Bool(false);
            case 'n':
                return take_word("null") && handler_.Null();
            default:
                return read_number(number) && handler_.RawNumber(number.data(), length_of(number), true);
        }
    }

    bool take_word(std::string_view word) {
        if (static_cast<size_t>(end_ - at_) < word.size() || std::memcmp(at_, word.data(), word.size()) != 0)
            return false;
        at_ += word.size();
        return true;
    }

    /// Behind the opening quote. Whole blocks are copied as they are looked through; what was copied too much of the
    /// last one is overwritten. The places stand in local variables: a byte that is stored could be part of a member.
    bool read_string(std::string_view& text) {
        const char* at = at_;
        char* const start = begin_of_decoded();
        char* out = start;
        bool is_ascii = true;
        for (;;) {
            if (static_cast<size_t>(end_ - at) >= kBlockBytes) {
                const Block block(at);
                block.store(out);
                const Block::Marks escaped = block.escaped();
                if (block.not_ascii() != 0) is_ascii = false;  // or what stands behind the string is not
                const size_t plain = escaped == 0 ? kBlockBytes : Block::first(escaped);
                at += plain;
                out += plain;
                if (escaped == 0) continue;
            } else {
                for (; at != end_ && !is_escaped(*at); *out++ = *at++)
                    if (static_cast<unsigned char>(*at) >= kFirstNotAscii) is_ascii = false;
                if (at == end_) return false;
            }
            if (*at == '"') break;
            if (*at != '\\' || end_ - at < 2) return false;
            const char meant = kUnescaped[static_cast<unsigned char>(at[1])];
            if (meant == '\0') return false;
            *out++ = meant;
            at += 2;
        }
        at_ = at + 1;
        text = end_decoded(start, out);
        return is_ascii || is_utf8(text);
    }

    bool read_number(std::string_view& text) {
        const char* const first = at_;
        const char* at = first;
        if (*at == '-') ++at;
        const char* const whole = at;
        at = behind_digits(at);
        if (at == whole || (*whole == '0' && at - whole > 1)) return false;
        if (at != end_ && *at == '.') {
            const char* const fraction = at + 1;
            at = behind_digits(fraction);
            if (at == fraction) return false;
        }
        if (at - first > kLongestNumber || (at != end_ && (*at == 'e' || *at == 'E'))) return false;
        char* const start = begin_of_decoded();
        at_ = at;
        text = end_decoded(start, copy_number(first, at, start));
        return true;
    }

    /// Most are shorter than a block, and more text follows.
    char* copy_number(const char* first, const char* last, char* out) const {
        const bool is_short = static_cast<size_t>(last - first) <= kBlockBytes;
        if (!is_short || static_cast<size_t>(end_ - first) < kBlockBytes) return std::copy(first, last, out);
        Block(first).store(out);
        return out + (last - first);
    }

    const char* behind_digits(const char* at) const {
        while (at != end_ && *at >= '0' && *at <= '9') ++at;
        return at;
    }

    char* begin_of_decoded() const { return decoded == Decoded::passing ? space_ : out_; }

    std::string_view end_decoded(char* start, char* end) {
        *end = '\0';
        out_ = end + 1;
        return {start, static_cast<size_t>(end - start)};
    }

    static uint32_t length_of(std::string_view text) { return static_cast<uint32_t>(text.size()); }

    struct Level {
        char end;  // the bracket that closes it
        uint32_t count;
    };

    const char* at_;
    const char* const end_;
    char* const space_;
    char* out_;
    Handler& handler_;
    size_t depth_ = 0;
    std::array<Level, JSON_MAX_PARSE_DEPTH> levels_;
};

/// Memory that is not touched before it is used.
inline std::unique_ptr<char[]> new_space(size_t size) { return std::make_unique_for_overwrite<char[]>(size); }

}  // namespace qo_json

#endif
