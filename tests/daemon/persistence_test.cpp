// The saved tree through the real service: what survives, what damage leads to, disks that refuse.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "component.h"
#include "service_process.h"

namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr char kDataDirectory[] = "/kivo/data/";
constexpr char kSavedPath[] = "/kivo/data/saved_tree.json";
constexpr char kBackUpPath[] = "/kivo/data/saved_tree.json.bak";
constexpr eQO_CMP_IDs_ kDemo = QO_CMPID_DEMO;
constexpr char kDefaultVersion[] = "0.0";

std::string text_of(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

void write_file(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::binary) << text; }

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    const size_t at = text.find(what);
    EXPECT_NE(at, std::string::npos) << what;
    return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

/// The value of "crc" in a saved file.
std::string crc_of(const std::string& text) {
    const std::string member = "\"crc\": \"";
    const size_t begin = text.find(member) + member.size();
    return text.substr(begin, text.find('"', begin) - begin);
}

class Persistence : public ServiceProcess {
protected:
    void SetUp() override {
        ServiceProcess::SetUp();
        if (IsSkipped()) return;
        start();
    }

    void start() {
        ASSERT_TRUE(service().start_and_wait());
        component_.emplace(service(), kDemo);
    }
    void stop() {
        component_.reset();
        EXPECT_EQ(service().stop(), 0);
    }
    void restart() {
        stop();
        events().clear_log();
        start();
    }
    void TearDown() override {
        component_.reset();
        ServiceProcess::TearDown();
    }

    void publish(const std::string& version) {
        EXPECT_EQ(component_->api().publish(kDemo, R"({"version":{"schemaVersion":")" + version + R"("}})"), 0);
    }
    /// Lets the service save and waits until it has handled that and all of its lines were read.
    void save() {
        EXPECT_EQ(component_->api().flush(kDemo), 0);
        EXPECT_TRUE(service().wait_until_idle());
    }
    /// Two saves: the file has the one version, the backup the other.
    void make_saved_file_and_back_up(const std::string& version, const std::string& before) {
        publish(before);
        save();
        publish(version);
        save();
    }
    void expect_version(const std::string& version) {
        EXPECT_THAT(component_->get("/version/schemaVersion"), HasSubstr("\"" + version + "\""));
    }
    long logged(const std::string& text) {
        const std::vector<QoLogLine> lines = events().log();
        return std::count_if(lines.begin(), lines.end(),
                             [&](const QoLogLine& line) { return line.text.find(text) != std::string::npos; });
    }

    /// Where the kernel lists the POSIX timers of the service, and how many there are.
    std::string timer_list() { return "/proc/" + std::to_string(service().pid()) + "/timers"; }
    long timers() {
        const std::string list = text_of(timer_list());
        long count = 0;
        for (size_t at = list.find("notify:"); at != std::string::npos; at = list.find("notify:", at + 1)) ++count;
        return count;
    }

    std::optional<Component> component_;
};

// ---- restarts ----

TEST_F(Persistence, WhatWasSavedSurvivesARestart) {
    publish("saved");
    save();
    restart();
    expect_version("saved");
    EXPECT_TRUE(events().wait_for_store_log(LOG_INFO, "Saved configuration found"));
    EXPECT_TRUE(events().wait_for_store_log(LOG_INFO, "Default and saved trees merged"));
}

TEST_F(Persistence, InitGivesFactoryDataBack) {
    make_saved_file_and_back_up("2", "1");
    component_.reset();
    ASSERT_TRUE(service().post(R"({"function":"init","arg":{"comp_id":1351,"buffer":"true"}})"));
    ASSERT_TRUE(events().wait_for_notifications(2));
    component_.emplace(service(), kDemo);
    expect_version(kDefaultVersion);
    restart();
    expect_version(kDefaultVersion);
}

TEST_F(Persistence, SigtermKeepsTheSavedTreeAndDropsPendingChanges) {
    publish("saved");
    save();
    publish("pending");
    component_->fence();
    const std::string before = text_of(kSavedPath);
    ASSERT_TRUE(service().wait_until_idle());
    service().send_signal(SIGTERM);
    ASSERT_TRUE(service().wait_for_end());
    component_.reset();
    EXPECT_EQ(text_of(kSavedPath), before);
    start();
    expect_version("saved");
}

// ---- damage ----

TEST_F(Persistence, AHandEditedFileIsDiscardedAndTheBackupLoaded) {
    make_saved_file_and_back_up("2", "1");
    stop();
    const std::string edited = replaced(text_of(kSavedPath), "\"schemaVersion\": \"2\"", "\"schemaVersion\": \"3\"");
    write_file(kSavedPath, edited);
    start();
    expect_version("1");
    EXPECT_TRUE(events().wait_for_store_log(LOG_ERR, "Saved and calculated CRC do not match"));
    EXPECT_TRUE(events().wait_for_store_log(LOG_CRIT, "Discarding saved configuration"));
    EXPECT_EQ(text_of(kSavedPath), edited);
    save();
    EXPECT_EQ(text_of(kBackUpPath), edited);
}

