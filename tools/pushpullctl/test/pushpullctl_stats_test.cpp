// stats: the command as it is run, with the files where the service writes them.
#include <mqueue.h>
#include <zlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "component.h"
#include "pushpullctl_run.h"
#include "qo_pushpull_json.h"

namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char kDirectory[] = "/kivo/data/logs/ppstat";
constexpr char kHeader[] =
    "UTC Time, Percent Active, Total Publishes, Publishes, Avg Pub Time, Total Reads, Reads, Avg Read Time, Total "
    "Saves, Saves, Total Clears, Clears, Subscriptions, Registers, Unregisters,/pushpull(Total),/pushpull(Saves),"
    "/pushpull(Max),/pushpull(Avg)\n";

std::string row(const std::string& time, int publishes) {
    return time + ", 2.500000, 10, " + std::to_string(publishes) +
           ", 0.250000, 0, 0, 0.000000, 0, 0, 0, 0, 0, 0, 0, 7,0,1,0.500000\n";
}

class PushpullctlStats : public ServiceProcess {
protected:
    void SetUp() override {
        ServiceProcess::SetUp();
        if (IsSkipped()) return;
        fs::remove_all(kDirectory);
        fs::create_directories(fs::path(kDirectory).parent_path());
    }

    /// Yesterday's archive with one row and the log of today with another.
    static void write_files() {
        fs::create_directory(kDirectory);
        const std::string text = kHeader + row("Jan 05 10:00:00", 1);
        const gzFile archive = gzopen((std::string(kDirectory) + "/1767657600_ppstats.csv.gz").c_str(), "wb");
        ASSERT_EQ(gzwrite(archive, text.data(), static_cast<unsigned>(text.size())), static_cast<int>(text.size()));
        ASSERT_EQ(gzclose(archive), Z_OK);
        std::ofstream(log()) << kHeader << row("Jan 06 10:00:00", 2);
    }
    static std::string log() { return std::string(kDirectory) + "/ppstats.csv"; }
    std::string scratch_file(const std::string& name) { return events().scratch() + name; }
};

