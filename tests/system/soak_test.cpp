// The real service under mixed and hostile traffic for as long as wanted: components come, go and are killed, the tree
// is saved, read, cleared and reset, statistics are written and rotated, queues run full. In the end it must hold no
// more memory, descriptors, threads and queues than before.
//
// Without options a short run; tests/system/soak makes long ones.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>

#include "component.h"
#include "service_process.h"

namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

size_t run_for = 20;  // seconds
size_t seed = 1;

#ifdef QO_SANITIZED
constexpr bool kJudgesMemory = false;  // sanitizers keep what was freed
#else
constexpr bool kJudgesMemory = true;
#endif
constexpr size_t kMemoryTolerance = 1024;  // KiB, for what the allocator keeps; nothing else may grow at all
constexpr size_t kLargestMessage = 262144;
constexpr int kRequestsOfACycle = 120;
constexpr int kRequestsAtATime = 6;  // before the components read what they were told
constexpr int kCyclesToAReset = 10;
constexpr int kCyclesToAFullQueue = 7;
constexpr int kLeftBehind = 100;  // components, of the 128 that the registry has room for

constexpr int32_t kComponents[] = {QO_CMPID_DEMO, QO_CMPID_TESTPUBLISHER, QO_CMPID_SCHEDULER, 2000};
constexpr int32_t kSlow = 2001;
constexpr Component::Queue kQueue{60, 512};

/// What the service holds at one moment.
struct Holding {
    size_t memory = 0;  // KiB
    size_t descriptors = 0;
    size_t threads = 0;
    size_t queues = 0;
};

/// What it mostly held in a while: what is in use, or not, for a moment only does not count.
Holding median_of(const std::vector<Holding>& held, size_t begin, size_t end) {
    const auto median = [&](size_t Holding::*part) {
        std::vector<size_t> values;
        for (size_t i = begin; i < end; ++i) values.push_back(held.at(i).*part);
        std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
        return values[values.size() / 2];
    };
    return {median(&Holding::memory), median(&Holding::descriptors), median(&Holding::threads),
            median(&Holding::queues)};
}

bool has_grown(const Holding& first, const Holding& second) {
    return (kJudgesMemory && second.memory > first.memory + kMemoryTolerance) ||
           second.descriptors > first.descriptors || second.threads > first.threads || second.queues > first.queues;
}

std::vector<std::string> corpus(const std::string& name) {
    std::vector<std::string> texts;
    for (const auto& file : fs::directory_iterator(QO_FUZZ_CORPUS + name)) {
        std::ostringstream bytes;
        bytes << std::ifstream(file.path(), std::ios::binary).rdbuf();
        texts.push_back(bytes.str());
    }
    std::sort(texts.begin(), texts.end());
    return texts;
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '"' || character == '\\') result += '\\';
        result += character;
    }
    return result;
}

class Soak : public ServiceProcess {
protected:
    void SetUp() override {
        ServiceProcess::SetUp();
        if (IsSkipped()) return;
        std::ofstream("/kivo/data/pushpull_stats.cfg") << "1\n";
        service().add_to_environment(
            {"LD_PRELOAD=" QO_SHORT_DAYS, "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0"});
        ASSERT_TRUE(service().start_and_wait({"-l"}));
        requests_of_corpus_ = corpus("request");
        pointers_of_corpus_ = corpus("pointer");
        objects_of_corpus_ = corpus("checker");
        for (const int32_t comp_id : kComponents) components_.push_back(begin_component(comp_id));
    }
    void TearDown() override {
        components_.clear();
        ServiceProcess::TearDown();
    }

    size_t random_below(size_t bound) { return std::uniform_int_distribution<size_t>(0, bound - 1)(random_); }
    template <typename Container>
    const auto& one_of(const Container& choices) {
        return choices[random_below(std::size(choices))];
    }
    Component& anyone() { return *one_of(components_); }

    // ---- components that come and go ----

