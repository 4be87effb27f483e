// Which lines of a request are written, and which are counted instead.
#include "qo_utilities_log_budget.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "log_capture.h"

namespace {

std::function<void()> in_comparison;  // once, in the middle of a look for a kind

}  // namespace

extern "C" {
int __real_strcmp(const char* left, const char* right);
int __wrap_strcmp(const char* left, const char* right);

int __wrap_strcmp(const char* left, const char* right) {
    if (in_comparison) std::exchange(in_comparison, nullptr)();
    return __real_strcmp(left, right);
}
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class LogBudget : public testing::Test {
protected:
    /// How many of so many lines of a kind may be logged.
    static int taken(int lines, int priority, const char* format) {
        int taken = 0;
        for (int line = 0; line < lines; ++line) taken += QoLogBudget::take(priority, format) ? 1 : 0;
        return taken;
    }

    QoLogCapture log_;
};

TEST_F(LogBudget, WithoutOneEveryLineMayBeLogged) { EXPECT_EQ(taken(5000, LOG_ERR, "x"), 5000); }

TEST_F(LogBudget, EachKindHasItsOwnLimitAndItsNumberIsLoggedAtTheEnd) {
    {
        const QoLogBudget budget;
        EXPECT_EQ(taken(1000, LOG_ERR, "just enough %s"), 1000);
        EXPECT_EQ(taken(1001, LOG_WARNING, "one more %d"), 1000);
        EXPECT_EQ(taken(130000, LOG_DEBUG, "many more %s%n"), 1000);
        EXPECT_EQ(taken(1, LOG_ERR, "just enough %s"), 0);
        EXPECT_THAT(log_.lines(), IsEmpty());
    }
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_ERR, "PushPull: 1 more lines of this request: just enough %s"},
                            QoLogLine{LOG_WARNING, "PushPull: 1 more lines of this request: one more %d"},
                            QoLogLine{LOG_DEBUG, "PushPull: 129000 more lines of this request: many more %s%n"}));
}

TEST_F(LogBudget, WithinItsLimitLogsNothing) {
    std::optional<QoLogBudget> budget(std::in_place, 2);
    taken(2, LOG_ERR, "x");
    budget.reset();
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(LogBudget, LongLinesOfAKindEndAtAMebibyte) {
    {
        const QoLogBudget budget;
        int allowed = 0;
        for (int line = 0; line < 1000; ++line) {
            if (!QoLogBudget::take(LOG_DEBUG, "long %s")) continue;
            ++allowed;
            QoLogBudget::spend("long %s", 130000);
        }
        EXPECT_EQ(allowed, 9);
        EXPECT_TRUE(QoLogBudget::take(LOG_DEBUG, "short"));
    }
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_DEBUG, "PushPull: 991 more lines of this request: long %s"}));
}

TEST_F(LogBudget, TheSameTextAtTwoPlacesIsOneKind) {
    const std::string here = "the text";
    const std::string there = "the text";
    const QoLogBudget budget(2);
    EXPECT_TRUE(QoLogBudget::take(LOG_ERR, here.c_str()));
    EXPECT_TRUE(QoLogBudget::take(LOG_ERR, there.c_str()));
    EXPECT_FALSE(QoLogBudget::take(LOG_ERR, here.c_str()));
}

TEST_F(LogBudget, AnInnerOneTakesOverForItsLife) {
    const QoLogBudget outer(2);
    EXPECT_EQ(taken(2, LOG_ERR, "x"), 2);
    {
        const QoLogBudget inner(2);
        EXPECT_EQ(taken(3, LOG_ERR, "x"), 2);
    }
    EXPECT_EQ(taken(1, LOG_ERR, "x"), 0);
}

TEST_F(LogBudget, OtherThreadsAreNotConcerned) {
    const QoLogBudget budget(2);
    int elsewhere = 0;
    std::thread([&] { elsewhere = taken(10, LOG_ERR, "x"); }).join();
    EXPECT_EQ(elsewhere, 10);
    EXPECT_EQ(taken(10, LOG_ERR, "x"), 2);
}

TEST_F(LogBudget, KindsBeyondItsTableShareOneLimit) {
    std::vector<std::string> formats;
    for (int kind = 0; kind < 200; ++kind) formats.push_back("kind " + std::to_string(kind));
    {
        const QoLogBudget budget(2);
        int all = 0;
        for (const std::string& format : formats) all += taken(2, LOG_ERR, format.c_str());
        EXPECT_EQ(all, 64 * 2);
    }
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "PushPull: 272 more lines of this request: kind 63"}));
}

TEST_F(LogBudget, ASignalHandlerThatInterruptsItLogsWithoutIt) {
    std::vector<std::string> formats;
    for (int kind = 0; kind < 100; ++kind) formats.push_back("of the handler " + std::to_string(kind));
    int allowed = 0;
    {
        const QoLogBudget budget(1);
        EXPECT_EQ(taken(1, LOG_ERR, "first"), 1);
        in_comparison = [&] {
            for (const std::string& format : formats) allowed += taken(2, LOG_ERR, format.c_str());
        };
        EXPECT_EQ(taken(2, LOG_ERR, "interrupted"), 1);
    }
    EXPECT_EQ(allowed, 200);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "PushPull: 1 more lines of this request: interrupted"}));
}

}  // namespace
