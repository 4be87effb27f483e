// What the statistics cost: publishes per second of the built service with -l and without, in turns. To be run with
// qo_isolated, which gives it queues and a /kivo of its own:
//   build/dev/bin/qo_isolated build/dev/bin/statistics_cost [ROUNDS [PUBLISHES]]
#include <fcntl.h>
#include <mqueue.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr long kMessages = 10;
constexpr long kMessageSize = 8192;     // bytes
constexpr time_t kPatience = 60;        // seconds
constexpr int kComponent = 1073741852;  // QO_CMPID_DEMO

[[noreturn]] void fail(const std::string& what) { throw std::runtime_error(what + ": " + strerror(errno)); }

timespec deadline() {
    timespec time{};
    clock_gettime(CLOCK_REALTIME, &time);
    time.tv_sec += kPatience;
    return time;
}

/// A queue that exists before the service opens it, so that its size is ours.
class Queue {
public:
    explicit Queue(const std::string& name) : name_(name) {
        mq_attr attributes{};
        attributes.mq_maxmsg = kMessages;
        attributes.mq_msgsize = kMessageSize;
        descriptor_ = mq_open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0660, &attributes);
        if (descriptor_ == -1) fail(name);
    }
    ~Queue() {
        mq_close(descriptor_);
        mq_unlink(name_.c_str());
    }
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    void send(const std::string& text) const {
        const timespec until = deadline();
        if (mq_timedsend(descriptor_, text.c_str(), text.size() + 1, 1, &until) != 0) fail("send to " + name_);
    }
    std::string receive() const {
        const timespec until = deadline();
        std::vector<char> buffer(static_cast<size_t>(kMessageSize));
        if (mq_timedreceive(descriptor_, buffer.data(), buffer.size(), nullptr, &until) < 0)
            fail("receive from " + name_);
        return buffer.data();
    }

private:
    std::string name_;
    mqd_t descriptor_;
};

std::string request(const std::string& function, const std::string& buffer) {
    return R"({"function":")" + function + R"(","arg":{"comp_id":)" + std::to_string(kComponent) + R"(,"buffer":")" +
           buffer + R"("}})";
}

struct Rates {
    double per_second;
    double per_processor_second;
};

/// A service with a queue of its own and one component that is registered with it.
class Service {
public:
    Service(const std::string& suffix, bool statistics)
        : queue_("/pushpull" + suffix), component_("/component" + suffix) {
        std::string program = QO_PUSHPULL_PROGRAM;
        std::string instance_option = "-m";
        std::string instance = suffix;
        std::string statistics_option = "-l";
        char* arguments[] = {program.data(), instance_option.data(), instance.data(),
                             statistics ? statistics_option.data() : nullptr, nullptr};
        if (posix_spawn(&process_, program.c_str(), nullptr, nullptr, arguments, environ) != 0) fail(program);
        // What was sent before the service is ready it discards as stale.
        sleep(1);
        queue_.send(request("register", "/component" + suffix));
        wait_until_done();
    }
    ~Service() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Publishes handled per second, and per second of the processor's time that the service took.
    Rates rates(int publishes) const {
        const auto begin = std::chrono::steady_clock::now();
        const double processor_begin = processor_time();
        for (int i = 0; i < publishes; ++i)
            queue_.send(request("publish", R"({\"version\":{\"schemaVersion\":\")" + std::to_string(i) + R"(\"}})"));
        const std::string answer = wait_until_done();
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
        // A refused publish costs something else.
        if (answer.find("\"" + std::to_string(publishes - 1) + "\"") == std::string::npos)
            throw std::runtime_error("the publishes were not taken: " + answer);
        return {publishes / taken.count(), publishes / (processor_time() - processor_begin)};
    }

private:
    double processor_time() const {
        clockid_t clock{};
        timespec time{};
        if (clock_getcpuclockid(process_, &clock) != 0 || clock_gettime(clock, &time) != 0) fail("processor time");
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }
    /// Requests are handled in order: the answer to the last one tells that all are.
    std::string wait_until_done() const {
        queue_.send(request("get", "/version"));
        return component_.receive();
    }

    Queue queue_;
    Queue component_;
    pid_t process_ = -1;
};

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

/// One line of the result. @param counting, plain the same rates, round by round
void report(const char* what, const std::vector<double>& plain, const std::vector<double>& counting) {
    std::vector<double> ratios;
    for (size_t round = 0; round < plain.size(); ++round) ratios.push_back(counting[round] / plain[round]);
    std::printf("%-28s %8.0f without, %8.0f with -l, ratio of a round %.3f\n", what, median(plain), median(counting),
                median(ratios));
}

void measure(int rounds, int publishes) {
    // A row every second: far more often than in service.
    std::ofstream("/kivo/data/pushpull_stats.cfg") << "1\n";
    const Service plain("_plain", false);
    const Service counting("_counting", true);
    std::vector<double> rate[2];       // without and with statistics
    std::vector<double> processor[2];  // likewise
    for (int round = 0; round < rounds; ++round) {
        for (int turn = 0; turn < 2; ++turn) {
            // The one that comes first takes turns too.
            const int which = (round + turn) % 2;
            const Rates rates = (which == 0 ? plain : counting).rates(publishes);
            rate[which].push_back(rates.per_second);
            processor[which].push_back(rates.per_processor_second);
        }
    }
    std::printf("%d rounds of %d publishes each, medians\n", rounds, publishes);
    report("publishes/s", rate[0], rate[1]);
    report("publishes/s of the processor", processor[0], processor[1]);
}

int number(const char* text) { return static_cast<int>(std::clamp(strtol(text, nullptr, 10), 1L, 1000000L)); }

}  // namespace

int main(int argc, char** argv) {
    constexpr int kRounds = 101;
    constexpr int kPublishes = 2000;
    try {
        measure(argc > 1 ? number(argv[1]) : kRounds, argc > 2 ? number(argv[2]) : kPublishes);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "statistics_cost: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
