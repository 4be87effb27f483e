// A start that cannot read its files, or has no memory for them: what was saved stays, whatever fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "component.h"
#include "faults.h"
#include "service_process.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr char kSavedPath[] = "/kivo/data/saved_tree.json";
constexpr char kBackUpPath[] = "/kivo/data/saved_tree.json.bak";
constexpr char kUnreadPath[] = "/kivo/data/saved_tree.json.unread";
constexpr char kUnreadBackUpPath[] = "/kivo/data/saved_tree.json.bak.unread";
constexpr char kBadPath[] = "/kivo/data/saved_tree.json.bad";
constexpr char kDefaultsPath[] = "/kivo/others/defaults.json";
constexpr eQO_CMP_IDs_ kDemo = QO_CMPID_DEMO;

std::string text_of(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

class LoadFaults : public ServiceProcess {
protected:
    void SetUp() override {
        ServiceProcess::SetUp();
        if (IsSkipped()) return;
        faults_.emplace(service());
    }

    /// A good start, two saves and an end.
    void make_history() {
        ASSERT_TRUE(service().start_and_wait());
        program_ = fs::read_symlink("/proc/" + std::to_string(service().pid()) + "/exe");
        {
            Component component(service(), kDemo);
            save(component, "1");
            save(component, "2");
        }
        EXPECT_EQ(service().stop(), 0);
        saved_ = text_of(kSavedPath);
        back_up_ = text_of(kBackUpPath);
        ASSERT_THAT(saved_, HasSubstr("\"schemaVersion\": \"2\""));
        ASSERT_THAT(back_up_, HasSubstr("\"schemaVersion\": \"1\""));
        events().clear_log();
    }
    void save(Component& component, const std::string& version) {
        EXPECT_EQ(component.api().publish(kDemo, R"({"version":{"schemaVersion":")" + version + R"("}})"), 0);
        EXPECT_EQ(component.api().flush(kDemo), 0);
        EXPECT_TRUE(service().wait_until_idle());
    }
    void expect_version(const std::string& version) {
        Component component(service(), kDemo);
        EXPECT_THAT(component.get("/version/schemaVersion"), HasSubstr("\"" + version + "\""));
    }
    /// Starts the service, which must end by itself with a failure before it is ready.
    void expect_failing_start() {
        const size_t ready = events().notifications().size();
        service().start();
        const std::optional<int> status = service().wait_for_end();
        ASSERT_TRUE(status);
        EXPECT_TRUE(WIFEXITED(*status)) << *status;
        EXPECT_EQ(WEXITSTATUS(*status), 1);
        EXPECT_EQ(events().notifications().size(), ready);
    }
    void fail_reads_of(const std::string& path, uint32_t calls = kQoRead) {
        faults_->add({.calls = calls, .path = path, .error = EIO, .last = kQoAlways});
        faults_->arm();
    }
    void expect_both_as_they_were() {
        EXPECT_EQ(text_of(kSavedPath), saved_);
        EXPECT_EQ(text_of(kBackUpPath), back_up_);
    }

    void reset() {
        const size_t ready = events().notifications().size();
        ASSERT_TRUE(service().post(R"({"function":"init","arg":{"comp_id":1351,"buffer":"true"}})"));
        ASSERT_TRUE(events().wait_for_notifications(ready + 1));
        ASSERT_TRUE(service().wait_until_idle());
    }

    std::optional<QoFaults> faults_;
    std::string program_;
    std::string saved_;
    std::string back_up_;
};

// ---- a disk that cannot be read ----

TEST_F(LoadFaults, ASavedFileThatCannotBeReadIsKeptAndTheBackupLoaded) {
    for (const uint32_t calls : {kQoRead, kQoOpen}) {
        make_history();
        faults_->add({.calls = calls, .path = "/saved_tree.json", .error = EIO});
        faults_->arm();
        ASSERT_TRUE(service().start_and_wait());
        faults_->disarm();
        EXPECT_EQ(faults_->hits(), 1U);
        EXPECT_TRUE(
            events().wait_for_store_log(LOG_CRIT, std::string("Saved configuration ") + kSavedPath +
                                                      " cannot be read and is kept: errno 5 (Input/output error)"));
        expect_version("1");
        expect_both_as_they_were();
        EXPECT_EQ(service().stop(), 0);
        ASSERT_TRUE(service().start_and_wait()) << "the fault is over";
        expect_version("2");
        EXPECT_EQ(service().stop(), 0);
        faults_->clear();
        fs::remove(kSavedPath);
        fs::remove(kBackUpPath);
    }
}

TEST_F(LoadFaults, ASavedFileThatCouldNotBeReadIsSetAsideByTheNextSave) {
    make_history();
    faults_->add({.calls = kQoRead, .path = "/saved_tree.json", .error = EIO});
    faults_->arm();
    ASSERT_TRUE(service().start_and_wait());
    faults_->disarm();
    {
        Component component(service(), kDemo);
        save(component, "3");
        EXPECT_EQ(text_of(kUnreadPath), saved_);
        EXPECT_EQ(text_of(kBackUpPath), back_up_) << "what was loaded is still there";
        EXPECT_THAT(text_of(kSavedPath), HasSubstr("\"schemaVersion\": \"3\""));
        save(component, "4");
    }
    EXPECT_EQ(text_of(kUnreadPath), saved_);
    EXPECT_THAT(text_of(kBackUpPath), HasSubstr("\"schemaVersion\": \"3\""));
    EXPECT_EQ(service().stop(), 0);
}

TEST_F(LoadFaults, ASavedFileThatCanBeNeitherReadNorLinkedIsSetAsideByTheNextSaveToo) {
    make_history();
    faults_->add({.calls = kQoRead, .path = "/saved_tree.json", .error = EIO, .last = kQoAlways});
    faults_->add({.calls = kQoLink, .error = EPERM, .last = kQoAlways});
    faults_->arm();
    ASSERT_TRUE(service().start_and_wait());
    {
        Component component(service(), kDemo);
        save(component, "3");
    }
    EXPECT_EQ(text_of(kUnreadPath), saved_);
    EXPECT_EQ(text_of(kBackUpPath), back_up_);
    EXPECT_THAT(text_of(kSavedPath), HasSubstr("\"schemaVersion\": \"3\""));
    EXPECT_EQ(service().stop(), 0);
}

TEST_F(LoadFaults, ASaveThatFailsBehindTheSettingAsideLosesNothing) {
    make_history();
    faults_->add({.calls = kQoRead, .path = "/saved_tree.json", .error = EIO, .last = kQoAlways});
    faults_->add({.calls = kQoLink, .error = EPERM, .last = kQoAlways});
    faults_->add({.calls = kQoRename, .path = "saved_tree.json.new.", .error = EIO, .last = kQoAlways});
    faults_->arm();
    ASSERT_TRUE(service().start_and_wait());
    {
        Component component(service(), kDemo);
        save(component, "3");
    }
    expect_both_as_they_were();
    faults_->clear();
    EXPECT_EQ(service().stop(), 0);
    ASSERT_TRUE(service().start_and_wait());
    expect_version("2");
    EXPECT_EQ(service().stop(), 0);
}

TEST_F(LoadFaults, BothAreKeptWhenNoneCanBeReadAndSetAsideWhenTheyAreReplaced) {
    make_history();
    fail_reads_of("saved_tree.json");
    ASSERT_TRUE(service().start_and_wait());
    faults_->disarm();
    expect_both_as_they_were();
    expect_version("0.0");
    {
        Component component(service(), kDemo);
        save(component, "3");
        EXPECT_EQ(text_of(kUnreadPath), saved_);
        EXPECT_EQ(text_of(kBackUpPath), back_up_);
        save(component, "4");
    }
    EXPECT_EQ(text_of(kUnreadBackUpPath), back_up_);
    EXPECT_THAT(text_of(kBackUpPath), HasSubstr("\"schemaVersion\": \"3\""));
    reset();
    EXPECT_FALSE(fs::exists(kUnreadPath));
    EXPECT_FALSE(fs::exists(kUnreadBackUpPath));
    EXPECT_EQ(service().stop(), 0);
}

TEST_F(LoadFaults, AFileThatEndsBeforeItsSizeWasNotRead) {
    make_history();
    faults_->add({.calls = kQoRead, .path = "/saved_tree.json", .act = QoFaultAct::kLie});
    faults_->arm();
    ASSERT_TRUE(service().start_and_wait());
    faults_->disarm();
    expect_version("1");
    expect_both_as_they_were();
    EXPECT_EQ(service().stop(), 0);
}

TEST_F(LoadFaults, DefaultsThatCannotBeReadEndTheStartWithAFailure) {
    std::ofstream(kDefaultsPath) << R"({"version":{"schemaVersion":"site"}})";
    make_history();
    fail_reads_of("defaults.json");
    expect_failing_start();
    EXPECT_TRUE(events().wait_for_store_log(
        LOG_CRIT, std::string("Defaults file ") + kDefaultsPath + " cannot be read: errno 5 (Input/output error)"));
    expect_both_as_they_were();
    faults_->clear();
    ASSERT_TRUE(service().start_and_wait());
    expect_version("2");
    EXPECT_EQ(service().stop(), 0);
    EXPECT_THAT(text_of(kSavedPath), testing::Not(HasSubstr("softwareVersion"))) << "the built-in tree was merged";
}

TEST_F(LoadFaults, DefaultsThatCannotBeReadEndTheServiceAfterAnInitRequestToo) {
    std::ofstream(kDefaultsPath) << R"({"version":{"schemaVersion":"site"}})";
    make_history();
    ASSERT_TRUE(service().start_and_wait());
    const size_t ready = events().notifications().size();
    fail_reads_of("defaults.json");
    ASSERT_TRUE(service().post(R"({"function":"init","arg":{"comp_id":1351,"buffer":"true"}})"));
    const std::optional<int> status = service().wait_for_end();
    ASSERT_TRUE(status);
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 1) << *status;
    EXPECT_EQ(events().notifications().size(), ready);
}

