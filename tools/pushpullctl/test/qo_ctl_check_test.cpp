// What is said of a saved tree and of a defaults file.
#include "qo_ctl_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>

#include <filesystem>

#include "log_capture.h"
#include "qo_ctl_commands.h"
#include "qo_ctl_options.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_initializer.h"
#include "qo_pushpull_json.h"
#include "scratch_directory.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Verdict = QoCtlSavedFile::Verdict;

constexpr char kGood[] = "{\n\t\"crc\": \"945d5ec4\",\n\t\"a\": 1\n}";

/// A run of one of the commands.
struct CommandRun {
    CommandRun(const char* name, const std::string& file) {
        const char* words[] = {"pushpullctl", name, "--json", file.c_str()};
        const std::vector<std::unique_ptr<QoCtlCommand>> commands = qo_ctl_commands();
        int fault = 0;
        const std::optional<QoCtlOptions> options = qo_ctl_parse(4, words, commands, fault);
        QoCtlSignals signals;
        testing::internal::CaptureStdout();
        status = options.value().command->run(options->common, signals);
        output = testing::internal::GetCapturedStdout();
    }
    QoCtlStatus status;
    std::string output;
};

// ---- check-saved ----

class CheckSaved : public testing::Test {
protected:
    Verdict verdict_of(const std::string& text) {
        return qo_ctl_check_saved_file(scratch_.write("saved_tree.json", text)).verdict;
    }
    CommandRun check() { return CommandRun("check-saved", scratch_.file("saved_tree.json")); }

    QoScratchDirectory scratch_;
};

TEST_F(CheckSaved, SaysWhatAFileIs) {
    EXPECT_EQ(verdict_of(kGood), Verdict::good);
    EXPECT_EQ(verdict_of(R"({"a":1,"crc":"00945D5EC4"})"), Verdict::good);
    EXPECT_EQ(verdict_of(R"({"crc":"945d5ec4","a":2})"), Verdict::crc_mismatch);
    EXPECT_EQ(verdict_of(R"({"crc":"0x945d5ec4","a":1})"), Verdict::crc_mismatch);
    EXPECT_EQ(verdict_of(R"({"crc":"","a":1})"), Verdict::crc_mismatch);
    EXPECT_EQ(verdict_of(R"({"a":1})"), Verdict::no_crc);
    EXPECT_EQ(verdict_of("[1]"), Verdict::no_crc);
    EXPECT_EQ(verdict_of(""), Verdict::unparsable);
    EXPECT_EQ(verdict_of(std::string(100000, '[')), Verdict::unparsable);
    EXPECT_EQ(qo_ctl_check_saved_file(scratch_.file("none")).verdict, Verdict::missing);
    EXPECT_EQ(qo_ctl_check_saved_file(scratch_.path()).verdict, Verdict::missing);
}

TEST_F(CheckSaved, AGoodFileIsLoadedAndEndsWith0) {
    scratch_.write("saved_tree.json", kGood);
    const CommandRun run = this->check();
    EXPECT_EQ(run.status, QoCtlStatus::answered);
    EXPECT_THAT(run.output, AllOf(HasSubstr(R"("verdict":"good","crc":"945d5ec4","calculated":"945d5ec4")"),
                                  HasSubstr(R"("service":"loads it")")));
}

TEST_F(CheckSaved, ADamagedFileEndsWith1AndItsBackupIsLookedAt) {
    scratch_.write("saved_tree.json", "{");
    EXPECT_THAT(check().output, AllOf(HasSubstr(R"("service":"puts it aside as .bad and tries the backup")"),
                                      HasSubstr(R"("service":"starts with the defaults")")));
    scratch_.write("saved_tree.json.bak", R"({"a":1})");
    EXPECT_THAT(check().output, HasSubstr(R"("service":"discards it and starts with the defaults")"));
    scratch_.write("saved_tree.json.bak", kGood);
    const CommandRun run = this->check();
    EXPECT_EQ(run.status, QoCtlStatus::failed);
    EXPECT_THAT(run.output, HasSubstr(R"("service":"loads it")"));
}

TEST_F(CheckSaved, AMissingFileIsAWrongArgument) {
    EXPECT_EQ(check().status, QoCtlStatus::usage);
    EXPECT_EQ(CommandRun("check-defaults", scratch_.file("none")).status, QoCtlStatus::usage);
}

// ---- check-defaults ----

class CheckDefaults : public testing::Test {
protected:
    /// "pointer: mistake" for each.
    static std::vector<std::string> mistakes(const std::string& text) {
        const QoJsonNode tree = qo_json_parse(text);
        std::vector<std::string> found;
        for (const QoCtlMistake& mistake : qo_ctl_mistakes_in_defaults(tree.get()))
            found.push_back(mistake.pointer + ": " + mistake.text);
        return found;
    }

    /// Whether a real store drops what it saved when it starts again with these defaults.
    bool store_drops_saved_tree(const std::string& defaults) {
        scratch_.write("defaults.json", defaults);
        std::filesystem::remove(scratch_.file("saved_tree.json"));
        DataMgr first({scratch_.path(), scratch_.path()});
        EXPECT_EQ(first.Init(nullptr), 0);
        EXPECT_EQ(first.SaveDataTree(false), 0);
        first.Terminate();
        const QoLogCapture log;
        DataMgr second({scratch_.path(), scratch_.path()});
        EXPECT_EQ(second.Init(nullptr), 0);
        second.Terminate();
        return log.contains(LOG_CRIT,
                            "PushPull:*@#: Default and saved trees merge failed. Using default "
                            "tree as data tree");
    }

