// The saved tree: what is read at start-up whatever lies on the disk, what a save writes, what a failing disk or a
// process that dies in between leaves behind, and which publishes ask for a save.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "qo_pushpull_file_replacement.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_utilities.h"
#include "qo_store_fixture.h"

// ---- the disk and the JSON library as a test wants them ----

namespace {

/// Called before each system call that a save makes, with its name; true makes the call fail with EIO.
std::function<bool(const std::string&)> on_disk_call;
int refused_link_errno = 0;
bool refuse_duplicate = false;
bool refuse_snapshot = false;
bool refuse_new_text = false;

bool disk_refuses(const char* call) {
    const bool refused = on_disk_call && on_disk_call(call);
    if (refused) errno = EIO;
    return refused;
}

}  // namespace

extern "C" {
int __real_rename(const char* from, const char* to);
int __real_link(const char* from, const char* to);
int __real_unlink(const char* path);
int __real_fsync(int descriptor);
ssize_t __real_write(int descriptor, const void* data, size_t size);
JSONNODE* __real_json_duplicate(const JSONNODE* node);
JSONSNAPSHOT* __real_json_snapshot_new(const JSONNODE* node, json_chooser choose, void* context);
JSONNODE* __real_json_new_a(const char* name, const char* value);

int __wrap_rename(const char* from, const char* to) { return disk_refuses("rename") ? -1 : __real_rename(from, to); }
int __wrap_link(const char* from, const char* to) {
    if (refused_link_errno != 0) {
        errno = refused_link_errno;
        return -1;
    }
    return disk_refuses("link") ? -1 : __real_link(from, to);
}
int __wrap_unlink(const char* path) { return disk_refuses("unlink") ? -1 : __real_unlink(path); }
int __wrap_fsync(int descriptor) { return disk_refuses("fsync") ? -1 : __real_fsync(descriptor); }
ssize_t __wrap_write(int descriptor, const void* data, size_t size) {
    return disk_refuses("write") ? -1 : __real_write(descriptor, data, size);
}
JSONNODE* __wrap_json_duplicate(const JSONNODE* node) {
    return refuse_duplicate ? nullptr : __real_json_duplicate(node);
}
JSONSNAPSHOT* __wrap_json_snapshot_new(const JSONNODE* node, json_chooser choose, void* context) {
    return refuse_snapshot ? nullptr : __real_json_snapshot_new(node, choose, context);
}
JSONNODE* __wrap_json_new_a(const char* name, const char* value) {
    return refuse_new_text ? nullptr : __real_json_new_a(name, value);
}
}

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kSaved[] = "saved_tree.json";
constexpr char kBackup[] = "saved_tree.json.bak";
constexpr char kActive[] = "active_tree.json";

const QoLogLine kSavedFound = info_line("Saved configuration found");
const QoLogLine kNoSaved = info_line("No saved configuration found");
const QoLogLine kBackupFound = info_line("Back up saved config found");
const QoLogLine kNoBackup = info_line("No back up configuration found");
const QoLogLine kNoCrc = error_line("Cannot find CRC info in saved configuration");
const QoLogLine kNoMatch = error_line("Saved and calculated CRC do not match");
const QoLogLine kCannotOpen = error_line("Couldn't open file to save the data tree");
const QoLogLine kSavedIt = info_line("Saved the data tree");

QoLogLine critical_line(const std::string& text) { return {LOG_CRIT, "PushPull:*@#: " + text}; }

const QoLogLine kDiscarding = critical_line("Discarding saved configuration");

/// The text that a saved file has for the tree.
std::string saved_text_of(const std::string& tree) {
    const QoJsonNode node = qo_json_parse(tree);
    std::ostringstream crc;
    crc << std::hex << CalcCrc32(qo_json_write_formatted(node.get()));
    json_insert(node.get(), json_begin(node.get()), json_new_a("crc", crc.str().c_str()));
    return qo_json_write_formatted(node.get());
}

class PersistenceTest : public QoStoreTest {
protected:
    void SetUp() override { scratch_.write(QO_DEFAULTS_FILE, "{}"); }
    void TearDown() override {
        on_disk_call = nullptr;
        refused_link_errno = 0;
        refuse_duplicate = false;
        refuse_snapshot = false;
        refuse_new_text = false;
    }

    /// Loads what lies on the disk. The result and the log lines are those of the loading alone.
    int load_saved() {
        store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
        log_.clear();
        const int result = store_->CreateDataTree();
        keep_log();
        return result;
    }

    int save() {
        log_.clear();
        const int result = store_->SaveDataTree(false);
        keep_log();
        return result;
    }

    /// What is on the disk beside the defaults file.
    std::map<std::string, std::string> files() const {
        std::map<std::string, std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(scratch_.path())) {
            const std::string name = entry.path().filename();
            if (name != QO_DEFAULTS_FILE) found[name] = entry.is_regular_file() ? scratch_.read(name) : "";
        }
        return found;
    }
};

// ---- loading ----

using LoadSavedTree = PersistenceTest;

