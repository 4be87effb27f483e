// The store from its start on empty or damaged files to its end.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "qo_pushpull_files.h"
#include "qo_store_fixture.h"

namespace {
bool refuse_mutex = false;
}  // namespace

extern "C" {
int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    return refuse_mutex ? ENOMEM : __real_pthread_mutex_init(mutex, attributes);
}
}

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kDefaults[] = R"({"a":{"x":1},"zones":[{"id":0}]})";

sigval pointing_to(DataMgr* store) {
    sigval value{};
    value.sival_ptr = store;
    return value;
}

using DataMgrLife = QoStoreTest;

TEST_F(DataMgrLife, InitBuildsAllTreesFromTheDefaultTree) {
    load(kDefaults);
    EXPECT_EQ(tree(), kDefaults);
    EXPECT_EQ(subscription_tree(), R"({"a":{},"zones":{}})");
}

TEST_F(DataMgrLife, InitLogsItsStepsInOrder) {
    scratch_.write(QO_DEFAULTS_FILE, kDefaults);
    DataMgr store({scratch_.path(), scratch_.path()});
    log_.clear();
    EXPECT_EQ(store.Init(nullptr), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(info_line("Default tree created"), info_line("No saved configuration found"),
                                          info_line("No back up configuration found"),
                                          info_line("No saved configuration, using default tree as data tree")));
}

TEST_F(DataMgrLife, InitMergesTheSavedTreeWithTheDefaultTree) {
    load(R"({"a":{"x":1},"gone":{"y":1}})");
    ASSERT_EQ(publish(R"({"a":{"x":2}})"), 0);
    ASSERT_EQ(store_->SaveDataTree(false), 0);
    scratch_.write(QO_DEFAULTS_FILE, R"({"a":{"x":1,"z":3},"zones":[{"id":0}]})");
    start();
    EXPECT_EQ(tree(), R"({"a":{"x":2,"z":3},"gone":{"y":1},"zones":[{"id":0}]})");
    EXPECT_EQ(subscription_tree(), R"({"a":{},"zones":{}})");
}

TEST_F(DataMgrLife, InitFailsWithoutAMutex) {
    scratch_.write(QO_DEFAULTS_FILE, kDefaults);
    DataMgr store({scratch_.path(), scratch_.path()});
    refuse_mutex = true;
    EXPECT_EQ(store.Init(nullptr), -1);
    refuse_mutex = false;
    EXPECT_EQ(log_.lines().back(), (QoLogLine{LOG_CRIT, "PushPull:*@#: Mutex cannot be created"}));
    EXPECT_EQ(log_.lines().back().operation, "Init");
}

// Deliberate: the store has no loop of its own.
TEST_F(DataMgrLife, ExecuteAlwaysReturnsMinusOne) {
    DataMgr store({scratch_.path(), scratch_.path()});
    EXPECT_EQ(store.Execute(), -1);
    load(kDefaults);
    EXPECT_EQ(store_->Execute(), -1);
}

TEST_F(DataMgrLife, TerminateFreesTheTrees) {
    load(kDefaults);
    EXPECT_EQ(store_->Terminate(), 0);
    log_.clear();
    store_->PrintDataTree();
    store_->PrintSubscriptionTree();
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_EQ(publish("{}"), -1);
}

TEST_F(DataMgrLife, TerminatingTwiceIsHarmless) {
    load(kDefaults);
    EXPECT_EQ(store_->Terminate(), 0);
    EXPECT_EQ(store_->Terminate(), 0);
}

TEST_F(DataMgrLife, AStoreThatWasNeverInitialisedIsDestroyed) {
    DataMgr store({scratch_.path(), scratch_.path()});
    EXPECT_EQ(store.Terminate(), 0);
}

TEST_F(DataMgrLife, TerminateCancelsAPendingSaveWithoutSaving) {
    load(kDefaults);
    ASSERT_EQ(publish(R"({"a":{"x":2}})"), 0);
    EXPECT_EQ(store_->Terminate(), 0);
    EXPECT_FALSE(scratch_.has(QO_SAVED_TREE_FILE));
}

TEST_F(DataMgrLife, TheLogLevelOfThePrintersIsDebug) {
    load(kDefaults);
    store_->PrintDataTree();
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_DEBUG, qo_json_write_formatted(qo_json_parse(kDefaults).get())}));
}

// ---- the save timer's thread ----

TEST_F(DataMgrLife, ACallbackForAStoreThatIsGoneDoesNothing) {
    load(kDefaults);
    ASSERT_EQ(publish(R"({"a":{"x":2}})"), 0);
    DataMgr* const gone = store_.get();
    store_.reset();
    log_.clear();
    DataMgr::TimerCallBack(pointing_to(gone));
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_FALSE(scratch_.has(QO_SAVED_TREE_FILE));
}

TEST_F(DataMgrLife, ACallbackThatOutlivedItsTimerIsOverridden) {
    load(kDefaults);
    log_.clear();
    DataMgr::TimerCallBack(pointing_to(store_.get()));
    EXPECT_THAT(log_.lines(), Contains(error_line("Save request overridden")));
    EXPECT_FALSE(scratch_.has(QO_SAVED_TREE_FILE));
}

TEST_F(DataMgrLife, CallbacksMayMeetTheEndOfTheStore) {
    for (int round = 0; round < 20; ++round) {
        load(kDefaults);
        ASSERT_EQ(publish(R"({"a":{"x":2}})"), 0);
        std::atomic<bool> is_running = false;
        DataMgr* const store = store_.get();
        std::thread timer([store, &is_running] {
            is_running = true;
            is_running.notify_one();
            DataMgr::TimerCallBack(pointing_to(store));
        });
        is_running.wait(false);
        store_.reset();
        timer.join();
        if (scratch_.has(QO_SAVED_TREE_FILE))
            EXPECT_THAT(scratch_.read(QO_SAVED_TREE_FILE), ::testing::HasSubstr(R"("x": 2)"));
    }
}

TEST_F(DataMgrLife, SavesMayMeetPublishesReadsAndClears) {
    load(R"({"a":{"x":1},"zones":[{"id":0,"t":1},{"id":1,"t":1}]})");
    std::atomic<bool> is_done = false;
    std::thread saver([this, &is_done] {
        do {
            EXPECT_EQ(store_->SaveDataTree(false), 0);
        } while (!is_done);
    });
    for (int i = 0; i < 200; ++i) {
        const std::string number = std::to_string(i);
        EXPECT_EQ(
            publish(R"({"a":{"x":)" + number + R"(,"m)" + number + R"(":{"y":1}},"zones":[{"id":)" + number + "}]}"),
            0);
        EXPECT_NE(read("/a/m" + number), "");
        EXPECT_EQ(clear("/zones"), 0);
        EXPECT_EQ(remove("/a/m" + number), 0);
    }
    is_done = true;
    saver.join();
    const QoJsonNode saved = qo_json_parse(scratch_.read(QO_SAVED_TREE_FILE));
    EXPECT_NE(qo_json_find(saved.get(), "crc"), nullptr);
}

}  // namespace
