// Moments and their texts.
#include "qo_ctl_moment.h"

#include <gtest/gtest.h>

namespace {

constexpr QoCtlMoment kMoment = 1795352400123;  // 2026-11-22T13:00:00.123Z

TEST(Moment, IsWrittenInUtcWithMilliseconds) {
    EXPECT_EQ(qo_ctl_moment_text(kMoment), "2026-11-22T13:00:00.123Z");
    EXPECT_EQ(qo_ctl_moment_text(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(qo_ctl_moment_text(-1), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(qo_ctl_second_text(1795352400), "2026-11-22T13:00:00Z");
}

TEST(Moment, AfterJanuary2038IsOneToo) {
    EXPECT_EQ(qo_ctl_moment_text(2208988800000), "2040-01-01T00:00:00.000Z");
    EXPECT_EQ(qo_ctl_read_moment("2040-01-01T00:00:00.000Z"), 2208988800000);
}

TEST(Moment, IsReadAsItIsWritten) { EXPECT_EQ(qo_ctl_read_moment("2026-11-22T13:00:00.123Z"), kMoment); }

TEST(Moment, AnyOtherTextIsNone) {
    for (const char* text :
         {"", "2026-11-22", "2026-11-22T13:00:00Z", "2026-11-22 13:00:00.123Z", "2026-11-22T13:00:00.123+",
          "2026-02-30T13:00:00.123Z", "2026-13-01T13:00:00.123Z", "2026-11-22T25:00:00.123Z",
          "2026-11-22T13:00:00.123Z ", "x026-11-22T13:00:00.123Z", "2026-11-22T13:00:00.-12Z"})
        EXPECT_EQ(qo_ctl_read_moment(text), std::nullopt) << text;
}

}  // namespace
