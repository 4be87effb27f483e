// The rotated log file: when a file begins and ends, what becomes of finished ones, and disks that refuse.
#include "qo_util_log_file_manager.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "isolation.h"
#include "log_capture.h"
#include "qo_utilities_zlib.h"
#include "scratch_directory.h"
#include "shell_capture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr char kFile[] = "ppstats.csv";
constexpr time_t kHour = 3600;
constexpr time_t kDay = 24 * kHour;
constexpr time_t kMorning = 1767258000;   // 2026-01-01 09:00:00 UTC
constexpr time_t kMidnight = 1767312000;  // the next one

std::atomic<int> syncs;  // calls of sync()

QoLogLine debug_line(const std::string& text) { return {LOG_DEBUG, "LOG: " + text}; }
QoLogLine info_line(const std::string& text) { return {LOG_INFO, "LOG: " + text}; }
QoLogLine warning_line(const std::string& text) { return {LOG_WARNING, "LOG: " + text}; }

}  // namespace

// Flushing the whole machine's disks is not what is tested, only that it is asked for.
extern "C" void __wrap_sync() { ++syncs; }

namespace {

class LogFileManager : public testing::Test {
protected:
    LogFileManager() : directory_(scratch_.file("log")) { std::filesystem::create_directory(directory_); }

    /// A manager that writes to `directory_`, with a clock that the test sets.
    std::unique_ptr<QoUtilLogFileManager> make_manager(eArchiveType_t archive_time = ArchivePerDay,
                                                       const std::string& header = "") {
        auto manager = std::make_unique<QoUtilLogFileManager>(archive_time, [this] { return now_.load(); });
        manager->setLogName(directory_, kFile);
        manager->setLogFileHeader(header);
        manager->enableLogging();
        return manager;
    }

    std::string path(const std::string& name) const { return directory_ + "/" + name; }
    std::string log_path() const { return path(kFile); }
    static std::string archive_name(time_t time) {
        const std::string digits = std::to_string(time);
        return std::string(10 - digits.size(), '0') + digits + "_" + kFile + ".gz";
    }
    std::string archive_path(time_t time) const { return path(archive_name(time)); }

    std::string read(const std::string& name) const {
        std::ostringstream content;
        content << std::ifstream(path(name), std::ios::binary).rdbuf();
        return content.str();
    }
    void write(const std::string& name, const std::string& content) const { std::ofstream(path(name)) << content; }
    std::string log_text() const { return read(kFile); }
    std::string unpacked(time_t archived_at) const {
        EXPECT_EQ(qo_zlibDecompress(archive_path(archived_at), scratch_.file("unpacked")), 0);
        return scratch_.read("unpacked");
    }
    std::vector<std::string> files() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory_))
            names.push_back(entry.path().filename());
        return names;
    }

    /// An archive that was last written to so many seconds ago.
    std::string leave_archive(time_t name, time_t age) const {
        write(archive_name(name), "old");
        const timespec written[2] = {{now_ - age, 0}, {now_ - age, 0}};
        EXPECT_EQ(utimensat(AT_FDCWD, archive_path(name).c_str(), written, 0), 0);
        return archive_name(name);
    }

    const QoScratchDirectory scratch_;
    std::string directory_;
    std::atomic<time_t> now_ = kMorning;
    QoLogCapture log_;
    QoShellCapture shell_;
};

// ---- enabling ----

class EnableLogging : public LogFileManager {};

TEST_F(EnableLogging, WithAnEmptyPathWarnsAndNoFileIsEverWritten) {
    QoUtilLogFileManager manager(ArchivePerDay);
    manager.setLogName("", kFile);
    manager.enableLogging();
    EXPECT_THAT(log_.lines(), ElementsAre(warning_line("invalid param (:ppstats.csv)")));
    log_.clear();
    manager << "text";
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_THAT(shell_.commands(), IsEmpty());
}

TEST_F(EnableLogging, WithAnEmptyFileNameWarnsAndLeavesLoggingOff) {
    QoUtilLogFileManager manager(ArchivePerDay);
    manager.setLogName(directory_, "");
    manager.enableLogging();
    EXPECT_THAT(log_.lines(), ElementsAre(warning_line("invalid param (" + directory_ + ":)")));
    manager << "text";
    EXPECT_THAT(files(), IsEmpty());
}