// ---- garbage ----

TEST_F(LoadFaults, WhatIsNoJsonIsKeptAsBadUntilAnInitRequest) {
    for (const std::string garbage : {"{\"older\":", "{\"newest\":"}) {
        std::ofstream(kSavedPath) << garbage;
        ASSERT_TRUE(service().start_and_wait());
        EXPECT_FALSE(fs::exists(kSavedPath));
        EXPECT_EQ(text_of(kBadPath), garbage);
        EXPECT_EQ(service().stop(), 0);
    }
    ASSERT_TRUE(service().start_and_wait());
    reset();
    EXPECT_FALSE(fs::exists(kBadPath));
    EXPECT_EQ(service().stop(), 0);
}

TEST_F(LoadFaults, DefaultsThatAreNoObjectAreRefusedAndTheBuiltInTreeIsUsed) {
    for (const char* text : {"[]", "7", "null", R"(["version"])"}) {
        std::ofstream(kDefaultsPath) << text;
        events().clear_log();
        ASSERT_TRUE(service().start_and_wait()) << text;
        EXPECT_TRUE(events().wait_for_store_log(LOG_CRIT, std::string("Defaults file ") + kDefaultsPath +
                                                              " is no JSON object, using the built-in default tree"));
        expect_version("0.0");
        EXPECT_EQ(service().stop(), 0);
    }
}

