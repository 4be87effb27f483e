// From a number's literal to its value.
#include "json_number.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace qo_json {
namespace {

constexpr std::string_view kDigits = "0123456789";

// Digits of an exponent that int64_t holds with room for adding the length of a literal.
constexpr size_t kShortExponent = 17;
// Stands for every longer exponent where only its size matters.
constexpr int64_t kHugeExponent = std::numeric_limits<int64_t>::max() / 2;

// The largest double is 0.1797... times ten to the power of this.
constexpr int64_t kDoubleMaxMagnitude = std::numeric_limits<double>::max_exponent10 + 1;
constexpr size_t kInt64Digits = std::numeric_limits<int64_t>::digits10 + 1;

std::string_view take_digits(std::string_view& rest) {
    const size_t length = std::min(rest.find_first_not_of(kDigits), rest.size());
    const std::string_view digits = rest.substr(0, length);
    rest.remove_prefix(length);
    return digits;
}

bool take(std::string_view& rest, char wanted) {
    if (rest.empty() || rest.front() != wanted) return false;
    rest.remove_prefix(1);
    return true;
}

/// Number of zeros that were removed from the front.
size_t trim_front(std::string_view& digits) {
    const size_t zeros = std::min(digits.find_first_not_of('0'), digits.size());
    digits.remove_prefix(zeros);
    return zeros;
}

void trim_back(std::string_view& digits) { digits = digits.substr(0, digits.find_last_not_of('0') + 1); }

}  // namespace

Decimal::Decimal(std::string_view literal) {
    negative_ = take(literal, '-');
    whole_ = take_digits(literal);
    if (take(literal, '.')) fraction_ = take_digits(literal);
    if (take(literal, 'e') || take(literal, 'E')) {
        negative_exponent_ = take(literal, '-');
        take(literal, '+');
        exponent_ = take_digits(literal);
        trim_front(exponent_);
    }

    trim_front(whole_);
    trim_back(fraction_);
    point_ = static_cast<int64_t>(whole_.size());
    if (whole_.empty()) point_ = -static_cast<int64_t>(trim_front(fraction_));
    if (fraction_.empty()) trim_back(whole_);
}

char Decimal::digit(size_t index) const {
    if (index < whole_.size()) return whole_[index];
    index -= whole_.size();
    return index < fraction_.size() ? fraction_[index] : '0';
}

bool Decimal::has_short_exponent() const { return exponent_.size() <= kShortExponent; }

int64_t Decimal::magnitude() const {
    int64_t exponent = 0;
    if (!has_short_exponent())
        exponent = kHugeExponent;
    else
        std::from_chars(exponent_.data(), exponent_.data() + exponent_.size(), exponent);
    return point_ + (negative_exponent_ ? -exponent : exponent);
}

/// The exact magnitude in decimal, whatever the length of the exponent.
std::string Decimal::magnitude_text() const {
    if (has_short_exponent()) return std::to_string(magnitude());

    // Such an exponent is larger than any point: the sum has its sign, and nothing is left over but one carry.
    std::string digits(exponent_);
    int64_t carry = negative_exponent_ ? -point_ : point_;
    for (size_t i = digits.size(); carry != 0 && i-- > 0;) {
        const int64_t sum = (digits[i] - '0') + carry;
        const int64_t last_digit = (sum % 10 + 10) % 10;
        digits[i] = static_cast<char>('0' + last_digit);
        carry = (sum - last_digit) / 10;
    }
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
    if (carry != 0) digits.insert(0, 1, '1');
    if (negative_exponent_) digits.insert(0, 1, '-');
    return digits;
}

TruncatedInteger Decimal::truncated() const {
    constexpr uint64_t kMax = std::numeric_limits<int64_t>::max();
    const int64_t digits = magnitude();
    if (is_zero() || digits <= 0) return {0, true};

    const TruncatedInteger limit{negative_ ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max(),
                                 false};
    if (digits > static_cast<int64_t>(kInt64Digits)) return limit;

    uint64_t value = 0;  // 19 digits always fit
    for (size_t i = 0; i < static_cast<size_t>(digits); ++i) value = value * 10 + static_cast<uint64_t>(digit(i) - '0');
    if (value > (negative_ ? kMax + 1 : kMax)) return limit;
    return {static_cast<int64_t>(negative_ ? 0 - value : value), true};
}

bool operator==(const Decimal& a, const Decimal& b) {
    if (a.is_zero() || b.is_zero()) return a.is_zero() && b.is_zero();
    if (a.negative_ != b.negative_ || a.digit_count() != b.digit_count()) return false;
    for (size_t i = 0; i < a.digit_count(); ++i)
        if (a.digit(i) != b.digit(i)) return false;
    if (a.has_short_exponent() && b.has_short_exponent()) return a.magnitude() == b.magnitude();
    return a.magnitude_text() == b.magnitude_text();
}

bool is_in_double_range(std::string_view literal) {
    const bool is_plain = literal.find_first_of("eE") == std::string_view::npos;
    if (is_plain && literal.size() < static_cast<size_t>(kDoubleMaxMagnitude)) return true;
    const Decimal decimal(literal);
    if (decimal.is_zero() || decimal.magnitude() < kDoubleMaxMagnitude) return true;
    if (decimal.magnitude() > kDoubleMaxMagnitude) return false;
    double value = 0;
    return std::from_chars(literal.data(), literal.data() + literal.size(), value).ec == std::errc();
}

double nearest_double(std::string_view literal) {
    double value = 0;
    const auto result = std::from_chars(literal.data(), literal.data() + literal.size(), value);
    // Literals are checked to be in range, so what from_chars cannot represent is too close to 0.
    if (result.ec != std::errc()) return literal.front() == '-' ? -0.0 : 0.0;
    return value;
}

}  // namespace qo_json