TEST_F(Persistence, AFileWithoutCrcIsDiscarded) {
    make_saved_file_and_back_up("2", "1");
    stop();
    const std::string text = text_of(kSavedPath);
    write_file(kSavedPath, replaced(text, "\"crc\": \"" + crc_of(text) + "\",", ""));
    start();
    expect_version("1");
    EXPECT_TRUE(events().wait_for_store_log(LOG_ERR, "Cannot find CRC info in saved configuration"));
    EXPECT_TRUE(events().wait_for_store_log(LOG_CRIT, "Discarding saved configuration"));
}

TEST_F(Persistence, BothFilesDamagedLeadToTheDefaults) {
    make_saved_file_and_back_up("2", "1");
    stop();
    write_file(kSavedPath, "{\"cut\":");
    write_file(kBackUpPath, replaced(text_of(kBackUpPath), "\"schemaVersion\": \"1\"", "\"schemaVersion\": \"4\""));
    start();
    expect_version(kDefaultVersion);
    EXPECT_TRUE(events().wait_for_store_log(LOG_CRIT, "Saved configuration cannot be parsed"));
    EXPECT_FALSE(fs::exists(kSavedPath));
}

TEST_F(Persistence, AnEmptyFileIsRemovedAndTheBackupLoaded) {
    make_saved_file_and_back_up("2", "1");
    stop();
    write_file(kSavedPath, "");
    start();
    expect_version("1");
    EXPECT_TRUE(events().wait_for_store_log(LOG_CRIT, "Saved configuration cannot be parsed"));
    EXPECT_FALSE(fs::exists(kSavedPath));
}

TEST_F(Persistence, TenMebibytesOfGarbageAreRemovedAndTheBackupLoaded) {
    make_saved_file_and_back_up("2", "1");
    stop();
    std::string garbage(size_t{10} << 20, '[');
    for (size_t i = 600; i < garbage.size(); ++i) garbage[i] = static_cast<char>(i * 7919 >> 5);
    write_file(kSavedPath, garbage);
    start();
    expect_version("1");
    EXPECT_TRUE(events().wait_for_store_log(LOG_CRIT, "Saved configuration cannot be parsed"));
    EXPECT_FALSE(fs::exists(kSavedPath));
}

TEST_F(Persistence, ACrcOfUpperCaseOrWithLeadingZerosIsAccepted) {
    make_saved_file_and_back_up("2", "1");
    const std::string text = text_of(kSavedPath);
    std::string upper = crc_of(text);
    for (char& digit : upper) digit = static_cast<char>(std::toupper(static_cast<unsigned char>(digit)));
    for (const std::string& written : {upper, "0000" + crc_of(text)}) {
        stop();
        write_file(kSavedPath, replaced(text, crc_of(text), written));
        start();
        expect_version("2");
    }
    EXPECT_EQ(logged("Discarding saved configuration"), 0);
}

// ---- what is saved and when ----

TEST_F(Persistence, SubtreesThatDoNotPersistAreOnlyInTheDebugDump) {
    ASSERT_EQ(component_->api().publish(kDemo, R"({"resetKivo":{"state":"transient"}})"), 0);
    publish("persistent");
    save();
    EXPECT_THAT(text_of(kSavedPath),
                AllOf(HasSubstr("persistent"), Not(HasSubstr("\"transient\"")), Not(HasSubstr("resetKivo"))));
    EXPECT_THAT(component_->active_tree(), AllOf(HasSubstr("persistent"), HasSubstr("\"transient\"")));
    restart();
    expect_version("persistent");
    EXPECT_THAT(component_->get("/resetKivo/state"), HasSubstr("\"run\""));
}

TEST_F(Persistence, ASaveRequestWhileATimerIsPendingWritesOnce) {
    const std::string list = timer_list();
    if (!fs::exists(list)) GTEST_SKIP() << "the kernel does not tell of timers in " << list;
    publish("1");
    ASSERT_TRUE(events().wait_for_store_log(LOG_INFO, "Timer to save the data tree created!"));
    ASSERT_EQ(timers(), 1);
    save();
    EXPECT_EQ(logged("Saved the data tree"), 1);
    EXPECT_FALSE(fs::exists(kBackUpPath));
    EXPECT_EQ(timers(), 0) << "there is a timer left that will save again";
}

TEST_F(Persistence, AChangeIsSavedByItselfAfterFiveSeconds) {
    publish("by itself");
    EXPECT_TRUE(events().wait_for_store_log(LOG_INFO, "Saved the data tree"));
    EXPECT_EQ(logged("Forced Save"), 0);
    restart();
    expect_version("by itself");
}

