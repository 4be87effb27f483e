// Whether a publish costs more because of what stands beside it: instructions of one and the same publish, while the
// tree, the subscribers elsewhere, the object or the array that it writes into grow; and, to compare, while those grow
// that are told of it. To be run with qo_isolated; bench/growth does that.
//   cost_growth FOLDER [--chart FILE] [--only SERIES]...
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "operations.h"
#include "svg_chart.h"

namespace {

constexpr int kPlays = 20;
constexpr double kMostGrowth = 1.1;  // of what stands beside the publish
constexpr size_t kChunk = 100000;    // bytes of one publish that lets the tree grow
constexpr int kFirstBystander = 0x52000000;
// An array of the built-in tree that may have any number of elements.
constexpr char kArray[] = "error";

// ---- what stands beside the publish ----

/// Lets the tree grow by publishes of its own.
class Grower {
public:
    explicit Grower(QoCountedService& service)
        : service_(service), component_(service.process(), QO_CMPID_BASE_SIMULATOR, {1, 64}) {}

    /// Publishes this many members of the object at `head`, which opens it. @param value of each
    void add_members(const std::string& head, size_t count, const std::string& value) {
        const std::string tail(static_cast<size_t>(std::count(head.begin(), head.end(), '{')), '}');
        std::string members;
        for (size_t member = 0; member < count; ++member) {
            members.append(members.empty() ? "" : ",").append("\"member").append(std::to_string(1000000 + member));
            members.append("\":").append(value);
            if (members.size() < kChunk && member + 1 < count) continue;
            std::string body = head;
            publish(body.append(members).append(tail));
            members.clear();
        }
    }
    void publish(const std::string& body) {
        qo_require_sent(component_.api().publish(component_.id(), body));
        service_.settle();
        service_.require_accepted();
    }

private:
    QoCountedService& service_;
    Component component_;
};

/// A publish among components that subscribed to something else.
class AmongBystanders : public QoScene {
public:
    AmongBystanders(QoCountedService& service, int bystanders)
        : publishing_(service, QO_CMPID_TESTPUBLISHER, qo_small_body(), {}) {
        constexpr const char* kElsewhere[] = {"/devices", "/interfaces", "/fwm", "/rgw", "/siblings"};
        for (int i = 0; i < bystanders; ++i) {
            const char* pointer = kElsewhere[static_cast<size_t>(i) % std::size(kElsewhere)];
            bystanders_.push_back(service.make_subscriber(kFirstBystander + i, {1, 64}, pointer, false));
        }
    }
    void play(int turn) override { publishing_.play(turn); }

private:
    QoPublishing publishing_;
    std::vector<std::unique_ptr<Component>> bystanders_;
};

using Scene = std::unique_ptr<QoScene>;

Scene small_publish(QoCountedService& service, int subscribers) {
    return std::make_unique<QoPublishing>(service, QO_CMPID_TESTPUBLISHER, qo_small_body(),
                                          QoPublishing::Subscribers{.count = subscribers});
}

// Texts of 200 bytes, about as many as the tree has to have bytes.
Scene in_a_tree(QoCountedService& service, int kibibytes) {
    constexpr size_t kValue = 200;
    constexpr size_t kMember = kValue + sizeof(R"("member1000000":"",)") - 1;
    Grower(service).add_members(R"({"kivoLog":{)", static_cast<size_t>(kibibytes) * 1024 / kMember,
                                '"' + std::string(kValue, 'v') + '"');
    return small_publish(service, 1);
}

Scene into_an_object(QoCountedService& service, int members) {
    Grower(service).add_members(R"({"system":{"status":{)", static_cast<size_t>(members), "1");
    return small_publish(service, 1);
}

Scene of_members(QoCountedService& service, int size) {
    return std::make_unique<QoPublishing>(service, QO_CMPID_TESTPUBLISHER, qo_members_body(static_cast<size_t>(size)),
                                          QoPublishing::Subscribers{});
}

// Into its middle.
Scene into_an_array(QoCountedService& service, int elements) {
    const auto element = [](int id) {
        return R"({"error":[{"id":)" + std::to_string(id) + R"(,"code":10#,"message":"compressor # is hot"}]})";
    };
    Grower(service).publish(qo_with_turn(element(elements - 1), 0));
    return std::make_unique<QoPublishing>(service, QO_CMPID_TESTPUBLISHER, element(elements / 2),
                                          QoPublishing::Subscribers{.pointer = std::string("/") + kArray});
}

// ---- counting ----

struct Series {
    const char* name;
    const char* what;  // grows
    std::vector<int> amounts;
    Scene (*scene)(QoCountedService&, int amount);
    bool may_cost;  // the more the more
};

const Series kSeries[] = {
    {"tree", "a tree of so many KiB", {16, 1024, 16384}, in_a_tree, false},
    // With the publisher, its subscriber and the one that marks the parts of the count there are 128.
    {"bystanders",
     "so many subscribers elsewhere",
     {1, 16, 64, 125},
     [](QoCountedService& service, int count) -> Scene { return std::make_unique<AmongBystanders>(service, count); },
     false},
    {"object", "an object of so many members", {10, 1000, 10000, 100000}, into_an_object, false},
    {"array", "an array of so many elements", {10, 100, 1000, 10000}, into_an_array, false},
    {"told", "so many subscribers that are told", {1, 16, 64, 125}, small_publish, true},
    {"published", "so many bytes that are published", {256, 1024, 4096, 16384, 65536}, of_members, true},
};

int64_t instructions(const Series& series, int amount, const std::string& folder) {
    const std::string own_folder = folder + "/" + series.name + "-" + std::to_string(amount) + "/";
    std::filesystem::remove_all(own_folder);
    std::filesystem::create_directories(own_folder);
    const QoCallgrind counter(own_folder);
    QoCountedService service(counter);
    const Scene scene = series.scene(service, amount);
    return service.cost_of(*scene, kPlays).instructions;
}

bool grows(const QoLine& line) { return line.points.back().second > line.points.front().second * kMostGrowth; }

/// Prints a row for each amount as it is counted.
QoLine count(const Series& series, const std::string& folder) {
    QoLine line;
    for (const int amount : series.amounts) {
        const auto counted = static_cast<double>(instructions(series, amount, folder));
        line.points.emplace_back(amount, counted);
        std::printf("| %s | %d | %.0f | %.2f |\n", series.what, amount, counted, counted / line.points[0].second);
        std::fflush(stdout);
    }
    return line;
}

struct Options {
    std::string folder;             // for what callgrind writes
    std::string chart;              // file; empty for none
    std::vector<std::string> only;  // all when empty

