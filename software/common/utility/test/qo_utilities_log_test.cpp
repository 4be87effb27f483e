// The sender against a reader of the test's own: what the C library's syslog(3) writes, in all but its patience.
#include "qo_utilities_log.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "isolation.h"
#include "qo_log_reader.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

constexpr milliseconds kShort{20};
constexpr milliseconds kEndless{60000};
constexpr size_t kLongestThatFits = 212000;  // bytes

std::optional<time_t> fake_now;
std::function<void()> in_localtime;   // once
std::function<void()> while_waiting;  // for room, once
int localtime_calls = 0;
int waits_for_room = 0;
bool no_pages = false;

void run_once(std::function<void()>& action) {
    if (!action) return;
    const std::function<void()> once = std::exchange(action, nullptr);
    once();
}

}  // namespace

// ---- replacements ----

extern "C" {
time_t __real_time(time_t* out);
time_t __wrap_time(time_t* out);
tm* __real_localtime_r(const time_t* time, tm* out);
tm* __wrap_localtime_r(const time_t* time, tm* out);
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout);
void* __real_mmap(void* address, size_t length, int protection, int flags, int descriptor, off_t offset);
void* __wrap_mmap(void* address, size_t length, int protection, int flags, int descriptor, off_t offset);

time_t __wrap_time(time_t* out) {
    if (!fake_now) return __real_time(out);
    if (out != nullptr) *out = *fake_now;
    return *fake_now;
}

tm* __wrap_localtime_r(const time_t* time, tm* out) {
    ++localtime_calls;
    run_once(in_localtime);
    return __real_localtime_r(time, out);
}

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
    if (count == 1 && descriptors[0].events == POLLOUT) {
        ++waits_for_room;
        run_once(while_waiting);
    }
    return __real_poll(descriptors, count, timeout);
}

void* __wrap_mmap(void* address, size_t length, int protection, int flags, int descriptor, off_t offset) {
    if (no_pages) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    return __real_mmap(address, length, protection, flags, descriptor, offset);
}
}

namespace {

size_t open_descriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

__attribute__((format(printf, 3, 4))) void write_line(QoLogSender& sender, int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    sender.write(priority, format, arguments);
    va_end(arguments);
}

void write_text(QoLogSender& sender, const std::string& text) { write_line(sender, LOG_INFO, "%s", text.c_str()); }

/// What stands behind "<14>Jan  5 13:04:59 ".
std::string behind_stamp(const std::string& line) { return line.substr(line.find('>') + 1 + 16); }

// ---- the bytes ----

/// Compares with the C library, which writes to /dev/log.
class LogBytes : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = qo_missing_isolation(); !reason.empty()) GTEST_SKIP() << reason;
        reader_.emplace("/dev/log");
        open("PushPull", LOG_USER);
    }
    void TearDown() override {
        closelog();
        setlogmask(LOG_UPTO(LOG_DEBUG));
        unsetenv("TZ");
        tzset();
    }

    void open(const char* ident, int facility) {
        sender_.emplace();
        sender_->open(ident, LOG_ODELAY, facility);
        closelog();
        openlog(ident, LOG_ODELAY, facility);
    }

    // Logs with both, within one second, and compares what comes. @return it
    __attribute__((format(printf, 3, 4))) std::string expect_same(int priority, const char* format, ...) {
        std::vector<std::string> theirs;
        std::vector<std::string> ours;
        time_t before = 0;
        const int given_errno = errno;
        do {
            before = __real_time(nullptr);
            va_list arguments;
            va_start(arguments, format);
            errno = given_errno;
            vsyslog(priority, format, arguments);
            va_end(arguments);
            theirs = reader_->take();
            va_start(arguments, format);
            errno = given_errno;
            sender_->write(priority, format, arguments);
            va_end(arguments);
            ours = reader_->take();
        } while (__real_time(nullptr) != before);
        EXPECT_EQ(ours, theirs);
        return ours.empty() ? "" : ours.front();
    }
    // In pieces, and put together by printf().
    void expect_same_text(const std::string& text) {
        expect_same(LOG_INFO, "%s", text.c_str());
        expect_same(LOG_INFO, "%-1s", text.c_str());
    }

    std::optional<QoLogReader> reader_;
    std::optional<QoLogSender> sender_;
};

