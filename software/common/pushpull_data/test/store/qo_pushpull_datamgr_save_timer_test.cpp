// When the tree is saved: the save timer on a clock that the test sets, without threads.
#include <errno.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "qo_pushpull_files.h"
#include "qo_pushpull_save_timer.h"
#include "qo_store_fixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

nanoseconds to_duration(const timespec& time) { return seconds(time.tv_sec) + nanoseconds(time.tv_nsec); }

/// POSIX timers on a clock of its own. They call back on the thread that lets the clock run.
class FakeTimers {
public:
    int create(clockid_t clock, const sigevent* notification, timer_t* timer) {
        if (refuse_create) {
            errno = EAGAIN;
            return -1;
        }
        EXPECT_EQ(clock, CLOCK_MONOTONIC);
        EXPECT_EQ(notification->sigev_notify, SIGEV_THREAD);
        auto created = std::make_unique<Timer>(Timer{*notification, nanoseconds::zero(), nanoseconds::zero()});
        *timer = created.get();
        timers_[*timer] = std::move(created);
        return 0;
    }

    int set(timer_t timer, int flags, const itimerspec* time) {
        if (refuse_set) {
            errno = EINVAL;
            return -1;
        }
        EXPECT_EQ(flags, 0);
        const nanoseconds after = to_duration(time->it_value);
        timers_.at(timer)->expires_at = after == nanoseconds::zero() ? after : now_ + after;
        timers_.at(timer)->interval = to_duration(time->it_interval);
        return 0;
    }

    int get(timer_t timer, itimerspec* time) {
        if (refuse_get) {
            errno = EINVAL;
            return -1;
        }
        const nanoseconds expires_at = timers_.at(timer)->expires_at;
        const nanoseconds left = expires_at == nanoseconds::zero() ? expires_at : expires_at - now_;
        *time = {};
        time->it_value.tv_sec = static_cast<time_t>(left.count() / 1000000000);
        time->it_value.tv_nsec = static_cast<long>(left.count() % 1000000000);
        return 0;
    }

    int remove(timer_t timer) {
        EXPECT_EQ(timers_.erase(timer), 1U);
        return 0;
    }

    /// Lets time pass; timers that expire meanwhile call back at their time.
    void pass(nanoseconds time) {
        const nanoseconds end = now_ + time;
        for (Timer* next = next_until(end); next != nullptr; next = next_until(end)) {
            now_ = next->expires_at;
            next->expires_at = next->interval == nanoseconds::zero() ? next->interval : now_ + next->interval;
            const sigevent notification = next->notification;
            if (!std::exchange(lose_next, false)) notification.sigev_notify_function(notification.sigev_value);
        }
        now_ = end;
    }

    size_t count() const { return timers_.size(); }
    /// From now; zero when none is armed.
    nanoseconds until_next() {
        const Timer* next = next_until(nanoseconds::max());
        return next == nullptr ? nanoseconds::zero() : next->expires_at - now_;
    }
    nanoseconds now() const { return now_; }

    bool refuse_create = false;
    bool refuse_set = false;
    bool refuse_get = false;
    bool lose_next = false;  // no thread is started at the next expiry, as without memory

private:
    struct Timer {
        sigevent notification;
        nanoseconds expires_at;  // zero while disarmed
        nanoseconds interval;    // to the next expiry; zero: there is none
    };

    Timer* next_until(nanoseconds end) const {
        Timer* next = nullptr;
        for (const auto& [id, timer] : timers_)
            if (timer->expires_at != nanoseconds::zero() && timer->expires_at <= end &&
                (next == nullptr || timer->expires_at < next->expires_at))
                next = timer.get();
        return next;
    }

    std::map<timer_t, std::unique_ptr<Timer>> timers_;
    nanoseconds now_ = seconds(1000);
};

FakeTimers* timers = nullptr;
/// Called while a save waits for the disk; true makes the disk refuse.
std::function<bool()> on_flush;

}  // namespace