TEST_F(LoadSavedTree, NothingOnTheDiskIsNoFailure) {
    EXPECT_EQ(load_saved(), 0);
    EXPECT_THAT(said_, ElementsAre(kNoSaved, kNoBackup));
    EXPECT_EQ(tree(), "");
}

TEST_F(LoadSavedTree, AnIntactFileIsTheTreeWithoutItsCrc) {
    scratch_.write(kSaved, saved_text_of(R"({"a":35.0,"b":[{"id":0}]})"));
    EXPECT_EQ(load_saved(), 0);
    EXPECT_THAT(said_, ElementsAre(kSavedFound));
    EXPECT_EQ(tree(), R"({"a":35.0,"b":[{"id":0}]})");
}

TEST_F(LoadSavedTree, AHandEditedFileIsDiscardedAndTheBackupTried) {
    scratch_.write(kSaved,
                   std::string(saved_text_of(R"({"a":1})")).replace(saved_text_of(R"({"a":1})").size() - 3, 1, "2"));
    scratch_.write(kBackup, saved_text_of(R"({"a":7})"));
    const auto before = files();
    EXPECT_EQ(load_saved(), 0);
    EXPECT_THAT(said_, ElementsAre(kSavedFound, kNoMatch, kDiscarding, kBackupFound));
    EXPECT_EQ(tree(), R"({"a":7})");
    EXPECT_EQ(files(), before);
}

TEST_F(LoadSavedTree, ValidJsonWithoutCrcIsDiscarded) {
    scratch_.write(kSaved, R"({"a":1})");
    EXPECT_EQ(load_saved(), -1);
    EXPECT_THAT(said_, ElementsAre(kSavedFound, kNoCrc, kDiscarding, kNoBackup));
    EXPECT_TRUE(scratch_.has(kSaved));
}

TEST_F(LoadSavedTree, JsonThatIsNoObjectIsDiscarded) {
    for (const char* text : {"[]", "7", "null", R"(["3f0a91c"])"}) {
        scratch_.write(kSaved, text);
        EXPECT_EQ(load_saved(), -1) << text;
        EXPECT_THAT(said_, ElementsAre(kSavedFound, kNoCrc, kDiscarding, kNoBackup)) << text;
    }
}

TEST_F(LoadSavedTree, ADiscardedBackupLeavesNoTree) {
    scratch_.write(kSaved, R"({"a":1})");
    scratch_.write(kBackup, R"({"crc":"1","a":2})");
    EXPECT_EQ(load_saved(), -1);
    EXPECT_THAT(said_, ElementsAre(kSavedFound, kNoCrc, kDiscarding, kBackupFound, kNoMatch, kDiscarding));
    EXPECT_EQ(tree(), "");
}

TEST_F(LoadSavedTree, AnUnparsableFileIsRemovedAndTheBackupTried) {
    for (const std::string& garbage : {std::string(), std::string("{"), std::string(10 << 20, '{'),
                                       saved_text_of(R"({"a":1})").substr(0, 20), std::string("{}\0", 3)}) {
        const std::string path = scratch_.write(kSaved, garbage);
        scratch_.write(kBackup, saved_text_of(R"({"a":7})"));
        EXPECT_EQ(load_saved(), 0);
        EXPECT_THAT(said_, ElementsAre(kSavedFound, error_line("JSON in file " + path + " is invalid json"),
                                       critical_line("Saved configuration cannot be parsed"), kBackupFound));
        EXPECT_EQ(tree(), R"({"a":7})");
        EXPECT_FALSE(scratch_.has(kSaved));
        EXPECT_EQ(scratch_.read(kSaved + std::string(".bad")), garbage);
    }
}

TEST_F(LoadSavedTree, AnUnparsableBackupIsRemoved) {
    const std::string path = scratch_.write(kBackup, "{");
    EXPECT_EQ(load_saved(), -1);
    EXPECT_THAT(said_, ElementsAre(kNoSaved, kBackupFound, error_line("JSON in file " + path + " is invalid json"),
                                   critical_line("Saved back up configuration cannot be parsed")));
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{kBackup + std::string(".bad"), "{"}}));
}

TEST_F(LoadSavedTree, OnlyABackupIsEnough) {
    scratch_.write(kBackup, saved_text_of(R"({"a":7})"));
    EXPECT_EQ(load_saved(), 0);
    EXPECT_THAT(said_, ElementsAre(kNoSaved, kBackupFound));
    EXPECT_EQ(tree(), R"({"a":7})");
}

TEST_F(LoadSavedTree, ADirectoryInAFilesPlaceCountsAsAbsent) {
    std::filesystem::create_directory(scratch_.file(kSaved));
    std::filesystem::create_directory(scratch_.file(kBackup));
    EXPECT_EQ(load_saved(), 0);
    EXPECT_THAT(said_, ElementsAre(kNoSaved, kNoBackup));
}

TEST_F(LoadSavedTree, WithoutATreeTheCrcDoesNotMatch) {
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
    EXPECT_FALSE(store_->DoesDataTreeCRCMatch());
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null data tree!")));
}