TEST_F(EnableLogging, MakesAMissingDirectoryByTheShell) {
    directory_ = scratch_.file("missing");
    make_manager();
    EXPECT_THAT(shell_.commands(), ElementsAre("mkdir " + directory_));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(EnableLogging, TakesADirectoryOrAFileThatExistsAsItIs) {
    make_manager();
    directory_ = scratch_.write("a_file", "");
    make_manager();
    EXPECT_THAT(shell_.commands(), IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(EnableLogging, WithAMissingParentDirectoryDropsEveryRecordWithAMessage) {
    directory_ = scratch_.file("missing/log");
    const auto manager = make_manager();
    const std::string attempt = "mkdir " + directory_;
    EXPECT_THAT(shell_.commands(), ElementsAre(attempt));
    for (int record = 0; record < 2; ++record) {
        log_.clear();
        *manager << "text";
        EXPECT_THAT(log_.lines(), ElementsAre(debug_line("archiving log file '" + log_path() + "'"),
                                              debug_line("file doesn't exist '" + log_path() + "'"),
                                              debug_line("file 'ppstats.csv' is not open")));
    }
    EXPECT_THAT(shell_.commands(), ElementsAre(attempt, attempt, attempt)) << "each record tries again";
}

// ---- writing ----

class LogRecord : public LogFileManager {};

TEST_F(LogRecord, WhileDisabledProducesNoFileAndNoLogLine) {
    QoUtilLogFileManager manager(ArchivePerDay, [this] { return now_.load(); });
    manager.setLogName(directory_, kFile);
    write(kFile, "left over");
    manager << "text";
    EXPECT_THAT(files(), ElementsAre(kFile));
    EXPECT_EQ(log_text(), "left over");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LogRecord, AfterDisablingProducesNothing) {
    const auto manager = make_manager();
    *manager << "one\n";
    manager->disableLogging();
    log_.clear();
    now_ += kDay;
    *manager << "two\n";
    EXPECT_EQ(log_text(), "one\n");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LogRecord, OfEveryTextFormIsWrittenAtOnceAndChains) {
    const auto manager = make_manager();
    std::string text = "a string,";
    const std::string constant = "a constant string,";
    *manager << text << constant << std::string_view("a view,") << "a literal" << std::string_view("\0\n", 2);
    EXPECT_EQ(log_text(), std::string("a string,a constant string,a view,a literal\0\n", 45));
}

TEST_F(LogRecord, ThatCannotBeTimedIsReportedAndTheCallReturns) {
    bool broken = false;
    QoUtilLogFileManager manager(ArchivePerDay, [this, &broken] {
        if (broken) throw std::runtime_error("no time");
        return now_.load();
    });
    manager.setLogName(directory_, kFile);
    manager.enableLogging();
    manager << "one\n";
    log_.clear();
    broken = true;
    manager << "two\n";
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "LOG: operator<<@#: Exception no time"}));
    broken = false;
    manager << "three\n";
    EXPECT_EQ(log_text(), "one\nthree\n");
}

TEST_F(LogRecord, BringsAFileThatWasRemovedBackWithItsHeader) {
    const auto manager = make_manager(ArchivePerDay, "header\n");
    *manager << "one\n";
    std::filesystem::remove(log_path());
    *manager << "two\n";
    EXPECT_EQ(log_text(), "header\ntwo\n");
    EXPECT_THAT(files(), ElementsAre(kFile));
    EXPECT_THAT(shell_.commands(), IsEmpty());
}

TEST_F(LogRecord, ArchivesAFileThatSomebodyPutInThePlaceOfItsOwn) {
    const auto manager = make_manager(ArchivePerDay, "header\n");
    *manager << "one\n";
    write("other", "another file\n");
    std::filesystem::rename(path("other"), log_path());
    *manager << "two\n";
    EXPECT_EQ(log_text(), "header\ntwo\n");
    EXPECT_EQ(unpacked(kMorning), "another file\n");
}

TEST_F(LogRecord, GoesToTheEndOfAFileThatSomebodyEmptied) {
    const auto manager = make_manager();
    *manager << "one\n";
    std::filesystem::resize_file(log_path(), 0);
    *manager << "two\n";
    EXPECT_EQ(log_text(), "two\n");
}

