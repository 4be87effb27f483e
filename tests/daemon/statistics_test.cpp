// The statistics of a service started with -l, compared with what it was asked to do.
#include <fcntl.h>
#include <mqueue.h>
#include <sys/mount.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "component.h"
#include "qo_utilities_zlib.h"
#include "service_process.h"
#include "statistics_file.h"

namespace {

using testing::EndsWith;
using testing::StartsWith;

constexpr int32_t kDemo = QO_CMPID_DEMO;
constexpr int32_t kOther = QO_CMPID_DEMO + 1;
constexpr char kDirectory[] = "/kivo/data/logs/ppstat";
constexpr char kFile[] = "/kivo/data/logs/ppstat/ppstats.csv";
constexpr char kFixedHeader[] =
    "UTC Time, Percent Active, Total Publishes, Publishes, Avg Pub Time, Total Reads, Reads, Avg Read Time, Total "
    "Saves, Saves, Total Clears, Clears, Subscriptions, Registers, Unregisters,";

std::string content(const std::string& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

/// Whole lines: one that is being written has no line feed yet.
std::vector<std::string> lines() {
    std::vector<std::string> all;
    const std::string text = content(kFile);
    for (size_t begin = 0, end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1)
        all.push_back(text.substr(begin, end - begin));
    return all;
}

size_t row_count() { return lines().empty() ? 0 : lines().size() - 1; }

/// A row's columns by their names; those of the queues as "/pushpull(Total)".
class Row {
public:
    Row(const std::string& line, const std::vector<std::string>& queues) {
        std::string header = kFixedHeader;
        for (const std::string& queue : queues)
            for (const char* column : {"(Total)", "(Saves)", "(Max)", "(Avg)"}) header += queue + column + ",";
        values_ = qo_statistics_row(header, line);
    }
    const std::string& text(const std::string& name) const { return values_.at(name); }
    long count(const std::string& name) const { return std::stol(values_.at(name)); }
    double number(const std::string& name) const { return std::stod(values_.at(name)); }

private:
    std::map<std::string, std::string> values_;
};

/// Takes all messages out of a queue, without the component's receiver thread, which would take one more later.
void empty(const std::string& queue_name) {
    const mqd_t queue = mq_open(queue_name.c_str(), O_RDONLY | O_NONBLOCK);
    std::vector<char> buffer(8192);
    while (mq_receive(queue, buffer.data(), buffer.size(), nullptr) > 0) continue;
    mq_close(queue);
}

class StatisticsFile : public ServiceProcess {
protected:
    void SetUp() override {
        ServiceProcess::SetUp();
        if (IsSkipped()) return;
        std::filesystem::remove_all(kDirectory);
        std::ofstream("/kivo/data/pushpull_stats.cfg") << "2\n";
    }

    /// Waits until there is another row. @return how many there are
    static size_t next_row() {
        const size_t before = row_count();
        const auto deadline = std::chrono::steady_clock::now() + kQoPatience;
        while (row_count() == before) {
            if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("no row is written");
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return row_count();
    }

    /// Lets the service work between two rows, and gives back the rows before and after. The work is done again
    /// when it did not fit into one interval.
    template <typename Work>
    std::pair<Row, Row> rows_around(const std::vector<std::string>& queues, Work work) {
        for (;;) {
            const size_t before = next_row();
            work();
            if (!service().wait_until_idle()) throw std::runtime_error("the service is stuck");
            if (row_count() != before) continue;
            next_row();
            const std::vector<std::string> all = lines();
            return {Row(all.at(before), queues), Row(all.at(before + 1), queues)};
        }
    }
};

TEST_F(StatisticsFile, TellsInEveryColumnWhatWasDone) {
    ASSERT_TRUE(service().start_and_wait({"-l"}));
    Component demo(service(), kDemo);
    const std::vector<std::string> queues = {"/pushpull", demo.queue_name()};
    int version = 0;
    const auto publish = [&] {
        return demo.api().publish(QO_CMPID_DEMO,
                                  R"({"version":{"schemaVersion":"x)" + std::to_string(++version) + R"("}})");
    };

    // Five publishes and three reads whose answers stay in the queue. The save cancels the
    // save timer, which would save in another interval.
    const auto [before, busy] = rows_around(queues, [&] {
        empty(demo.queue_name());
        for (int i = 0; i < 5; ++i) EXPECT_EQ(publish(), 0);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(demo.api().get(QO_CMPID_DEMO, "/version", "", false), 0);
        EXPECT_EQ(demo.api().flush(QO_CMPID_DEMO), 0);
    });
    EXPECT_EQ(busy.count("Publishes"), 5);
    EXPECT_EQ(busy.count("Total Publishes"), before.count("Total Publishes") + 5);
    EXPECT_GT(busy.number("Avg Pub Time"), 0);
    EXPECT_LT(busy.number("Avg Pub Time"), 2000);
    EXPECT_EQ(busy.count("Reads"), 3);
    EXPECT_EQ(busy.count("Total Reads"), before.count("Total Reads") + 3);
    EXPECT_GT(busy.number("Avg Read Time"), 0);
    EXPECT_LT(busy.number("Avg Read Time"), 2000);
    // A requested save counts twice, once by the loop and once by the saver.
    EXPECT_EQ(busy.count("Saves"), 2);
    EXPECT_EQ(busy.count("Total Saves"), before.count("Total Saves") + 2);
    for (const char* none : {"Clears", "Subscriptions", "Registers", "Unregisters"})
        EXPECT_EQ(busy.count(none), 0) << none;
    EXPECT_GT(busy.number("Percent Active"), 0);
    EXPECT_LE(busy.number("Percent Active"), 100);
    // Nine requests and the one that tells when the service is idle.
    EXPECT_EQ(busy.count("/pushpull(Total)"), 10);
    EXPECT_EQ(busy.count("/pushpull(Saves)"), 0);
    EXPECT_LE(busy.count("/pushpull(Max)"), service().capacity());
    EXPECT_LE(busy.number("/pushpull(Avg)"), busy.number("/pushpull(Max)"));
    EXPECT_EQ(busy.count(demo.queue_name() + "(Total)"), 3);
    // A publish arranges a save whether it changes a value or not.
    EXPECT_EQ(busy.count(demo.queue_name() + "(Saves)"), 5);
    EXPECT_EQ(busy.count(demo.queue_name() + "(Max)"), 3);
    EXPECT_EQ(busy.text(demo.queue_name() + "(Avg)"), "2.000000");

    // Nothing at all but that one request.
    const auto [still_before, idle] = rows_around(queues, [] {});
    for (const char* none : {"Publishes", "Reads", "Saves", "Clears", "Subscriptions", "Registers", "Unregisters"})
        EXPECT_EQ(idle.count(none), 0) << none;
    EXPECT_EQ(idle.text("Avg Pub Time"), "0.000000");
    EXPECT_EQ(idle.text("Avg Read Time"), "0.000000");
    for (const char* total : {"Total Publishes", "Total Reads", "Total Saves", "Total Clears"})
        EXPECT_EQ(idle.count(total), busy.count(total)) << total;
    EXPECT_EQ(idle.count("/pushpull(Total)"), 1);
    EXPECT_EQ(idle.count(demo.queue_name() + "(Total)"), 0);
    EXPECT_EQ(idle.text(demo.queue_name() + "(Avg)"), "0.000000");

    // One of everything else, and one read.
    const auto [former, mixed] = rows_around(queues, [&] {
        empty(demo.queue_name());
        const Component other(service(), kOther);
        EXPECT_EQ(demo.api().subscribe(QO_CMPID_DEMO, "/usb", false), 0);
        EXPECT_EQ(demo.api().get(QO_CMPID_DEMO, "/version", "", false), 0);
        EXPECT_EQ(demo.api().clear(QO_CMPID_DEMO, "/logs"), 0);
        EXPECT_EQ(demo.api().flush(QO_CMPID_DEMO), 0);
    });
    EXPECT_EQ(mixed.count("Publishes"), 0);
    EXPECT_EQ(mixed.count("Reads"), 1);
    EXPECT_EQ(mixed.count("Total Reads"), former.count("Total Reads") + 1);
    EXPECT_EQ(mixed.count("Saves"), 2);
    EXPECT_EQ(mixed.count("Clears"), 1);
    EXPECT_EQ(mixed.count("Total Clears"), former.count("Total Clears") + 1);
    EXPECT_EQ(mixed.count("Subscriptions"), 1);
    EXPECT_EQ(mixed.count("Registers"), 1);
    EXPECT_EQ(mixed.count("Unregisters"), 1);
    EXPECT_EQ(mixed.count("/pushpull(Total)"), 7);
    // The time of all reads since the start, over the reads of this interval.
    EXPECT_GT(mixed.number("Avg Read Time"), 3 * busy.number("Avg Read Time"));

    EXPECT_THAT(lines().front(), StartsWith(kFixedHeader));
    EXPECT_THAT(content(kFile), EndsWith("\n"));
    EXPECT_EQ(service().stop(), 0);
}

TEST_F(StatisticsFile, GoesOnAfterAnInitRequestWithTheQueuesOfTheNewRegistry) {
    ASSERT_TRUE(service().start_and_wait({"-l"}));
    const Component other(service(), kOther, {4, 4096}, false);
    const std::vector<std::string> service_alone = {"/pushpull"};
    const auto before =
        rows_around(service_alone, [&] { EXPECT_TRUE(service().post(R"({"function":"publish"})")); }).second;
    EXPECT_GE(before.count("Total Publishes"), 1);
    const std::string header = lines().front();
    ASSERT_TRUE(
        service().post(R"({"function":"init","arg":{"comp_id":)" + std::to_string(kOther) + R"(,"buffer":"true"}})"));
    ASSERT_TRUE(events().wait_for_notifications(2));
    const auto after =
        rows_around(service_alone, [&] { EXPECT_TRUE(service().post(R"({"function":"publish"})")); }).second;
    EXPECT_EQ(after.count("Publishes"), 1);
    EXPECT_GT(after.count("Total Publishes"), before.count("Total Publishes"));
    EXPECT_EQ(lines().front(), header);
    EXPECT_EQ(service().stop(), 0);
}

TEST_F(StatisticsFile, OfAnEarlierRunIsArchivedByTheFirstRowOfTheNext) {
    ASSERT_TRUE(service().start_and_wait({"-l"}));
    next_row();
    EXPECT_EQ(service().stop(), 0);
    const std::string left_over = content(kFile);
    EXPECT_THAT(left_over, StartsWith(kFixedHeader));
    ASSERT_TRUE(service().start_and_wait({"-l"}));
    ASSERT_TRUE(
        events().wait_for_log(LOG_DEBUG, "LOG: removeOldArchives '" + std::string(kDirectory) + "/*_ppstats.csv.gz'"));
    EXPECT_EQ(service().stop(), 0);
    std::vector<std::string> archives;
    for (const auto& entry : std::filesystem::directory_iterator(kDirectory))
        if (entry.path().extension() == ".gz") archives.push_back(entry.path());
    ASSERT_EQ(archives.size(), 1U);
    const std::string unpacked = events().scratch() + "unpacked";
    ASSERT_EQ(qo_zlibDecompress(archives.front(), unpacked), 0);
    EXPECT_EQ(content(unpacked), left_over);
}

TEST_F(StatisticsFile, ComesBackWithItsFolderWhenThatWasRemoved) {
    ASSERT_TRUE(service().start_and_wait({"-l"}));
    next_row();
    std::filesystem::remove_all(kDirectory);
    next_row();
    EXPECT_THAT(lines().front(), StartsWith(kFixedHeader));
    const Row row(lines().at(1), {"/pushpull"});
    EXPECT_EQ(service().stop(), 0);
}

TEST_F(StatisticsFile, NamesQueuesWithCommasQuotesAndLineFeedsInQuotes) {
    const std::string name = "/a,\"b\"\nc";
    ASSERT_TRUE(service().start_and_wait({"-l"}));
    ASSERT_TRUE(service().post(R"({"function":"register","arg":{"comp_id":1352,"buffer":"/a,\"b\"\nc"},)"
                               R"("que":{"flags":0,"maxmsg":1,"msgsize":64,"curmsgs":0}})"));
    ASSERT_TRUE(service().wait_until_idle());
    next_row();
    EXPECT_THAT(content(kFile),
                StartsWith(kFixedHeader + std::string("/pushpull(Total),/pushpull(Saves),/pushpull(Max),/pushpull(Avg),"
                                                      "\"/a,\"\"b\"\"\nc(Total)\",\"/a,\"\"b\"\"\nc(Saves)\","
                                                      "\"/a,\"\"b\"\"\nc(Max)\",\"/a,\"\"b\"\"\nc(Avg)\"\n")));
    EXPECT_EQ(service().stop(), 0);
    mq_unlink(name.c_str());
}

/// The statistics on a disk of their own, and queues whose names make the header end six bytes before the end of its
/// first page.
class StatisticsOnASmallDisk : public StatisticsFile {
protected:
    static constexpr size_t kPage = 4096;
    static constexpr size_t kHeaderEnd = kPage - 6;
    static constexpr const char* kColumns[] = {"(Total)", "(Saves)", "(Max)", "(Avg)"};