TEST_F(LoadSavedTree, TheCrcIsANumberWhateverItsCaseZerosOrPlace) {
    const std::string crc = "945d5ec4";  // of {"a":1} as the formatted writer has it
    ASSERT_EQ(saved_text_of(R"({"a":1})"), "{\n\t\"crc\": \"" + crc + "\",\n\t\"a\": 1\n}");
    for (const char* text :
         {R"({"crc":"945D5EC4","a":1})", R"({"crc":"00000000000945d5ec4","a":1})", R"({"a":1,"crc":"945d5Ec4"})"}) {
        scratch_.write(kSaved, text);
        EXPECT_EQ(load_saved(), 0) << text;
        EXPECT_EQ(tree(), R"({"a":1})") << text;
    }
}

TEST_F(LoadSavedTree, ACrcThatIsNotHexadecimalOrBeyond32BitsDoesNotMatch) {
    for (const char* crc : {R"("")", R"("0x945d5ec4")", R"(" 945d5ec4")", R"("945d5ec4 ")", R"("945d5ec4z")",
                            R"("1945d5ec4")", R"("-6ba2a13c")", R"("+945d5ec4")", "null", "true", "{}", "2489147076"}) {
        scratch_.write(kSaved, std::string(R"({"crc":)") + crc + R"(,"a":1})");
        EXPECT_EQ(load_saved(), -1) << crc;
        EXPECT_THAT(said_, ElementsAre(kSavedFound, kNoMatch, kDiscarding, kNoBackup)) << crc;
    }
}

TEST_F(LoadSavedTree, SavedValuesWinAndTheDefaultTreeAddsTheRest) {
    scratch_.write(kSaved, saved_text_of(R"({"a":{"x":1}})"));
    load(R"({"a":{"x":5,"writeAccess":"openAll"},"b":2})");
    EXPECT_EQ(tree(), R"({"a":{"x":1,"writeAccess":"openAll"},"b":2})");
}

TEST_F(LoadSavedTree, ADefaultTreeThatCannotBeCopiedFails) {
    const QoJsonNode defaults = qo_json_parse(R"({"a":1})");
    EXPECT_EQ(load_saved(), 0);
    refuse_duplicate = true;
    log_.clear();
    EXPECT_EQ(store_->MergeToDataTree(defaults.get()), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(info_line("No saved configuration, using default tree as data tree"),
                                          error_line("json_new/json_duplicate failed")));
}

TEST_F(LoadSavedTree, BothDamagedLeavesTheDefaultTree) {
    scratch_.write(kSaved, R"({"crc":"0","a":1})");
    scratch_.write(kBackup, "garbage");
    load(R"({"a":5})");
    EXPECT_EQ(tree(), R"({"a":5})");
}

TEST_F(LoadSavedTree, StrayFilesOfADeadProcessAreRemovedAndNothingElse) {
    for (const char* name : {"saved_tree.json.new.17", "saved_tree.json.former.17", "active_tree.json.new.4711"})
        scratch_.write(name, "{}");
    for (const char* name : {"saved_tree.json.new", "saved_tree.json.new.txt", "saved_tree.json.old", "a.new.17"})
        scratch_.write(name, "kept");
    load_saved();
    EXPECT_THAT(files(),
                ElementsAre(std::pair("a.new.17", "kept"), std::pair("saved_tree.json.new", "kept"),
                            std::pair("saved_tree.json.new.txt", "kept"), std::pair("saved_tree.json.old", "kept")));
}

// ---- saving ----

using SaveDataTree = PersistenceTest;

TEST_F(SaveDataTree, WritesTheFormattedTreeBehindItsCrc) {
    load(R"({"a":1})");
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{kSaved, "{\n\t\"crc\": \"945d5ec4\",\n\t\"a\": 1\n}"}}));
}

TEST_F(SaveDataTree, AForcedSaveLogsThreeLines) {
    load("{}");
    EXPECT_EQ(save(), 0);
    EXPECT_THAT(said_, ElementsAre(info_line("Forced Save"),
                                   info_line("Pending timer to save data is cancelled, if any"), kSavedIt));
}

TEST_F(SaveDataTree, BytesAreThoseOfInsertingTheCrcAndWritingAgain) {
    for (const char* text :
         {"{}", R"({"a":{}})", R"({"a":[]})", R"({"":""})", R"({"crc":"of a component"})", R"({"a":[1,[2,{"b":[]}]]})",
          R"({"a":"\u0000\n\t\"\\ ä €","b":123456789012345678901234567890,"c":1e-7,"d":null})"}) {
        std::filesystem::remove(scratch_.file(kSaved));
        load(text);
        ASSERT_EQ(save(), 0) << text;
        EXPECT_EQ(scratch_.read(kSaved), saved_text_of(tree())) << text;
        EXPECT_EQ(load_saved(), 0) << text;
        EXPECT_EQ(tree(), qo_json_write(qo_json_parse(text).get()));
    }
}

