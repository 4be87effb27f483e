// Reading the statistics, the tables and the picture.
#include "qo_ctl_statistics_print.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>
#include <vector>

#include "scratch_directory.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr char kFixedHeader[] =
    "UTC Time, Percent Active, Total Publishes, Publishes, Avg Pub Time, Total Reads, Reads, Avg Read Time, Total "
    "Saves, Saves, Total Clears, Clears, Subscriptions, Registers, Unregisters,";
constexpr time_t kWritten = 1767618300;  // 2026-01-05 13:05:00 UTC

std::string header(const std::vector<std::string>& queues) {
    std::string text = kFixedHeader;
    for (const std::string& queue : queues) {
        if (&queue != &queues.front()) text += ",";
        text.append(queue).append("(Total),").append(queue).append("(Saves),");
        text.append(queue).append("(Max),").append(queue).append("(Avg)");
    }
    return text + "\n";
}

/// A row without reads.
std::string row(const std::string& time, const std::string& queues, int total = 10, int publishes = 5,
                const std::string& registers_and_unregisters = "0, 0") {
    return time + ", 2.500000, " + std::to_string(total) + ", " + std::to_string(publishes) +
           ", 0.250000, 0, 0, 0.000000, 4, 2, 1, 1, 3, " + registers_and_unregisters + ", " + queues + "\n";
}

/// The values of so many queues: 1 message through the first, 2 through the second and so on.
std::string queues(int count) {
    std::string text;
    for (int place = 1; place <= count; ++place)
        text += (place == 1 ? "" : ",") + std::to_string(place) + ",0,1,0.500000";
    return text;
}

class StatisticsReader : public testing::Test {
protected:
    void read(const std::string& text, time_t written = kWritten) {
        qo_ctl_read_statistics(text, "f.csv", written, statistics_);
    }
    const std::vector<QoCtlStatisticsRow>& complete() {
        qo_ctl_complete_statistics(statistics_);
        return statistics_.rows;
    }

    QoCtlStatistics statistics_;
};

TEST_F(StatisticsReader, TakesEveryColumnOfARow) {
    read(header({"/pushpull", "/a"}) +
         "Jan 05 13:04:59, 25.000000, 20, 2, 1.500000, 30, 3, 4.000000, 40, 4, 50, 5, 6, 7, 8, 9,1,2,0.500000,10,3,4,1."
         "250000\n");
    EXPECT_THAT(statistics_.faults, IsEmpty());
    ASSERT_EQ(statistics_.rows.size(), 1U);
    const QoCtlStatisticsRow& row = statistics_.rows[0];
    EXPECT_EQ(qo_ctl_time_text(row.time), "2026-01-05 13:04:59");
    EXPECT_EQ(row.percent_active, 25);
    EXPECT_EQ(row.total_publishes, 20);
    EXPECT_EQ(row.publishes, 2);
    EXPECT_EQ(row.publish_ms, 1.5);
    EXPECT_EQ(row.total_reads, 30);
    EXPECT_EQ(row.reads, 3);
    EXPECT_EQ(row.read_ms_as_written, 4);
    EXPECT_EQ(row.total_saves, 40);
    EXPECT_EQ(row.saves, 4);
    EXPECT_EQ(row.total_clears, 50);
    EXPECT_EQ(row.clears, 5);
    EXPECT_EQ(row.subscriptions, 6);
    EXPECT_EQ(row.registers, 7);
    EXPECT_EQ(row.unregisters, 8);
    ASSERT_EQ(row.queues.size(), 2U);
    EXPECT_EQ(row.queues[1].name, "/a");
    EXPECT_EQ(row.queues[1].messages, 10);
    EXPECT_EQ(row.queues[1].saves, 3);
    EXPECT_EQ(row.queues[1].max_depth, 4);
    EXPECT_EQ(row.queues[1].avg_depth, 1.25);
}

TEST_F(StatisticsReader, MatchesTheQueuesOfDifferentFilesByTheirNames) {
    read(header({"/pushpull", "/a", "/b"}) + row("Jan 04 13:00:00", "1,0,0,0.000000,2,0,0,0.000000,3,0,0,0.000000"));
    read(header({"/pushpull", "/b"}) + row("Jan 05 13:00:00", "10,0,0,0.000000,30,0,0,0.000000"));
    const auto totals = qo_ctl_queue_totals(complete());
    EXPECT_EQ(totals.at("/pushpull").messages, 11);
    EXPECT_EQ(totals.at("/a").messages, 2);
    EXPECT_EQ(totals.at("/b").messages, 33);
}