extern "C" {
int __real_fsync(int descriptor);
int __wrap_timer_create(clockid_t clock, sigevent* notification, timer_t* timer) {
    return timers->create(clock, notification, timer);
}
int __wrap_timer_settime(timer_t timer, int flags, const itimerspec* time, itimerspec*) {
    return timers->set(timer, flags, time);
}
int __wrap_timer_gettime(timer_t timer, itimerspec* time) { return timers->get(timer, time); }
int __wrap_timer_delete(timer_t timer) { return timers->remove(timer); }
int __wrap_fsync(int descriptor) {
    if (on_flush && on_flush()) {
        errno = EIO;
        return -1;
    }
    return __real_fsync(descriptor);
}
}

namespace {

using ::testing::ElementsAre;

// ---- the rule ----

TEST(SaveTimerRule, WithoutATimerOneIsArmed) {
    EXPECT_EQ(next_save_timer_step(false, false, 0, {}), QoSaveTimerStep::arm);
    EXPECT_EQ(next_save_timer_step(false, true, 99, {}), QoSaveTimerStep::arm);
}

TEST(SaveTimerRule, APendingTimerIsExtendedSixTimesAndThenLeft) {
    for (int32_t times_asked = 1; times_asked <= 6; ++times_asked)
        EXPECT_EQ(next_save_timer_step(true, true, times_asked, {}), QoSaveTimerStep::extend);
    EXPECT_EQ(next_save_timer_step(true, true, 7, {}), QoSaveTimerStep::leave);
    EXPECT_EQ(next_save_timer_step(true, true, 1000000, {}), QoSaveTimerStep::leave);
}

TEST(SaveTimerRule, AnExpiredTimerIsSetGoingAgainHoweverOftenItWasExtended) {
    EXPECT_EQ(next_save_timer_step(true, false, 1, {}), QoSaveTimerStep::extend);
    EXPECT_EQ(next_save_timer_step(true, false, 7, {}), QoSaveTimerStep::extend);
}

// ---- the timer ----

class SaveTimer : public QoStoreTest {
protected:
    void SetUp() override {
        timers = &timers_;
        load(R"({"a":0,"t":{"doNotPersist":true,"x":0}})");
    }
    void TearDown() override {
        on_flush = nullptr;
        store_.reset();
        EXPECT_EQ(timers_.count(), 0U);
        timers = nullptr;
    }

    void change(int value) {
        ASSERT_EQ(publish(R"({"a":)" + std::to_string(value) + "}"), 0);
        EXPECT_TRUE(save_scheduled_);
    }

    /// The value that the saved file holds; -1 without a file.
    int64_t saved_value() const {
        const QoJsonNode file = qo_json_parse(scratch_.read(QO_SAVED_TREE_FILE));
        return file ? json_as_int(qo_json_find(file.get(), "a")) : -1;
    }