TEST_F(SaveDataTree, CrcIsThatOfTheTextWithoutTheMemberRewritten) {
    load_built_in();
    ASSERT_EQ(publish(R"({"system":{"config":{"name":"Lab"}}})"), 0);
    ASSERT_EQ(save(), 0);
    const QoJsonNode file = qo_json_parse(scratch_.read(kSaved));
    EXPECT_EQ(qo_json_name(json_at(file.get(), 0)), "crc");
    const QoJsonNode crc(json_pop_back(file.get(), "crc"));
    EXPECT_EQ(std::stoul(std::string(qo_json_string(crc.get())), nullptr, 16),
              CalcCrc32(qo_json_write_formatted(file.get())));
}

TEST_F(SaveDataTree, CrcHasNoLeadingZeros) {
    for (int i = 0; i < 2000; ++i) {
        const std::string text = R"({"a":)" + std::to_string(i) + "}";
        if (CalcCrc32(qo_json_write_formatted(qo_json_parse(text).get())) < 0x01000000U) {
            load(text);
            ASSERT_EQ(save(), 0);
            EXPECT_EQ(scratch_.read(kSaved), saved_text_of(text));
            EXPECT_EQ(scratch_.read(kSaved).find("\"0"), std::string::npos);
            EXPECT_EQ(load_saved(), 0);
            return;
        }
    }
    FAIL() << "no such tree found";
}

TEST_F(SaveDataTree, TransientSubtreesAreNotInTheFileButInTheDebugDump) {
    load(
        R"({"a":{"doNotPersist":true,"x":1},"b":{"c":{"doNotPersist":true},"d":2},"l":[{"doNotPersist":true,"id":0}]})");
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(scratch_.read(kSaved), saved_text_of(R"({"b":{"d":2}})"));
    EXPECT_EQ(store_->SaveActiveTreeForDebug(), 0);
    EXPECT_EQ(scratch_.read(kActive), qo_json_write_formatted(qo_json_parse(tree()).get()));
    EXPECT_NE(scratch_.read(kActive).find("doNotPersist"), std::string::npos);
}

TEST_F(SaveDataTree, TheLiveTreeKeepsWhatIsNotSaved) {
    load(R"({"a":{"doNotPersist":true,"x":1}})");
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(tree(), R"({"a":{"doNotPersist":true,"x":1}})");
}

TEST_F(SaveDataTree, TheFileBeforeBecomesTheBackup) {
    load(R"({"a":1})");
    ASSERT_EQ(save(), 0);
    publish(R"({"a":2})");
    ASSERT_EQ(save(), 0);
    publish(R"({"a":3})");
    ASSERT_EQ(save(), 0);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{kSaved, saved_text_of(R"({"a":3})")},
                                                           {kBackup, saved_text_of(R"({"a":2})")}}));
}

TEST_F(SaveDataTree, ADiscardedFileBecomesTheBackupToo) {
    scratch_.write(kSaved, "{\"edited\":1}");
    scratch_.write(kBackup, saved_text_of(R"({"a":7})"));
    load(R"({"a":1})");
    ASSERT_EQ(save(), 0);
    EXPECT_EQ(files(),
              (std::map<std::string, std::string>{{kSaved, saved_text_of(R"({"a":7})")}, {kBackup, "{\"edited\":1}"}}));
}

TEST_F(SaveDataTree, ABackupThatIsTheSameFileAsTheSavedOneIsReplaced) {
    load(R"({"a":1})");
    ASSERT_EQ(save(), 0);
    std::filesystem::create_hard_link(scratch_.file(kSaved), scratch_.file(kBackup));
    publish(R"({"a":2})");
    ASSERT_EQ(save(), 0);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{kSaved, saved_text_of(R"({"a":2})")},
                                                           {kBackup, saved_text_of(R"({"a":1})")}}));
}

size_t open_descriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(descriptors), end(descriptors)));
}

TEST_F(SaveDataTree, LeavesNoDescriptorOpen) {
    load(R"({"a":1})");
    ASSERT_EQ(save(), 0);
    const size_t before = open_descriptors();
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(store_->SaveActiveTreeForDebug(), 0);
    refused_link_errno = EPERM;
    EXPECT_EQ(save(), 0);
    for (const char* failing : {"write", "fsync", "rename"}) {
        on_disk_call = [failing](const std::string& call) { return call == failing; };
        EXPECT_EQ(save(), -1);
        EXPECT_EQ(store_->SaveActiveTreeForDebug(), -1);
    }
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(SaveDataTree, WhatADeadProcessOfTheSameNumberLeftIsInNoWay) {
    load(R"({"a":1})");
    ASSERT_EQ(save(), 0);
    const std::string number = std::to_string(getpid());
    scratch_.write(kSaved + (".new." + number), "cut");
    scratch_.write(kSaved + (".former." + number), "cut");
    publish(R"({"a":2})");
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{kSaved, saved_text_of(R"({"a":2})")},
                                                           {kBackup, saved_text_of(R"({"a":1})")}}));
}

