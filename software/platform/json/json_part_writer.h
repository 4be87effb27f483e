/// The parts that a JSON text is written of.
#ifndef QO_JSON_PART_WRITER_H
#define QO_JSON_PART_WRITER_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "json_scan.h"
#include "qo_json.h"

namespace qo_json {

/// Hands the text on in pieces.
class PieceOutput {
public:
    PieceOutput(json_writer write, void* context) : write_(write), context_(context) {}

    /// Where so many bytes may be written, at most a piece; advance() says how many were.
    char* room_for(size_t count) {
        if (piece_.size() - size_ < count) hand_on();
        return piece_.data() + size_;
    }
    void advance(size_t count) { size_ += count; }

    /// @return whether all was taken.
    bool finish() {
        hand_on();
        return taken_;
    }

private:
    static constexpr size_t kPiece = 16384;  // bytes

    void hand_on() {
        taken_ = taken_ && (size_ == 0 || write_(piece_.data(), size_, context_) != 0);
        size_ = 0;
    }

    json_writer write_;
    void* context_;
    std::array<char, kPiece> piece_;
    size_t size_ = 0;
    bool taken_ = true;
};

inline char* put_escape(char* out, char c) {
    static constexpr char kHexDigits[] = "0123456789ABCDEF";
    // By control character: its letter, or 'u' for its number.
    static constexpr char kLetters[] = "uuuuuuuubtnufruuuuuuuuuuuuuuuuuu";
    const auto code = static_cast<unsigned char>(c);
    *out++ = '\\';
    *out = code < kFirstPrintable ? kLetters[code] : c;
    if (*out++ != 'u') return out;
    out = std::copy_n("00", 2, out);
    *out++ = kHexDigits[code >> 4];
    *out++ = kHexDigits[code & 0xF];
    return out;
}

/// Whole blocks are copied as they are looked through; what was copied too much of one is overwritten.
inline char* put_escaped(char* out, std::string_view bytes) {
    const char* at = bytes.data();
    const char* const end = at + bytes.size();
    while (at != end) {
        const auto left = static_cast<size_t>(end - at);
        const Block block = left < kBlockBytes ? Block(at, left) : Block(at);
        block.store(out);
        const Block::Marks escaped = block.escaped();
        if (escaped == 0) {
            at += kBlockBytes;
            out += kBlockBytes;
            continue;
        }
        const size_t plain = Block::first(escaped);  // of a part of a block, the zeros behind it are marked
        at += plain;
        out += plain;
        if (plain < left) out = put_escape(out, *at++);
    }
    return out;
}

/// Puts the parts of a JSON text into an output; with or without the white space that makes it readable. What belongs
/// together is put at once: an output looks for room each time.
template <typename Output>
class PartWriter {
public:
    PartWriter(Output& output, bool formatted) : output_(output), formatted_(formatted) {}

    void put(char c) {
        *output_.room_for(1) = c;
        output_.advance(1);
    }

    /// What stands before an element: a comma behind the one before it, and the line break.
    void begin_element(bool is_first, size_t level) {
        char* const room = output_.room_for(kSeparator);
        output_.advance(static_cast<size_t>(put_separator(room, is_first, level) - room));
    }

    /// The same before a member, and its name.
    void begin_member(bool is_first, size_t level, std::string_view name) {
        if (name.size() > kBlock) return begin_long_member(is_first, level, name);
        char* const room = output_.room_for(kSeparator + room_for_quoted(name) + kColon);
        char* const out = put_colon(put_quoted_at(put_separator(room, is_first, level), name));
        output_.advance(static_cast<size_t>(out - room));
    }

    /// What stands behind the last child.
    void end_children(size_t level, char bracket) {
        char* const room = output_.room_for(kLineBreak + 1);
        char* out = put_line_break(room, level);
        *out++ = bracket;
        output_.advance(static_cast<size_t>(out - room));
    }

    /// A value that is no container, of that type.
    void put_scalar(char type, std::string_view text) {
        if (type == JSON_STRING) return put_quoted(text);
        while (!text.empty()) {
            const std::string_view block = text.substr(0, kBlock);
            block.copy(output_.room_for(block.size()), block.size());
            output_.advance(block.size());
            text.remove_prefix(block.size());
        }
    }

private:
    static constexpr size_t kBlock = 1024;  // bytes
    static constexpr size_t kLineBreak = 1 + JSON_MAX_INDENT;
    static constexpr size_t kSeparator = 1 + kLineBreak;
    static constexpr size_t kColon = 2;

    static constexpr size_t room_for_quoted(std::string_view text) {
        return 2 + text.size() * JSON_LONGEST_ESCAPE + kBlockBytes;
    }

    static char* put_quoted_at(char* out, std::string_view text) {
        *out++ = '"';
        out = put_escaped(out, text);
        *out++ = '"';
        return out;
    }

    void put_quoted(std::string_view text) {
        if (text.size() > kBlock) return put_long_quoted(text);
        char* const room = output_.room_for(room_for_quoted(text));
        output_.advance(static_cast<size_t>(put_quoted_at(room, text) - room));
    }

    void put_long_quoted(std::string_view text) {
        put('"');
        while (!text.empty()) {
            const std::string_view block = text.substr(0, kBlock);
            char* const room = output_.room_for(room_for_quoted(block));
            output_.advance(static_cast<size_t>(put_escaped(room, block) - room));
            text.remove_prefix(block.size());
        }
        put('"');
    }

    void begin_long_member(bool is_first, size_t level, std::string_view name) {
        begin_element(is_first, level);
        put_long_quoted(name);
        char* const room = output_.room_for(kColon);
        output_.advance(static_cast<size_t>(put_colon(room) - room));
    }

    char* put_colon(char* out) const {
        *out++ = ':';
        if (formatted_) *out++ = ' ';
        return out;
    }

    char* put_separator(char* out, bool is_first, size_t level) const {
        if (!is_first) *out++ = ',';
        return put_line_break(out, level);
    }

    /// Bounded, or the text of a deep tree would grow with the square of its depth.
    char* put_line_break(char* out, size_t level) const {
        if (!formatted_) return out;
        *out++ = '\n';
        std::memset(out, '\t', JSON_MAX_INDENT);  // cheaper than to look how many; what is too much is overwritten
        return out + std::min<size_t>(level, JSON_MAX_INDENT);
    }

    Output& output_;
    const bool formatted_;
};

struct Brackets {
    char open;
    char close;
};

constexpr Brackets brackets_of(char container_type) {
    return container_type == JSON_NODE ? Brackets{'{', '}'} : Brackets{'[', ']'};
}

}  // namespace qo_json

#endif