    FakeTimers timers_;
};

const QoLogLine kTimedSave = info_line("Saved the data tree");
const QoLogLine kOverridden = error_line("Save request overridden");
const QoLogLine kCreated = info_line("Timer to save the data tree created!");
const QoLogLine kRunning = debug_line("Timer is already running!");

TEST_F(SaveTimer, OneChangeIsSavedAfter5Seconds) {
    change(1);
    EXPECT_THAT(log_.lines(), ElementsAre(kCreated));
    timers_.pass(milliseconds(4999));
    EXPECT_EQ(saved_value(), -1);
    log_.clear();
    timers_.pass(milliseconds(1));
    EXPECT_EQ(saved_value(), 1);
    EXPECT_THAT(log_.lines(), ElementsAre(kTimedSave));
    EXPECT_EQ(timers_.count(), 0U);
}

TEST_F(SaveTimer, AnExpiryThatIsLostIsMadeUpForAMinuteLater) {
    change(1);
    timers_.lose_next = true;
    timers_.pass(seconds(5));
    EXPECT_EQ(saved_value(), -1);
    timers_.pass(milliseconds(59999));
    EXPECT_EQ(saved_value(), -1);
    timers_.pass(milliseconds(1));
    EXPECT_EQ(saved_value(), 1);
    EXPECT_EQ(timers_.count(), 0U);
}

TEST_F(SaveTimer, TwoQuickChangesAreSaved10SecondsAfterTheFirst) {
    change(1);
    change(2);
    EXPECT_EQ(timers_.until_next(), seconds(10));
    timers_.pass(seconds(10));
    EXPECT_EQ(saved_value(), 2);
}

TEST_F(SaveTimer, AnExtensionKeepsTheFractionOfTheRemainingSecond) {
    change(1);
    timers_.pass(milliseconds(1250));
    change(2);
    EXPECT_EQ(timers_.until_next(), milliseconds(8750));
}

TEST_F(SaveTimer, TenPublishesOneSecondApartSaveOnceAfter35Seconds) {
    const nanoseconds first = timers_.now();
    for (int value = 1; value <= 10; ++value) {
        change(value);
        timers_.pass(seconds(1));
    }
    EXPECT_EQ(saved_value(), -1);
    EXPECT_EQ(timers_.now() + timers_.until_next() - first, seconds(35));
    log_.clear();
    timers_.pass(timers_.until_next());
    EXPECT_EQ(saved_value(), 10);
    EXPECT_THAT(log_.lines(), ElementsAre(kTimedSave));
    timers_.pass(seconds(100));
    EXPECT_THAT(log_.lines(), ElementsAre(kTimedSave));
}

TEST_F(SaveTimer, AfterASaveLaterChangesGetANewTimer) {
    for (int value = 1; value <= 10; ++value) change(value);
    timers_.pass(seconds(35));
    ASSERT_EQ(saved_value(), 10);
    change(11);
    EXPECT_THAT(log_.lines(), ElementsAre(kCreated));
    change(12);
    EXPECT_EQ(timers_.until_next(), seconds(10));
    timers_.pass(seconds(10));
    EXPECT_EQ(saved_value(), 12);
}

TEST_F(SaveTimer, FromTheSeventhExtensionOnItIsLeftAlone) {
    for (int value = 1; value <= 7; ++value) {
        change(value);
        EXPECT_EQ(timers_.until_next(), seconds(5 * value));
    }
    for (int value = 8; value <= 20; ++value) {
        change(value);
        EXPECT_THAT(log_.lines(), ElementsAre(kRunning));
        EXPECT_EQ(timers_.until_next(), seconds(35));
    }
}

TEST_F(SaveTimer, ADeleteArmsItToo) {
    ASSERT_EQ(remove("/a"), 0);
    EXPECT_EQ(timers_.until_next(), seconds(5));
}

TEST_F(SaveTimer, ATransientChangeDoesNot) {
    ASSERT_EQ(publish(R"({"t":{"x":1}})"), 0);
    EXPECT_EQ(timers_.count(), 0U);
}

// ---- a forced save ----

TEST_F(SaveTimer, AForcedSaveWritesAtOnceAndCancelsTheTimer) {
    change(1);
    log_.clear();
    EXPECT_EQ(store_->SaveDataTree(false), 0);
    EXPECT_EQ(saved_value(), 1);
    EXPECT_EQ(timers_.count(), 0U);
    EXPECT_THAT(log_.lines(), ElementsAre(info_line("Forced Save"),
                                          info_line("Pending timer to save data is cancelled, if any"), kTimedSave));
    timers_.pass(seconds(100));
    EXPECT_FALSE(scratch_.has("saved_tree.json.bak")) << "written twice";
}

TEST_F(SaveTimer, ACallbackThatWasUnderWayThenFindsNoTimer) {
    change(1);
    EXPECT_EQ(store_->SaveDataTree(false), 0);
    log_.clear();
    sigval value{};
    value.sival_ptr = store_.get();
    DataMgr::TimerCallBack(value);
    EXPECT_THAT(log_.lines(), ElementsAre(kOverridden));
    EXPECT_FALSE(scratch_.has("saved_tree.json.bak")) << "written twice";
}

// ---- changes that land while the disk works ----

TEST_F(SaveTimer, AChangeThatLandsDuringASaveIsSavedByATimerOfItsOwn) {
    change(1);
    int flushes = 0;
    on_flush = [this, &flushes] {
        if (++flushes == 1) {
            change(2);
            EXPECT_THAT(log_.lines(), ElementsAre(kCreated));
        }
        return false;
    };
    timers_.pass(seconds(5));
    EXPECT_EQ(saved_value(), 1);
    EXPECT_EQ(timers_.count(), 1U);
    EXPECT_EQ(timers_.until_next(), seconds(5));
    timers_.pass(seconds(5));
    EXPECT_EQ(saved_value(), 2);
}

TEST_F(SaveTimer, AChangeThatLandsDuringASaveThatFailsKeepsOneTimerForBoth) {
    change(1);
    on_flush = [this] {
        on_flush = nullptr;
        change(2);
        return true;
    };
    timers_.pass(seconds(5));
    EXPECT_EQ(saved_value(), -1);
    EXPECT_EQ(timers_.count(), 1U);
    timers_.pass(seconds(5));
    EXPECT_EQ(saved_value(), 2);
}

// ---- saves that fail ----

TEST_F(SaveTimer, AFailedForcedSaveLeavesThePendingTimerAsItWas) {
    change(1);
    timers_.pass(seconds(2));
    on_flush = [] { return true; };
    EXPECT_EQ(store_->SaveDataTree(false), -1);
    on_flush = nullptr;
    EXPECT_EQ(timers_.until_next(), seconds(3));
    timers_.pass(seconds(3));
    EXPECT_EQ(saved_value(), 1);
}

const QoLogLine kNotWritten = error_line("Couldn't write file to save the data tree: Input/output error");

QoLogLine recovered_after(int attempts) {
    return info_line("Saving succeeds again after " + std::to_string(attempts) + " failed attempts");
}

class FailingTimedSave : public SaveTimer {
protected:
    /// The disk refuses, and the save of one change has failed.
    void SetUp() override {
        SaveTimer::SetUp();
        change(1);
        on_flush = [this] {
            ++refused_;
            return true;
        };
        log_.clear();
        timers_.pass(seconds(5));
        ASSERT_EQ(refused_, 1);
    }
    void let_the_disk_work() { on_flush = nullptr; }