    std::unique_ptr<Component> begin_component(int32_t comp_id) {
        auto component = std::make_unique<Component>(service(), comp_id, kQueue, false);
        EXPECT_EQ(component->api().comp_register(component->id(), component->queue_name(), nullptr), 0);
        EXPECT_EQ(component->api().subscribe(component->id(), "/system;/version;/error", random_below(2) == 0), 0);
        return component;
    }
    // One ends orderly, another is killed.
    void restart_component() {
        std::unique_ptr<Component>& component = components_[random_below(components_.size())];
        const int32_t comp_id = component->id();
        if (random_below(2) == 0) EXPECT_EQ(component->api().comp_unregister(component->id()), 0);
        component.reset();
        component = begin_component(comp_id);
        ++restarts_;
    }
    void reset_service() {
        Component& asking = anyone();
        // A hostile request may have unregistered it.
        EXPECT_EQ(asking.api().comp_register(asking.id(), asking.queue_name(), nullptr), 0);
        EXPECT_EQ(asking.api().init_request(asking.id(), "true"), 0);
        // Requests that are sent before it is done are dropped.
        while (!HasFailure() && asking.next_message() != "pushpull init success") continue;
        for (std::unique_ptr<Component>& component : components_) {
            const int32_t comp_id = component->id();
            component.reset();
            component = begin_component(comp_id);
        }
        ++resets_;
    }
    void fill_a_queue() {
        Component slow(service(), kSlow, {1, 512});
        EXPECT_EQ(slow.api().subscribe(slow.id(), "/version", false), 0);
        for (int count = 0; count < 2; ++count) post_publish(R"({"version":{"schemaVersion":"full"}})");
        EXPECT_TRUE(service().wait_until_idle());
    }
    /// What a leak looks like to this campaign: a component that registers and is never heard of again.
    void leave_a_component_behind(int number) {
        Component left(service(), 3000 + number, {1, 64}, false);
        EXPECT_EQ(left.api().comp_register(left.id(), left.queue_name(), nullptr), 0);
        EXPECT_TRUE(service().wait_until_idle());
    }

    // ---- requests ----

    void post(const std::string& bytes) {
        if (bytes.size() > kLargestMessage) return;
        EXPECT_TRUE(service().post_bytes(bytes));
        ++requests_;
    }
    std::string request(const std::string& function, const std::string& buffer, const std::string& more = "") {
        return R"({"function":")" + function + R"(","arg":{"comp_id":)" + std::to_string(anyone().id()) +
               R"(,"buffer":")" + escaped(buffer) + "\"" + more + "}}" + '\0';
    }
    void post_publish(const std::string& json) { post(request("publish", json)); }
    // Of a bounded stock of names: a tree that grows would be no leak.
    std::string fragment() {
        const std::string value(random_below(200), 'v');
        const std::string number = std::to_string(random_below(40));
        switch (random_below(4)) {
            case 0:
                return R"({"version":{"schemaVersion":")" + value + "\"}}";
            case 1:
                return R"({"error":[{"id":)" + number + R"(,"code":)" + number + "}]}";
            case 2:
                return R"({"soak)" + number + R"(":{"text":")" + value + R"(","more":[{"id":0,"n":1}]}})";
            default:
                return R"({"system":{"config":{"name":")" + value + "\"}}}";
        }
    }
    std::string pointer() {
        constexpr const char* kPointers[] = {
            "/",           "/version", "/version/schemaVersion", "/system/config", "/error", "/error/3",
            "/error/size", "/soak7",   "/soak12/text",           "/none"};
        return random_below(5) == 0 ? one_of(pointers_of_corpus_) : one_of(kPointers);
    }
    void post_honest() {
        switch (random_below(8)) {
            case 0:
                return post(request("get", pointer()));
            case 1:
                return post(request("get", pointer() + ";" + pointer(), R"(,"pack_and_send":true,"sender_id":"s")"));
            case 2:
                return post(request("subscribe", pointer(), R"(,"notifyOnChangeOnly":true)"));
            case 3:
                return post(request("unsubscribe", pointer()));
            case 4:
                return post(request("clear", "/soak" + std::to_string(random_below(40))));
            case 5:
                return post(request("delete", "/soak" + std::to_string(random_below(40))));
            case 6:
                return post(request("sync", "text", R"(,"dst_comp_id":)" + std::to_string(anyone().id())));
            default:
                return post_publish(fragment());
        }
    }
    void post_hostile() {
        std::string bytes;
        switch (random_below(7)) {
            case 0:
                return post_publish(one_of(objects_of_corpus_));
            case 1:
                return post(std::string(random_below(kLargestMessage), '['));
            case 2:
                return post(request("get", std::string(random_below(20000), '/')));
            case 3:
                return post(request("publish", std::string(random_below(60000), '{')));
            case 4:
                return post(request("register", std::string(random_below(400), '/')));
            case 5:
                bytes = one_of(requests_of_corpus_);
                break;
            default:
                bytes = mutated(one_of(requests_of_corpus_));
        }
        // These end the service, make a restart of everybody necessary, or make queues that nobody reads.
        const auto names = [&bytes](const char* word) { return bytes.find(word) != std::string::npos; };
        if (!names("exit") && !names("init") && !names("register")) post(bytes);
    }
    // Not of a publish: each would bring a name that the tree does not know.
    std::string mutated(std::string bytes) {
        if (bytes.empty() || bytes.find("publish") != std::string::npos) return bytes;
        for (size_t count = 1 + random_below(4); count > 0; --count)
            bytes[random_below(bytes.size())] = static_cast<char>(random_below(256));
        return bytes;
    }

    // ---- one round of all that ----

    void run_cycle(int number) {
        for (int count = 1; count <= kRequestsOfACycle; ++count) {
            random_below(3) == 0 ? post_hostile() : post_honest();
            if (count % kRequestsAtATime == 0) let_components_read();
        }
        restart_component();
        post(request(random_below(2) == 0 ? "save" : "save_debug", ""));
        saves_ += 1;
        if (number % kCyclesToAFullQueue == kCyclesToAFullQueue - 1) fill_a_queue();
        register_everybody();
        let_components_read();
    }
    // A request that names no function repeats the one before, and so registers and unregisters others.
    void register_everybody() {
        EXPECT_EQ(anyone().api().comp_unregister(static_cast<eQO_CMP_IDs_>(kSlow)), 0);
        for (const std::unique_ptr<Component>& component : components_)
            EXPECT_EQ(component->api().comp_register(component->id(), component->queue_name(), nullptr), 0);
    }
    void let_components_read() {
        EXPECT_TRUE(service().wait_until_idle());
        for (const std::unique_ptr<Component>& component : components_) component->drain();
        events().clear_log();
    }
    Holding holding() {
        const auto queues = fs::directory_iterator("/dev/mqueue");
        return {service().resident_kib(), service().open_descriptors(), service().threads(),
                static_cast<size_t>(std::distance(begin(queues), end(queues)))};
    }
    static size_t rotations() {
        const auto files = fs::directory_iterator("/kivo/data/logs/ppstat");
        return static_cast<size_t>(
            std::count_if(begin(files), end(files), [](const auto& file) { return file.path().extension() == ".gz"; }));
    }

    /// Runs cycles and looks after each. The first quarter is the warm-up; of the rest the first half is compared with
    /// the second. @return whether it holds more in the second
    bool grows(bool leak) {
        std::vector<Holding> held;
        const auto start = steady_clock::now();
        const auto end = start + seconds(run_for);
        int left_behind = 0;
        for (int cycle = 0; steady_clock::now() < end && !HasFailure() && service().running(); ++cycle) {
            run_cycle(cycle);
            // Spread over the whole run: once the registry is full, nothing grows any more.
            if (leak && steady_clock::now() - start >= left_behind * milliseconds(seconds(run_for)) / kLeftBehind)
                leave_a_component_behind(left_behind++);
            else if (!leak && cycle % kCyclesToAReset == kCyclesToAReset - 1)
                reset_service();
            EXPECT_TRUE(service().wait_until_idle());
            held.push_back(holding());
        }
        if (held.size() < 8) {
            ADD_FAILURE() << "too short a run";
            return false;
        }
        const size_t warm = held.size() / 4;
        const size_t middle = warm + (held.size() - warm) / 2;
        const Holding first = median_of(held, warm, middle);
        const Holding second = median_of(held, middle, held.size());
        std::cout << requests_ << " requests, " << restarts_ << " restarts, " << saves_ << " saves, " << resets_
                  << " resets, " << rotations() << " rotations, memory " << first.memory << " -> " << second.memory
                  << " KiB, descriptors " << first.descriptors << " -> " << second.descriptors << ", threads "
                  << first.threads << " -> " << second.threads << ", queues " << first.queues << " -> " << second.queues
                  << std::endl;
        return has_grown(first, second);
    }

