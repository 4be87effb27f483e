// A save by the timer that the disk refuses, tried again by the running service until it succeeds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mount.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "component.h"
#include "service_process.h"

namespace {

constexpr char kDataDirectory[] = "/kivo/data/";
constexpr eQO_CMP_IDs_ kDemo = QO_CMPID_DEMO;
constexpr std::chrono::seconds kThreeAttempts{240};

class FullDisk : public ServiceProcess {
protected:
    void SetUp() override {
        ServiceProcess::SetUp();
        if (IsSkipped()) return;
        if (mount("tmpfs", kDataDirectory, "tmpfs", 0, "size=128k,mode=0777") != 0)
            GTEST_SKIP() << "no disk of our own: " << strerror(errno);
        mounted_ = true;
        std::ofstream(kFiller) << std::string(size_t{1} << 20, 'x');
        ASSERT_TRUE(service().start_and_wait());
    }
    void TearDown() override {
        ServiceProcess::TearDown();
        if (mounted_) umount2(kDataDirectory, MNT_DETACH);
    }
    long logged(const std::string& text) {
        const std::vector<QoLogLine> lines = events().log();
        return std::count_if(lines.begin(), lines.end(),
                             [&](const QoLogLine& line) { return line.text.find(text) != std::string::npos; });
    }

    static constexpr char kFiller[] = "/kivo/data/filler";
    bool mounted_ = false;
};

TEST_F(FullDisk, ASaveByTheTimerIsTriedAgainByItselfOnceTheDiskHasRoom) {
    Component component(service(), kDemo);
    ASSERT_EQ(component.api().publish(kDemo, R"({"version":{"schemaVersion":"kept"}})"), 0);
    const std::string refused = "Couldn't write file to save the data tree: No space left on device";
    ASSERT_TRUE(events().wait_for_store_log(LOG_ERR, refused));
    std::filesystem::remove(kFiller);
    EXPECT_TRUE(events().wait_for_store_log(LOG_INFO, "Saving succeeds again after 1 failed attempts", kThreeAttempts));
    EXPECT_EQ(logged(refused), 1);
    std::ostringstream saved;
    saved << std::ifstream("/kivo/data/saved_tree.json").rdbuf();
    EXPECT_THAT(saved.str(), testing::HasSubstr("\"schemaVersion\": \"kept\""));
}

}  // namespace
