// Starts the real service on what power cuts left and says what it has. Runs in the namespaces of qo_isolated.
//
//   power_cut_judge <LIST     a line for each cut: its name, the directory with the content of /kivo/data ("-": there
//                             is nothing to start on), and the number of the last tree that was reported as saved
//                             before it
//
// Exit status 0 only when the service started on all of them and has the last reported tree, a later one, or the one
// before.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>

#include "component.h"
#include "power_cut_tree.h"
#include "service_process.h"

namespace {

namespace fs = std::filesystem;

constexpr char kDataDirectory[] = "/kivo/data";
constexpr char kNothing[] = "-";

struct Figures {
    size_t cuts = 0;
    size_t started = 0;
    size_t last = 0;
    size_t before = 0;
    size_t worse = 0;
};

struct Start {
    bool started = false;
    long number = -1;  // -1: no tree of the campaign
    bool mixture = false;
    std::string file;
};

void lay_out(const std::string& directory) {
    for (const auto& entry : fs::directory_iterator(kDataDirectory)) fs::remove_all(entry.path());
    if (fs::exists(directory)) fs::copy(directory, kDataDirectory, fs::copy_options::recursive);
}

/// Which file the tree comes from, by the service's own words.
std::string used_file(QoServiceProcess& service) {
    std::string log;
    for (const QoLogLine& line : service.events().log()) log += line.text + "\n";
    if (log.find("using default tree as data tree") != std::string::npos) return "default";
    if (log.find("Using default tree as data tree") != std::string::npos) return "default, merge failed";
    return log.find("Back up saved config found") != std::string::npos ? "backup" : "saved";
}

bool holds_name(const std::string& tree, long number) {
    return tree.find(R"("name": ")" + power_cut_name(number) + "\"") != std::string::npos;
}

Start start_on(QoServiceProcess& service, const std::string& directory) {
    Start result;
    if (directory == kNothing) return result;
    lay_out(directory);
    service.events().clear_log();
    result.started = static_cast<bool>(service.start_and_wait());
    if (result.started) {
        result.file = used_file(service);
        Component component(service, QO_CMPID_DEMO);
        result.number = power_cut_number(component.get("/version"));
        if (result.number >= 0) result.mixture = !holds_name(component.active_tree(), result.number);
    }
    service.send_signal(SIGKILL);
    service.wait_for_end();
    return result;
}

std::string verdict_on(const Start& start, long reported, Figures& figures) {
    ++figures.cuts;
    if (start.started) ++figures.started;
    if (start.started && !start.mixture && start.number >= reported) {
        ++figures.last;
        return "last";
    }
    if (start.started && !start.mixture && start.number >= 0 && start.number == reported - 1) {
        ++figures.before;
        return "before";
    }
    ++figures.worse;
    return start.mixture ? "WORSE: a mixture" : "WORSE";
}

}  // namespace

int main() {
    Figures figures;
    QoServiceProcess service;
    std::string name;
    std::string directory;
    long reported = 0;
    while (std::cin >> name >> directory >> reported) {
        const Start start = start_on(service, directory);
        const std::string verdict = verdict_on(start, reported, figures);
        std::cout << name << ": reported " << reported << ", "
                  << (start.started ? "has " + std::to_string(start.number) + ", file " + start.file : "did not start")
                  << ": " << verdict << std::endl;
    }
    std::cout << figures.cuts << " cuts, " << figures.started << " started, " << figures.last << " with the last save, "
              << figures.before << " with the one before, " << figures.worse << " worse" << std::endl;
    return figures.cuts > 0 && figures.started == figures.cuts && figures.worse == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