TEST_F(SaveDataTree, WithoutHardLinksTheFileBeforeBecomesTheBackupAsWell) {
    refused_link_errno = EPERM;
    load(R"({"a":1})");
    ASSERT_EQ(save(), 0);
    publish(R"({"a":2})");
    ASSERT_EQ(save(), 0);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{kSaved, saved_text_of(R"({"a":2})")},
                                                           {kBackup, saved_text_of(R"({"a":1})")}}));
}

TEST_F(SaveDataTree, WithoutHardLinksAFileOfAfter2038BecomesTheBackupAsWell) {
    refused_link_errno = EPERM;
    load(R"({"a":1})");
    ASSERT_EQ(save(), 0);
    ASSERT_EQ(chmod(scratch_.file(kSaved).c_str(), 0600), 0);
    if (!scratch_.date_in_2040(kSaved)) GTEST_SKIP() << "this disk has no dates after 2038";
    publish(R"({"a":2})");
    ASSERT_EQ(save(), 0);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{kSaved, saved_text_of(R"({"a":2})")},
                                                           {kBackup, saved_text_of(R"({"a":1})")}}));
    struct stat status {};
    ASSERT_EQ(stat(scratch_.file(kBackup).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U) << "not more readable than the file that it was";
}

mode_t mode_of(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST_F(SaveDataTree, WritesFilesForOwnerAndGroupWhateverTheUmask) {
    load(R"({"a":1})");
    for (const mode_t mask : {0U, 022U, 027U, 077U}) {
        const mode_t former = umask(mask);
        EXPECT_EQ(save(), 0);
        EXPECT_EQ(save(), 0);
        EXPECT_EQ(store_->SaveActiveTreeForDebug(), 0);
        umask(former);
        for (const char* name : {kSaved, kBackup, kActive})
            EXPECT_EQ(mode_of(scratch_.file(name)), 0640U) << name << " with umask " << mask;
    }
}

TEST_F(SaveDataTree, NeverHasAFileThatOthersMayRead) {
    load(R"({"a":1})");
    const mode_t former = umask(0);
    for (const int refused : {0, EPERM}) {
        refused_link_errno = refused;
        int looks = 0;
        on_disk_call = [this, &looks](const std::string&) {
            for (const auto& [name, content] : files()) EXPECT_EQ(mode_of(scratch_.file(name)) & ~0640U, 0U) << name;
            ++looks;
            return false;
        };
        EXPECT_EQ(save(), 0);
        EXPECT_EQ(save(), 0);
        EXPECT_GE(looks, 8);
    }
    umask(former);
}

TEST_F(SaveDataTree, ClosesTheFileOfAFormerVersionToOthersBeforeItBecomesTheBackup) {
    for (const int refused : {0, EPERM}) {
        refused_link_errno = refused;
        load(R"({"a":1})");
        ASSERT_EQ(save(), 0);
        ASSERT_EQ(chmod(scratch_.file(kSaved).c_str(), 0666), 0);
        EXPECT_EQ(save(), 0);
        EXPECT_EQ(mode_of(scratch_.file(kBackup)), 0640U);
    }
}

TEST_F(LoadSavedTree, ClosesTheFilesOfAFormerVersionToOthers) {
    load(R"({"a":1})");
    ASSERT_EQ(save(), 0);
    ASSERT_EQ(save(), 0);
    ASSERT_EQ(store_->SaveActiveTreeForDebug(), 0);
    for (const char* name : {kSaved, kBackup, kActive}) ASSERT_EQ(chmod(scratch_.file(name).c_str(), 0644), 0);
    EXPECT_EQ(load_saved(), 0);
    for (const char* name : {kSaved, kBackup, kActive}) EXPECT_EQ(mode_of(scratch_.file(name)), 0640U) << name;
}

TEST_F(SaveDataTree, SavesAndLoadsTheDeepestTreeThatAMessageCanBuild) {
    load("{}");
    std::string deepest;
    for (int level = 0; level < JSON_MAX_PARSE_DEPTH; ++level) deepest += R"({"a":)";
    deepest += "1" + std::string(JSON_MAX_PARSE_DEPTH, '}');
    ASSERT_EQ(publish(deepest), 0);
    ASSERT_EQ(save(), 0);
    EXPECT_EQ(load_saved(), 0);
    EXPECT_EQ(tree(), deepest);
}

TEST_F(SaveDataTree, ATimerTriggeredSaveWithoutATimerIsOverridden) {
    load("{}");
    EXPECT_EQ(store_->SaveDataTree(true), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Save request overridden")));
    EXPECT_THAT(files(), IsEmpty());
}

// ---- repairing a file by hand ----

/// What the shell prints.
std::string shell(const std::string& command) {
    std::string printed;
    FILE* output = popen(command.c_str(), "r");
    for (int c = fgetc(output); c != EOF; c = fgetc(output)) printed += static_cast<char>(c);
    EXPECT_EQ(pclose(output), 0);
    return printed;
}

// The commands are those of docs/persistence.md.
TEST_F(LoadSavedTree, AnEditedFileIsGoodAgainWithTheSumThatTheManualComputes) {
    const std::string crc =
        R"(crc() { printf '%x\n' $((0xffffffff ^ 0x$(sed 2d "$1" | gzip -c | tail -c 8 | od -An -N 4 -t x4 | tr -d ' '))); })"
        "\ncd " +
        scratch_.path() + "\n";
    load(R"({"name":"Lab","setpoint":35.0})");
    ASSERT_EQ(store_->SaveDataTree(false), 0);
    const std::string sum = shell(crc + "crc saved_tree.json");
    EXPECT_NE(scratch_.read(kSaved).find('"' + sum.substr(0, sum.size() - 1) + '"'), std::string::npos);

    shell(crc + "sed -i 's/35.0/21.5/' saved_tree.json");
    EXPECT_EQ(load_saved(), -1);
    shell(crc + R"(sed -i "2s/\"crc\": \"[^\"]*\"/\"crc\": \"$(crc saved_tree.json)\"/" saved_tree.json)");
    EXPECT_EQ(load_saved(), 0);
    EXPECT_EQ(tree(), R"({"name":"Lab","setpoint":21.5})");
}

// ---- saves that fail ----

class FailingSave : public PersistenceTest {
protected:
    /// A store with a saved file and a backup, and one more change.
    void load_with_history() {
        load(R"({"a":1})");
        ASSERT_EQ(save(), 0);
        publish(R"({"a":2})");
        ASSERT_EQ(save(), 0);
        publish(R"({"a":3})");
    }

    void expect_refused(const QoLogLine& line) {
        const auto before = files();
        EXPECT_EQ(save(), -1);
        EXPECT_THAT(said_, ElementsAre(line));
        EXPECT_EQ(files(), before);
        EXPECT_EQ(tree(), R"({"a":3})");
    }

    void expect_next_save_succeeds() {
        ASSERT_EQ(save(), 0);
        EXPECT_EQ(files(), (std::map<std::string, std::string>{{kSaved, saved_text_of(R"({"a":3})")},
                                                               {kBackup, saved_text_of(R"({"a":2})")}}));
    }
};

TEST_F(FailingSave, WithoutADirectoryTheFileCannotBeOpened) {
    load_with_history();
    const std::string away = scratch_.file("away");
    std::filesystem::create_directory(away);
    store_ = std::make_unique<DataMgr>(QoStorePaths{away + "/", scratch_.path()});
    ASSERT_EQ(store_->Init(nullptr), 0);
    std::filesystem::remove(away);
    EXPECT_EQ(save(), -1);
    EXPECT_THAT(said_, ElementsAre(kCannotOpen));
    std::filesystem::create_directory(away);
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(scratch_.read("away/saved_tree.json"), saved_text_of(R"({"a":1})"));
}

TEST_F(FailingSave, ADirectoryInTheFilesPlaceStopsItAndLeavesTheBackup) {
    load_with_history();
    std::filesystem::remove(scratch_.file(kSaved));
    std::filesystem::create_directory(scratch_.file(kSaved));
    expect_refused(kCannotOpen);
    std::filesystem::remove(scratch_.file(kSaved));
    ASSERT_EQ(save(), 0);
    EXPECT_EQ(scratch_.read(kSaved), saved_text_of(R"({"a":3})"));
    EXPECT_EQ(scratch_.read(kBackup), saved_text_of(R"({"a":1})"));
}

TEST_F(FailingSave, ABackupThatCannotBeReplacedDoesNotStopIt) {
    load_with_history();
    std::filesystem::remove(scratch_.file(kBackup));
    std::filesystem::create_directory(scratch_.file(kBackup));
    scratch_.write(std::string(kBackup) + "/occupied", "");
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(said_.front(), critical_line("Back up failed"));
    EXPECT_EQ(said_.back(), kSavedIt);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{kSaved, saved_text_of(R"({"a":3})")}, {kBackup, ""}}));
}