TEST_F(StatisticsReader, NamesTheQueuesThatCameSinceTheHeaderByTheirPlace) {
    read(header({"/pushpull", "/a"}) + row("Jan 05 13:00:00", "1,0,0,0.000000,2,0,0,0.000000,3,0,0,0.000000"));
    ASSERT_EQ(statistics_.rows.size(), 1U);
    EXPECT_EQ(statistics_.rows[0].queues[1].name, "/a");
    EXPECT_EQ(statistics_.rows[0].queues[2].name, "(queue 3)");
}

TEST_F(StatisticsReader, NamesOnlyTheServicesQueueWhenQueuesHaveGone) {
    read(header({"/pushpull", "/a", "/b"}) + row("Jan 05 13:00:00", "1,0,0,0.000000,2,0,0,0.000000"));
    ASSERT_EQ(statistics_.rows.size(), 1U);
    EXPECT_EQ(statistics_.rows[0].queues[0].name, "/pushpull");
    EXPECT_EQ(statistics_.rows[0].queues[1].name, "(queue 2)");
}

/// Whether the names of the second queue of all rows are certain, row by row.
std::vector<bool> certain(const QoCtlStatistics& statistics) {
    std::vector<bool> all;
    for (const QoCtlStatisticsRow& row : statistics.rows) {
        EXPECT_TRUE(row.queues.at(0).certain);
        EXPECT_EQ(row.queues.at(1).name, "/a");
        all.push_back(row.queues.at(1).certain);
    }
    return all;
}

TEST_F(StatisticsReader, DoubtsTheNamesOnceAComponentHasUnregistered) {
    // One that left and came back stands behind the others, in as many columns as before.
    read(header({"/pushpull", "/a", "/b"}) + row("Jan 05 10:00:00", queues(3)) +
         row("Jan 05 11:00:00", queues(3), 10, 5, "1, 1") + row("Jan 05 12:00:00", queues(3)));
    EXPECT_THAT(certain(statistics_), ElementsAre(true, false, false));
}

TEST_F(StatisticsReader, DoubtsTheNamesOnceAllMayHaveRegisteredAnew) {
    read(header({"/pushpull", "/a", "/b"}) + row("Jan 05 10:00:00", queues(3)) +
         row("Jan 05 11:00:00", queues(3), 10, 5, "2, 0"));
    EXPECT_THAT(certain(statistics_), ElementsAre(true, false));
}

TEST_F(StatisticsReader, DoubtsTheNamesOnceThereWereFewerQueues) {
    read(header({"/pushpull", "/a"}) + row("Jan 05 10:00:00", queues(2)) + row("Jan 05 11:00:00", queues(4)) +
         row("Jan 05 12:00:00", queues(3)));
    EXPECT_THAT(certain(statistics_), ElementsAre(true, true, false));
}

TEST_F(StatisticsReader, KeepsTheNamesWhileQueuesOnlyCome) {
    read(header({"/pushpull", "/a", "/b"}) + row("Jan 05 10:00:00", queues(3)) +
         row("Jan 05 11:00:00", queues(5), 10, 5, "2, 0") +
         // One that registers again without having left keeps its place.
         row("Jan 05 12:00:00", queues(5), 10, 5, "1, 0"));
    EXPECT_THAT(certain(statistics_), ElementsAre(true, true, true));
}

TEST_F(StatisticsReader, BelievesTheHeaderThatWasMadeForTheFirstRow) {
    read(header({"/pushpull", "/a", "/b"}) + row("Jan 05 10:00:00", queues(3), 10, 5, "3, 1"));
    read(header({"/pushpull", "/a", "/b"}) + row("Jan 05 11:00:00", queues(3), 10, 5, "0, 1"));
    EXPECT_THAT(certain(statistics_), ElementsAre(true, false));
}

TEST_F(StatisticsReader, OfAQueueWhoseNameHasACommaKeepsTheValues) {
    read(header({"/pushpull", "/a,b"}) + row("Jan 05 13:00:00", "1,0,0,0.000000,2,0,0,0.000000"));
    ASSERT_EQ(statistics_.rows.size(), 1U);
    EXPECT_EQ(statistics_.rows[0].queues[1].messages, 2);
}

