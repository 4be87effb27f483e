// The CRC that a saved tree carries.
#include "qo_pushpull_tree_crc.h"

#include <stdio.h>

#include <charconv>
#include <cinttypes>
#include <optional>
#include <string_view>
#include <system_error>

#include "qo_pushpull_json.h"
#include "qo_pushpull_utilities.h"

namespace {

/// Only hexadecimal digits, in either case, of a number of at most 32 bits.
std::optional<uint32_t> parse_crc(std::string_view text) {
    uint32_t crc = 0;
    const char* end = text.data() + text.size();
    const auto [stopped_at, error] = std::from_chars(text.data(), end, crc, 16);
    if (error != std::errc() || stopped_at != end) return std::nullopt;
    return crc;
}

}  // namespace

std::string FormatTreeCrc(uint32_t crc) {
    char digits[sizeof crc * 2 + 1];
    snprintf(digits, sizeof digits, "%" PRIx32, crc);
    return digits;
}

QoTreeCrcCheck TakeOutTreeCrc(JSONNODE* tree) {
    QoTreeCrcCheck check;
    const QoJsonNode member(json_pop_back(tree, "crc"));
    if (!member) return check;
    check.stored = qo_json_string(member.get());
    check.calculated = QO_CRC32_START;
    qo_json_write_formatted_to(tree, [&check](std::string_view piece) {
        check.calculated = qo_crc32_update(check.calculated, piece);
        return true;
    });
    check.result =
        parse_crc(check.stored) == check.calculated ? QoTreeCrcCheck::Result::match : QoTreeCrcCheck::Result::mismatch;
    return check;
}