TEST_F(FailingSave, AFileBeforeThatCannotBeKeptDoesNotStopIt) {
    load_with_history();
    refused_link_errno = EPERM;
    int flushes = 0;
    on_disk_call = [&flushes](const std::string& call) { return call == "fsync" && ++flushes == 2; };
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(said_.front(), critical_line("Back up failed"));
    EXPECT_EQ(said_.back(), kSavedIt);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{kSaved, saved_text_of(R"({"a":3})")},
                                                           {kBackup, saved_text_of(R"({"a":1})")}}));
}

TEST_F(SaveDataTree, NamesThatCannotBeFreedAreInNoWay) {
    load(R"({"a":1})");
    ASSERT_EQ(save(), 0);
    const std::string number = std::to_string(getpid());
    for (const char* extension : {".new.", ".former."})
        std::filesystem::create_directory(scratch_.file(kSaved + (extension + number)));
    publish(R"({"a":2})");
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(scratch_.read(kSaved), saved_text_of(R"({"a":2})"));
    EXPECT_EQ(scratch_.read(kBackup), saved_text_of(R"({"a":1})"));
}

// ---- two services on the same files ----

class SharedDirectory : public PersistenceTest {
protected:
    void SetUp() override {
        PersistenceTest::SetUp();
        load(R"({"a":1})");
        ASSERT_EQ(save(), 0);
        publish(R"({"a":2})");
    }
    /// Before each call of a save that follows, a second service does what one does first that starts here.
    void start_another_at_each_call() {
        on_disk_call = [this](const std::string&) {
            const auto again = std::exchange(on_disk_call, nullptr);
            QoFileReplacement::remove_strays(scratch_.file(kSaved));
            on_disk_call = again;
            ++starts_;
            return false;
        };
    }
    void expect_saved() {
        EXPECT_EQ(save(), 0);
        EXPECT_EQ(files(), (std::map<std::string, std::string>{{kSaved, saved_text_of(R"({"a":2})")},
                                                               {kBackup, saved_text_of(R"({"a":1})")}}));
    }

