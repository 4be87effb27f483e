// Many who log at once: threads, and a signal handler in the middle of whatever it interrupts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <array>
#include <atomic>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "qo_log_reader.h"
#include "qo_utilities_log.h"

namespace {

using std::chrono::milliseconds;

constexpr size_t kWriters = 4;
constexpr int kLines = 500;  // of each
constexpr milliseconds kHardlyAny{1};
constexpr milliseconds kEndless{60000};

__attribute__((format(printf, 2, 3))) void write_line(QoLogSender& sender, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    sender.write(LOG_INFO, format, arguments);
    va_end(arguments);
}

std::optional<int> number_behind(const std::string& line, const std::string& text) {
    const size_t at = line.find(text);
    if (at == std::string::npos) return std::nullopt;
    return std::stoi(line.substr(at + text.size()));
}

// ---- threads ----

class Writers {
public:
    /// @param filler what each line carries behind its number
    Writers(QoLogSender& sender, const std::string& filler) {
        for (size_t writer = 0; writer < kWriters; ++writer) {
            threads_[writer] = std::thread([this, &sender, writer, filler] {
                for (int line = 0; line < kLines; ++line)
                    write_line(sender, "writer %zu line %d %s", writer, line, filler.c_str());
                ++ended_;
            });
        }
    }
    ~Writers() {
        for (std::thread& thread : threads_) thread.join();
    }
    bool ended() const { return ended_ == kWriters; }

private:
    std::array<std::thread, kWriters> threads_;
    std::atomic<size_t> ended_{0};
};

struct Collected {
    size_t lines = 0;
    size_t lost = 0;  // as the sender told
    std::array<int, kWriters> last;

    Collected() { last.fill(-1); }
    void add(const std::string& line) {
        if (const std::optional<int> told = number_behind(line, ": QoLogSender: ")) {
            lost += static_cast<size_t>(*told);
            return;
        }
        const std::optional<int> from = number_behind(line, ": writer ");
        ASSERT_TRUE(from && *from < static_cast<int>(kWriters)) << line.substr(0, 100);
        const int number = number_behind(line, " line ").value_or(-1);
        const size_t writer = static_cast<size_t>(*from);
        EXPECT_GT(number, last[writer]) << "the lines of one thread keep their order";
        last[writer] = number;
        ++lines;
    }
};

class LogThreads : public testing::TestWithParam<int> {
protected:
    Collected collect(milliseconds patience, const std::string& filler) {
        QoLogSender sender(path_.c_str(), patience);
        QoLogReader reader(path_.c_str(), GetParam());
        Collected collected;
        {
            const Writers writers(sender, filler);
            while (!writers.ended())
                for (const std::string& line : reader.take()) collected.add(line);
        }
        for (const std::string& line : reader.take()) collected.add(line);
        write_line(sender, "writer 0 line %d ", kLines);  // after what was lost last was told
        for (const std::string& line : reader.wait_for(1)) collected.add(line);
        return collected;
    }

    const QoLogReaderPath path_;
};

TEST_P(LogThreads, LoseNothingWhileTheReaderReads) {
    const Collected collected = collect(kEndless, "short");
    EXPECT_EQ(collected.lines, kWriters * kLines + 1);
    EXPECT_EQ(collected.lost, 0U);
}

TEST_P(LogThreads, AreToldOfEveryLineThatTheyLost) {
    const Collected collected = collect(kHardlyAny, std::string(20000, 'x'));
    EXPECT_EQ(collected.lines + collected.lost, kWriters * kLines + 1);
}

INSTANTIATE_TEST_SUITE_P(Sockets, LogThreads, testing::Values(SOCK_DGRAM, SOCK_STREAM));

// ---- a signal handler ----

QoLogSender* handlers_sender = nullptr;
std::atomic<int> handled{0};

void log_in_handler(int) {
    write_line(*handlers_sender, "handler line %d", handled.load());
    ++handled;
}

TEST(LogHandler, LogsWhateverItInterrupts) {
    constexpr int kSignals = 500;
    const QoLogReaderPath path;
    QoLogSender sender(path.c_str(), kEndless);
    QoLogReader reader(path.c_str());
    sender.open("PushPull", LOG_NDELAY, LOG_USER);  // as the service does: the zone's file is read by no handler
    handlers_sender = &sender;
    handled = 0;
    struct sigaction action {};
    action.sa_handler = log_in_handler;
    sigaction(SIGUSR2, &action, nullptr);

    std::atomic<bool> ended{false};
    std::thread writer([&] {
        for (int line = 0; handled < kSignals; ++line) write_line(sender, "writer line %d", line);
        ended = true;
    });
    int handlers_line = -1;
    int writers_line = -1;
    const auto take = [&] {
        for (const std::string& line : reader.take())
            if (const std::optional<int> number = number_behind(line, ": handler line "))
                ASSERT_EQ(*number, ++handlers_line);
            else
                ASSERT_EQ(number_behind(line, ": writer line "), ++writers_line) << line;
    };
    for (int sent = 0; sent < kSignals; ++sent) {
        pthread_kill(writer.native_handle(), SIGUSR2);
        while (handled <= sent) take();
    }
    while (!ended) take();
    take();
    writer.join();
    EXPECT_EQ(handlers_line, kSignals - 1);
    signal(SIGUSR2, SIG_DFL);
}

}  // namespace