TEST_F(LogRecord, AsksForADirectoryThatWasRemovedAgain) {
    const auto manager = make_manager(ArchivePerDay, "header\n");
    *manager << "one\n";
    std::filesystem::remove_all(directory_);
    *manager << "two\n";
    EXPECT_THAT(shell_.commands(), ElementsAre("mkdir " + directory_));
    std::filesystem::create_directory(directory_);
    *manager << "three\n";
    EXPECT_EQ(log_text(), "header\nthree\n");
}

TEST_F(LogRecord, FromManyThreadsStaysWhole) {
    const auto manager = make_manager(ArchivePerHour, "header\n");
    constexpr int kThreads = 4;
    constexpr int kRecords = 50;
    std::vector<std::thread> writers;
    writers.reserve(kThreads);
    for (int writer = 0; writer < kThreads; ++writer) {
        writers.emplace_back([this, &manager] {
            for (int record = 0; record < kRecords; ++record) {
                if (record % 10 == 0) now_ += kHour;
                *manager << "0123456789\n";
            }
        });
    }
    for (std::thread& writer : writers) writer.join();
    std::string all = log_text();
    for (const std::string& name : files()) {
        if (name == kFile) continue;
        EXPECT_EQ(qo_zlibDecompress(path(name), scratch_.file("unpacked")), 0);
        all += scratch_.read("unpacked");
    }
    int records = 0;
    std::istringstream lines(all);
    for (std::string line; std::getline(lines, line);) {
        if (line == "header") continue;
        ASSERT_EQ(line, "0123456789");
        ++records;
    }
    EXPECT_EQ(records, kThreads * kRecords);
}

// ---- rotation ----

class Rotation : public LogFileManager {
protected:
    void SetUp() override { syncs = 0; }
};

TEST_F(Rotation, TwoRecordsInTheSameUtcDayGoIntoOneFile) {
    const auto manager = make_manager(ArchivePerDay, "header\n");
    *manager << "one\n";
    now_ = kMidnight - 1;
    log_.clear();
    *manager << "two\n";
    EXPECT_EQ(log_text(), "header\none\ntwo\n");
    EXPECT_THAT(files(), ElementsAre(kFile));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Rotation, ARecordAfterMidnightUtcArchivesTheFileAndStartsANewOneWithTheHeader) {
    const auto manager = make_manager(ArchivePerDay, "header\n");
    *manager << "one\n";
    log_.clear();
    now_ = kMidnight;
    *manager << "two\n";
    EXPECT_EQ(log_text(), "header\ntwo\n");
    EXPECT_THAT(files(), UnorderedElementsAre(kFile, "1767312000_ppstats.csv.gz"));
    EXPECT_EQ(unpacked(kMidnight), "header\none\n");
    EXPECT_EQ(syncs, 1);
    EXPECT_THAT(log_.lines(), ElementsAre(debug_line("archiving log file '" + log_path() + "'"),
                                          info_line("archived '" + archive_path(kMidnight) + "'"),
                                          debug_line("removeOldArchives '" + directory_ + "/*_ppstats.csv.gz'")));
}

TEST_F(Rotation, GoesOnAcrossTheLastSecondThat32BitsCount) {
    now_ = 2147483647;  // 2038-01-19 03:14:07 UTC
    const auto manager = make_manager(ArchivePerHour);
    *manager << "before\n";
    ++now_;
    *manager << "after\n";
    EXPECT_EQ(log_text(), "before\nafter\n");
    now_ += kHour;
    *manager << "an hour later\n";
    EXPECT_EQ(log_text(), "an hour later\n");
    EXPECT_TRUE(log_.contains(LOG_INFO, "LOG: archived '" + path("2147487248_ppstats.csv.gz") + "'"));
}

TEST_F(Rotation, PerHourStartsANewFileAtEachFullHour) {
    const auto manager = make_manager(ArchivePerHour, "header\n");
    *manager << "one\n";
    now_ = kMorning + kHour - 1;
    *manager << "two\n";
    now_ = kMorning + kHour;
    *manager << "three\n";
    EXPECT_EQ(log_text(), "header\nthree\n");
    EXPECT_EQ(unpacked(kMorning + kHour), "header\none\ntwo\n");
}