TEST_F(StatisticsReader, OfQuotedNamesTakesWhatIsInTheQuotes) {
    std::string columns = kFixedHeader;
    for (const char* name : {"/a,b", "/\"\"q\"\"", "/line\nfeed"})
        for (const char* column : {"(Total)", "(Saves)", "(Max)", "(Avg)"})
            columns.append("\"").append(name).append(column).append("\",");
    read(columns + "/plain(Total),/plain(Saves),/plain(Max),/plain(Avg)\n" + row("Jan 05 13:00:00", queues(4)) +
         "garbage\n");
    ASSERT_EQ(statistics_.rows.size(), 1U);
    std::vector<std::string> names;
    for (const QoCtlQueueSample& queue : statistics_.rows[0].queues) names.push_back(queue.name);
    EXPECT_THAT(names, ElementsAre("/a,b", "/\"q\"", "/line?feed", "/plain"));
    EXPECT_EQ(statistics_.rows[0].queues[3].messages, 4);
    // The header takes five lines.
    EXPECT_THAT(statistics_.faults, ElementsAre("f.csv:7: a row of 1 columns; skipped"));
}

TEST_F(StatisticsReader, OfAQuoteThatIsNeverClosedSkipsThatLineOnly) {
    const std::string torn = std::string(kFixedHeader) + "\"/torn";
    read("\"torn\n" + torn + "\n" + header({"/pushpull"}) + row("Jan 05 13:00:00", "1,0,0,0.000000") + "x,\"" +
         row("Jan 05 13:01:00", "1,0,0,0.000000") + row("Jan 05 13:02:00", "1,0,0,0.000000") + "\"");
    EXPECT_EQ(statistics_.rows.size(), 2U);
    EXPECT_THAT(statistics_.faults,
                ElementsAre("f.csv:1: there is no header above it; skipped", "f.csv:5: a row of 20 columns; skipped",
                            "f.csv:7: a row of 1 columns; skipped"));
}

TEST_F(StatisticsReader, AMillionQuotesCostNoMoreThanTheirText) {
    std::string text = kFixedHeader;
    for (int field = 0; field < 500000; ++field) text += "\"x,";
    read(text);
    EXPECT_THAT(statistics_.faults, IsEmpty());
}

TEST_F(StatisticsReader, ReportsAndSkipsWhatIsNoRow) {
    read("Jan 05 12:00:00, 1\n" + header({"/pushpull"}) + "garbage\n" + row("Jan 05 13:00:00", "1,0,0,0.000000") +
         row("Fri 13 13:00:00", "1,0,0,0.000000") + row("Jan 05 13:00:00", "1,x,0,0.000000") +
         row("Jan 05 13:00:00", "1,0,0,nan") + row("Jan 05 13:00:00", "1,-2,0,0.000000") +
         row("Jan 05 13:00:00", "1,0,0") + "Jan 05 13:0");
    EXPECT_EQ(statistics_.rows.size(), 1U);
    EXPECT_THAT(statistics_.faults,
                ElementsAre("f.csv:1: there is no header above it; skipped", "f.csv:3: a row of 1 columns; skipped",
                            "f.csv:5: it does not begin with a time; skipped", "f.csv:6: a value is no number; skipped",
                            "f.csv:7: a value is no number; skipped", "f.csv:8: a value is no number; skipped",
                            "f.csv:9: a row of 18 columns; skipped", "f.csv:10: a row of 1 columns; skipped"));
}

TEST_F(StatisticsReader, ReportsAHeaderWithoutANeededColumn) {
    std::string other = header({"/pushpull"});
    other.replace(other.find("Avg Pub Time"), 3, "Sum");
    read(other + row("Jan 05 13:00:00", "1,0,0,0.000000"));
    EXPECT_THAT(statistics_.rows, IsEmpty());
    EXPECT_THAT(statistics_.faults, ElementsAre("f.csv:1: the header has no column \"Avg Pub Time\"",
                                                "f.csv:2: there is no header above it; skipped"));
}

TEST_F(StatisticsReader, ReportsTheFirstFaultsAndCountsTheOthers) {
    std::string text;
    for (int i = 0; i < 100; ++i) text += "garbage\n";
    read(text);
    EXPECT_EQ(statistics_.faults.size(), 21U);
    EXPECT_EQ(statistics_.faults.back(), "f.csv: 80 more lines skipped");
}

