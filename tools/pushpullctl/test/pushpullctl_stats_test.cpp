// stats: the command as it is run, with the files where the service writes them.
#include <mqueue.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>

#include "pushpullctl_run.h"

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