TEST_F(PushpullctlStats, WithoutAFileShowTheArchivesAndTheLogOfTheService) {
    write_files();
    const PushpullctlResult result = run_pushpullctl({"stats"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.messages, "");
    EXPECT_THAT(result.output, StartsWith("TIME (UTC)"));
    EXPECT_THAT(result.output, HasSubstr("-01-05 10:00:00 "));
    EXPECT_THAT(result.output, HasSubstr("-01-06 10:00:00 "));
    EXPECT_THAT(result.output, EndsWith("\n/pushpull        14      0          1       0.50\n"));
}

TEST_F(PushpullctlStats, AsJsonAreTheLastRowsAlone) {
    write_files();
    const PushpullctlResult result = run_pushpullctl({"stats", "--json", "--rows", "1"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1);
    EXPECT_THAT(result.output, HasSubstr("\"publishes\":2,"));
}

TEST_F(PushpullctlStats, PlotIsAPictureInTheFile) {
    write_files();
    EXPECT_EQ(run_pushpullctl({"stats", "--since", "yesterday"}).status, 2);
    const PushpullctlResult none = run_pushpullctl({"stats", "--until", "1999-12-31 23:59"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.messages, HasSubstr("there are no rows"));
    EXPECT_EQ(run_pushpullctl({"stats", "--since", "2000-01-01", "--queue", "/nobody"}).status, 0);
    EXPECT_THAT(run_pushpullctl({"stats", "--plot", "-"}).output, testing::StartsWith("<"));
    EXPECT_EQ(run_pushpullctl({"stats", "--plot", "week.bmp"}).status, 2);
    EXPECT_EQ(run_pushpullctl({"stats", "--plot", scratch_file("week.svg")}).status, 0);
    std::ostringstream picture;
    picture << std::ifstream(scratch_file("week.svg")).rdbuf();
    EXPECT_THAT(picture.str(), StartsWith("<svg "));
    EXPECT_THAT(picture.str(), EndsWith("</svg>\n"));
}

TEST_F(PushpullctlStats, APlotThatCannotBeWrittenEndsWith1AndTheTableIsShown) {
    write_files();
    const PushpullctlResult result = run_pushpullctl({"stats", "--plot", "/dev/full"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.messages, "pushpullctl: /dev/full: No space left on device\n");
    EXPECT_THAT(result.output, StartsWith("TIME (UTC)"));
}

TEST_F(PushpullctlStats, AFileThatIsNotThereEndsWith1AndTheOthersAreShown) {
    write_files();
    const PushpullctlResult result = run_pushpullctl({"stats", "/nonexistent", log()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.messages, "pushpullctl: /nonexistent: No such file or directory\n");
    EXPECT_THAT(result.output, HasSubstr("-01-06 10:00:00 "));
}

TEST_F(PushpullctlStats, WithoutRowsEndWith1) {
    fs::create_directory(kDirectory);
    std::ofstream(log()) << kHeader;
    const PushpullctlResult result = run_pushpullctl({"stats"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.messages, "pushpullctl: there are no rows\n");
    EXPECT_THAT(result.output, IsEmpty());
}

TEST_F(PushpullctlStats, OfAServiceThatWritesNoneSayHowItDoes) {
    const PushpullctlResult result = run_pushpullctl({"stats"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.messages,
              std::string("pushpullctl: no statistics in ") + kDirectory + "; is the service started with -l?\n");
}

TEST_F(PushpullctlStats, InAPlaceThatCannotBeLookedAtSayWhy) {
    std::ofstream(std::string(kDirectory)) << "a file";
    const PushpullctlResult result = run_pushpullctl({"stats"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.messages, std::string("pushpullctl: ") + kDirectory + ": Not a directory\n");
}

// ---- with the service that writes them ----

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        if (separator == ',' && part.starts_with(' ')) part.erase(0, 1);
        parts.push_back(part);
    }
    return parts;
}

double number(const JSONNODE* node, const char* member) { return json_as_float(qo_json_find(node, member)); }

class PushpullctlStatsOfTheService : public PushpullctlStats {
protected:
    static constexpr size_t kFixed = 15;
    static constexpr const char* kMembers[] = {
        "percent_active", "total_publishes",    "publishes",   "publish_ms", "total_reads",
        "reads",          "read_ms_as_written", "total_saves", "saves",      "total_clears",
        "clears",         "subscriptions",      "registers",   "unregisters"};
    static constexpr std::pair<const char*, const char*> kQueueMembers[] = {
        {"messages", "(Total)"}, {"saves", "(Saves)"}, {"max_depth", "(Max)"}, {"avg_depth", "(Avg)"}};
    static constexpr size_t kTotalClears = 10;

    /// The fields of each line that is whole; the header comes first.
    static std::vector<std::vector<std::string>> written() {
        std::ostringstream text;
        text << std::ifstream(log()).rdbuf();
        const std::string all = text.str();
        std::vector<std::vector<std::string>> lines;
        for (const std::string& line : split(all.substr(0, all.rfind('\n') + 1), '\n'))
            lines.push_back(split(line, ','));
        return lines;
    }

    /// A run of the service that is asked for some of everything by two components.
    /// @return their queues
    std::vector<std::string> run_service() {
        if (!service().start_and_wait({"-l"})) throw std::runtime_error("no service");
        Component demo(service(), QO_CMPID_DEMO);
        Component other(service(), QO_CMPID_DEMO + 1);
        EXPECT_EQ(demo.api().subscribe(demo.id(), "/usb", false), 0);
        EXPECT_EQ(demo.api().publish(demo.id(), R"({"version":{"schemaVersion":"x"}})"), 0);
        EXPECT_EQ(other.api().get(other.id(), "/version", "", false), 0);
        EXPECT_EQ(other.api().flush(other.id()), 0);
        EXPECT_EQ(other.api().clear(other.id(), "/logs"), 0);
        const auto deadline = std::chrono::steady_clock::now() + kQoPatience;
        for (auto rows = written(); rows.size() < 2 || rows.back().at(kTotalClears) != "1"; rows = written()) {
            if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("no row is written");
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        EXPECT_EQ(service().stop(), 0);
        return {"/pushpull", demo.queue_name(), other.queue_name()};
    }

    static void expect_queue(const JSONNODE* shown, const std::string& queue, const std::vector<std::string>& names,
                             const std::vector<std::string>& values, size_t column) {
        EXPECT_EQ(qo_json_string(qo_json_find(shown, "queue")), queue);
        for (const auto& [member, suffix] : kQueueMembers) {
            EXPECT_EQ(names[column], queue + suffix);
            EXPECT_DOUBLE_EQ(number(shown, member), std::stod(values[column])) << names[column];
            ++column;
        }
    }
};

TEST_F(PushpullctlStatsOfTheService, TellOfEachColumnAndQueueWhatItWrote) {
    std::ofstream("/kivo/data/pushpull_stats.cfg") << "2\n";
    std::vector<std::string> queues;
    // Again when the first row, and with it the header, came before both components had registered.
    do {
        fs::remove_all(kDirectory);
        queues = run_service();
    } while (written().front().size() != kFixed + queues.size() * std::size(kQueueMembers));
    const std::vector<std::vector<std::string>> rows = written();
    const std::vector<std::string>& names = rows.front();

    const PushpullctlResult result = run_pushpullctl({"stats", "--json", "--rows", "1000000"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.messages, "");
    const std::vector<std::string> shown = split(result.output, '\n');
    ASSERT_EQ(shown.size(), rows.size() - 1);
    for (size_t row = 0; row < shown.size(); ++row) {
        const std::vector<std::string>& values = rows[row + 1];
        ASSERT_EQ(values.size(), names.size());
        const QoJsonNode node = qo_json_parse(shown[row]);
        ASSERT_TRUE(node) << shown[row];
        // The service writes "Jan 05 13:04:59".
        EXPECT_TRUE(qo_json_string(qo_json_find(node.get(), "time")).ends_with(values[0].substr(6))) << shown[row];
        for (size_t i = 0; i < std::size(kMembers); ++i)
            EXPECT_DOUBLE_EQ(number(node.get(), kMembers[i]), std::stod(values[1 + i])) << names[1 + i];
        const JSONNODE* shown_queues = qo_json_find(node.get(), "queues");
        ASSERT_EQ(json_size(shown_queues), queues.size());
        for (size_t place = 0; place < queues.size(); ++place) {
            expect_queue(json_at(shown_queues, place), queues[place], names, values,
                         kFixed + place * std::size(kQueueMembers));
        }
    }
    const QoJsonNode last = qo_json_parse(shown.back());
    EXPECT_EQ(number(last.get(), "total_publishes"), 1);
    EXPECT_EQ(number(last.get(), "total_reads"), 1);
    EXPECT_GE(number(last.get(), "total_saves"), 2);
}

TEST_F(PushpullctlStats, ReadQueuesOfAnyNameAsTheServiceWritesThem) {
    std::ofstream("/kivo/data/pushpull_stats.cfg") << "1\n";
    ASSERT_TRUE(service().start_and_wait({"-l"}));
    ASSERT_TRUE(service().post(R"({"function":"register","arg":{"comp_id":1352,"buffer":"/a,\"b\"\nc"},)"
                               R"("que":{"flags":0,"maxmsg":1,"msgsize":64,"curmsgs":0}})"));
    PushpullctlResult result{};
    do {
        ASSERT_TRUE(service().wait_until_idle());
        result = run_pushpullctl({"stats", "--json", "--rows", "1"});
    } while (result.output.find("\"queues\":[{") == std::string::npos);
    EXPECT_EQ(result.messages, "");
    EXPECT_THAT(result.output, HasSubstr(R"("queue":"/a,\"b\"?c")"));
    EXPECT_EQ(service().stop(), 0);
    mq_unlink("/a,\"b\"\nc");
}

}  // namespace
