// What the command line means, and what is said of a wrong one.
#include "qo_ctl_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scratch_directory.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// One command line: what it means, or how it ends and what it says.
struct Parsed {
    explicit Parsed(std::vector<std::string> arguments) {
        std::vector<const char*> words{"pushpullctl"};
        for (const std::string& argument : arguments) words.push_back(argument.c_str());
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        options = qo_ctl_parse(static_cast<int>(words.size()), words.data(), status);
        output = testing::internal::GetCapturedStdout();
        messages = testing::internal::GetCapturedStderr();
    }

    std::optional<QoCtlOptions> options;
    int status = -1;
    std::string output;
    std::string messages;
};

std::string text_of(const std::vector<std::string>& arguments) {
    std::string text;
    for (const std::string& argument : arguments) text += " " + argument;
    return text;
}

// ---- what is wrong ----

class WrongUsage : public testing::TestWithParam<std::vector<std::string>> {};

TEST_P(WrongUsage, EndsWith2AndAWordOnStderrOnly) {
    const Parsed parsed(GetParam());
    EXPECT_FALSE(parsed.options) << text_of(GetParam());
    EXPECT_EQ(parsed.status, 2) << text_of(GetParam());
    EXPECT_EQ(parsed.output, "");
    EXPECT_THAT(parsed.messages, testing::StartsWith("pushpullctl: "));
    EXPECT_THAT(parsed.messages, HasSubstr("--help"));
}

using Words = std::vector<std::string>;
INSTANTIATE_TEST_SUITE_P(
    CommandLines, WrongUsage,
    testing::Values(
        Words{}, Words{"frobnicate"}, Words{"--as", "DEMO"}, Words{"get"}, Words{"get", "--frobnicate", "/a"},
        Words{"get", "system"}, Words{"get", ""}, Words{"get", "/"}, Words{"get", "//"}, Words{"get", "/a;/b"},
        Words{"get", "/\xff"}, Words{"get", "--pack", "--size", "/a"}, Words{"get", "--size", "/logs/sizer"},
        Words{"get", "--as", "NOBODY", "/a"}, Words{"get", "--as", "0", "/a"}, Words{"get", "--as", "PUSHPULL", "/a"},
        Words{"get", "--as", "", "/a"}, Words{"get", "--timeout", "0", "/a"}, Words{"get", "--timeout", "-1", "/a"},
        Words{"get", "--timeout", "soon", "/a"}, Words{"get", "--timeout", "nan", "/a"},
        Words{"get", "--timeout", "1e9", "/a"}, Words{"get", "--message-size", "511", "/a"},
        Words{"get", "--message-size", "262145", "/a"}, Words{"get", "--color", "blue", "/a"},
        Words{"get", "--instance", "a/b", "/a"}, Words{"get", "--instance", std::string(201, 'a'), "/a"},
        Words{"publish"}, Words{"publish", "{"}, Words{"publish", "5"}, Words{"publish", "[1]"}, Words{"publish", ""},
        Words{"publish", "{}", "--file", "x"}, Words{"publish", "--file", "/nonexistent"},
        Words{"publish", "--file", "/"}, Words{"publish", "--file", "/dev/zero"}, Words{"publish", "{}", "{}"},
        Words{"subscribe"}, Words{"subscribe", "--count", "0", "/a"}, Words{"subscribe", "--count", "-1", "/a"},
        Words{"subscribe", "a"}, Words{"delete"}, Words{"delete", "/"}, Words{"delete", "/a", "/b"},
        Words{"delete", "a"}, Words{"clear", "/"}, Words{"clear", ""}, Words{"sync", "SCHEDULER"},
        Words{"sync", "NOBODY", "x"}, Words{"sync", "SCHEDULER", "\xff"}, Words{"init"}, Words{"exit"},
        Words{"save", "now"}, Words{"tree", "/a"}, Words{"get", "/a", "save"}));

TEST(WrongUsageText, SaysWhatIsWrong) {
    EXPECT_THAT(Parsed({"get", "--as", "NOBODY", "/a"}).messages, HasSubstr("\"NOBODY\" is no component"));
    EXPECT_THAT(Parsed({}).messages, HasSubstr("a command is missing"));
    EXPECT_THAT(Parsed({"--as", "DEMO"}).messages, HasSubstr("a command is missing"));
    EXPECT_THAT(Parsed({"frobnicate", "/a"}).messages, HasSubstr("\"frobnicate\" is no command"));
    EXPECT_THAT(Parsed({"--frobnicate"}).messages, HasSubstr("\"--frobnicate\" is no option"));
    EXPECT_THAT(Parsed({"--timeout"}).messages, HasSubstr("--timeout: 1 required SECONDS missing"));
    for (const char* time : {"soon", "0", "nan", "3601"}) {
        EXPECT_THAT(Parsed({"--timeout", time, "save"}).messages,
                    HasSubstr("--timeout: \"" + std::string(time) + "\" is no number of seconds from 0.001 to 3600"));
    }
    EXPECT_THAT(Parsed({"init"}).messages, HasSubstr("say --yes to do it"));
    EXPECT_THAT(Parsed({"get", "/"}).messages, HasSubstr("pushpullctl tree"));
    EXPECT_THAT(Parsed({"publish", "--file", "/nonexistent"}).messages, HasSubstr("No such file or directory"));
    EXPECT_THAT(Parsed({"get", "--frobnicate", "/a"}).messages, HasSubstr("Try: pushpullctl get --help"));
}

