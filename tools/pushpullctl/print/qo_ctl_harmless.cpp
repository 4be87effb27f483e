// Which characters are shown as they are.
#include "qo_ctl_harmless.h"

#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstdio>

namespace {

/// The bytes of the character that a text begins with; 0 when they are no UTF-8.
size_t character_length(std::string_view text) {
    struct Form {
        unsigned char first, last;              // of the first byte
        unsigned char second_low, second_high;  // no overlong form, no surrogate, nothing beyond U+10FFFF
        size_t length;
    };
    constexpr Form kForms[] = {{0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
                               {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
                               {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4}};
    const auto byte = [text](size_t index) { return static_cast<unsigned char>(text[index]); };
    if (byte(0) < 0x80) return 1;
    for (const Form& form : kForms) {
        if (byte(0) < form.first || byte(0) > form.last) continue;
        if (text.size() < form.length || byte(1) < form.second_low || byte(1) > form.second_high) return 0;
        const auto continues = [](char next) { return (static_cast<unsigned char>(next) & 0xC0) == 0x80; };
        return std::all_of(text.begin() + 2, text.begin() + static_cast<std::ptrdiff_t>(form.length), continues)
                   ? form.length
                   : 0;
    }
    return 0;
}

/// The number of a character that takes those bytes of UTF-8.
uint32_t character_number(std::string_view bytes) {
    constexpr unsigned kFirstByteBits[] = {0, 0x7F, 0x1F, 0x0F, 0x07};  // by the length
    uint32_t number = static_cast<unsigned char>(bytes[0]) & kFirstByteBits[bytes.size()];
    for (const char byte : bytes.substr(1)) number = number << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
    return number;
}

bool is_control(uint32_t character) { return character < 0x20 || (character >= 0x7F && character <= 0x9F); }

bool turns_text_around(uint32_t character) {
    return character == 0x061C || character == 0x200E || character == 0x200F ||
           (character >= 0x202A && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
}

std::string hexadecimal(const char* prefix, uint32_t number, int digits) {
    char text[16];
    return std::string(text,
                       static_cast<size_t>(std::snprintf(text, sizeof text, "%s%0*" PRIx32, prefix, digits, number)));
}

}  // namespace

std::string qo_ctl_harmless(std::string_view text, std::string_view kept) {
    std::string harmless;
    while (!text.empty()) {
        const size_t length = character_length(text);
        const std::string_view character = text.substr(0, std::max<size_t>(length, 1));
        text.remove_prefix(character.size());
        const uint32_t number = length == 0 ? 0 : character_number(character);
        if (length == 0)
            harmless += hexadecimal("\\x", static_cast<unsigned char>(character[0]), 2);
        else if (turns_text_around(number) || (is_control(number) && kept.find(character) == std::string_view::npos))
            harmless += hexadecimal("\\u", number, 4);
        else
            harmless += character;
    }
    return harmless;
}