TEST_F(Persistence, SavesWhilePublishesPourInAreWholeAndLoseNothing) {
    Component other(service(), QO_CMPID_TESTPUBLISHER);
    for (int number = 1; number <= 300; ++number) {
        ASSERT_EQ(
            other.api().publish(other.id(), R"({"system":{"config":{"name":")" + std::to_string(number) + R"("}}})"),
            0);
        if (number % 10 == 0) ASSERT_EQ(component_->api().flush(kDemo), 0);
    }
    ASSERT_TRUE(service().wait_until_idle());
    EXPECT_EQ(logged("Saved the data tree"), 30);
    EXPECT_THAT(text_of(kSavedPath), HasSubstr("\"name\": \"300\""));
    EXPECT_THAT(text_of(kBackUpPath), HasSubstr("\"name\": \"290\""));
}

// ---- who may read the files ----

/// What a user outside of the service's group gets who opens a file: 0 or errno; -1 when there is no such user.
int open_as_foreigner(const std::string& path) {
    constexpr uid_t kForeigner = 65534;
    const pid_t child = fork();
    if (child == 0) {
        [[maybe_unused]] const int as_root = seteuid(0);
        if (setgroups(0, nullptr) != 0 || setresgid(kForeigner, kForeigner, kForeigner) != 0 ||
            setresuid(kForeigner, kForeigner, kForeigner) != 0)
            _exit(255);
        _exit(open(path.c_str(), O_RDONLY | O_CLOEXEC) >= 0 ? 0 : errno);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status) == 255 ? -1 : WEXITSTATUS(status);
}

TEST_F(Persistence, NobodyOutsideOfTheGroupReadsTheFilesWhateverTheUmask) {
    const std::string open_to_all = std::string(kDataDirectory) + "open_to_all";
    write_file(open_to_all, "");
    ASSERT_EQ(chmod(open_to_all.c_str(), 0644), 0);
    if (open_as_foreigner(open_to_all) != 0) GTEST_SKIP() << "there is no other user here";
    stop();
    const mode_t former = umask(0);
    start();
    umask(former);
    make_saved_file_and_back_up("2", "1");
    component_->active_tree();
    for (const char* name : {"saved_tree.json", "saved_tree.json.bak", "active_tree.json"}) {
        struct stat status {};
        EXPECT_EQ(open_as_foreigner(std::string(kDataDirectory) + name), EACCES) << name;
        ASSERT_EQ(stat((std::string(kDataDirectory) + name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0640U) << name;
    }
}

// ---- two services on the same files ----

/// One more process of the service's program, which needs no queue of the test's quota to touch the files.
class AnotherService {
public:
    AnotherService(pid_t service, const std::string& notify_socket) {
        const std::string program = fs::read_symlink("/proc/" + std::to_string(service) + "/exe");
        std::string variable = "NOTIFY_SOCKET=" + notify_socket;
        const char* arguments[] = {program.c_str(), "-m", "another", nullptr};
        char* variables[] = {variable.data(), nullptr};
        if (posix_spawn(&process_, program.c_str(), nullptr, nullptr, const_cast<char**>(arguments), variables) != 0)
            throw std::runtime_error("cannot start " + program);
    }
    ~AnotherService() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        mq_unlink("/pushpullanother");
    }
    AnotherService(const AnotherService&) = delete;
    AnotherService& operator=(const AnotherService&) = delete;

private:
    pid_t process_ = -1;
};

/// Tells of files that are made in the data directory.
class NewFiles {
public:
    NewFiles() : descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        inotify_add_watch(descriptor_, kDataDirectory, IN_CREATE);
    }
    ~NewFiles() { close(descriptor_); }
    NewFiles(const NewFiles&) = delete;
    NewFiles& operator=(const NewFiles&) = delete;
    bool wait() const {
        pollfd event{descriptor_, POLLIN, 0};
        return poll(&event, 1, static_cast<int>(std::chrono::milliseconds(kQoPatience).count())) == 1;
    }

private:
    int descriptor_;
};

class SharedFiles : public Persistence {
protected:
    /// Stops the service in the middle of a save; tries until one was met.
    bool stop_within_save() {
        for (int attempt = 0; attempt < 100; ++attempt) {
            const NewFiles made;
            EXPECT_EQ(component_->api().flush(kDemo), 0);
            if (!made.wait()) break;
            service().send_signal(SIGSTOP);
            int status = 0;
            waitpid(service().pid(), &status, WUNTRACED);
            for (const auto& entry : fs::directory_iterator(kDataDirectory))
                if (entry.path().filename().native().starts_with("saved_tree.json.new.")) return true;
            service().send_signal(SIGCONT);
            EXPECT_TRUE(service().wait_until_idle());
        }
        return false;
    }
};

