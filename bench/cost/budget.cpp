// What each operation of the service and of its client library costs, in instructions, allocations and system calls,
// against its budget. To be run with qo_isolated; bench/budget does that.
//   cost_budget BUDGETS FOLDER [--update | --control] [OPERATION...]
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "budgets.h"
#include "client_library.h"
#include "operations.h"

namespace {

struct Options {
    std::string budgets;
    std::string folder;  // for what the tools write
    bool update = false;
    bool control = false;
    std::vector<std::string> operations;  // all when empty

    bool wants(const std::string& operation) const {
        return operations.empty() || std::find(operations.begin(), operations.end(), operation) != operations.end();
    }
};

struct Quantity {
    const char* name;
    int64_t QoCost::*count;
};
constexpr Quantity kInstructions{"instructions", &QoCost::instructions};
constexpr Quantity kAllocations{"allocations", &QoCost::allocations};
constexpr Quantity kSystemCalls{"system_calls", &QoCost::system_calls};

struct Counted {
    std::string operation;
    QoCost cost;
    std::vector<Quantity> quantities;  // that were counted
};

std::string make_folder(const std::string& path) {
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
    return path + "/";
}

// ---- counting ----

QoCost count(const QoOperation& operation, const QoCounter& counter) {
    QoCountedService service(counter);
    const std::unique_ptr<QoScene> scene = operation.scene(service);
    return service.cost_of(*scene, operation.plays);
}

Counted count(const QoOperation& operation, const std::string& folder) {
    const std::string own_folder = make_folder(folder + operation.name);
    QoCost cost = count(operation, QoCallgrind(own_folder));
    cost.system_calls = count(operation, QoStrace(own_folder)).system_calls;
    return {operation.name, cost, {kInstructions, kAllocations, kSystemCalls}};
}

struct ClientPublish {
    const char* name;
    size_t size;
};
constexpr ClientPublish kClientPublishes[] = {{"client_publish_small", 186}, {"client_publish_4k", 4096}};

Counted count(const ClientPublish& publish, const std::string& folder) {
    const QoCost cost = qo_cost_of_client_publish(publish.size, make_folder(folder + publish.name));
    return {publish.name, cost, {kInstructions, kAllocations}};
}

// ---- judging ----

const char* describe(QoVerdict verdict) {
    switch (verdict) {
        case QoVerdict::kGrew:
            return "GREW";
        case QoVerdict::kFell:
            return "fell";
        case QoVerdict::kKept:
            break;
    }
    return "";
}

// False when something grew, or has no budget.
bool judge(const Counted& counted, const QoBudgets& budgets) {
    bool kept = true;
    for (const Quantity& quantity : counted.quantities) {
        const int64_t number = counted.cost.*quantity.count;
        const std::optional<int64_t> budget = budgets.find(counted.operation, quantity.name);
        const QoVerdict verdict = budget ? qo_judge(*budget, number) : QoVerdict::kGrew;
        std::printf("%-26s%-14s%10lld  budget %10s  %s\n", counted.operation.c_str(), quantity.name,
                    static_cast<long long>(number), budget ? std::to_string(*budget).c_str() : "none",
                    describe(verdict));
        if (verdict == QoVerdict::kGrew) kept = false;
    }
    std::fflush(stdout);
    return kept;
}

// What has not moved keeps its number, so that a change of budgets shows what was changed.
void set_budgets(const Counted& counted, QoBudgets& budgets) {
    for (const Quantity& quantity : counted.quantities) {
        const int64_t number = counted.cost.*quantity.count;
        const std::optional<int64_t> budget = budgets.find(counted.operation, quantity.name);
        if (!budget || qo_judge(*budget, number) != QoVerdict::kKept)
            budgets.set(counted.operation, quantity.name, number);
    }
}

const QoOperation& operation_named(const std::string& name) {
    const std::vector<QoOperation>& all = qo_operations();
    const auto found = std::find_if(all.begin(), all.end(), [&](const QoOperation& one) { return one.name == name; });
    if (found == all.end()) throw std::runtime_error("no operation " + name);
    return *found;
}

// Whether a publish that tells fifteen more is found to cost more than one may that tells one.
int run_control(const Options& options) {
    Counted counted = count(operation_named("publish_small_to_16"), options.folder);
    counted.operation = "publish_small";
    return judge(counted, QoBudgets::read(options.budgets)) ? EXIT_FAILURE : EXIT_SUCCESS;
}

int run(const Options& options) {
    QoBudgets budgets = QoBudgets::read(options.budgets);
    bool kept = true;
    const auto take = [&](const Counted& counted) {
        if (!judge(counted, budgets)) kept = false;
        if (options.update) set_budgets(counted, budgets);
    };
    for (const QoOperation& operation : qo_operations())
        if (options.wants(operation.name)) take(count(operation, options.folder));
    for (const ClientPublish& publish : kClientPublishes)
        if (options.wants(publish.name)) take(count(publish, options.folder));
    if (options.update) budgets.write(options.budgets);
    return kept || options.update ? EXIT_SUCCESS : EXIT_FAILURE;
}

Options options_of(const std::vector<std::string>& arguments) {
    Options options;
    options.budgets = arguments.at(0);
    options.folder = arguments.at(1) + "/";
    for (size_t i = 2; i < arguments.size(); ++i)
        if (arguments[i] == "--update")
            options.update = true;
        else if (arguments[i] == "--control")
            options.control = true;
        else
            options.operations.push_back(arguments[i]);
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const Options options = options_of({argv + 1, argv + argc});
        return options.control ? run_control(options) : run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "cost_budget: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
