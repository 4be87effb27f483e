// Times as numbers and texts, their limits included.
#include "qo_utilities_time.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include <cmath>
#include <limits>

namespace {

using testing::AnyOf;

constexpr qo_time_value_t kUntouched = 4711;

TEST(StrToTime, OfANegativeNumberGivesIt) {
    qo_time_value_t value = kUntouched;
    EXPECT_EQ(str_to_time("-5", value), 0);
    EXPECT_EQ(value, -5);
}

TEST(StrToTime, OfAnEmptyTextGivesZero) {
    qo_time_value_t value = kUntouched;
    EXPECT_EQ(str_to_time("", value), 0);
    EXPECT_EQ(value, 0);
}

TEST(StrToTime, OfAMinusSignAloneGivesZero) {
    qo_time_value_t value = kUntouched;
    EXPECT_EQ(str_to_time("-", value), 0);
    EXPECT_EQ(value, 0);
}

TEST(StrToTime, FailsWithAMinusSignElsewhereAndLeavesTheOutputAsItWas) {
    for (const char* text : {"5-", "--5", "1-2", "5-5-"}) {
        qo_time_value_t value = kUntouched;
        EXPECT_EQ(str_to_time(text, value), -1) << text;
        EXPECT_EQ(value, kUntouched) << text;
    }
}

TEST(StrToTime, FailsWithAnyOtherCharacterAndLeavesTheOutputAsItWas) {
    for (const char* text : {"12a", "a12", " 12", "12 ", "+12", "1.5", "0x1", "\xc2\xb2"}) {
        qo_time_value_t value = kUntouched;
        EXPECT_EQ(str_to_time(text, value), -1) << text;
        EXPECT_EQ(value, kUntouched) << text;
    }
}

TEST(StrToTime, TakesBothLimits) {
    qo_time_value_t value = kUntouched;
    EXPECT_EQ(str_to_time("2147483647", value), 0);
    EXPECT_EQ(value, 2147483647);
    EXPECT_EQ(str_to_time("-2147483648", value), 0);
    EXPECT_EQ(value, std::numeric_limits<int32_t>::min());
}

TEST(StrToTime, FailsBeyondTheUpperLimitWithTheLimitInTheOutput) {
    qo_time_value_t value = kUntouched;
    EXPECT_EQ(str_to_time("2147483648", value), -1);
    EXPECT_EQ(value, 2147483647);
}

TEST(StrToTime, FailsBeyondTheLowerLimitWithTheLimitInTheOutput) {
    qo_time_value_t value = kUntouched;
    EXPECT_EQ(str_to_time("-2147483649", value), -1);
    EXPECT_EQ(value, std::numeric_limits<int32_t>::min());
}

TEST(StrToTime, FailsWithTenThousandDigitsAndTheLimitInTheOutput) {
    qo_time_value_t value = kUntouched;
    EXPECT_EQ(str_to_time(std::string(10000, '9'), value), -1);
    EXPECT_EQ(value, 2147483647);
    EXPECT_EQ(str_to_time(std::string("1").append(10000, '0'), value), -1);
    EXPECT_EQ(value, 2147483647);
}

TEST(StrToTime, IgnoresLeadingZerosHoweverMany) {
    qo_time_value_t value = kUntouched;
    EXPECT_EQ(str_to_time(std::string(10000, '0').append("17"), value), 0);
    EXPECT_EQ(value, 17);
}

TEST(StrToTime, FailsWithABadCharacterEvenInFrontOfTooLargeANumber) {
    qo_time_value_t value = kUntouched;
    EXPECT_EQ(str_to_time("x9999999999", value), -1);
    EXPECT_EQ(value, kUntouched);
}

TEST(TimeToStr, WritesTheDecimalText) {
    for (const char* expected : {"0", "7", "-120", "2147483647", "-2147483648", "10", "100"}) {
        std::string text;
        EXPECT_EQ(time_to_str(static_cast<qo_time_value_t>(std::stol(expected)), text), 0);
        EXPECT_EQ(text, expected);
    }
}

TEST(TimeToStr, KeepsTheContentAfterTheDigits) {
    std::string text = "x";
    EXPECT_EQ(time_to_str(-120, text), 0);
    EXPECT_EQ(text, "-120x");
}

std::string utc_now() {
    const time_t now = time(nullptr);
    char formatted[64];
    return {formatted, strftime(formatted, sizeof formatted, "%b %d %H:%M:%S", gmtime(&now))};
}

TEST(TimeStr, IsTheCurrentUtcTimeInAnyTimeZone) {
    setenv("TZ", "XXX-05:30", 1);
    tzset();
    std::string text = "what stood there";
    const std::string before = utc_now();
    qo_get_time_str(text);
    EXPECT_THAT(text, AnyOf(before, utc_now()));
    EXPECT_EQ(text.size(), std::string("Jan 05 13:04:59").size());
    unsetenv("TZ");
    tzset();
}

double monotonic_seconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

TEST(Timestamp, IsTheMonotonicClock) {
    const double before = monotonic_seconds();
    const double timestamp = qo_pushpull_get_timestamp();
    EXPECT_GT(timestamp, before - 1e-6);
    EXPECT_LE(timestamp, monotonic_seconds());
}

TEST(Timestamp, IsCutToWholeMicroseconds) {
    for (int count = 0; count < 100; ++count) {
        const double microseconds = qo_pushpull_get_timestamp() * 1e6;
        EXPECT_NEAR(microseconds, std::round(microseconds), 1e-2);
    }
}

}  // namespace