TEST_F(Rotation, PerHourTheSameHourOfAnotherDayIsTheSameFile) {
    const auto manager = make_manager(ArchivePerHour);
    *manager << "one\n";
    now_ += kDay;
    *manager << "two\n";
    EXPECT_EQ(log_text(), "one\ntwo\n");
}

TEST_F(Rotation, TheFirstRecordOfARunArchivesALeftOverFile) {
    write(kFile, "left over\n");
    const auto manager = make_manager(ArchivePerDay, "header\n");
    EXPECT_EQ(log_text(), "left over\n");
    *manager << "one\n";
    EXPECT_EQ(unpacked(kMorning), "left over\n");
    EXPECT_EQ(log_text(), "header\none\n");
}

TEST_F(Rotation, TheFirstRecordOfARunWithoutALeftOverFileArchivesNothing) {
    const auto manager = make_manager();
    *manager << "one\n";
    EXPECT_THAT(log_.lines(), ElementsAre(debug_line("archiving log file '" + log_path() + "'"),
                                          debug_line("file doesn't exist '" + log_path() + "'")));
    EXPECT_THAT(files(), ElementsAre(kFile));
    EXPECT_EQ(syncs, 0);
}

TEST_F(Rotation, TheTimeInAnArchivesNameHasTenDigits) {
    now_ = 42;
    write(kFile, "left over\n");
    const auto manager = make_manager();
    *manager << "one\n";
    EXPECT_THAT(files(), UnorderedElementsAre(kFile, "0000000042_ppstats.csv.gz"));
}

TEST_F(Rotation, AnotherHeaderComesWithTheNextFile) {
    const auto manager = make_manager(ArchivePerDay, "first\n");
    *manager << "one\n";
    manager->setLogFileHeader("second\n");
    *manager << "two\n";
    EXPECT_EQ(log_text(), "first\none\ntwo\n");
    now_ = kMidnight;
    *manager << "three\n";
    EXPECT_EQ(log_text(), "second\nthree\n");
}

TEST_F(Rotation, OfAnotherKindStartsANewFileWithEveryRecord) {
    const auto manager = make_manager(static_cast<eArchiveType_t>(2));
    *manager << "one\n";
    *manager << "two\n";
    EXPECT_EQ(log_text(), "two\n");
    EXPECT_EQ(unpacked(kMorning), "one\n");
}

TEST_F(Rotation, AFileThatSomebodyRemovedMeanwhileIsReplacedAtTheNext) {
    const auto manager = make_manager();
    *manager << "one\n";
    std::filesystem::remove(log_path());
    now_ = kMidnight;
    *manager << "two\n";
    EXPECT_EQ(log_text(), "two\n");
    EXPECT_THAT(files(), ElementsAre(kFile));
}

TEST_F(Rotation, ADirectoryOfTheFilesNameIsLeftAloneAndRecordsAreDropped) {
    std::filesystem::create_directory(log_path());
    const auto manager = make_manager();
    *manager << "one\n";
    EXPECT_THAT(log_.lines(), ElementsAre(debug_line("archiving log file '" + log_path() + "'"),
                                          debug_line("file doesn't exist '" + log_path() + "'"),
                                          debug_line("file 'ppstats.csv' is not open")));
    std::filesystem::remove(log_path());
    *manager << "two\n";
    EXPECT_EQ(log_text(), "two\n");
}

TEST_F(Rotation, TheEndOfTheManagerDoesNotArchive) {
    make_manager()->operator<<("one\n");
    EXPECT_THAT(files(), ElementsAre(kFile));
    EXPECT_EQ(log_text(), "one\n");
}

// ---- old archives ----

class OldArchives : public LogFileManager {
protected:
    void rotate() {
        write(kFile, "left over\n");
        log_.clear();
        *make_manager() << "one\n";
    }
};

TEST_F(OldArchives, OneOfEightDaysIsDeletedAtTheNextRotationAndOneOfSixDaysStays) {
    const std::string old = leave_archive(1, 8 * kDay);
    const std::string young = leave_archive(2, 6 * kDay);
    rotate();
    EXPECT_THAT(files(), UnorderedElementsAre(kFile, young, archive_name(kMorning)));
    EXPECT_TRUE(log_.contains(LOG_INFO, "LOG: removing log archive '" + path(old) + "'"));
    EXPECT_FALSE(log_.contains(LOG_INFO, "LOG: removing log archive '" + path(young) + "'"));
}