TEST_F(StatisticsReader, GivesARowOfDecemberTheYearBefore) {
    read(header({}) + row("Dec 31 23:59:59", "") + row("Jan 05 13:00:00", ""));
    EXPECT_EQ(qo_ctl_time_text(statistics_.rows.at(0).time), "2025-12-31 23:59:59");
    EXPECT_EQ(qo_ctl_time_text(statistics_.rows.at(1).time), "2026-01-05 13:00:00");
}

TEST_F(StatisticsReader, GivesTheLeapDayALeapYear) {
    read(header({}) + row("Feb 29 12:00:00", ""));
    EXPECT_EQ(qo_ctl_time_text(statistics_.rows.at(0).time), "2024-02-29 12:00:00");
}

TEST_F(StatisticsReader, TellsTheTimeOfAReadApartFromThatOfEarlierOnes) {
    const std::string head = header({});
    // Two reads of 10 ms, then one of 30 ms, none, and two of 5 ms: the file adds them all up.
    read(head + "Jan 05 13:00:00, 0.0, 0, 0, 0.0, 2, 2, 10.0, 0, 0, 0, 0, 0, 0, 0, \n" +
         "Jan 05 13:01:00, 0.0, 0, 0, 0.0, 3, 1, 50.0, 0, 0, 0, 0, 0, 0, 0, \n" +
         "Jan 05 13:02:00, 0.0, 0, 0, 0.0, 3, 0, 0.0, 0, 0, 0, 0, 0, 0, 0, \n" +
         "Jan 05 13:03:00, 0.0, 0, 0, 0.0, 5, 2, 30.0, 0, 0, 0, 0, 0, 0, 0, \n");
    const auto& rows = complete();
    EXPECT_EQ(rows.at(0).read_ms, 10);
    EXPECT_EQ(rows.at(1).read_ms, 30);
    EXPECT_EQ(rows.at(2).read_ms, std::nullopt);
    EXPECT_EQ(rows.at(3).read_ms, 5);
}

TEST_F(StatisticsReader, DoesNotTellTheTimeOfAReadWhenRowsAreMissing) {
    read(header({}) + "Jan 05 13:00:00, 0.0, 0, 0, 0.0, 9, 2, 10.0, 0, 0, 0, 0, 0, 0, 0, \n" +
         "Jan 05 13:01:00, 0.0, 0, 0, 0.0, 11, 2, 15.0, 0, 0, 0, 0, 0, 0, 0, \n");
    EXPECT_EQ(complete().at(0).read_ms, std::nullopt);
    EXPECT_EQ(complete().at(1).read_ms, 5);
}

TEST_F(StatisticsReader, NoticesAnewStartAndAGap) {
    read(header({}) + row("Jan 05 10:00:00", "", 100, 50) + row("Jan 05 10:01:00", "", 150, 50) +
         row("Jan 05 10:02:00", "", 200, 50) + row("Jan 05 10:30:00", "", 250, 50));
    read(header({}) + "Jan 05 10:31:00, 0.0, 7, 7, 0.0, 0, 0, 0.0, 0, 0, 0, 0, 0, 0, 0, \n");
    const auto& rows = complete();
    const double usual = qo_ctl_usual_interval(rows);
    EXPECT_EQ(usual, 60);
    EXPECT_FALSE(qo_ctl_follows_a_gap(rows.at(1), usual));
    EXPECT_TRUE(qo_ctl_follows_a_gap(rows.at(3), usual));
    EXPECT_FALSE(rows.at(3).after_start);
    EXPECT_TRUE(rows.at(4).after_start);
}

TEST_F(StatisticsReader, OrdersRowsByTheirTimes) {
    read(header({}) + row("Jan 05 10:00:00", ""));
    read(header({}) + row("Jan 04 10:00:00", ""));
    EXPECT_LT(complete().at(0).time, complete().at(1).time);
}

// ---- files ----

class StatisticsFiles : public StatisticsReader {
protected:
    std::string pack(const std::string& name, const std::string& text) const {
        const gzFile file = gzopen(scratch_.file(name).c_str(), "wb");
        EXPECT_EQ(gzwrite(file, text.data(), static_cast<unsigned>(text.size())), static_cast<int>(text.size()));
        gzclose(file);
        return scratch_.file(name);
    }
    const QoScratchDirectory scratch_;
};