// ---- help ----

class Help : public testing::TestWithParam<const char*> {};

TEST_P(Help, OfEveryCommandEndsWith0AndHasAnExampleOfIt) {
    const Parsed parsed({GetParam(), "--help"});
    EXPECT_FALSE(parsed.options);
    EXPECT_EQ(parsed.status, 0);
    EXPECT_EQ(parsed.messages, "");
    EXPECT_THAT(parsed.output, HasSubstr(std::string("Example:\n  pushpullctl ") + GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Commands, Help,
                         testing::Values("get", "publish", "subscribe", "delete", "clear", "dump", "sync", "init",
                                         "tree", "components", "queues", "save"));

TEST(HelpText, OfTheProgramTellsCommandsAndExitStatuses) {
    const Parsed parsed({"--help"});
    EXPECT_EQ(parsed.status, 0);
    EXPECT_THAT(parsed.output, HasSubstr("subscribe"));
    EXPECT_THAT(parsed.output, HasSubstr("4 no answer in time"));
}

TEST(HelpText, OfExitShowsHowToSaveFirst) {
    EXPECT_THAT(Parsed({"exit", "--help"}).output, HasSubstr("pushpullctl save && pushpullctl exit --yes"));
}

TEST(VersionOption, PrintsOneLine) {
    const Parsed parsed({"--version"});
    EXPECT_EQ(parsed.status, 0);
    EXPECT_EQ(parsed.output, "pushpullctl 0.1\n");
}

// ---- what is right ----

TEST(CommandLine, DefaultsAreThoseOfTheManual) {
    const Parsed parsed({"get", "/a", "/b"});
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->command, QoCtlCommand::get);
    EXPECT_THAT(parsed.options->pointers, ElementsAre("/a", "/b"));
    EXPECT_EQ(parsed.options->identity, QO_CMPID_RESERVED);
    EXPECT_EQ(parsed.options->timeout, std::chrono::seconds(5));
    EXPECT_EQ(parsed.options->message_size, 0);
    EXPECT_EQ(parsed.options->instance, "");
    EXPECT_EQ(parsed.options->color, QoCtlColor::automatic);
}

TEST(CommandLine, CommonOptionsStandBeforeOrBehindTheCommand) {
    for (const Words& words : {Words{"--as", "demo", "--timeout", "0.25", "--instance", "-2", "--json", "get", "/a"},
                               Words{"get", "/a", "--as", "demo", "--timeout=0.25", "--instance=-2", "--json"}}) {
        const Parsed parsed(words);
        ASSERT_TRUE(parsed.options) << parsed.messages;
        EXPECT_EQ(parsed.options->identity, QO_CMPID_DEMO);
        EXPECT_EQ(parsed.options->timeout, std::chrono::milliseconds(250));
        EXPECT_EQ(parsed.options->instance, "-2");
        EXPECT_TRUE(parsed.options->json_lines);
    }
}

TEST(CommandLine, ThePublishedTextIsTakenAsItIsGiven) {
    const std::string text = "{\"a\": 1.50}\n";
    const QoScratchDirectory scratch;
    const std::string file = scratch.write("change.json", text);
    EXPECT_EQ(Parsed({"publish", text}).options->text, text);
    EXPECT_EQ(Parsed({"publish", "--file", file}).options->text, text);
}

TEST(CommandLine, ATextToForwardMayBeginWithADashBehindADoubleDash) {
    const Parsed parsed({"sync", "SCHEDULER", "--", "--reload"});
    ASSERT_TRUE(parsed.options) << parsed.messages;
    EXPECT_EQ(parsed.options->text, "--reload");
    EXPECT_EQ(parsed.options->destination, QO_CMPID_SCHEDULER);
}

TEST(CommandLine, TheWholeTreeCanBeFollowed) {
    const Parsed parsed({"subscribe", "/", "--changes", "--count", "3"});
    ASSERT_TRUE(parsed.options);
    EXPECT_TRUE(parsed.options->on_change_only);
    EXPECT_EQ(parsed.options->count, 3U);
}

TEST(CommandLine, AConfirmedResetIsTaken) {
    EXPECT_EQ(Parsed({"init", "--yes"}).options->command, QoCtlCommand::init);
    EXPECT_EQ(Parsed({"exit", "--yes"}).options->command, QoCtlCommand::exit);
}

}  // namespace
