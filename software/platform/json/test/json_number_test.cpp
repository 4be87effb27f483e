// What value a literal has, and how a number is written.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "json_test_support.h"

namespace {

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

int64_t as_int(const std::string& literal) { return json_as_int(parse(literal).get()); }

double as_float(const std::string& literal) { return json_as_float(parse(literal).get()); }

/// The integer of a literal, or nothing when json_get_int has none.
std::string get_int(const std::string& literal) {
    int64_t value = 77;
    const int found = json_get_int(parse(literal).get(), &value);
    if (found == 0) return value == 77 ? "none" : "none, but changed";
    return std::to_string(value);
}

bool equal(const std::string& a, const std::string& b) {
    const Json left = parse(a);
    const Json right = parse(b);
    EXPECT_NE(left, nullptr) << a.substr(0, 80);
    EXPECT_NE(right, nullptr) << b.substr(0, 80);
    const int result = json_equal(left.get(), right.get());
    EXPECT_EQ(json_equal(right.get(), left.get()), result);
    EXPECT_TRUE(result == 0 || result == 1) << result;
    return result == 1;
}

}  // namespace

TEST(JsonNumber, IntegersAreReadExactly) {
    EXPECT_EQ(as_int("0"), 0);
    EXPECT_EQ(as_int("-0"), 0);
    EXPECT_EQ(as_int("42"), 42);
    EXPECT_EQ(as_int("-42"), -42);
    EXPECT_EQ(as_int("9007199254740993"), 9007199254740993);
    EXPECT_EQ(as_int("9223372036854775807"), kMax);
    EXPECT_EQ(as_int("-9223372036854775808"), kMin);
}