    bool wants(const std::string& series) const {
        return only.empty() || std::find(only.begin(), only.end(), series) != only.end();
    }
};

void run(const Options& options) {
    std::printf("| the same publish with | | instructions | |\n|---|---:|---:|---:|\n");
    std::vector<QoLinePanel> panels;
    std::string grown;
    for (const Series& series : kSeries) {
        if (!options.wants(series.name)) continue;
        const QoLine line = count(series, options.folder);
        if (!series.may_cost && grows(line)) grown.append(" ").append(series.name);
        panels.push_back({std::string("instructions, ") + series.what, {line}});
    }
    if (!options.chart.empty()) std::ofstream(options.chart) << qo_line_chart(panels);
    if (!grown.empty()) throw std::runtime_error("a publish costs more because of what stands beside it:" + grown);
}

Options options_of(const std::vector<std::string>& arguments) {
    Options options;
    options.folder = arguments.at(0);
    for (size_t i = 1; i + 1 < arguments.size(); i += 2)
        if (arguments[i] == "--chart")
            options.chart = arguments[i + 1];
        else if (arguments[i] == "--only")
            options.only.push_back(arguments[i + 1]);
        else
            throw std::runtime_error("unknown option " + arguments[i]);
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        run(options_of({argv + 1, argv + argc}));
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "cost_growth: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