private:
    std::mt19937_64 random_{seed};
    std::vector<std::unique_ptr<Component>> components_;
    std::vector<std::string> requests_of_corpus_;
    std::vector<std::string> pointers_of_corpus_;
    std::vector<std::string> objects_of_corpus_;
    size_t requests_ = 0;
    size_t restarts_ = 0;
    size_t saves_ = 0;
    size_t resets_ = 0;
};

TEST_F(Soak, LeavesNothingBehind) {
    EXPECT_FALSE(grows(false));
    EXPECT_GT(rotations(), 0U);
    Component late(service(), kSlow, {2, 8192});
    EXPECT_NE(late.get("/version"), "");
}

// A campaign that does not see a leak need not run.
TEST_F(Soak, ControlSeesWhatIsLeftBehind) { EXPECT_TRUE(grows(true)); }

/// Takes "NAME=NUMBER" into `value`. @return whether the word is that
bool take_option(std::string_view word, std::string_view name, size_t& value) {
    if (!word.starts_with(name)) return false;
    word.remove_prefix(name.size());
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    return error == std::errc() && end == word.data() + word.size() && value > 0;
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        if (!take_option(argv[i], "--seconds=", run_for) && !take_option(argv[i], "--seed=", seed)) {
            std::cerr << "usage: " << argv[0] << " [--seconds=N] [--seed=N]\n";
            return 2;
        }
    }
    return RUN_ALL_TESTS();
}