TEST(JsonNumber, FractionsAreCutTowardZero) {
    EXPECT_EQ(as_int("1.9"), 1);
    EXPECT_EQ(as_int("-1.9"), -1);
    EXPECT_EQ(as_int("0.999"), 0);
    EXPECT_EQ(as_int("-0.999"), 0);
    EXPECT_EQ(as_int("9223372036854775807.999"), kMax);
    EXPECT_EQ(as_int("0." + std::string(10'000, '9')), 0);
    EXPECT_EQ(as_int("7." + std::string(10'000, '9')), 7);
}

TEST(JsonNumber, ExponentsAreApplied) {
    EXPECT_EQ(as_int("1e3"), 1000);
    EXPECT_EQ(as_int("1E+3"), 1000);
    EXPECT_EQ(as_int("15e-1"), 1);
    EXPECT_EQ(as_int("-15e-1"), -1);
    EXPECT_EQ(as_int("1.5e1"), 15);
    EXPECT_EQ(as_int("0.00123e5"), 123);
    EXPECT_EQ(as_int("100e-2"), 1);
    EXPECT_EQ(as_int("9e-1"), 0);
    EXPECT_EQ(as_int("0e300"), 0);
    EXPECT_EQ(as_int("1e00000000000000000000000000000003"), 1000);
    EXPECT_EQ(as_int("922337203685477580.7e1"), kMax);
    EXPECT_EQ(as_int("1e18"), 1'000'000'000'000'000'000);
}

TEST(JsonNumber, IntegersBeyondTheRangeEndAtIt) {
    EXPECT_EQ(as_int("9223372036854775808"), kMax);
    EXPECT_EQ(as_int("-9223372036854775809"), kMin);
    EXPECT_EQ(as_int("1e19"), kMax);
    EXPECT_EQ(as_int("-1e19"), kMin);
    EXPECT_EQ(as_int("1e300"), kMax);
    EXPECT_EQ(as_int("-1e300"), kMin);
    EXPECT_EQ(as_int("99999999999999999999999999"), kMax);
}

TEST(JsonNumber, GetIntTellsWhatIsOutOfRange) {
    EXPECT_EQ(get_int("-1.9"), "-1");
    EXPECT_EQ(get_int("9223372036854775807.5"), "9223372036854775807");
    EXPECT_EQ(get_int("9223372036854775808"), "none");
    EXPECT_EQ(get_int("-9223372036854775808"), "-9223372036854775808");
    EXPECT_EQ(get_int("-9223372036854775809"), "none");
    EXPECT_EQ(get_int("1e300"), "none");
    EXPECT_EQ(get_int("1e-300"), "0");
    EXPECT_EQ(get_int("\"5\""), "none");
    EXPECT_EQ(get_int("true"), "none");
    EXPECT_EQ(get_int("null"), "none");
    EXPECT_EQ(get_int("[5]"), "none");
}

TEST(JsonNumber, FloatsAreTheNearestDouble) {
    EXPECT_EQ(as_float("0.1"), 0.1);
    EXPECT_EQ(as_float("-2.5e-3"), -0.0025);
    EXPECT_EQ(as_float("9007199254740993"), 9007199254740992.0);
    EXPECT_EQ(as_float("1.7976931348623157e308"), std::numeric_limits<double>::max());
    EXPECT_EQ(as_float("5e-324"), std::numeric_limits<double>::denorm_min());
    EXPECT_EQ(as_float("0." + std::string(10'000, '3')), 1.0 / 3.0);
    EXPECT_TRUE(std::signbit(as_float("-0")));
}

TEST(JsonNumber, FloatsTooCloseToZeroAreZero) {
    EXPECT_EQ(as_float("1e-400"), 0.0);
    EXPECT_EQ(as_float("1e-99999999999999999999999999"), 0.0);
    EXPECT_EQ(as_float("1e-" + std::string(10'000, '9')), 0.0);
    EXPECT_TRUE(std::signbit(as_float("-1e-400")));
    EXPECT_EQ(as_float("0." + std::string(10'000, '0') + "1"), 0.0);
}

TEST(JsonNumber, OtherTypesAreNoNumbers) {
    for (const char* text : {"\"5\"", "true", "null", "[5]", "{\"a\":5}"}) {
        EXPECT_EQ(as_int(text), 0);
        EXPECT_EQ(as_float(text), 0.0);
    }
}

TEST(JsonNumber, HugeExponentsAreHandled) {
    const std::string nines(10'000, '9');
    EXPECT_EQ(as_int("1e-" + nines), 0);
    EXPECT_EQ(as_int("-123.456e-" + nines), 0);
    EXPECT_EQ(get_int("1e-" + nines), "0");
}

TEST(JsonNumber, IntegersGivenByCallsBecomeLiterals) {
    for (const int64_t value : {int64_t{0}, int64_t{-1}, kMax, kMin}) {
        const Json number(json_new_i("n", value));
        EXPECT_EQ(text_of(number.get()), std::to_string(value));
        EXPECT_EQ(json_as_int(number.get()), value);
    }
}

TEST(JsonNumber, EqualValuesAreEqualHoweverWritten) {
    EXPECT_TRUE(equal("1", "1.0"));
    EXPECT_TRUE(equal("1", "10e-1"));
    EXPECT_TRUE(equal("1", "0.1e1"));
    EXPECT_TRUE(equal("1", "1.000e+00"));
    EXPECT_TRUE(equal("1000", "1E3"));
    EXPECT_TRUE(equal("100", "1e2"));
    EXPECT_TRUE(equal("0.001", "1e-3"));
    EXPECT_TRUE(equal("0.00100", "10e-4"));
    EXPECT_TRUE(equal("-120.50", "-1.205e2"));
    EXPECT_TRUE(equal("35", "35.0"));
    EXPECT_TRUE(equal("1e5", "1e0000005"));
}

TEST(JsonNumber, AllZerosAreEqual) {
    for (const char* zero : {"0", "-0", "0.0", "-0.000", "0e5", "0e-99999999999999999999", "-0.0E+3"}) {
        EXPECT_TRUE(equal(zero, "0"));
        EXPECT_FALSE(equal(zero, "1e-300"));
        EXPECT_FALSE(equal("-1", zero));
    }
}

TEST(JsonNumber, DifferentValuesAreDifferentHoweverClose) {
    EXPECT_FALSE(equal("1", "-1"));
    EXPECT_FALSE(equal("1", "2"));
    EXPECT_FALSE(equal("1", "10"));
    EXPECT_FALSE(equal("1", "0.1"));
    EXPECT_FALSE(equal("12", "1.2"));
    EXPECT_FALSE(equal("101", "11"));
    EXPECT_FALSE(equal("0.1", "0.1000000000000000000000000000000000000001"));
    EXPECT_FALSE(equal("9007199254740993", "9007199254740992"));
    EXPECT_FALSE(equal("123456789012345678901234567890", "123456789012345678901234567891"));
    EXPECT_FALSE(equal("1e-400", "1e-401"));
    EXPECT_FALSE(equal("1e-400", "0"));
}

TEST(JsonNumber, LongLiteralsAreComparedExactly) {
    const std::string thirds = "0." + std::string(10'000, '3');
    EXPECT_TRUE(equal(thirds, thirds + "000"));
    EXPECT_TRUE(equal(thirds, std::string(100, '3') + "." + std::string(9'900, '3') + "e-100"));
    EXPECT_FALSE(equal(thirds, thirds + "1"));
    EXPECT_FALSE(equal(thirds + "1", thirds + "2"));
}

TEST(JsonNumber, HugeExponentsAreComparedExactly) {
    const std::string nines(1'000, '9');
    const std::string ten_to_the_1000 = "1" + std::string(1'000, '0');
    EXPECT_TRUE(equal("1e-" + ten_to_the_1000, "10e-" + ten_to_the_1000.substr(0, 1'000) + "1"));
    EXPECT_TRUE(equal("10e-" + ten_to_the_1000, "1e-" + nines));
    EXPECT_TRUE(equal("0.1e-" + nines, "1e-" + ten_to_the_1000));
    EXPECT_TRUE(equal("1e-" + nines, "1e-000" + nines));
    EXPECT_FALSE(equal("1e-" + nines, "1e-" + ten_to_the_1000));
    EXPECT_FALSE(equal("1e-" + nines, "-1e-" + nines));
    EXPECT_FALSE(equal("1e-" + nines, "2e-" + nines));
    // From more to fewer digits than an exponent of 64 bits has.
    EXPECT_TRUE(equal("10e-100000000000000000", "1e-99999999999999999"));
    EXPECT_TRUE(equal("10e-1000000000000000000", "1e-999999999999999999"));
    EXPECT_TRUE(equal("0.1e-99999999999999999", "1e-100000000000000000"));
    EXPECT_FALSE(equal("1e-100000000000000000", "1e-99999999999999999"));
}