    int refused_ = 0;
};

TEST_F(FailingTimedSave, IsTriedAgainEveryMinuteUntilItSucceeds) {
    for (int minute = 1; minute <= 10; ++minute) {
        EXPECT_EQ(timers_.until_next(), seconds(60));
        timers_.pass(milliseconds(59999));
        EXPECT_EQ(refused_, minute);
        timers_.pass(milliseconds(1));
        EXPECT_EQ(refused_, minute + 1);
    }
    let_the_disk_work();
    EXPECT_EQ(saved_value(), -1);
    timers_.pass(seconds(60));
    EXPECT_EQ(saved_value(), 1);
    EXPECT_EQ(timers_.count(), 0U);
}

TEST_F(FailingTimedSave, IsLoggedOnceAndOnceWhenItIsOver) {
    timers_.pass(std::chrono::hours(24));
    EXPECT_THAT(log_.lines(), ElementsAre(kNotWritten));
    let_the_disk_work();
    log_.clear();
    timers_.pass(seconds(60));
    EXPECT_THAT(log_.lines(), ElementsAre(kTimedSave, recovered_after(24 * 60 + 1)));
    change(2);
    log_.clear();
    timers_.pass(seconds(5));
    EXPECT_THAT(log_.lines(), ElementsAre(kTimedSave));
}

TEST_F(FailingTimedSave, IsLoggedAgainWhenTheDiskRefusesAgain) {
    let_the_disk_work();
    timers_.pass(seconds(60));
    change(2);
    on_flush = [] { return true; };
    log_.clear();
    timers_.pass(seconds(5));
    EXPECT_THAT(log_.lines(), ElementsAre(kNotWritten));
}

TEST_F(FailingTimedSave, IsBroughtForwardByTheNextChange) {
    timers_.pass(seconds(20));
    let_the_disk_work();
    change(2);
    EXPECT_EQ(timers_.until_next(), seconds(5));
    change(3);
    EXPECT_EQ(timers_.until_next(), seconds(10));
    timers_.pass(seconds(10));
    EXPECT_EQ(saved_value(), 3);
    EXPECT_EQ(timers_.count(), 0U);
}

TEST_F(FailingTimedSave, IsNotPutOffForEverByAnEndlessStreamOfChanges) {
    for (int value = 2; value <= 200; ++value) {
        change(value);
        timers_.pass(seconds(1));
    }
    EXPECT_GE(refused_, 5);
    let_the_disk_work();
    timers_.pass(seconds(60));
    EXPECT_EQ(saved_value(), 200);
}

TEST_F(FailingTimedSave, IsOverWithAForcedSaveThatSucceeds) {
    timers_.pass(seconds(20));
    let_the_disk_work();
    log_.clear();
    EXPECT_EQ(store_->SaveDataTree(false), 0);
    EXPECT_EQ(saved_value(), 1);
    EXPECT_EQ(timers_.count(), 0U);
    EXPECT_THAT(log_.lines(),
                ElementsAre(info_line("Forced Save"), info_line("Pending timer to save data is cancelled, if any"),
                            kTimedSave, recovered_after(1)));
    timers_.pass(seconds(100));
    EXPECT_FALSE(scratch_.has("saved_tree.json.bak")) << "written twice";
}

TEST_F(FailingTimedSave, WaitsOnWhenAForcedSaveFailsTooWhichIsLogged) {
    timers_.pass(seconds(20));
    log_.clear();
    EXPECT_EQ(store_->SaveDataTree(false), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(kNotWritten));
    EXPECT_EQ(timers_.until_next(), seconds(40));
    let_the_disk_work();
    change(2);
    EXPECT_EQ(timers_.until_next(), seconds(5)) << "it still waits for the next attempt";
    timers_.pass(seconds(5));
    EXPECT_EQ(saved_value(), 2);
}

TEST_F(FailingTimedSave, EndsWithTheStore) {
    EXPECT_EQ(store_->Terminate(), 0);
    EXPECT_EQ(timers_.count(), 0U);
}

TEST_F(SaveTimer, AShortageOfMemoryIsAFailedSave) {
    change(1);
    on_flush = []() -> bool { throw std::bad_alloc(); };
    log_.clear();
    timers_.pass(seconds(5));
    EXPECT_EQ(store_->SaveDataTree(false), -1);
    const QoLogLine line = error_line("Couldn't save the data tree: std::bad_alloc");
    EXPECT_THAT(log_.lines(), ElementsAre(line, line));
    on_flush = nullptr;
    timers_.pass(seconds(60));
    EXPECT_EQ(saved_value(), 1);
}

TEST_F(SaveTimer, ADirectoryThatIsAwayWhenTheTimerExpiresIsAFailedSave) {
    change(1);
    std::filesystem::rename(scratch_.path(), scratch_.path().substr(0, scratch_.path().size() - 1) + "_away");
    log_.clear();
    timers_.pass(seconds(5));
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Couldn't open file to save the data tree")));
    std::filesystem::rename(scratch_.path().substr(0, scratch_.path().size() - 1) + "_away", scratch_.path());
    timers_.pass(seconds(60));
    EXPECT_EQ(saved_value(), 1);
}

TEST_F(SaveTimer, ADiskThatRefusesForALongTimeDoesNotEndTheSavingForGood) {
    on_flush = [] { return true; };
    for (int value = 1; value <= 50; ++value) {
        change(value);
        timers_.pass(seconds(60));
    }
    on_flush = nullptr;
    change(51);
    timers_.pass(seconds(60));
    EXPECT_EQ(saved_value(), 51);
}

// ---- timers that the system refuses ----

TEST_F(SaveTimer, WithoutATimerThePublishStillSucceeds) {
    timers_.refuse_create = true;
    EXPECT_EQ(publish(R"({"a":1})"), 0);
    EXPECT_THAT(said_,
                ElementsAre(error_line("Cannot create timer!"), error_line("Timer creation to save tree failed")));
    timers_.refuse_create = false;
    change(2);
    EXPECT_EQ(timers_.until_next(), seconds(5));
}

TEST_F(SaveTimer, WithoutATimerTheDeleteStillSucceeds) {
    timers_.refuse_create = true;
    EXPECT_EQ(remove("/a"), 0);
    EXPECT_THAT(said_,
                ElementsAre(error_line("Cannot create timer!"), error_line("Timer creation to save tree failed")));
    EXPECT_EQ(read("/a"), "");
}

TEST_F(SaveTimer, ATimerThatCannotBeSetIsGivenBack) {
    timers_.refuse_set = true;
    EXPECT_EQ(store_->CreateTimerToSaveTree(), -1);
    EXPECT_TRUE(log_.contains(LOG_ERR, "PushPull:*@#: Cannot set time in the timer!"));
    EXPECT_EQ(timers_.count(), 0U);
    timers_.refuse_set = false;
    EXPECT_EQ(store_->CreateTimerToSaveTree(), 0);
    EXPECT_EQ(timers_.until_next(), seconds(5));
}

TEST_F(SaveTimer, AnExtensionThatFailsLeavesTheTimer) {
    change(1);
    log_.clear();
    timers_.refuse_set = true;
    EXPECT_EQ(store_->CreateTimerToSaveTree(), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Timer extended attempted but failed!")));
    timers_.refuse_set = false;
    EXPECT_EQ(timers_.until_next(), seconds(5));
}

TEST_F(SaveTimer, AnUnreadableRemainingTimeLeavesTheTimerSilently) {
    change(1);
    log_.clear();
    timers_.refuse_get = true;
    EXPECT_EQ(store_->CreateTimerToSaveTree(), 0);
    timers_.refuse_get = false;
    EXPECT_THAT(log_.lines(), ::testing::IsEmpty());
    EXPECT_EQ(timers_.until_next(), seconds(5));
}

// ---- the end of a store ----

TEST_F(SaveTimer, TerminateDeletesAPendingTimerWithoutSaving) {
    change(1);
    EXPECT_EQ(store_->Terminate(), 0);
    EXPECT_EQ(timers_.count(), 0U);
    timers_.pass(seconds(100));
    EXPECT_EQ(saved_value(), -1);
}

TEST_F(SaveTimer, CleanUpDeletesAPendingTimer) {
    change(1);
    EXPECT_EQ(store_->CleanUpTimerInfo(), 0);
    EXPECT_EQ(timers_.count(), 0U);
    EXPECT_EQ(store_->CleanUpTimerInfo(), 0);
}

TEST_F(SaveTimer, ACallbackForAStoreThatIsGoneDoesNothing) {
    sigval value{};
    value.sival_ptr = store_.get();
    store_.reset();
    log_.clear();
    DataMgr::TimerCallBack(value);
    EXPECT_THAT(log_.lines(), ::testing::IsEmpty());
}

TEST_F(SaveTimer, ACallbackWithoutAPointerIsLogged) {
    log_.clear();
    DataMgr::TimerCallBack({.sival_ptr = nullptr});
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Call back did not provide a pointer!")));
}

}  // namespace
