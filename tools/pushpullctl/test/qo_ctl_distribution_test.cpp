// Percentiles and histograms of times.
#include "qo_ctl_distribution.h"

#include <gtest/gtest.h>

namespace {

using Time = QoCtlDistribution::Time;

std::string ranges(const std::vector<int>& times) {
    std::vector<Time> measured;
    for (const int time : times) measured.emplace_back(time);
    std::string text;
    for (const auto& range : qo_ctl_distribution(measured).ranges)
        text += std::to_string(range.up_to.count()) + ":" + std::to_string(range.count) + " ";
    return text;
}

TEST(Distribution, PercentilesAreTimesThatWereMeasured) {
    std::vector<Time> times;
    for (int time = 100; time >= 1; --time) times.emplace_back(time);
    const QoCtlDistribution distribution = qo_ctl_distribution(times);
    EXPECT_EQ(distribution.count, 100U);
    EXPECT_EQ(distribution.min, Time(1));
    EXPECT_EQ(distribution.median, Time(50));
    EXPECT_EQ(distribution.p90, Time(90));
    EXPECT_EQ(distribution.p99, Time(99));
    EXPECT_EQ(distribution.max, Time(100));
}

TEST(Distribution, OfOneTimeIsThatTime) {
    const QoCtlDistribution distribution = qo_ctl_distribution({Time(7)});
    EXPECT_EQ(distribution.min, Time(7));
    EXPECT_EQ(distribution.median, Time(7));
    EXPECT_EQ(distribution.p99, Time(7));
}

TEST(Distribution, OfThreeTimesHasTheMiddleOneAndTheGreatest) {
    const QoCtlDistribution distribution = qo_ctl_distribution({Time(3), Time(1), Time(2)});
    EXPECT_EQ(distribution.median, Time(2));
    EXPECT_EQ(distribution.p90, Time(3));
}

TEST(Distribution, OfNothingIsEmpty) {
    EXPECT_EQ(qo_ctl_distribution({}).count, 0U);
    EXPECT_TRUE(qo_ctl_distribution({}).ranges.empty());
}

TEST(Distribution, RangesGoFromTheLeastToTheGreatestWithoutGaps) {
    EXPECT_EQ(ranges({7, 10, 11, 150}), "10:2 20:1 50:0 100:0 200:1 ");
    EXPECT_EQ(ranges({0, 1}), "1:2 ");
    EXPECT_EQ(ranges({2, 3, 5, 6}), "2:1 5:2 10:1 ");
    EXPECT_EQ(ranges({1000000}), "1000000:1 ");
}

}  // namespace
