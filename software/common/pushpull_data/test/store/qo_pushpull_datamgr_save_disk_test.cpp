// Saves that a real disk refuses: one that is full, one without room for another name, one that is read-only.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mount.h>

#include <filesystem>
#include <map>
#include <string>

#include "isolation.h"
#include "qo_pushpull_files.h"
#include "qo_store_fixture.h"

namespace {

using ::testing::ElementsAre;

constexpr char kMountPoint[] = "/kivo/disk/";

QoLogLine critical_line(const std::string& text) { return {LOG_CRIT, "PushPull:*@#: " + text}; }

const QoLogLine kCannotOpen = error_line("Couldn't open file to save the data tree");

/// A store on a small disk of its own, with a saved file, a backup and one more change.
class RefusingDisk : public QoStoreTest {
protected:
    void SetUp() override {
        if (const std::string missing = qo_missing_isolation(); !missing.empty()) GTEST_SKIP() << missing;
        std::filesystem::create_directories(kMountPoint);
        if (mount("tmpfs", kMountPoint, "tmpfs", 0, "size=64k,nr_inodes=8") != 0)
            GTEST_SKIP() << "no disk of our own: " << strerror(errno);
        scratch_.write(QO_DEFAULTS_FILE, R"({"a":0})");
        store_ = std::make_unique<DataMgr>(QoStorePaths{kMountPoint, scratch_.path()});
        ASSERT_EQ(store_->Init(nullptr), 0);
        for (int value = 1; value <= 2; ++value) {
            publish(R"({"a":)" + std::to_string(value) + "}");
            ASSERT_EQ(save(), 0);
        }
        publish(R"({"a":3})");
    }
    void TearDown() override {
        store_.reset();
        umount2(kMountPoint, MNT_DETACH);
    }

    int save() {
        log_.clear();
        const int result = store_->SaveDataTree(false);
        keep_log();
        return result;
    }

    static bool remount(unsigned long flags) {
        return mount("none", kMountPoint, nullptr, MS_REMOUNT | flags, nullptr) == 0;
    }

    static int64_t value_in(const std::string& name) {
        std::ostringstream text;
        text << std::ifstream(kMountPoint + name).rdbuf();
        const QoJsonNode node = qo_json_parse(text.view());
        return node ? json_as_int(qo_json_find(node.get(), "a")) : -1;
    }

    /// Names and the values that they hold.
    static std::map<std::string, int64_t> files() {
        std::map<std::string, int64_t> found;
        for (const auto& entry : std::filesystem::directory_iterator(kMountPoint)) {
            const std::string name = entry.path().filename();
            if (name != "filler") found[name] = value_in(name);
        }
        return found;
    }

    /// Twice in a row, because a file that was replaced by a damaged one would be the next backup.
    void expect_refused_twice(const QoLogLine& line) {
        for (int attempt = 1; attempt <= 2; ++attempt) {
            EXPECT_EQ(save(), -1);
            EXPECT_THAT(said_, ElementsAre(line));
            EXPECT_THAT(files(), ElementsAre(std::pair("saved_tree.json", 2), std::pair("saved_tree.json.bak", 1)));
        }
        EXPECT_EQ(tree(), R"({"a":3})");
    }

    void expect_next_save_succeeds() {
        EXPECT_EQ(save(), 0);
        EXPECT_THAT(files(), ElementsAre(std::pair("saved_tree.json", 3), std::pair("saved_tree.json.bak", 2)));
    }
};

TEST_F(RefusingDisk, AFullOneKeepsTheSavedFileAndTheBackup) {
    const std::string filler = std::string(kMountPoint) + "filler";
    std::ofstream(filler) << std::string(1 << 20, 'x');
    expect_refused_twice(error_line("Couldn't write file to save the data tree: No space left on device"));
    std::filesystem::remove(filler);
    expect_next_save_succeeds();
}

TEST_F(RefusingDisk, OneWithoutRoomForAnotherNameKeepsTheSavedFileAndTheBackup) {
    const std::string filler = std::string(kMountPoint) + "filler";
    std::filesystem::create_directory(filler);
    for (int i = 0; i < 8; ++i) std::ofstream(filler + "/" + std::to_string(i)).close();
    expect_refused_twice(kCannotOpen);
    std::filesystem::remove_all(filler);
    expect_next_save_succeeds();
}

TEST_F(RefusingDisk, AReadOnlyOneKeepsTheSavedFileAndTheBackup) {
    ASSERT_TRUE(remount(MS_RDONLY)) << strerror(errno);
    expect_refused_twice(kCannotOpen);
    log_.clear();
    EXPECT_EQ(store_->SaveActiveTreeForDebug(), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Couldn't open file to save the active data tree")));
    ASSERT_TRUE(remount(0)) << strerror(errno);
    expect_next_save_succeeds();
}

TEST_F(RefusingDisk, OnAReadOnlyOneABackupCanNeitherBeRemovedNorMade) {
    ASSERT_TRUE(remount(MS_RDONLY)) << strerror(errno);
    log_.clear();
    EXPECT_EQ(store_->RenameAsBackUpFile(std::string(kMountPoint) + QO_SAVED_TREE_FILE), -1);
    EXPECT_THAT(log_.lines(),
                ElementsAre(error_line("Cannot remove existing .bak file"), critical_line("Back up failed")));
}

TEST_F(RefusingDisk, OnAReadOnlyOneAnInvalidFileCannotBeRemoved) {
    const std::string saved = std::string(kMountPoint) + QO_SAVED_TREE_FILE;
    const std::string backup = saved + QO_BACKUP_EXTENSION;
    std::ofstream(saved) << "{";
    std::ofstream(backup) << "{";
    ASSERT_TRUE(remount(MS_RDONLY)) << strerror(errno);
    store_ = std::make_unique<DataMgr>(QoStorePaths{kMountPoint, scratch_.path()});
    log_.clear();
    EXPECT_EQ(store_->CreateDataTree(), -1);
    EXPECT_THAT(
        log_.lines(),
        ElementsAre(info_line("Saved configuration found"), error_line("JSON in file " + saved + " is invalid json"),
                    critical_line("Saved configuration cannot be parsed"), critical_line("Cannot remove invalid file"),
                    info_line("Back up saved config found"), error_line("JSON in file " + backup + " is invalid json"),
                    critical_line("Saved back up configuration cannot be parsed"),
                    critical_line("Cannot remove invalid back up file")));
}

}  // namespace
