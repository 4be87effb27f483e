// The pieces of a line against what vsnprintf() makes of the same format.
#include "qo_utilities_log_pieces.h"

#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>

#include <cstdio>
#include <optional>
#include <random>
#include <string>
#include <vector>

// printed() looks at every format that is written here.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"

namespace {

using testing::Optional;

__attribute__((format(printf, 2, 3))) bool put(QoLogPieces& line, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const bool put = line.put(format, arguments);
    va_end(arguments);
    return put;
}

std::string text_of(const QoLogPieces& line) {
    std::string text;
    for (size_t number = 0; number < line.count(); ++number)
        text.append(static_cast<const char*>(line.pieces()[number].iov_base), line.pieces()[number].iov_len);
    return text;
}

template <class... Arguments>
std::optional<std::string> in_pieces(const char* format, Arguments... arguments) {
    QoLogPieces line;
    if (!put(line, format, arguments...)) return std::nullopt;
    return text_of(line);
}

__attribute__((format(printf, 1, 2))) std::string printed(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char text[2048];
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return std::string(text, static_cast<size_t>(length));
}

#define EXPECT_SAME_LINE(...) EXPECT_THAT(in_pieces(__VA_ARGS__), Optional(printed(__VA_ARGS__)))

}  // namespace

// ---- what is put in pieces ----

TEST(LogPieces, OfPlainTextIsOne) {
    EXPECT_SAME_LINE("text");
    EXPECT_SAME_LINE(" ");
    EXPECT_THAT(in_pieces("%s", ""), Optional(std::string()));
}

TEST(LogPieces, OfTextsAreThese) {
    EXPECT_SAME_LINE("%s", "text");
    EXPECT_SAME_LINE("%s%s|%s", "a", "", "% %d %s");
    EXPECT_SAME_LINE("before %s between %s behind", "one", "two");
    for (const char* text : {"text", static_cast<const char*>(nullptr)}) EXPECT_SAME_LINE("it is %s", text);
}

TEST(LogPieces, OfATextAreNotCopied) {
    const char text[] = "text";
    QoLogPieces line;
    ASSERT_TRUE(put(line, "is: %s", text));
    ASSERT_EQ(line.count(), 2U);
    EXPECT_EQ(line.pieces()[1].iov_base, text);
}

TEST(LogPieces, OfNumbersAreTheirDigits) {
    for (const int number : {0, 1, -1, 9, 10, 99, 100, INT_MAX, INT_MIN}) {
        EXPECT_SAME_LINE("%d %i", number, -(number / 2));
        EXPECT_SAME_LINE("%u %x", static_cast<unsigned>(number), static_cast<unsigned>(number));
    }
    for (const long number : {0L, -1L, 4294967296L >> 1, LONG_MAX, LONG_MIN}) {
        EXPECT_SAME_LINE("%ld %li", number, number);
        EXPECT_SAME_LINE("%lu %lx", static_cast<unsigned long>(number), static_cast<unsigned long>(number));
        EXPECT_SAME_LINE("%zd %zu %zx", static_cast<ssize_t>(number), static_cast<size_t>(number),
                         static_cast<size_t>(number));
    }
}

TEST(LogPieces, OfACharacterAreItsByteANulToo) {
    EXPECT_SAME_LINE("%c%c|%c", 'a', '\xff', '\0');
    EXPECT_SAME_LINE("100 %% of %s%%", "it");
}