TEST_F(StatisticsFiles, AreReadPlainAndPackedWithTheYearOfTheArchivesName) {
    const std::string text = header({}) + row("Jan 05 13:00:00", "");
    EXPECT_TRUE(qo_ctl_read_statistics_file(pack("1767618300_ppstats.csv.gz", text), statistics_));
    EXPECT_TRUE(qo_ctl_read_statistics_file(scratch_.write("ppstats.csv", text), statistics_));
    EXPECT_THAT(statistics_.faults, IsEmpty());
    ASSERT_EQ(statistics_.rows.size(), 2U);
    EXPECT_EQ(qo_ctl_time_text(statistics_.rows[0].time), "2026-01-05 13:00:00");
}

TEST_F(StatisticsFiles, ThatEndEarlyGiveWhatCanBeReadAndAFault) {
    std::string text = header({});
    for (int i = 0; i < 3000; ++i) text += row("Jan 05 13:00:00", "", i);
    const std::string file = pack("1767618300_ppstats.csv.gz", text);
    std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
    EXPECT_TRUE(qo_ctl_read_statistics_file(file, statistics_));
    EXPECT_GT(statistics_.rows.size(), 0U);
    EXPECT_LT(statistics_.rows.size(), 3000U);
    EXPECT_EQ(statistics_.faults.front(), file + ": ends early or is damaged: unexpected end of file");
}

TEST_F(StatisticsFiles, ThatAreNotThereAreReported) {
    EXPECT_FALSE(qo_ctl_read_statistics_file("/nonexistent/file", statistics_));
    EXPECT_THAT(statistics_.faults, ElementsAre("/nonexistent/file: No such file or directory"));
}

TEST_F(StatisticsFiles, OfADirectoryAreItsArchivesAndThenItsLog) {
    for (const char* name : {"2000000000_ppstats.csv.gz", "1000000000_ppstats.csv.gz", "ppstats.csv", "other.csv"})
        scratch_.write(name, "");
    std::string directory = scratch_.path();
    directory.pop_back();
    EXPECT_THAT(qo_ctl_statistics_files(directory),
                ElementsAre(scratch_.file("1000000000_ppstats.csv.gz"), scratch_.file("2000000000_ppstats.csv.gz"),
                            scratch_.file("ppstats.csv")));
}

// ---- tables ----

class StatisticsTable : public StatisticsReader {};

TEST_F(StatisticsTable, ShowsTheLastRowsInAlignedColumns) {
    read(header({"/pushpull", "/a"}) + row("Jan 05 10:00:00", "7,0,1,0.500000,3,1,2,1.000000") +
         row("Jan 05 11:00:00", "7,0,1,0.500000,3,1,2,1.000000", 15) +
         row("Jan 05 12:00:00", "7,0,0,0.000000,3,1,0,0.000000", 20));
    EXPECT_EQ(
        qo_ctl_statistics_table(complete(), 2),
        "TIME (UTC)           ACTIVE %  PUBLISHES  ms EACH  READS  ms EACH  SAVES  CLEARS  SUBSCR.  REG.  UNREG.  "
        "DEEPEST QUEUE\n"
        "2026-01-05 11:00:00      2.50          5    0.250      0    0.000      2       1        3     0       0  "
        "         2 /a\n"
        "2026-01-05 12:00:00      2.50          5    0.250      0    0.000      2       1        3     0       0  "
        "            -\n");
}

TEST_F(StatisticsTable, OfTheQueuesWeighsTheAverageDepthWithTheMessages) {
    read(header({"/pushpull"}) + row("Jan 05 10:00:00", "1,2,5,5.000000") + row("Jan 05 11:00:00", "3,1,1,1.000000"));
    EXPECT_EQ(qo_ctl_queue_totals_table(complete()),
              "QUEUE      MESSAGES  SAVES  MAX DEPTH  AVG DEPTH\n"
              "/pushpull         4      3          5       2.00\n");
}

TEST_F(StatisticsTable, MarksNamesThatMayBeAnothers) {
    read(header({"/pushpull", "/a"}) + row("Jan 05 10:00:00", "7,0,1,0.500000,3,1,2,1.000000", 10, 5, "0, 1"));
    EXPECT_THAT(qo_ctl_statistics_table(complete(), 1), testing::EndsWith("  2 /a?\n"));
    EXPECT_EQ(qo_ctl_queue_totals_table(complete()),
              "QUEUE      MESSAGES  SAVES  MAX DEPTH  AVG DEPTH\n"
              "/pushpull         7      0          1       0.50\n"
              "/a?               3      1          2       1.00\n");
    EXPECT_THAT(qo_ctl_statistics_json(complete(), 1), HasSubstr("{\"queue\":\"/a?\","));
}