TEST_F(OldArchives, OneOfExactlySevenDaysIsKeptAndOneASecondOlderGoes) {
    const std::string kept = leave_archive(1, 7 * kDay);
    leave_archive(2, 7 * kDay + 1);
    rotate();
    EXPECT_THAT(files(), UnorderedElementsAre(kFile, kept, archive_name(kMorning)));
}

TEST_F(OldArchives, GoByTheirAgeAndNotByTheirNumberOrTheirName) {
    for (time_t name = 100; name < 160; ++name) leave_archive(name, kDay);
    rotate();
    EXPECT_EQ(files().size(), 62U);
}

TEST_F(OldArchives, GoInTheOrderOfTheirNames) {
    for (const time_t name : {30, 10, 20}) leave_archive(name, 8 * kDay);
    rotate();
    std::vector<std::string> removed;
    for (const QoLogLine& line : log_.lines())
        if (line.text.starts_with("LOG: removing")) removed.push_back(line.text);
    EXPECT_THAT(removed, ElementsAre("LOG: removing log archive '" + archive_path(10) + "'",
                                     "LOG: removing log archive '" + archive_path(20) + "'",
                                     "LOG: removing log archive '" + archive_path(30) + "'"));
}

TEST_F(OldArchives, OfAfter2038GoLikeAllOthers) {
    now_ = 2221560000;  // 2040-05-25 12:00:00 UTC
    leave_archive(1, 8 * kDay);
    const std::string young = leave_archive(2, 6 * kDay);
    rotate();
    // The archive just made has today's date, long ago.
    EXPECT_THAT(files(), UnorderedElementsAre(kFile, young));
}

TEST_F(OldArchives, OfOtherLogsStay) {
    leave_archive(1, 8 * kDay);
    std::filesystem::rename(archive_path(1), path("1_other.csv.gz"));
    rotate();
    EXPECT_THAT(files(), testing::Contains("1_other.csv.gz"));
}

TEST_F(OldArchives, OneThatCannotBeDeletedIsReportedAndTheOthersGo) {
    const std::string stuck = leave_archive(1, 0);
    std::filesystem::remove(path(stuck));
    std::filesystem::create_directories(path(stuck) + "/not_empty");
    const timespec written[2] = {{now_ - 8 * kDay, 0}, {now_ - 8 * kDay, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path(stuck).c_str(), written, 0), 0);
    leave_archive(2, 8 * kDay);
    rotate();
    EXPECT_TRUE(log_.contains(LOG_WARNING, "LOG: remove archive failed: '" + path(stuck) + "'"));
    EXPECT_THAT(files(), UnorderedElementsAre(kFile, stuck, archive_name(kMorning)));
}

// ---- disks that refuse ----

/// A small disk of its own.
class RefusingLogDisk : public LogFileManager {
protected:
    void SetUp() override {
        if (const std::string missing = qo_missing_isolation(); !missing.empty()) GTEST_SKIP() << missing;
        directory_ = "/kivo/disk";
        std::filesystem::create_directories(directory_);
        if (mount("tmpfs", directory_.c_str(), "tmpfs", 0, "size=64k") != 0)
            GTEST_SKIP() << "no disk of our own: " << strerror(errno);
    }
    void TearDown() override { umount2(directory_.c_str(), MNT_DETACH); }

    void fill() const { write("filler", std::string(1 << 20, 'x')); }
    void make_room() const { std::filesystem::remove(path("filler")); }
    bool remount(unsigned long flags) const {
        return mount("none", directory_.c_str(), nullptr, MS_REMOUNT | flags, nullptr) == 0;
    }
};

TEST_F(RefusingLogDisk, AFullOneDropsRecordsAndTakesThoseThatComeWhenThereIsRoom) {
    const auto manager = make_manager(ArchivePerDay, "header\n");
    const std::string page(4096 - 7, 'h');
    *manager << page;  // up to the end of a page, so that the next record needs another
    fill();
    *manager << "dropped\n";
    EXPECT_EQ(log_text(), "header\n" + page);
    make_room();
    *manager << "written\n";
    EXPECT_EQ(log_text(), "header\n" + page + "written\n");
}

