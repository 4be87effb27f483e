// A save reports life behind each of its steps that may take long.
#include <unistd.h>

#include <thread>

#include "log_capture.h"
#include "qo_pushpull_life.h"
#include "qo_store_fixture.h"

namespace {

std::vector<std::string> steps;

class LifeRecorder final : public QoLifeReporter {
public:
    LifeRecorder() { qo_life_reporter = this; }
    ~LifeRecorder() { qo_life_reporter = nullptr; }
    LifeRecorder(const LifeRecorder&) = delete;
    LifeRecorder& operator=(const LifeRecorder&) = delete;
    void report() noexcept override {
        if (steps.empty() || steps.back() != "life") steps.emplace_back("life");
    }
};

class SaveLife : public QoStoreTest {
protected:
    void SetUp() override {
        load(R"({"a":{"b":1}})");
        steps.clear();
    }

    /// What stood in no step that a sign of life followed.
    static std::vector<std::string> unreported() {
        std::vector<std::string> found;
        for (size_t step = 0; step < steps.size(); ++step) {
            if (steps[step] == "life") continue;
            if (step + 1 == steps.size() || steps[step + 1] != "life") found.push_back(steps[step]);
        }
        return found;
    }
};

}  // namespace

extern "C" {
int __real_fsync(int descriptor);
int __wrap_fsync(int descriptor);
ssize_t __real_write(int descriptor, const void* bytes, size_t size);
ssize_t __wrap_write(int descriptor, const void* bytes, size_t size);
void __wrap_sync();

int __wrap_fsync(int descriptor) {
    steps.emplace_back("fsync");
    return __real_fsync(descriptor);
}

ssize_t __wrap_write(int descriptor, const void* bytes, size_t size) {
    steps.emplace_back("write");
    return __real_write(descriptor, bytes, size);
}

void __wrap_sync() { steps.emplace_back("sync"); }
}

TEST_F(SaveLife, IsReportedBehindEveryStepOfAForcedSave) {
    for (const char* former : {"without", "with"}) {
        const LifeRecorder recorder;
        ASSERT_EQ(store_->SaveDataTree(false), 0);
        EXPECT_THAT(unreported(), testing::IsEmpty()) << former << " a former file";
        EXPECT_THAT(steps, testing::IsSupersetOf({"life", "write", "fsync", "sync"}));
        EXPECT_EQ(steps.front(), "life") << "the copy of the tree is made before";
    }
}

TEST_F(SaveLife, IsReportedBehindEveryStepOfADebugSave) {
    const LifeRecorder recorder;
    ASSERT_EQ(store_->SaveActiveTreeForDebug(), 0);
    EXPECT_THAT(unreported(), testing::IsEmpty());
    EXPECT_THAT(steps, testing::IsSupersetOf({"life", "write", "fsync", "sync"}));
}

TEST_F(SaveLife, IsNotReportedForTheMainThreadByAnother) {
    const LifeRecorder recorder;
    std::thread([this] { EXPECT_EQ(store_->SaveDataTree(false), 0); }).join();
    EXPECT_THAT(steps, testing::Not(testing::Contains("life")));
}
