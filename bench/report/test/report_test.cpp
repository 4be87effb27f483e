// What is made of the values of several rounds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "results.h"
#include "svg_chart.h"
#include "tables.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(Quantile, LiesBetweenTheNearestValues) {
    EXPECT_EQ(qo_median({3, 1, 2}), 2);
    EXPECT_EQ(qo_median({4, 1, 3, 2}), 2.5);
    EXPECT_EQ(qo_quantile({5, 1, 2, 3, 4}, 0.25), 2);
    EXPECT_EQ(qo_quantile({1, 2}, 1), 2);
    EXPECT_EQ(qo_median({}), 0);
}

TEST(Spread, IsTheMiddleHalfAgainstTheMedian) {
    EXPECT_EQ(qo_spread({100, 90, 110, 1000, 1}), 0.2);
    EXPECT_EQ(qo_spread({7}), 0);
    EXPECT_EQ(qo_spread({}), 0);
}

QoResults two_contenders() {
    QoResults results;
    for (const double value : {10.0, 20.0, 60.0}) results.add("told", "µs", "ours", value);
    for (const double value : {20.0, 10.0, 20.0}) results.add("told", "µs", "theirs", value);
    results.add("read", "µs", "ours", 5);
    return results;
}

TEST(Tables, ShowMediansAndLeaveOutWhatWasNotMeasured) {
    const std::string table = qo_table_of_medians(two_contenders(), {"ours", "theirs"});
    EXPECT_THAT(table, HasSubstr("| | ours | theirs |\n|---|---:|---:|\n"));
    EXPECT_THAT(table, HasSubstr("| told, µs | 20.0 ± 63 % | 20.0 ± 13 % |\n"));
    EXPECT_THAT(table, HasSubstr("| read, µs | 5.00 | – |\n"));
}

// 0.5, 2 and 3: that of the medians would be 1.
TEST(Tables, ShowTheMedianOfTheRatiosOfTheRounds) {
    const std::string table = qo_table_of_ratios(two_contenders(), {"ours", "theirs"});
    EXPECT_THAT(table, AllOf(HasSubstr("| | theirs |\n"), HasSubstr("| told, µs | 2.00 |\n")));
    EXPECT_THAT(table, HasSubstr("| read, µs | – |\n"));
}

TEST(Doubts, AreThoseOfABusyMachine) {
    EXPECT_EQ(qo_doubts(0.4, 2, {10, 10.5, 11}), "");
    EXPECT_THAT(qo_doubts(0.6, 2, {10, 10.5, 11}), HasSubstr("the load was 0.60"));
    EXPECT_THAT(qo_doubts(0.4, 2, {10, 20, 30}), HasSubstr("50 % apart"));
    EXPECT_EQ(qo_doubts(0.4, 2, {}), "");
}

TEST(BarChart, HasAPanelForEachAndTheLongestBarForTheLargestValue) {
    const std::string chart = qo_bar_chart({{"told, µs", {{"ours", 5, true}, {"theirs <&>", 10, false}}}});
    EXPECT_THAT(chart,
                AllOf(HasSubstr(">told, µs</text>"), HasSubstr("width=\"105\" height=\"14\" rx=\"2\" class=\"ours\""),
                      HasSubstr("width=\"210\" height=\"14\" rx=\"2\" class=\"bar\"")));
    EXPECT_THAT(chart, AllOf(HasSubstr("theirs &lt;&amp;>"), Not(HasSubstr("<&"))));
    EXPECT_THAT(chart, HasSubstr("prefers-color-scheme:dark"));
}

TEST(LineChart, GoesByPowersOfTenToTheRightAndFromZeroUpwards) {
    const std::string chart = qo_line_chart({{"grown", {{"publish", {{10, 50}, {100, 50}, {1000, 100}}}}}});
    // Left, middle and right of 270 units behind 72; half and all of 160 above 208.
    EXPECT_THAT(chart, HasSubstr("points=\"72,128 207,128 342,48 \""));
    EXPECT_THAT(chart, AllOf(HasSubstr(">10</text>"), HasSubstr(">1 k</text>"), HasSubstr(">publish</text>")));
}

}  // namespace
