// What two log lines of a publish cost: by the C library's syslog(3), by the service's sender with a format, and by it
// with ready text. To be run with qo_isolated, which gives it a /dev/log of its own:
//   build/release/bin/log_cost [ROUNDS]                         processor time, in turns
//   valgrind --tool=callgrind build/release/bin/log_cost WAY PUBLISHES     for the count of instructions
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "log_reader.h"
#include "qo_utilities_log.h"

namespace {

constexpr int kPublishes = 5000;  // of one way in one round

const std::string kBody(186, 'b');
const std::string kRequest = R"({"function":"publish","arg":{"comp_id":1073741852,"buffer":")" + kBody + R"("}})";
constexpr char kQueueList[] = "/subscriber;";

__attribute__((format(printf, 2, 3))) void write_line(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    qo_log().write(priority, format, arguments);
    va_end(arguments);
}

void log_with_library() {
    syslog(LOG_DEBUG, "PushPullData : mq_receive: retval: %d , msg: %s", static_cast<int>(kRequest.size()),
           kRequest.c_str());
    syslog(LOG_DEBUG, "mq_send success: msg size = %d, queue list = \"%s\"", static_cast<int>(kBody.size()),
           kQueueList);
}

void log_with_sender() {
    write_line(LOG_DEBUG, "PushPullData : mq_receive: retval: %d , msg: %s", static_cast<int>(kRequest.size()),
               kRequest.c_str());
    write_line(LOG_DEBUG, "mq_send success: msg size = %d, queue list = \"%s\"", static_cast<int>(kBody.size()),
               kQueueList);
}

iovec piece(std::string_view text) { return {const_cast<char*>(text.data()), text.size()}; }

void log_with_pieces() {
    const iovec received[] = {piece("PushPullData : mq_receive: retval: "), piece("256"), piece(" , msg: "),
                              piece(kRequest)};
    qo_log().write(LOG_DEBUG, received, std::size(received));
    const iovec sent[] = {piece("mq_send success: msg size = "), piece("186"), piece(", queue list = \""),
                          piece(kQueueList), piece("\"")};
    qo_log().write(LOG_DEBUG, sent, std::size(sent));
}

struct Way {
    const char* name;
    void (*log)();
};
constexpr Way kWays[] = {{"syslog", log_with_library}, {"sender", log_with_sender}, {"pieces", log_with_pieces}};

double processor_time() {
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void measure(int rounds) {
    std::vector<double> times[std::size(kWays)];
    for (int round = 0; round < rounds; ++round) {
        for (size_t turn = 0; turn < std::size(kWays); ++turn) {
            const size_t way = (turn + static_cast<size_t>(round)) % std::size(kWays);
            const double begin = processor_time();
            for (int publish = 0; publish < kPublishes; ++publish) kWays[way].log();
            times[way].push_back((processor_time() - begin) / kPublishes);
        }
    }
    for (size_t way = 0; way < std::size(kWays); ++way) {
        std::vector<double> ratios;
        for (size_t round = 0; round < times[way].size(); ++round)
            ratios.push_back(times[way][round] / times[0][round]);
        std::printf("%-8s %6.2f us of the processor for two lines, ratio of a round %.2f\n", kWays[way].name,
                    median(times[way]) * 1e6, median(ratios));
    }
}

int number(const char* text) { return static_cast<int>(std::clamp(strtol(text, nullptr, 10), 1L, 1000000L)); }

}  // namespace

int main(int argc, char** argv) {
    constexpr int kRounds = 31;
    try {
        const QoLogReader reader;
        openlog("PushPull", LOG_ODELAY, LOG_USER);
        qo_log().open("PushPull", LOG_ODELAY, LOG_USER);
        if (argc < 3) {
            measure(argc > 1 ? number(argv[1]) : kRounds);
            return EXIT_SUCCESS;
        }
        const int publishes = number(argv[2]);
        for (const Way& way : kWays) {
            if (strcmp(way.name, argv[1]) != 0) continue;
            for (int publish = 0; publish < publishes; ++publish) way.log();
        }
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "log_cost: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