TEST_F(LogBytes, AreThoseOfTheCLibraryForEveryFormatOfPrintf) {
    const std::string line =
        expect_same(LOG_INFO, "%d %ld %x %c %5s|%-5s|%.2s %.3f %%", -1, 2L, 255U, 'c', "a", "b", "cut", 1.5);
    EXPECT_THAT(line, EndsWith("PushPull: -1 2 ff c     a|b    |cu 1.500 %"));
    errno = ENOENT;
    EXPECT_THAT(expect_same(LOG_ERR, "it is: %m"), EndsWith("it is: No such file or directory"));
}

TEST_F(LogBytes, AreThoseOfTheCLibraryForFormatsThatNeedNoPrintf) {
    EXPECT_THAT(expect_same(LOG_INFO, "%s queue %lu: %zu of 100%%%c", "first", 2UL, size_t{3}, '\n'),
                EndsWith("PushPull: first queue 2: 3 of 100%\n"));
    expect_same(LOG_INFO, "%d%d%d%d%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12);
    expect_same(LOG_INFO, "%d%d%d%d%d%d%d%d%d%d%d%d%d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13);
}

TEST_F(LogBytes, AreThoseOfTheCLibraryForEveryPriority) {
    for (int level = LOG_EMERG; level <= LOG_DEBUG; ++level) expect_same(level, "a level");
    for (const int facility : {LOG_USER, LOG_KERN, LOG_DAEMON, LOG_LOCAL0, LOG_LOCAL7})
        expect_same(facility | LOG_WARNING, "a facility");
}

TEST_F(LogBytes, AreThoseOfTheCLibraryForEveryText) {
    for (const char* text :
         {"", " ", "\n", "two\nlines\n", "tab\tand bell\a", "W\xc3\xa4rme \xe2\x82\xac", "\xff\xfe", "100 % of %s"})
        expect_same_text(text);
}

TEST_F(LogBytes, AreThoseOfTheCLibraryForEveryLength) {
    for (size_t length = 980; length < 1040; ++length) expect_same_text(std::string(length, 'x'));
    for (size_t length = 2010; length < 2060; ++length) expect_same_text(std::string(length, 'x'));
    for (const size_t length : {size_t{4096}, size_t{65536}, kLongestThatFits})
        expect_same_text(std::string(length, 'x'));
    errno = ENOENT;
    expect_same(LOG_INFO, "%s %m", std::string(5000, 'x').c_str());
}

TEST_F(LogBytes, OfALineThatIsTooLongForTheSocketAreDroppedAndItIsNotCounted) {
    expect_same_text(std::string(262143, 'x'));
    EXPECT_THAT(expect_same(LOG_INFO, "next"), EndsWith("PushPull: next"));
}

TEST_F(LogBytes, AreThoseOfTheCLibraryForEveryIdent) {
    const std::string long_ident(300, 'i');
    for (const char* ident : {"", "PushPull", "with space: ", long_ident.c_str(), static_cast<const char*>(nullptr)}) {
        open(ident, LOG_LOCAL3);
        expect_same(LOG_INFO, "text");
    }
}

TEST_F(LogBytes, AreThoseOfTheCLibraryUnderEveryMask) {
    EXPECT_EQ(sender_->set_mask(LOG_UPTO(LOG_NOTICE)), LOG_UPTO(LOG_DEBUG));
    setlogmask(LOG_UPTO(LOG_NOTICE));
    EXPECT_EQ(expect_same(LOG_INFO, "not wanted"), "");
    EXPECT_NE(expect_same(LOG_NOTICE, "wanted"), "");
    EXPECT_EQ(sender_->set_mask(0), LOG_UPTO(LOG_NOTICE));
}

TEST_F(LogBytes, AreThoseOfTheCLibraryInEveryZone) {
    for (const char* zone : {"UTC", "CET-1CEST,M3.5.0,M10.5.0/3", "NZST-12NZDT,M9.5.0,M4.1.0/3", "<+0545>-5:45",
                             "Europe/Berlin", ":/usr/share/zoneinfo/America/St_Johns", "no such zone"}) {
        setenv("TZ", zone, 1);
        tzset();
        open("PushPull", LOG_USER);
        expect_same(LOG_INFO, "in %s", zone);
    }
}

// ---- a reader elsewhere ----

class Sender : public testing::Test {
protected:
    Sender() {
        localtime_calls = 0;
        waits_for_room = 0;
    }
    ~Sender() override {
        fake_now.reset();
        in_localtime = nullptr;
        while_waiting = nullptr;
        no_pages = false;
    }

    // Sends "0", "1", ... until one is lost. @return how many got through
    int fill(QoLogSender& sender) {
        int sent = 0;
        for (const int before = waits_for_room; waits_for_room == before; ++sent)
            write_text(sender, std::to_string(sent));
        return sent - 1;
    }

    const QoLogReaderPath path_;
    QoLogSender sender_{path_.c_str(), kShort};
};

using SenderTime = Sender;
using SenderWait = Sender;
using SenderConnection = Sender;
using SenderPieces = Sender;

// ---- time stamps ----

TEST_F(SenderTime, StampsFollowTheClockThroughSummerTimeAndBeyond2038) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    QoLogReader reader(path_.c_str());
    constexpr time_t kMoments[] = {0,          1,          1774745999, 1774746000, 1792889999, 1792890000,
                                   1798757999, 1798758000, 2147483647, 2147483648, 4102444800};
    for (const time_t moment : kMoments) {
        fake_now = moment;
        write_text(sender_, "x");
        tm local{};
        char stamp[32];
        __real_localtime_r(&moment, &local);
        strftime(stamp, sizeof stamp, "%h %e %T ", &local);
        EXPECT_THAT(reader.take(), ElementsAre(StartsWith("<14>" + std::string(stamp))));
    }
    unsetenv("TZ");
    tzset();
}

TEST_F(SenderTime, StampIsMadeOnceASecond) {
    QoLogReader reader(path_.c_str());
    for (int line = 0; line < 50; ++line) {
        fake_now = 1792890000 + line / 10;
        write_text(sender_, "x");
        reader.take();
    }
    EXPECT_EQ(localtime_calls, 5);
}

TEST_F(SenderTime, OfALineThatInterruptsTheMakingOfTheStampIsTheOneBefore) {
    setenv("TZ", "UTC0", 1);
    tzset();
    QoLogReader reader(path_.c_str());
    fake_now = 1792890000;
    write_text(sender_, "first");
    *fake_now += 1;
    in_localtime = [this] { write_text(sender_, "of the handler"); };
    write_text(sender_, "interrupted");
    EXPECT_THAT(reader.take(),
                ElementsAre(StartsWith("<14>Oct 25 01:00:00 "), MatchesRegex("<14>Oct 25 01:00:00 .*of the handler"),
                            MatchesRegex("<14>Oct 25 01:00:01 .*interrupted")));
    unsetenv("TZ");
    tzset();
}

TEST_F(SenderTime, OfALineThatInterruptsTheMakingOfTheFirstStampIsLeftOut) {
    QoLogReader reader(path_.c_str());
    in_localtime = [this] { write_text(sender_, "of the handler"); };
    write_text(sender_, "interrupted");
    EXPECT_THAT(reader.take(), ElementsAre("<14>: of the handler", EndsWith(": interrupted")));
}

// ---- waiting, and what is lost ----

TEST_F(SenderWait, ForAReaderThatHasStoppedEndsAndIsNotRepeated) {
    QoLogReader reader(path_.c_str());
    const auto begin = std::chrono::steady_clock::now();
    fill(sender_);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, kShort);
    const int waits = waits_for_room;
    for (int line = 0; line < 100; ++line) write_text(sender_, "lost too");
    EXPECT_EQ(waits_for_room, waits);
}

