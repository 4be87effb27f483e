// Headers of log lines.
#include "qo_ctl_log_line.h"

#include <gtest/gtest.h>

namespace {

using Origin = QoCtlLogLine::Origin;

void expect(std::string_view line, Origin origin, std::string_view time, std::string_view text) {
    const QoCtlLogLine read = qo_ctl_read_log_line(line);
    EXPECT_EQ(read.origin, origin) << line;
    EXPECT_EQ(read.time, time) << line;
    EXPECT_EQ(read.text, text) << line;
}

TEST(LogLine, HasTheHeaderThatSyslogDaemonsWrite) {
    expect("Nov 22 13:00:00 board PushPull[812]: text: x", Origin::service, "Nov 22 13:00:00", "text: x");
    expect("Nov  2 13:00:00 board PushPull: text", Origin::service, "Nov  2 13:00:00", "text");
    expect("<15>Nov 22 13:00:00 PushPull: text", Origin::service, "Nov 22 13:00:00", "text");
    expect("2026-11-22T13:00:00.123456+01:00 board PushPull[812]: text", Origin::service,
           "2026-11-22T13:00:00.123456+01:00", "text");
    expect("PushPull[812]: text", Origin::service, "", "text");
}

TEST(LogLine, OfAnotherProgramIsTold) {
    expect("Nov 22 13:00:00 board cron[7]: text", Origin::other, "Nov 22 13:00:00", " board cron[7]: text");
    expect("Nov 22 13:00:00 board cron[7]: PushPull: text", Origin::other, "Nov 22 13:00:00",
           " board cron[7]: PushPull: text");
    expect("Nov 22 13:00:00 board NotPushPull: text", Origin::other, "Nov 22 13:00:00", " board NotPushPull: text");
    expect("<15>PushPull", Origin::other, "", "PushPull");
}

TEST(LogLine, WithoutAHeaderIsBare) {
    for (const char* line : {"", "PushPull", "PushPull:TreeMerge@7: x", "\t\"function\": \"get\",", "a PushPull: x",
                             "<", "<15", "PushPull[", "PushPull[7", "PushPull[7]"})
        expect(line, Origin::bare, "", line);
}

TEST(JournalLine, HasTimeAndMessage) {
    const auto line = qo_ctl_read_journal_line(
        R"({"__REALTIME_TIMESTAMP":"1795352400123456","SYSLOG_IDENTIFIER":"PushPull","MESSAGE":"a\n\tb"})");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->origin, Origin::service);
    EXPECT_EQ(line->time, "2026-11-22T13:00:00.123Z");
    EXPECT_EQ(line->text, "a\n\tb");
}

TEST(JournalLine, MayHaveItsMessageAsBytes) {
    const auto line = qo_ctl_read_journal_line(R"({"SYSLOG_IDENTIFIER":"PushPull","MESSAGE":[97,10,255]})");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->text, "a\n\xff");
    EXPECT_EQ(line->time, "");
}

TEST(JournalLine, WithoutMembersIsOfAnother) {
    const auto line = qo_ctl_read_journal_line(R"({"MESSAGE":null,"__REALTIME_TIMESTAMP":"x"})");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->origin, Origin::other);
    EXPECT_EQ(line->time, "");
}

TEST(JournalLine, AnyOtherTextIsNone) {
    for (const char* text : {"", "-- No entries --", "[1]", R"({"MESSAGE":)"})
        EXPECT_FALSE(qo_ctl_read_journal_line(text)) << text;
}

TEST(LayoutEscapes, BecomeBlanksBetweenTokensAndStayInStrings) {
    EXPECT_EQ(qo_ctl_without_layout_escapes(R"({#012#011"a": "#012",\n\t"b\"#011": "\n",\012"c": 1})"),
              R"({  "a": "#012",  "b\"#011": "\n", "c": 1})");
    EXPECT_EQ(qo_ctl_without_layout_escapes(R"(#01 #999 \)"), R"(#01 #999 \)");
    EXPECT_EQ(qo_ctl_without_layout_escapes(R"("a\)"), R"("a\)");
}

}  // namespace