TEST_F(RefusingLogDisk, AFullOneKeepsNoPartOfARecordThatItCannotTakeWhole) {
    const auto manager = make_manager(ArchivePerDay, "header\n");
    const std::string page(4096 - 10, 'h');
    *manager << page;  // up to three bytes before the end of a page
    fill();
    *manager << "dropped\n";
    EXPECT_EQ(log_text(), "header\n" + page);
    *manager << "x\n";  // fits
    EXPECT_EQ(log_text(), "header\n" + page + "x\n");
    *manager << "dropped too\n";
    make_room();
    *manager << "written\n";
    EXPECT_EQ(log_text(), "header\n" + page + "x\nwritten\n");
}

TEST_F(RefusingLogDisk, AFullOneThatCutTheHeaderGetsItBeforeTheNextRecord) {
    const std::string header = std::string(5000, 'h') + "\n";
    const auto manager = make_manager(ArchivePerDay, header);
    fill();
    std::filesystem::resize_file(path("filler"), std::filesystem::file_size(path("filler")) - 4096);
    *manager << "dropped\n";
    EXPECT_EQ(log_text(), "");
    make_room();
    *manager << "written\n";
    EXPECT_EQ(log_text(), header + "written\n");
}

TEST_F(RefusingLogDisk, AFullOneLosesTheFinishedFileButNotTheNextRecords) {
    const auto manager = make_manager(ArchivePerDay, "header\n");
    *manager << "one\n";
    fill();
    log_.clear();
    now_ = kMidnight;
    *manager << "two\n";
    EXPECT_TRUE(log_.contains(LOG_INFO, "LOG: archived '" + archive_path(kMidnight) + "'"));
    make_room();
    *manager << "three\n";
    // The page that the finished file had was room enough for what follows.
    EXPECT_EQ(log_text(), "header\ntwo\nthree\n");
}

TEST_F(RefusingLogDisk, AReadOnlyOneDropsRecordsWithAllItsMessages) {
    leave_archive(1, 8 * kDay);
    write(kFile, "left over\n");
    const auto manager = make_manager(ArchivePerDay, "header\n");
    ASSERT_TRUE(remount(MS_RDONLY)) << strerror(errno);
    *manager << "one\n";
    EXPECT_THAT(log_.lines(), ElementsAre(debug_line("archiving log file '" + log_path() + "'"),
                                          info_line("archived '" + archive_path(kMorning) + "'"),
                                          warning_line("remove archive failed: '" + archive_path(kMorning) + "'"),
                                          debug_line("removeOldArchives '" + directory_ + "/*_ppstats.csv.gz'"),
                                          info_line("removing log archive '" + archive_path(1) + "'"),
                                          warning_line("remove archive failed: '" + archive_path(1) + "'"),
                                          debug_line("file 'ppstats.csv' is not open")));
    EXPECT_EQ(log_text(), "left over\n");
    ASSERT_TRUE(remount(0)) << strerror(errno);
    *manager << "two\n";
    EXPECT_EQ(log_text(), "header\ntwo\n");
    EXPECT_EQ(unpacked(kMorning), "left over\n");
}

TEST_F(RefusingLogDisk, ADirectoryMadeReadOnlyKeepsTheFileBegunAndTheRecordsOfTheNextDayAreDropped) {
    const auto manager = make_manager();
    *manager << "one\n";
    ASSERT_EQ(mount(directory_.c_str(), directory_.c_str(), nullptr, MS_BIND, nullptr), 0) << strerror(errno);
    ASSERT_EQ(mount("none", directory_.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr), 0);
    *manager << "two\n";  // to the file that is open
    EXPECT_EQ(log_text(), "one\ntwo\n");
    now_ = kMidnight;
    log_.clear();
    *manager << "three\n";
    EXPECT_TRUE(log_.contains(LOG_WARNING, "LOG: remove archive failed: '" + archive_path(kMidnight) + "'"));
    EXPECT_TRUE(log_.contains(LOG_DEBUG, "LOG: file 'ppstats.csv' is not open"));
    EXPECT_EQ(log_text(), "one\ntwo\n");
    umount2(directory_.c_str(), MNT_DETACH);
}

}  // namespace