TEST_F(SenderWait, IsOverWhenTheReaderGoesOn) {
    QoLogSender patient(path_.c_str(), kEndless);
    QoLogReader reader(path_.c_str());
    std::vector<std::string> before;
    while_waiting = [&] { before = reader.take(); };
    const int sent = fill(patient);
    EXPECT_THAT(before, SizeIs(sent));
    EXPECT_THAT(reader.take(), ElementsAre(EndsWith(": " + std::to_string(sent))));
}

TEST_F(SenderWait, IsOverWhenTheReaderEnds) {
    QoLogSender patient(path_.c_str(), kEndless);
    std::optional<QoLogReader> reader(path_.c_str());
    while_waiting = [&] { reader.reset(); };
    fill(patient);
    reader.emplace(path_.c_str());
    write_text(patient, "next");
    EXPECT_THAT(reader->take(), ElementsAre(EndsWith(": next"))) << "there was nobody for the other, which is no loss";
}

TEST_F(SenderWait, ThatWasInVainIsToldOfBeforeTheNextLineThatGetsThrough) {
    QoLogReader reader(path_.c_str());
    sender_.open("PushPull", LOG_ODELAY, LOG_LOCAL1);
    const int sent = fill(sender_);
    for (int line = 0; line < 9; ++line) write_text(sender_, "lost too");
    EXPECT_THAT(reader.take(), SizeIs(sent));
    write_text(sender_, "next");
    write_text(sender_, "and next");
    const std::vector<std::string> lines = reader.take();
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_THAT(lines[0], StartsWith("<140>"));
    EXPECT_EQ(behind_stamp(lines[0]), "PushPull: QoLogSender: 10 lines are lost: the system log did not take them");
    EXPECT_EQ(behind_stamp(lines[1]), "PushPull: next");
    EXPECT_EQ(behind_stamp(lines[2]), "PushPull: and next");
}