TEST(LogPieces, AreAsManyAsFit) {
    EXPECT_SAME_LINE("%ld%ld%ld%ld%ld%ld%ld%ld%ld%ld%ld%ld", LONG_MIN, LONG_MIN, LONG_MIN, LONG_MIN, LONG_MIN, LONG_MIN,
                     LONG_MIN, LONG_MIN, LONG_MIN, LONG_MIN, LONG_MIN, LONG_MIN);
    EXPECT_EQ(in_pieces("%d%d%d%d%d%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13), std::nullopt);
    EXPECT_EQ(in_pieces("%d%d%d%d%d%d%d%d%d%d%d%d%c", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 'c'), std::nullopt);
    EXPECT_EQ(in_pieces("%d%d%d%d%d%d%d%d%d%d%d%d.", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12), std::nullopt);
}

// ---- what is left to printf ----

TEST(LogPieces, AreNotMadeOfWhatOnlyPrintfKnows) {
    EXPECT_EQ(in_pieces("%5d", 1), std::nullopt);
    EXPECT_EQ(in_pieces("%-5s|", "x"), std::nullopt);
    EXPECT_EQ(in_pieces("%.*s", 1, "xy"), std::nullopt);
    EXPECT_EQ(in_pieces("%03d %+d %#x", 1, 2, 3U), std::nullopt);
    EXPECT_EQ(in_pieces("%f", 1.5), std::nullopt);
    EXPECT_EQ(in_pieces("%lld", 1LL), std::nullopt);
    EXPECT_EQ(in_pieces("%X %o", 1U, 2U), std::nullopt);
    EXPECT_EQ(in_pieces("%p", static_cast<void*>(nullptr)), std::nullopt);
    EXPECT_EQ(in_pieces("%m"), std::nullopt);
    EXPECT_EQ(in_pieces("%ls", L"wide"), std::nullopt);
}

TEST(LogPieces, AreNotMadeOfAFormatThatIsNone) {
    for (const char* format : {"%", "100 %", "%l", "%z", static_cast<const char*>(nullptr)}) {
        va_list none{};
        EXPECT_FALSE(QoLogPieces().put(format, none)) << (format == nullptr ? "null" : format);
    }
}

TEST(LogPieces, LeaveErrnoAlone) {
    errno = EDOM;
    in_pieces("%s %d", "text", 1);
    in_pieces("%m");
    EXPECT_EQ(errno, EDOM);
}

// ---- any format ----

namespace {

/// Makes formats whose arguments are an int, a text, a long, a text, a size and an unsigned, in this order.
class Formats {
public:
    std::string next() {
        std::string format = words();
        format += one_of({"%d", "%i", "%u", "%x", "%c", "%4d", "%-3x", "%X", "%+i", "%04o"}) + words();
        format += one_of({"%s", "%s", "%s", "%10s", "%-10s", "%.2s", "%p"}) + words();
        format += one_of({"%ld", "%li", "%lu", "%lx", "%12ld", "%lX"}) + words();
        format += one_of({"%s", "%s", "%s", "%.1s"}) + words();
        format += one_of({"%zu", "%zd", "%zx", "%zX"}) + words();
        return format + one_of({"%u", "%x", "%d", "%#x", ""}) + words();
    }
    int number() { return static_cast<int>(random_()) >> random_() % 32; }

private:
    std::string one_of(const std::vector<std::string>& choices) { return choices[random_() % choices.size()]; }
    std::string words() { return one_of({"", "", "", " ", " a, ", "%%", "\n", "\xc3\xa4", "long words between "}); }

    std::mt19937 random_{20};
};

}  // namespace

TEST(LogPieces, OfAnyFormatAreWhatPrintfMakesOfIt) {
    Formats formats;
    int in_pieces_count = 0;
    constexpr int kFormats = 20000;
    for (int turn = 0; turn < kFormats; ++turn) {
        const std::string format = formats.next();
        const int first = formats.number();
        const long second = long{formats.number()} * formats.number();
        const size_t third = static_cast<size_t>(formats.number());
        const unsigned fourth = static_cast<unsigned>(formats.number());
        const auto line = in_pieces(format.c_str(), first, "text", second, "", third, fourth);
        if (!line) continue;
        ++in_pieces_count;
        ASSERT_EQ(*line, printed(format.c_str(), first, "text", second, "", third, fourth)) << format;
    }
    EXPECT_GT(in_pieces_count, kFormats / 100);
    EXPECT_LT(in_pieces_count, kFormats);
}