TEST_F(StatisticsTable, ShowsNoControlCharactersOfAQueuesName) {
    read(header({"/a\x1b[31m"}) + row("Jan 05 10:00:00", "1,0,1,1.000000"));
    EXPECT_THAT(qo_ctl_statistics_table(complete(), 1), Not(HasSubstr("\x1b")));
    EXPECT_THAT(qo_ctl_queue_totals_table(complete()), HasSubstr("/a?[31m"));
}

TEST_F(StatisticsTable, AsJsonIsOneObjectPerLine) {
    read(header({"/pushpull"}) + row("Jan 05 10:00:00", "1,2,5,5.000000"));
    EXPECT_EQ(qo_ctl_statistics_json(complete(), 9),
              "{\"time\":\"2026-01-05 10:00:00\",\"percent_active\":2.500000,\"total_publishes\":10,\"publishes\":5,"
              "\"publish_ms\":0.250000,\"total_reads\":0,\"reads\":0,\"read_ms_as_written\":0.000000,\"total_saves\":4,"
              "\"saves\":2,\"total_clears\":1,\"clears\":1,\"subscriptions\":3,\"registers\":0,\"unregisters\":0,"
              "\"queues\":[{\"queue\":\"/pushpull\",\"messages\":1,\"saves\":2,\"max_depth\":5,\"avg_depth\":5.000000}]"
              "}\n");
}

// ---- picture ----

/// "" for well-formed XML of elements, attributes in double quotes and text.
std::string xml_fault(const std::string& xml) {
    std::vector<std::string> open;
    size_t at = 0;
    while ((at = xml.find_first_of("<&", at)) != std::string::npos) {
        if (xml[at] == '&') {
            const std::string entity = xml.substr(at, xml.find(';', at) - at + 1);
            if (entity != "&amp;" && entity != "&lt;" && entity != "&gt;") return "entity " + entity;
            ++at;
            continue;
        }
        const size_t end = xml.find('>', at);
        if (end == std::string::npos) return "no end of " + xml.substr(at, 20);
        std::string tag = xml.substr(at + 1, end - at - 1);
        if (std::count(tag.begin(), tag.end(), '"') % 2 != 0 || tag.find('<') != std::string::npos) return tag;
        const std::string name = tag.substr(0, tag.find(' '));
        if (tag.starts_with('/')) {
            if (open.empty() || "/" + open.back() != tag) return "unexpected " + tag;
            open.pop_back();
        } else if (!tag.ends_with('/')) {
            open.push_back(name);
        }
        at = end;
    }
    return open.empty() ? "" : "open " + open.back();
}

class StatisticsPlot : public StatisticsReader {};

TEST_F(StatisticsPlot, IsWellFormedAndNamesEveryPanelAndQueue) {
    read(header({"/pushpull", "/a&b<c>"}) + row("Jan 05 10:00:00", "7,0,1,0.500000,3,1,2,1.000000") +
         row("Jan 05 11:00:00", "7,0,1,0.500000,3,1,2,1.000000", 15));
    const std::string picture = qo_ctl_statistics_plot(complete());
    EXPECT_EQ(xml_fault(picture), "");
    for (const char* text :
         {"Activity", "Publishes and reads", "Time each took", "Greatest depth of each queue",
          "Average depth of each queue", "Messages through each queue", "/pushpull", "/a&amp;b&lt;c&gt;", "10:00"})
        EXPECT_THAT(picture, HasSubstr(std::string(">") + text + "<"));
    EXPECT_THAT(picture, Not(HasSubstr("nan")));
    EXPECT_THAT(picture, Not(HasSubstr("inf")));
}

TEST_F(StatisticsPlot, MarksAndExplainsNamesThatMayBeAnothers) {
    read(header({"/pushpull", "/a"}) + row("Jan 05 10:00:00", queues(2)));
    EXPECT_THAT(qo_ctl_statistics_plot(complete()), Not(HasSubstr("? may be")));
    read(header({"/pushpull", "/a"}) + row("Jan 05 11:00:00", queues(2), 15, 5, "0, 1"));
    const std::string picture = qo_ctl_statistics_plot(complete());
    EXPECT_THAT(picture, HasSubstr(">/a?<"));
    EXPECT_THAT(picture, HasSubstr(">/pushpull<"));
    EXPECT_THAT(picture, HasSubstr(">? may be another's<"));
}