    QoScratchDirectory scratch_;
};

TEST_F(CheckDefaults, TheBuiltInTreeHasNoMistake) {
    std::string text;
    getDefaultTree(text);
    EXPECT_THAT(mistakes(text), IsEmpty());
}

TEST_F(CheckDefaults, AnArrayElementNeedsAnIdThatIsItsPosition) {
    EXPECT_THAT(mistakes(R"({"a":[{"id":0},{"b":1}]})"),
                ElementsAre("/a/1: has no \"id\": the saved tree is dropped at every start"));
    EXPECT_THAT(mistakes(R"({"a":{"b":[7]}})"),
                ElementsAre("/a/b/0: has no \"id\": the saved tree is dropped at every start"));
    for (const char* id : {"-1", "\"0\"", "null", "4294967296"}) {
        EXPECT_THAT(mistakes(R"({"a":[{"id":)" + std::string(id) + "}]}"),
                    ElementsAre("/a/0: has an \"id\" that is no position: the saved tree is dropped at every start"));
    }
    EXPECT_THAT(mistakes(R"({"a":[{"id":1}]})"),
                ElementsAre("/a/0: has \"id\" 1, which is not its position: it is merged into another element"));
}

TEST_F(CheckDefaults, ElementsBeyondMaxItemsAreMistakes) {
    EXPECT_THAT(mistakes(R"({"a":[{"id":0,"maxItems":1},{"id":1}]})"), IsEmpty());
    EXPECT_THAT(mistakes(R"({"a":[{"id":0,"maxItems":1},{"id":1},{"id":2}]})"),
                ElementsAre("/a/2: lies beyond \"maxItems\": the saved tree is dropped at every start"));
}

TEST_F(CheckDefaults, WhatIsSaidToDropTheSavedTreeDropsIt) {
    const char* defaults[] = {R"({"a":[{"id":0},{"id":1}]})",
                              R"({"a":[{"id":0},{"b":1}]})",
                              R"({"a":{"b":[7]}})",
                              R"({"a":[{"id":-1}]})",
                              R"({"a":[{"id":"0"}]})",
                              R"({"a":[{"id":0,"maxItems":1},{"id":1}]})",
                              R"({"a":[{"id":0,"maxItems":1},{"id":1},{"id":2}]})"};
    for (const char* text : defaults) {
        const std::vector<std::string> found = mistakes(text);
        const bool warned = !found.empty() && found.front().ends_with("dropped at every start");
        EXPECT_EQ(warned, store_drops_saved_tree(text)) << text;
    }
}

TEST_F(CheckDefaults, NamesStandOnceAndCanBeReached) {
    EXPECT_THAT(mistakes(R"({"a":{"b":1,"b":2}})"), ElementsAre("/a/b: stands twice; only the first is ever found"));
    EXPECT_THAT(mistakes(R"({"a/b":1,"":2,"c;d":3})"), testing::SizeIs(3));
}

TEST_F(CheckDefaults, TheRootIsAnObject) {
    for (const char* text : {"[]", "[{\"id\":0}]", "1", "null"})
        EXPECT_THAT(mistakes(text), testing::SizeIs(1)) << text;
}

TEST_F(CheckDefaults, EndsWith1ForMistakesAndTellsTheirNumber) {
    const CommandRun good("check-defaults", scratch_.write("good.json", "{}"));
    EXPECT_EQ(good.status, QoCtlStatus::answered);
    EXPECT_THAT(good.output, HasSubstr(R"("mistakes":0)"));
    const CommandRun bad("check-defaults", scratch_.write("bad.json", R"({"a":[1,2]})"));
    EXPECT_EQ(bad.status, QoCtlStatus::failed);
    EXPECT_THAT(bad.output, HasSubstr(R"("mistakes":2)"));
    const CommandRun unlike(
        "check-defaults",
        scratch_.write("unlike.json", R"({"versoin":{},"version":{"schemaVersion":1},"usb":[],"mine":1})"));
    EXPECT_EQ(unlike.status, QoCtlStatus::answered) << "a site may have what is not built in";
    EXPECT_THAT(
        unlike.output,
        AllOf(HasSubstr(R"({"pointer":"/versoin","warning":"is not in the built-in tree; did you mean \"version\"?"})"),
              HasSubstr(
                  R"({"pointer":"/version/schemaVersion","warning":"is a number; in the built-in tree it is a text"})"),
              HasSubstr(R"({"pointer":"/mine","warning":"is not in the built-in tree"})"),
              HasSubstr(R"("mistakes":0,"warnings":)")));
    const CommandRun deep("check-defaults", scratch_.write("deep.json", std::string(513, '[') + std::string(513, ']')));
    EXPECT_EQ(deep.status, QoCtlStatus::failed);
    EXPECT_THAT(deep.output, HasSubstr("nested deeper than 512 levels"));
}

}  // namespace