TEST_F(SenderWait, ForAReaderThatEndedMeanwhileCountsTheLinesUntilTheNextOneIsThere) {
    std::optional<QoLogReader> reader(path_.c_str());
    fill(sender_);
    reader.reset();
    for (int line = 0; line < 4; ++line) write_text(sender_, "to nobody");
    reader.emplace(path_.c_str());
    write_text(sender_, "next");
    EXPECT_THAT(reader->take(), ElementsAre(testing::HasSubstr(": 5 lines are lost"), EndsWith(": next")));
}

TEST_F(SenderWait, IsGrantedAgainOnceALineGotThrough) {
    QoLogReader reader(path_.c_str());
    fill(sender_);
    reader.take();
    write_text(sender_, "next");
    const int waits = waits_for_room;
    fill(sender_);
    EXPECT_GT(waits_for_room, waits);
}

// ---- the connection ----

TEST_F(SenderConnection, IsTriedAgainAtEachLineWhileNobodyListens) {
    write_text(sender_, "to nobody");
    QoLogReader reader(path_.c_str());
    write_text(sender_, "next");
    EXPECT_THAT(reader.take(), ElementsAre(EndsWith(": next")));
}

TEST_F(SenderConnection, IsTriedWithOneSocketWhileNobodyListens) {
    write_text(sender_, "to nobody");
    const size_t descriptors = open_descriptors();
    for (int line = 0; line < 10; ++line) {
        write_text(sender_, "to nobody");
        ASSERT_EQ(open_descriptors(), descriptors);
    }
    { const QoLogReader gone(path_.c_str(), SOCK_STREAM); }
    write_text(sender_, "to nobody");
    EXPECT_LE(open_descriptors(), descriptors + 1) << "one of each kind";
    QoLogReader reader(path_.c_str());
    write_text(sender_, "next");
    EXPECT_THAT(reader.take(), ElementsAre(EndsWith(": next")));
}