    int starts_ = 0;
};

TEST_F(SharedDirectory, ASecondServiceThatStartsAtAnyPointOfASaveLeavesItAlone) {
    start_another_at_each_call();
    expect_saved();
    EXPECT_GE(starts_, 5);
}

TEST_F(SharedDirectory, ASecondServiceThatStartsAtAnyPointOfASaveWithoutHardLinksLeavesItAlone) {
    refused_link_errno = EPERM;
    start_another_at_each_call();
    expect_saved();
    EXPECT_GE(starts_, 5);
}

// In two PID namespaces two processes may have the same number.
TEST_F(SharedDirectory, TwoSavesOfProcessesWithTheSameNumberDoNotMeet) {
    QoFileReplacement first(scratch_.file(kSaved));
    ASSERT_TRUE(first.open());
    ASSERT_TRUE(first.append("first") && first.flush());
    EXPECT_EQ(first.keep_former(), QoFileReplacement::Former::kept);
    EXPECT_EQ(save(), 0);
    EXPECT_EQ(scratch_.read(kSaved), saved_text_of(R"({"a":2})"));
    EXPECT_EQ(scratch_.read(kBackup), saved_text_of(R"({"a":1})"));
    EXPECT_EQ(scratch_.read(first.former_name().substr(scratch_.path().size())), saved_text_of(R"({"a":1})"));
    EXPECT_TRUE(first.put_in_place());
    EXPECT_EQ(scratch_.read(kSaved), "first");
}

TEST_F(FailingSave, WithoutATreeThereIsNothingToSave) {
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
    EXPECT_EQ(save(), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("No data tree available to save")));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(FailingSave, ATreeThatCannotBeCopiedIsNotSaved) {
    load_with_history();
    refuse_snapshot = true;
    expect_refused(error_line("json duplicate failed."));
    refuse_snapshot = false;
    expect_next_save_succeeds();
}

TEST_F(FailingSave, WithoutACrcMemberTheTreeIsNotSaved) {
    load_with_history();
    refuse_new_text = true;
    expect_refused(error_line("json new failed."));
    refuse_new_text = false;
    expect_next_save_succeeds();
}

TEST_F(FailingSave, ATextThatTheDiskRefusesReplacesNothing) {
    for (const char* failing : {"write", "fsync"}) {
        load_with_history();
        on_disk_call = [failing](const std::string& call) { return call == failing; };
        expect_refused(error_line("Couldn't write file to save the data tree: Input/output error"));
        on_disk_call = nullptr;
        expect_next_save_succeeds();
        std::filesystem::remove(scratch_.file(kSaved));
        std::filesystem::remove(scratch_.file(kBackup));
    }
}

TEST_F(FailingSave, ARenameThatTheDiskRefusesReplacesNothing) {
    load_with_history();
    on_disk_call = [](const std::string& call) { return call == "rename"; };
    expect_refused(kCannotOpen);
    on_disk_call = nullptr;
    expect_next_save_succeeds();
}

TEST_F(FailingSave, ADirectoryThatCannotBeFlushedKeepsTheBackup) {
    load_with_history();
    int flushes = 0;
    on_disk_call = [&flushes](const std::string& call) { return call == "fsync" && ++flushes == 2; };
    EXPECT_EQ(save(), -1);
    on_disk_call = nullptr;
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{kSaved, saved_text_of(R"({"a":3})")},
                                                           {kBackup, saved_text_of(R"({"a":1})")}}));
}

// ---- a process that dies in the middle of a save ----

class DyingSave : public PersistenceTest {
protected:
    /// Saves and hands what the disk holds before each system call to `check`, as one who starts then finds it.
    void save_and_check_each_cut(const std::function<void(const std::string& loaded)>& check) {
        std::vector<std::map<std::string, std::string>> cuts;
        on_disk_call = [this, &cuts](const std::string&) {
            cuts.push_back(files());
            return false;
        };
        ASSERT_EQ(save(), 0);
        on_disk_call = nullptr;
        cuts.push_back(files());
        EXPECT_GE(cuts.size(), 7U);
        for (const auto& cut : cuts) check(loaded_from(cut));
    }

