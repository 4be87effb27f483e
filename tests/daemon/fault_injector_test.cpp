// The injector in this process: the program starts itself again with it.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <new>
#include <thread>

#include "faults.h"
#include "scratch_directory.h"

namespace {

using testing::HasSubstr;

QoFaults* faults = nullptr;

class FaultInjector : public testing::Test {
protected:
    void SetUp() override { faults->clear(); }
    void TearDown() override { faults->clear(); }

    void arm(const QoFaults::Rule& rule) {
        faults->add(rule);
        faults->arm();
    }
    std::string file(const std::string& name = "file") const { return scratch_.file(name); }

    QoScratchDirectory scratch_;
};

/// @return 0 or errno
int error_of(long result) { return result == -1 ? errno : 0; }

int error_of_open(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const int error = error_of(descriptor);
    if (descriptor >= 0) close(descriptor);
    return error;
}

TEST_F(FaultInjector, FailsTheChosenCallsAndCountsAll) {
    arm({.calls = kQoOpen, .path = file(), .error = EMFILE, .first = 1, .last = 2});
    EXPECT_EQ(error_of_open(file()), 0);
    EXPECT_EQ(error_of_open(file()), EMFILE);
    EXPECT_EQ(error_of_open(file()), EMFILE);
    EXPECT_EQ(error_of_open(file()), 0);
    EXPECT_EQ(faults->seen(), 4U);
    EXPECT_EQ(faults->hits(), 2U);
    EXPECT_EQ(faults->last_hit(), "open " + file());
}

TEST_F(FaultInjector, DoesNothingBeforeItIsArmedAndAfterwards) {
    faults->add({.calls = kQoOpen, .path = file(), .last = kQoAlways});
    EXPECT_EQ(error_of_open(file()), 0);
    faults->arm();
    EXPECT_EQ(error_of_open(file()), EIO);
    faults->disarm();
    EXPECT_EQ(error_of_open(file()), 0);
    EXPECT_EQ(faults->seen(), 1U);
}

TEST_F(FaultInjector, LeavesOtherPathsAlone) {
    arm({.calls = kQoOpen, .path = "file", .last = kQoAlways});
    EXPECT_EQ(error_of_open(file("other")), 0);
    EXPECT_EQ(faults->seen(), 0U);
}

TEST_F(FaultInjector, KnowsThePathOfADescriptor) {
    const int one = open(file("one").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const int two = open(file("two").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    arm({.calls = kQoWrite | kQoSync, .path = "one", .last = kQoAlways});
    EXPECT_EQ(error_of(write(one, "a", 1)), ENOSPC);
    EXPECT_EQ(error_of(fsync(one)), EIO);
    EXPECT_EQ(error_of(write(two, "a", 1)), 0);
    EXPECT_EQ(error_of(fsync(two)), 0);
    EXPECT_EQ(faults->last_hit(), "fsync " + file("one"));
    close(one);
    close(two);
}

TEST_F(FaultInjector, CutsWritesAndReadsShort) {
    const int descriptor = open(file().c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    arm({.calls = kQoWrite | kQoRead, .path = file(), .act = QoFaultAct::kShort, .last = kQoAlways});
    EXPECT_EQ(write(descriptor, "0123456789", 10), 5);
    EXPECT_EQ(lseek(descriptor, 0, SEEK_SET), 0);
    char bytes[10] = {};
    EXPECT_EQ(read(descriptor, bytes, 4), 2);
    EXPECT_EQ(read(descriptor, bytes, 1), 1);
    close(descriptor);
    EXPECT_EQ(scratch_.read("file"), "01234");
}

TEST_F(FaultInjector, ClaimsToHaveDoneWhatItLeftOut) {
    scratch_.write("file", "former");
    const int descriptor = open(file().c_str(), O_RDWR | O_CLOEXEC);
    arm({.calls = kQoWrite | kQoRename | kQoUnlink, .path = "file", .act = QoFaultAct::kLie, .last = kQoAlways});
    EXPECT_EQ(write(descriptor, "after", 5), 5);
    EXPECT_EQ(rename(file().c_str(), file("name").c_str()), 0);
    EXPECT_EQ(unlink(file().c_str()), 0);
    close(descriptor);
    EXPECT_EQ(scratch_.read("file"), "former");
}

TEST_F(FaultInjector, RenamesNeitherFromNorToThePath) {
    scratch_.write("one", "");
    arm({.calls = kQoRename, .path = "two", .last = kQoAlways});
    EXPECT_EQ(error_of(rename(file("one").c_str(), file("two").c_str())), EIO);
    EXPECT_EQ(error_of(rename(file("two").c_str(), file("three").c_str())), EIO);
    EXPECT_TRUE(scratch_.has("one"));
}

TEST_F(FaultInjector, SlowsACallDown) {
    scratch_.write("file", "");
    arm({.calls = kQoUnlink, .path = "file", .act = QoFaultAct::kSlow, .milliseconds = 50});
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(unlink(file().c_str()), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50));
    EXPECT_FALSE(scratch_.has("file"));
}

TEST_F(FaultInjector, MeetsFilesOfTheStandardLibrary) {
    scratch_.write("file", "0123456789");
    arm({.calls = kQoOpen, .path = "file"});
    EXPECT_FALSE(std::ifstream(file()).is_open());

    faults->clear();
    arm({.calls = kQoRead, .path = "file"});
    std::ifstream broken(file());
    std::string word;
    EXPECT_FALSE(broken >> word);
    EXPECT_THAT(faults->last_hit(), HasSubstr("read"));

    faults->clear();
    arm({.calls = kQoWrite, .path = "file"});
    std::ofstream full(file());
    EXPECT_FALSE(full << "text" << std::flush);

    faults->clear();
    arm({.calls = kQoDirectory, .path = scratch_.path().substr(0, scratch_.path().size() - 1)});
    std::error_code error;
    const std::filesystem::directory_iterator entries(scratch_.path(), error);
    EXPECT_EQ(error.value(), EIO);
}

TEST_F(FaultInjector, MeetsFilesOfTheCLibrary) {
    scratch_.write("file", "0123456789");
    FILE* stream = fopen(file().c_str(), "r");
    ASSERT_NE(stream, nullptr);
    arm({.calls = kQoRead | kQoOpen, .path = "file", .last = kQoAlways});
    char bytes[4];
    EXPECT_EQ(fread(bytes, 1, sizeof bytes, stream), 0U);
    EXPECT_NE(ferror(stream), 0);
    EXPECT_EQ(fopen(file().c_str(), "r"), nullptr);
    fclose(stream);
}

TEST_F(FaultInjector, MeetsMapsAndQueuesAndFolders) {
    arm({.calls = kQoMap | kQoQueue | kQoDirectory | kQoStat, .last = kQoAlways});
    void* map = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const int map_error = errno;
    const mqd_t queue = mq_open("/qo_fault_injector_test", O_RDONLY);
    const int queue_error = errno;
    DIR* folder = opendir("/");
    const int folder_error = errno;
    struct stat status {};
    const int looked = stat("/", &status);
    faults->disarm();
    EXPECT_EQ(map, MAP_FAILED);
    EXPECT_EQ(map_error, ENOMEM);
    EXPECT_EQ(queue, -1);
    EXPECT_EQ(queue_error, EIO);
    EXPECT_EQ(folder, nullptr);
    EXPECT_EQ(folder_error, EIO);
    EXPECT_EQ(looked, -1);
}

TEST_F(FaultInjector, TellsTheMainThreadFromOthers) {
    faults->add(
        {.calls = kQoOpen, .path = "file", .error = EACCES, .last = kQoAlways, .threads = QoFaultThreads::kMain});
    faults->add(
        {.calls = kQoOpen, .path = "file", .error = EMFILE, .last = kQoAlways, .threads = QoFaultThreads::kOthers});
    faults->arm();
    std::thread([this] { EXPECT_EQ(error_of_open(file()), EMFILE); }).join();
    EXPECT_EQ(error_of_open(file()), EACCES);
}

TEST_F(FaultInjector, TakesARuleWhileItIsArmed) {
    faults->arm();
    EXPECT_EQ(error_of_open(file()), 0);
    faults->add({.calls = kQoOpen, .path = "file"});
    EXPECT_EQ(error_of_open(file()), EIO);
}

TEST_F(FaultInjector, HastensTimers) {
    sigevent silent{};
    silent.sigev_notify = SIGEV_NONE;
    timer_t timer{};
    ASSERT_EQ(timer_create(CLOCK_MONOTONIC, &silent, &timer), 0);
    arm({.calls = kQoTimer, .act = QoFaultAct::kHasten, .last = kQoAlways, .milliseconds = 30});
    const itimerspec in_an_hour{{}, {3600, 0}};
    EXPECT_EQ(timer_settime(timer, 0, &in_an_hour, nullptr), 0);
    itimerspec left{};
    EXPECT_EQ(timer_gettime(timer, &left), 0);
    EXPECT_EQ(left.it_value.tv_sec, 0);
    EXPECT_LE(left.it_value.tv_nsec, 30000000);
    EXPECT_EQ(left.it_interval.tv_sec, 0);
    timer_delete(timer);
}

TEST_F(FaultInjector, AppliesTheFirstRuleThatPicksACall) {
    faults->add({.calls = kQoOpen, .path = "file", .error = EACCES, .first = 1});
    faults->add({.calls = kQoOpen, .path = "file", .error = EMFILE, .last = kQoAlways});
    faults->arm();
    EXPECT_EQ(error_of_open(file()), EMFILE);
    EXPECT_EQ(error_of_open(file()), EACCES);
    EXPECT_EQ(faults->seen(1), 2U);
    EXPECT_EQ(faults->hits(1), 1U);
}

TEST_F(FaultInjector, FailsAllocationsOfBothLanguages) {
    if (!QoFaults::kReachAllocations) GTEST_SKIP() << "a sanitizer has an allocator of its own";
    faults->add({.calls = kQoAllocate, .last = kQoAlways});
    faults->arm();
    void* volatile of_c = malloc(100);
    const int error = errno;
    void* volatile cleared = calloc(10, 10);
    void* aligned = nullptr;
    const int aligned_error = posix_memalign(&aligned, 64, 100);
    void* volatile of_cpp = operator new(100, std::nothrow);
    void* volatile over_aligned = operator new(128, std::align_val_t(128), std::nothrow);
    faults->disarm();
    EXPECT_EQ(of_c, nullptr);
    EXPECT_EQ(error, ENOMEM);
    EXPECT_EQ(cleared, nullptr);
    EXPECT_EQ(aligned_error, ENOMEM);
    EXPECT_EQ(of_cpp, nullptr);
    EXPECT_EQ(over_aligned, nullptr);
    EXPECT_GE(faults->hits(), 5U);  // the exceptions inside operator new want memory too
}

TEST_F(FaultInjector, AllocatesNothingItself) {
    if (!QoFaults::kReachAllocations) GTEST_SKIP() << "a sanitizer has an allocator of its own";
    const std::string path = file();
    faults->want_stack();
    faults->add({.calls = kQoAllocate, .first = kQoAlways});
    faults->add({.calls = kQoOpen | kQoLink, .path = "file", .last = kQoAlways});
    faults->arm();
    const int opened = open(path.c_str(), O_RDONLY);
    const int linked = link(path.c_str(), path.c_str());
    faults->disarm();
    EXPECT_EQ(opened, -1);
    EXPECT_EQ(linked, -1);
    EXPECT_EQ(faults->seen(), 0U);
    EXPECT_THAT(faults->last_stack(1), HasSubstr("fault_injector_test+0x"));
}

TEST_F(FaultInjector, IsKeptFromCommands) {
    EXPECT_EQ(faults->attached(), getpid());
    EXPECT_EQ(getenv("LD_PRELOAD"), nullptr);
    EXPECT_EQ(getenv(kQoFaultPageVariable), nullptr);
}

/// Where the program that runs with the injector finds the shared page.
constexpr char kFolderVariable[] = "QO_FAULT_INJECTOR_TEST_FOLDER";

/// @return the exit status of this program, run with the injector
int run_again_with_injector(char** argv) {
    const QoScratchDirectory scratch;
    const QoFaults made(scratch.path());
    setenv(kFolderVariable, scratch.path().c_str(), 1);
    for (const std::string& variable : made.environment()) {
        const size_t sign = variable.find('=');
        setenv(variable.substr(0, sign).c_str(), variable.substr(sign + 1).c_str(), 1);
    }
    const pid_t process = fork();
    if (process == 0) {
        execv("/proc/self/exe", argv);
        _exit(EXIT_FAILURE);
    }
    int status = 0;
    const bool ended = waitpid(process, &status, 0) == process && WIFEXITED(status);
    return ended ? WEXITSTATUS(status) : EXIT_FAILURE;
}

}  // namespace

int main(int argc, char** argv) {
    const char* folder = getenv(kFolderVariable);
    if (folder == nullptr) return run_again_with_injector(argv);
    testing::InitGoogleTest(&argc, argv);
    QoFaults attached(folder);
    faults = &attached;
    return RUN_ALL_TESTS();
}
