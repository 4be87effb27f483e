/// Exact reading of number literals of any length, in time proportional to it.
#ifndef QO_JSON_NUMBER_H
#define QO_JSON_NUMBER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qo_json {

struct TruncatedInteger {
    int64_t value;  // at the nearer end of int64_t when the number lies beyond it
    bool in_range;
};

/// A number literal taken apart: its value is 0.DDD times ten to the power of `exponent + point`, where DDD are the
/// digits of `whole` and then `fraction`. Refers to the literal.
class Decimal {
public:
    /// `literal` is a valid JSON number.
    explicit Decimal(std::string_view literal);

    bool is_zero() const { return digit_count() == 0; }
    /// Power of ten of the value written as 0.DDD, held within the range of int64_t when the literal exceeds it.
    int64_t magnitude() const;
    TruncatedInteger truncated() const;
    /// Whether both have exactly the same value.
    friend bool operator==(const Decimal& a, const Decimal& b);

private:
    size_t digit_count() const { return whole_.size() + fraction_.size(); }
    /// '0' behind the last digit.
    char digit(size_t index) const;
    bool has_short_exponent() const;
    std::string magnitude_text() const;

    bool negative_ = false;
    std::string_view whole_;     // digits before the point, from the first that is not 0
    std::string_view fraction_;  // digits behind the point, up to the last that is not 0
    int64_t point_ = 0;          // where the point stands, counted from the first digit that is not 0
    bool negative_exponent_ = false;
    std::string_view exponent_;  // digits without leading zeros
};

/// Whether a valid literal lies within the range of a double; one that is too close to 0 does.
bool is_in_double_range(std::string_view literal);

/// The double nearest to a valid literal that is in range.
double nearest_double(std::string_view literal);

}  // namespace qo_json

#endif
