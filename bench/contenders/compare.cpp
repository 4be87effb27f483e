// The service beside what would be used instead: each contender in turn, round after round. To be run with qo_isolated;
// bench/compare does that.
//   compare [--rounds N] [--quick] [--no-memory] [--chart FILE] [--only CONTENDER]...
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "log_reader.h"
#include "measures.h"
#include "svg_chart.h"
#include "tables.h"

namespace {

// Ours first: the others are compared with it.
const QoContenderKind kContenders[] = {
    {"service", qo_start_service},
    {"service, library", qo_start_service_with_library},
    {"relay, syslog", qo_start_logging_relay},
    {"bare relay", qo_start_relay},
    {"mosquitto", qo_start_mosquitto},
    {"mosquitto, TCP", qo_start_mosquitto_by_tcp},
    {"redis", qo_start_redis},
    {"redis, TCP", qo_start_redis_by_tcp},
    {"dbus-daemon", qo_start_dbus},
};
constexpr char kSteady[] = "bare relay";

struct Options {
    int rounds = 9;
    QoPlan plan;
    bool memory = true;
    std::string chart;              // file; empty for none
    std::vector<std::string> only;  // all when empty
};

std::vector<QoContenderKind> chosen(const Options& options) {
    std::vector<QoContenderKind> kinds;
    for (const QoContenderKind& kind : kContenders)
        if (options.only.empty() ||
            std::find(options.only.begin(), options.only.end(), kind.name) != options.only.end())
            kinds.push_back(kind);
    if (kinds.empty()) throw std::runtime_error("none of the contenders is called that");
    return kinds;
}

std::vector<std::string> names_of(const std::vector<QoContenderKind>& kinds) {
    std::vector<std::string> names;
    names.reserve(kinds.size());
    for (const QoContenderKind& kind : kinds) names.emplace_back(kind.name);
    return names;
}

/// Each contender once a round, another one first in each.
template <typename Measure>
void measure_rounds(const std::vector<QoContenderKind>& kinds, int rounds, const char* what, Measure measure) {
    for (int round = 0; round < rounds; ++round) {
        std::fprintf(stderr, "%s, round %d of %d\n", what, round + 1, rounds);
        for (size_t turn = 0; turn < kinds.size(); ++turn)
            measure(kinds[(turn + static_cast<size_t>(round)) % kinds.size()]);
    }
}

/// The rows that matter most.
std::string chart_of(const QoResults& results, const std::vector<std::string>& names) {
    std::vector<QoBarPanel> panels;
    for (const std::string& measure : {qo_told_row(200), qo_told_row(4096), qo_rate_row(200), qo_fan_out_row(32),
                                       std::string(kQoReadSubtreeRow), std::string(kQoMemoryRow)}) {
        const QoRow* row = results.find(measure);
        if (row == nullptr) continue;
        QoBarPanel panel{row->measure + ", " + row->unit, {}};
        for (const std::string& name : names)
            if (const auto values = row->values.find(name); values != row->values.end())
                panel.bars.push_back({name, qo_median(values->second), name == names.front()});
        panels.push_back(panel);
    }
    return qo_bar_chart(panels);
}

std::vector<double> steady_values(const QoResults& results) {
    const QoRow* row = results.find(qo_told_row(200));
    const auto values = row->values.find(kSteady);
    return values == row->values.end() ? std::vector<double>() : values->second;
}

void print(const char* title, const QoResults& results, const std::vector<std::string>& names) {
    std::printf("%s: medians, and half of how far the middle half of the rounds is apart\n\n%s\n", title,
                qo_table_of_medians(results, names).c_str());
    if (names.size() > 1)
        std::printf("%s: %s against each, medians of the ratios of the rounds\n\n%s\n", title, names[0].c_str(),
                    qo_table_of_ratios(results, names).c_str());
}

void run(const Options& options) {
    const std::vector<QoContenderKind> kinds = chosen(options);
    const std::vector<std::string> names = names_of(kinds);
    const std::vector<QoLeaf> leaves = qo_built_in_leaves();
    const double load = qo_machine_load();
    QoResults with_log;
    QoResults without_log;
    {
        const QoLogReader reader;
        measure_rounds(kinds, options.rounds, "with a log reader", [&](const QoContenderKind& kind) {
            qo_measure_publishes(kind, options.plan, with_log);
            qo_measure_others(kind, options.plan, leaves, with_log);
        });
        if (options.memory)
            measure_rounds(kinds, 1, "memory",
                           [&](const QoContenderKind& kind) { qo_measure_memory(kind, options.plan, with_log); });
    }
    measure_rounds(kinds, options.rounds, "without a log reader",
                   [&](const QoContenderKind& kind) { qo_measure_publishes(kind, options.plan, without_log); });
    print("With a log reader", with_log, names);
    print("Without a log reader", without_log, names);
    if (!options.chart.empty()) std::ofstream(options.chart) << chart_of(with_log, names);
    const std::string doubts = qo_doubts(load, std::thread::hardware_concurrency(), steady_values(with_log));
    if (!doubts.empty()) std::printf("THE MACHINE WAS TOO BUSY TO TELL: %srun it again.\n", doubts.c_str());
}

int number(const std::string& text) {
    return static_cast<int>(std::clamp(strtol(text.c_str(), nullptr, 10), 1L, 1000L));
}

Options options_of(const std::vector<std::string>& arguments) {
    Options options;
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        const auto value = [&] {
            if (argument + 1 == arguments.end()) throw std::runtime_error(*argument + " needs a value");
            return *++argument;
        };
        if (*argument == "--rounds")
            options.rounds = number(value());
        else if (*argument == "--quick")
            options.plan = {.publishes = 200, .fan_outs = 50, .reads = 50, .memory_publishes = 10000};
        else if (*argument == "--no-memory")
            options.memory = false;
        else if (*argument == "--chart")
            options.chart = value();
        else if (*argument == "--only")
            options.only.push_back(value());
        else
            throw std::runtime_error("unknown option " + *argument);
    }
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        run(options_of({argv + 1, argv + argc}));
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "compare: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
