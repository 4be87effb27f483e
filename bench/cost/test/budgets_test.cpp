// The file of budgets, and when a count has grown.
#include "budgets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scratch_directory.h"

namespace {

TEST(Verdict, MoreThanATwentiethAboveTheBudgetHasGrown) {
    EXPECT_EQ(qo_judge(100, 105), QoVerdict::kKept);
    EXPECT_EQ(qo_judge(100, 106), QoVerdict::kGrew);
    EXPECT_EQ(qo_judge(80000, 84000), QoVerdict::kKept);
    EXPECT_EQ(qo_judge(80000, 84001), QoVerdict::kGrew);
}

TEST(Verdict, MoreThanATwentiethBelowTheBudgetHasFallen) {
    EXPECT_EQ(qo_judge(100, 95), QoVerdict::kKept);
    EXPECT_EQ(qo_judge(100, 94), QoVerdict::kFell);
}

TEST(Verdict, OneMoreThanAFewHasGrown) {
    EXPECT_EQ(qo_judge(6, 7), QoVerdict::kGrew);
    EXPECT_EQ(qo_judge(0, 1), QoVerdict::kGrew);
    EXPECT_EQ(qo_judge(0, 0), QoVerdict::kKept);
}

constexpr char kFile[] =
    "# a comment\n"
    "\n"
    "publish                   instructions       81104  parsed twice, merged\n"
    "publish                   system_calls           6  \n";

TEST(Budgets, AreFoundByOperationAndQuantity) {
    const QoScratchDirectory scratch;
    const QoBudgets budgets = QoBudgets::read(scratch.write("budgets", kFile));
    EXPECT_EQ(budgets.find("publish", "instructions"), 81104);
    EXPECT_EQ(budgets.find("publish", "system_calls"), 6);
    EXPECT_EQ(budgets.find("publish", "allocations"), std::nullopt);
    EXPECT_EQ(budgets.find("get", "instructions"), std::nullopt);
}

TEST(Budgets, AreWrittenAsTheyWereRead) {
    const QoScratchDirectory scratch;
    QoBudgets::read(scratch.write("budgets", kFile)).write(scratch.file("written"));
    EXPECT_EQ(scratch.read("written"), kFile);
}

TEST(Budgets, KeepTheirReasonWhenTheirNumberChanges) {
    const QoScratchDirectory scratch;
    QoBudgets budgets = QoBudgets::read(scratch.write("budgets", kFile));
    budgets.set("publish", "instructions", 16000);
    budgets.write(scratch.file("written"));
    EXPECT_THAT(scratch.read("written"), testing::HasSubstr(" 16000  parsed twice, merged\n"));
}

TEST(Budgets, AskForTheReasonOfANewOne) {
    const QoScratchDirectory scratch;
    QoBudgets budgets = QoBudgets::read(scratch.write("budgets", kFile));
    budgets.set("get", "instructions", 5);
    budgets.write(scratch.file("written"));
    EXPECT_THAT(scratch.read("written"), testing::EndsWith(" 5  say why\n"));
}

TEST(Budgets, RefuseALineThatIsNone) {
    const QoScratchDirectory scratch;
    EXPECT_THROW(QoBudgets::read(scratch.write("budgets", "publish instructions many\n")), std::runtime_error);
    EXPECT_THROW(QoBudgets::read(scratch.file("missing")), std::runtime_error);
}

}  // namespace