TEST_F(StatisticsPlot, ShowsAGapAndAnewStart) {
    read(header({}) + row("Jan 05 10:00:00", "", 100, 50) + row("Jan 05 10:01:00", "", 150, 50) +
         row("Jan 05 10:02:00", "", 200, 50));
    EXPECT_THAT(qo_ctl_statistics_plot(complete()), Not(HasSubstr("no rows")));
    read(header({}) + "Jan 05 10:31:00, 0.0, 7, 7, 0.0, 0, 0, 0.0, 0, 0, 0, 0, 0, 0, 0, \n");
    const std::string picture = qo_ctl_statistics_plot(complete());
    EXPECT_THAT(picture, HasSubstr("no rows"));
    EXPECT_THAT(picture, HasSubstr("service start"));
    EXPECT_EQ(xml_fault(picture), "");
}

TEST_F(StatisticsPlot, OfOneRowWithoutQueuesIsAPictureToo) {
    read(header({}) + row("Jan 05 10:00:00", ""));
    const std::string picture = qo_ctl_statistics_plot(complete());
    EXPECT_EQ(xml_fault(picture), "");
    EXPECT_THAT(picture, Not(HasSubstr("nan")));
    EXPECT_THAT(picture, HasSubstr("no queues"));
}

TEST_F(StatisticsPlot, OfOneRowTellsNoRateBecauseItsIntervalIsUnknown) {
    read(header({}) + row("Jan 05 10:00:00", "", 5000, 5000));
    EXPECT_THAT(qo_ctl_statistics_plot(complete()), Not(HasSubstr(">5000<")));
    read(header({}) + row("Jan 05 10:00:01", "", 10000, 5000));
    EXPECT_THAT(qo_ctl_statistics_plot(complete()), HasSubstr(">5000<"));
}

TEST_F(StatisticsPlot, OfRowsOfOneSecondStaysDrawable) {
    std::string text = header({"/pushpull"});
    for (int i = 0; i < 2; ++i) text += row("Jan 05 10:00:00", "0,0,0,0.000000");
    read(text);
    const std::string picture = qo_ctl_statistics_plot(complete());
    EXPECT_EQ(xml_fault(picture), "");
    EXPECT_THAT(picture, Not(HasSubstr("nan")));
    EXPECT_THAT(picture, Not(HasSubstr("inf")));
}

TEST_F(StatisticsPlot, OfVeryManyRowsKeepsItsExtremesAndItsSize) {
    std::string text = header({"/pushpull"});
    for (int second = 0; second < 86400; second += 2) {
        char time[32];
        snprintf(time, sizeof time, "Jan 04 %02d:%02d:%02d", second / 3600, second / 60 % 60, second % 60);
        text += row(time, second == 43200 ? "9,0,64,64.000000" : "9,0,1,0.500000", second, 1);
    }
    read(text);
    const std::string picture = qo_ctl_statistics_plot(complete());
    EXPECT_LT(picture.size(), 1U << 20);
    EXPECT_THAT(picture, HasSubstr(">60<"));  // of the axis that holds the one deep queue
}

// ---- a part of it ----

TEST(StatisticsFilter, KeepsTheTimesAndTheQueueThatAreAskedFor) {
    std::vector<QoCtlStatisticsRow> rows(3);
    for (size_t i = 0; i < rows.size(); ++i) {
        rows[i].time = static_cast<time_t>(100 + i);
        rows[i].queues = {{"/a", 1, 0, 1, 1, true}, {"/b", 2, 0, 1, 1, true}};
    }
    qo_ctl_filter(rows, {101, 101, "/b"});
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].time, 101);
    ASSERT_EQ(rows[0].queues.size(), 1U);
    EXPECT_EQ(rows[0].queues[0].name, "/b");
}

TEST(StatisticsFilter, ReadsTimes) {
    EXPECT_EQ(qo_ctl_read_time("1970-01-02"), 86400);
    EXPECT_EQ(qo_ctl_read_time("1970-01-01 00:01"), 60);
    EXPECT_EQ(qo_ctl_read_time("1970-01-01 00:01:05"), 65);
    for (const char* text : {"", "now", "1970-13-01", "1970-01-01 25:00", "1970-01-01x"})
        EXPECT_EQ(qo_ctl_read_time(text), std::nullopt) << text;
}

}  // namespace