    static std::string loaded_from(const std::map<std::string, std::string>& cut) {
        const QoScratchDirectory scratch;
        for (const auto& [name, content] : cut) scratch.write(name, content);
        DataMgr store(QoStorePaths{scratch.path(), scratch.path()});
        store.CreateDataTree();
        EXPECT_EQ(store.SaveActiveTreeForDebug(), 0);
        EXPECT_FALSE(scratch.has("saved_tree.json.new." + std::to_string(getpid())));
        EXPECT_FALSE(scratch.has("saved_tree.json.former." + std::to_string(getpid())));
        return qo_json_write(qo_json_parse(scratch.read(kActive)).get());
    }
};

TEST_F(DyingSave, LeavesTheLastOrThePreviousTree) {
    load(R"({"a":1})");
    ASSERT_EQ(save(), 0);
    publish(R"({"a":2})");
    ASSERT_EQ(save(), 0);
    publish(R"({"a":3})");
    save_and_check_each_cut(
        [](const std::string& loaded) { EXPECT_THAT(loaded, ::testing::AnyOf(R"({"a":2})", R"({"a":3})")); });
}

TEST_F(DyingSave, NeverLeavesOnlyTheFileThatWasDiscardedAtStart) {
    scratch_.write(kSaved, "{\"edited\":1}");
    scratch_.write(kBackup, saved_text_of(R"({"a":2})"));
    load(R"({"a":0})");
    publish(R"({"a":3})");
    save_and_check_each_cut(
        [](const std::string& loaded) { EXPECT_THAT(loaded, ::testing::AnyOf(R"({"a":2})", R"({"a":3})")); });
}

TEST_F(DyingSave, WithoutHardLinksLeavesTheLastOrThePreviousTreeToo) {
    refused_link_errno = EPERM;
    scratch_.write(kSaved, "{\"edited\":1}");
    scratch_.write(kBackup, saved_text_of(R"({"a":2})"));
    load(R"({"a":0})");
    publish(R"({"a":3})");
    save_and_check_each_cut(
        [](const std::string& loaded) { EXPECT_THAT(loaded, ::testing::AnyOf(R"({"a":2})", R"({"a":3})")); });
}

// ---- RenameAsBackUpFile ----

using RenameAsBackUpFile = PersistenceTest;

TEST_F(RenameAsBackUpFile, MovesTheFileOverAnOlderBackup) {
    load("{}");
    const std::string path = scratch_.write("f", "new");
    scratch_.write("f.bak", "old");
    EXPECT_EQ(store_->RenameAsBackUpFile(path), 0);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{"f.bak", "new"}}));
}

TEST_F(RenameAsBackUpFile, ABackupThatCannotBeReplacedIsRemovedFirst) {
    load("{}");
    const std::string path = scratch_.write("f", "new");
    scratch_.write("f.bak", "old");
    int renames = 0;
    on_disk_call = [&renames](const std::string& call) { return call == "rename" && ++renames == 1; };
    EXPECT_EQ(store_->RenameAsBackUpFile(path), 0);
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{"f.bak", "new"}}));
}

TEST_F(RenameAsBackUpFile, AMissingFileLeavesTheBackup) {
    load("{}");
    scratch_.write("f.bak", "old");
    EXPECT_EQ(store_->RenameAsBackUpFile(scratch_.file("f")), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(critical_line("Back up failed")));
    EXPECT_EQ(scratch_.read("f.bak"), "old");
}

// ---- the debug dump ----

using SaveActiveTreeForDebug = PersistenceTest;

TEST_F(SaveActiveTreeForDebug, ReplacesAnOlderDumpAndTouchesNothingElse) {
    load(R"({"a":1})");
    scratch_.write(kActive, "an older and longer dump");
    EXPECT_EQ(store_->SaveActiveTreeForDebug(), 0);
    EXPECT_EQ(files(), (std::map<std::string, std::string>{{kActive, "{\n\t\"a\": 1\n}"}}));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SaveActiveTreeForDebug, FailuresAreLogged) {
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.file("missing/"), scratch_.path()});
    EXPECT_EQ(store_->SaveActiveTreeForDebug(), -1);
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
    EXPECT_EQ(store_->SaveActiveTreeForDebug(), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Couldn't open file to save the active data tree"),
                                          error_line("Save Active Tree: No data tree available to save")));
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(SaveActiveTreeForDebug, ADirectoryInItsPlaceIsAFailure) {
    load("{}");
    std::filesystem::create_directory(scratch_.file(kActive));
    EXPECT_EQ(store_->SaveActiveTreeForDebug(), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Couldn't open file to save the active data tree")));
}

TEST_F(SaveActiveTreeForDebug, ADiskThatRefusesTheTextIsAFailure) {
    load("{}");
    on_disk_call = [](const std::string& call) { return call == "write"; };
    EXPECT_EQ(store_->SaveActiveTreeForDebug(), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Couldn't write file to save the active "
                                                     "data tree: Input/output error")));
}

}  // namespace