// ---- memory ----

/// Runs the program with so much address space and no more. @return how it ended, as waitpid() gives it; nothing when
/// it has become ready instead, and was killed for that.
std::optional<int> end_with_address_space(const std::string& program, QoServiceEvents& events, rlim_t bytes) {
    const size_t ready = events.notifications().size();
    std::string socket = "NOTIFY_SOCKET=" + events.notify_socket();
    char* arguments[] = {const_cast<char*>(program.c_str()), nullptr};
    char* variables[] = {socket.data(), nullptr};
    const pid_t child = fork();
    if (child == 0) {
        const rlimit bound{bytes, bytes};
        if (setrlimit(RLIMIT_AS, &bound) == 0) execve(program.c_str(), arguments, variables);
        _exit(127);
    }
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (!events.wait_for_notifications(ready + 1, std::chrono::milliseconds(20))) continue;
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return std::nullopt;
    }
    return status;
}

TEST_F(LoadFaults, AShortageOfMemoryEndsTheStartAndLeavesTheFiles) {
    if (!QoFaults::kReachAllocations) GTEST_SKIP() << "a sanitizer takes more address space than there is";
    make_history();
    constexpr size_t kLargeFile = size_t{36} << 20;
    std::string large = "{\"a\":[0";
    while (large.size() < kLargeFile) large += ",{\"id\":1,\"name\":\"a name of some length\"}";
    large += "]}";
    std::ofstream(kSavedPath) << large;
    for (rlim_t megabytes = 40; megabytes <= 112; megabytes += 24) {
        SCOPED_TRACE(std::to_string(megabytes) + " MiB");
        const std::optional<int> status = end_with_address_space(program_, events(), megabytes << 20);
        ASSERT_TRUE(status) << "the service has started without what it could not load";
        EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 1) << *status;
        EXPECT_TRUE(text_of(kSavedPath) == large);
        EXPECT_EQ(text_of(kBackUpPath), back_up_);
    }
}

}  // namespace