TEST_F(SenderConnection, IsMadeAnewWhenTheReaderIsAndKeepsItsDescriptor) {
    std::optional<QoLogReader> reader(path_.c_str());
    write_text(sender_, "first");
    const size_t descriptors = open_descriptors();
    for (int life = 0; life < 50; ++life) {
        reader.reset();
        write_text(sender_, "to nobody");
        reader.emplace(path_.c_str());
        write_text(sender_, std::to_string(life));
        ASSERT_THAT(reader->take(), ElementsAre(EndsWith(": " + std::to_string(life))));
    }
    EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(SenderConnection, FollowsAReaderToAStreamSocketAndBack) {
    std::optional<QoLogReader> reader(path_.c_str());
    write_text(sender_, "datagram");
    const size_t descriptors = open_descriptors();
    for (int life = 0; life < 20; ++life) {
        reader.reset();
        reader.emplace(path_.c_str(), SOCK_STREAM);
        write_text(sender_, "first\nline");
        write_text(sender_, "second");
        ASSERT_THAT(reader->take(), ElementsAre(EndsWith(": first\nline"), EndsWith(": second")));
        reader.reset();
        reader.emplace(path_.c_str());
        write_text(sender_, "datagram");
        ASSERT_THAT(reader->take(), ElementsAre(EndsWith(": datagram")));
    }
    EXPECT_EQ(open_descriptors(), descriptors + 1) << "one of each kind";
}

TEST_F(SenderConnection, NeverGetsTheDescriptorOfAStandardFile) {
    QoLogReader reader(path_.c_str());
    EXPECT_EXIT(
        {
            for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(standard);
            write_text(sender_, "x");
            int taken = 0;
            for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
                if (fcntl(standard, F_GETFD) != -1) ++taken;
            _exit(taken);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_THAT(reader.take(), SizeIs(1));
}

TEST_F(SenderConnection, IsNotInherited) {
    QoLogReader reader(path_.c_str());
    const size_t descriptors = open_descriptors();
    sender_.open("PushPull", LOG_NDELAY, LOG_USER);
    ASSERT_EQ(open_descriptors(), descriptors + 1);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename());
        struct stat status {};
        if (fstat(descriptor, &status) == 0 && S_ISSOCK(status.st_mode))
            EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
}

TEST_F(SenderConnection, LeavesErrnoAlone) {
    errno = EDOM;
    write_text(sender_, "to nobody");
    EXPECT_EQ(errno, EDOM);
    QoLogReader reader(path_.c_str());
    fill(sender_);
    errno = EDOM;
    write_text(sender_, "lost");
    EXPECT_EQ(errno, EDOM);
}

// ---- streams ----

TEST_F(SenderConnection, OnAStreamIsEndedWhenALineWasCutSoThatTheNextOneIsWhole) {
    QoLogReader reader(path_.c_str(), SOCK_STREAM);
    write_text(sender_, "first");
    write_text(sender_, std::string(1 << 20, 'x'));
    EXPECT_THAT(reader.take(), ElementsAre(EndsWith(": first"))) << "what came of the other is no line";
    write_text(sender_, "next");
    EXPECT_THAT(reader.take(), ElementsAre(testing::HasSubstr(": 1 lines are lost"), EndsWith(": next")));
}

TEST_F(SenderConnection, OnAStreamCarriesALineThatIsLongerThanTheSocketHolds) {
    QoLogSender patient(path_.c_str(), kEndless);
    QoLogReader reader(path_.c_str(), SOCK_STREAM);
    const std::string text(1 << 20, 'x');
    std::thread writer([&] { write_text(patient, text); });
    EXPECT_THAT(reader.wait_for(1), ElementsAre(EndsWith(": " + text)));
    writer.join();
}

// ---- ready text ----

TEST_F(SenderPieces, MakeOneLine) {
    QoLogReader reader(path_.c_str());
    sender_.open("PushPull", LOG_ODELAY, LOG_USER);
    char text[] = "one line";
    const iovec pieces[] = {{text, 4}, {text, 0}, {text + 4, 4}};
    sender_.write(LOG_DEBUG, pieces, std::size(pieces));
    const std::vector<std::string> lines = reader.take();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_THAT(lines[0], StartsWith("<15>"));
    EXPECT_EQ(behind_stamp(lines[0]), "PushPull: one line");
    sender_.set_mask(LOG_UPTO(LOG_INFO));
    sender_.write(LOG_DEBUG, pieces, std::size(pieces));
    EXPECT_THAT(reader.take(), IsEmpty());
}

TEST_F(SenderPieces, BeyondTheirNumberAreLeftOut) {
    QoLogReader reader(path_.c_str());
    char letter[] = "x";
    const std::vector<iovec> pieces(QoLogSender::kMaxPieces + 3, iovec{letter, 1});
    sender_.write(LOG_DEBUG, pieces.data(), pieces.size());
    EXPECT_THAT(reader.take(), ElementsAre(EndsWith(": " + std::string(QoLogSender::kMaxPieces, 'x'))));
}

TEST_F(SenderPieces, OfALongLineThatNoMemoryIsLeftForAreItsBeginning) {
    QoLogReader reader(path_.c_str());
    no_pages = true;
    write_line(sender_, LOG_INFO, "%-1s", std::string(5000, 'x').c_str());
    no_pages = false;
    EXPECT_THAT(reader.take(), ElementsAre(EndsWith(": " + std::string(2047, 'x'))));
}

}  // namespace