    void SetUp() override {
        StatisticsFile::SetUp();
        if (IsSkipped()) return;
        std::filesystem::create_directories(kDirectory);
        if (mount("tmpfs", kDirectory, "tmpfs", 0, "size=64k") != 0) GTEST_SKIP() << "no disk of our own";
    }
    void TearDown() override {
        for (const std::string& name : queues_) mq_unlink(name.c_str());
        umount2(kDirectory, MNT_DETACH);
        StatisticsFile::TearDown();
    }

    static std::string header_of(const std::vector<std::string>& queues) {
        std::string header = kFixedHeader;
        for (const std::string& queue : queues)
            for (const char* column : kColumns) header += queue + column + ",";
        header.back() = '\n';
        return header;
    }
    /// Registers queues until the header is as long as wanted, near enough.
    void register_queues() {
        queues_ = {"/pushpull"};
        for (int32_t id = 3000; header_of(queues_).size() + 3 < kHeaderEnd; ++id) {
            queues_.push_back("/" + std::to_string(id));
            while (queues_.back().size() < 200 && header_of(queues_).size() + 3 < kHeaderEnd) queues_.back() += 'q';
            ASSERT_TRUE(service().post(R"({"function":"register","arg":{"comp_id":)" + std::to_string(id) +
                                       R"(,"buffer":")" + queues_.back() +
                                       R"("},"que":{"flags":0,"maxmsg":1,"msgsize":64,"curmsgs":0}})"));
        }
        ASSERT_TRUE(service().wait_until_idle());
    }
    /// Leaves one page free.
    static void fill() {
        std::ofstream(filler()) << std::string(64 * 1024, 'x');
        std::filesystem::resize_file(filler(), std::filesystem::file_size(filler()) - kPage);
    }
    static std::string filler() { return std::string(kDirectory) + "/filler"; }

    std::vector<std::string> queues_;
};

TEST_F(StatisticsOnASmallDisk, KeepNoPartOfARowThatWasCutShort) {
    ASSERT_TRUE(service().start_and_wait({"-l"}));
    register_queues();
    fill();
    // The header is written, and then the row in which it is due.
    const auto deadline = std::chrono::steady_clock::now() + kQoPatience;
    while (content(kFile) != header_of(queues_) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_EQ(content(kFile), header_of(queues_));
    std::filesystem::remove(filler());
    next_row();
    EXPECT_EQ(lines().front() + "\n", header_of(queues_));
    const Row row(lines().at(1), queues_);
    EXPECT_EQ(row.text("UTC Time").size(), std::string("Jan 05 13:04:59").size());
    EXPECT_EQ(service().stop(), 0);
}

TEST_F(StatisticsFile, IsNotWrittenWithoutTheOption) {
    ASSERT_TRUE(service().start_and_wait());
    EXPECT_EQ(service().stop(), 0);
    EXPECT_FALSE(std::filesystem::exists(kDirectory));
    for (const QoLogLine& line : events().log()) EXPECT_NE(line.text, "QoPushPullStats: Started...");
}

}  // namespace