TEST_F(SharedFiles, AServiceThatStartsDuringTheSaveOfAnotherLeavesItAlone) {
    const std::string filler(200000, 'x');
    for (int member = 0; member < 20; ++member) {
        ASSERT_EQ(component_->api().publish(
                      kDemo, R"({"version":{"filler)" + std::to_string(member) + "\":\"" + filler + "\"}}"),
                  0);
    }
    publish("1");
    save();
    publish("2");
    ASSERT_TRUE(stop_within_save()) << "no save was met";
    const size_t ready = events().notifications().size();
    {
        const AnotherService another(service().pid(), events().notify_socket());
        EXPECT_TRUE(events().wait_for_notifications(ready + 1));
    }
    service().send_signal(SIGCONT);
    ASSERT_TRUE(service().wait_until_idle());
    EXPECT_EQ(logged("Couldn't"), 0);
    EXPECT_THAT(text_of(kSavedPath), HasSubstr("\"schemaVersion\": \"2\""));
}

// ---- disks that refuse ----

class RefusingDisk : public Persistence {
protected:
    /// Puts a disk of 256 KiB at the data directory while the service is away.
    void SetUp() override {
        Persistence::SetUp();
        if (IsSkipped()) return;
        stop();
        if (mount("tmpfs", kDataDirectory, "tmpfs", 0, "size=256k,mode=0777") != 0)
            GTEST_SKIP() << "no disk of our own: " << strerror(errno);
        mounted_ = true;
        start();
        make_saved_file_and_back_up("2", "1");
        publish("3");
        events().clear_log();
    }
    void TearDown() override {
        Persistence::TearDown();
        if (mounted_) umount2(kDataDirectory, MNT_DETACH);
    }

    void expect_refused_twice(const std::string& reason) {
        for (int attempt = 1; attempt <= 2; ++attempt) {
            save();
            EXPECT_EQ(logged(reason), attempt);
        }
        EXPECT_EQ(logged("Saved the data tree"), 0);
        EXPECT_TRUE(events().wait_for_log(LOG_ERR, "component save request failed = -1"));
        expect_version("3");
    }
    void expect_next_save_succeeds() {
        save();
        EXPECT_EQ(logged("Saved the data tree"), 1);
        EXPECT_THAT(text_of(kSavedPath), HasSubstr("\"schemaVersion\": \"3\""));
        restart();
        expect_version("3");
    }

    bool mounted_ = false;
};

TEST_F(RefusingDisk, ThatIsFullKeepsBothFilesAndTheServiceGoesOn) {
    const std::string saved = text_of(kSavedPath);
    const std::string back_up = text_of(kBackUpPath);
    write_file(std::string(kDataDirectory) + "filler", std::string(size_t{1} << 20, 'x'));
    expect_refused_twice("Couldn't write file to save the data tree: No space left on device");
    EXPECT_EQ(text_of(kSavedPath), saved);
    EXPECT_EQ(text_of(kBackUpPath), back_up);
    fs::remove(std::string(kDataDirectory) + "filler");
    expect_next_save_succeeds();
}

TEST_F(RefusingDisk, ThatIsReadOnlyKeepsBothFilesAndTheServiceGoesOn) {
    const std::string saved = text_of(kSavedPath);
    const std::string back_up = text_of(kBackUpPath);
    ASSERT_EQ(mount("", kDataDirectory, "", MS_REMOUNT | MS_RDONLY, ""), 0) << strerror(errno);
    expect_refused_twice("Couldn't open file to save the data tree");
    EXPECT_EQ(text_of(kSavedPath), saved);
    EXPECT_EQ(text_of(kBackUpPath), back_up);
    ASSERT_EQ(mount("", kDataDirectory, "", MS_REMOUNT, ""), 0) << strerror(errno);
    expect_next_save_succeeds();
}

TEST_F(RefusingDisk, WithADirectoryInTheFilesPlaceKeepsTheBackupAndTheServiceGoesOn) {
    const std::string back_up = text_of(kBackUpPath);
    fs::remove(kSavedPath);
    fs::create_directory(kSavedPath);
    expect_refused_twice("Couldn't open file to save the data tree");
    EXPECT_EQ(text_of(kBackUpPath), back_up);
    fs::remove(kSavedPath);
    expect_next_save_succeeds();
}

TEST_F(Persistence, AMissingDirectoryRefusesASaveAndTheNextOneSucceeds) {
    publish("1");
    fs::rename("/kivo/data", "/kivo/away");
    save();
    EXPECT_EQ(logged("Couldn't open file to save the data tree"), 1);
    expect_version("1");
    fs::rename("/kivo/away", "/kivo/data");
    save();
    restart();
    expect_version("1");
}

}  // namespace
