// What the command line means, and what is said of a wrong one.
#include "qo_ctl_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qo_ctl_commands.h"

namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;

/// One command line: what it means, or how it ends and what it says.
struct Parsed {
    explicit Parsed(std::vector<std::string> arguments) {
        std::vector<const char*> words{"pushpullctl"};
        for (const std::string& argument : arguments) words.push_back(argument.c_str());
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        options = qo_ctl_parse(static_cast<int>(words.size()), words.data(), commands, status);
        output = testing::internal::GetCapturedStdout();
        messages = testing::internal::GetCapturedStderr();
    }

    std::vector<std::unique_ptr<QoCtlCommand>> commands = qo_ctl_commands();
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

std::vector<std::string> command_names() {
    std::vector<std::string> names;
    for (const auto& command : qo_ctl_commands()) names.emplace_back(command->help().name);
    return names;
}

class Help : public testing::TestWithParam<std::string> {};

TEST_P(Help, OfEveryCommandEndsWith0AndHasAnExampleOfIt) {
    const Parsed parsed({GetParam(), "--help"});
    EXPECT_FALSE(parsed.options);
    EXPECT_EQ(parsed.status, 0);
    EXPECT_EQ(parsed.messages, "");
    EXPECT_THAT(parsed.output, ContainsRegex("Example:\n  .*pushpullctl " + GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Commands, Help, testing::ValuesIn(command_names()));

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
    EXPECT_STREQ(parsed.options->command->help().name, "get");
    EXPECT_EQ(parsed.options->common.identity, QO_CMPID_RESERVED);
    EXPECT_EQ(parsed.options->common.timeout, std::chrono::seconds(5));
    EXPECT_EQ(parsed.options->common.message_size, 0);
    EXPECT_EQ(parsed.options->common.instance, "");
    EXPECT_EQ(parsed.options->common.color, QoCtlColor::automatic);
}

TEST(CommandLine, CommonOptionsStandBeforeOrBehindTheCommand) {
    for (const Words& words : {Words{"--as", "demo", "--timeout", "0.25", "--instance", "-2", "--json", "get", "/a"},
                               Words{"get", "/a", "--as", "demo", "--timeout=0.25", "--instance=-2", "--json"}}) {
        const Parsed parsed(words);
        ASSERT_TRUE(parsed.options) << parsed.messages;
        EXPECT_EQ(parsed.options->common.identity, QO_CMPID_DEMO);
        EXPECT_EQ(parsed.options->common.timeout, std::chrono::milliseconds(250));
        EXPECT_EQ(parsed.options->common.instance, "-2");
        EXPECT_TRUE(parsed.options->common.json_lines);
    }
}

TEST(CommandLine, IsTakenWhereItIsWhole) {
    for (const Words& words :
         {Words{"sync", "SCHEDULER", "--", "--reload"}, Words{"subscribe", "/", "--changes", "--count", "3"},
          Words{"init", "--yes"}, Words{"exit", "--yes"}, Words{"publish", "{\"a\": 1.50}\n"}, Words{"stats"},
          Words{"stats", "a.csv", "b.csv", "--rows", "0", "--plot", "-"}}) {
        const Parsed parsed(words);
        ASSERT_TRUE(parsed.options) << text_of(words) << parsed.messages;
        EXPECT_EQ(parsed.options->command->help().name, words.front());
    }
}

// ---- what a command can declare ----

/// Takes one of everything.
class Probe : public QoCtlCommand {
public:
    Help help() const override { return {"probe", "Takes everything", ""}; }
    void declare(QoCtlCommandLine& line) override {
        line.word("WORD", word, "a word");
        line.words("WORDS", words, "words", QoCtlCommandLine::Need::optional);
        line.flag("--flag", flag, "a flag");
        line.text("--text", text, "TEXT", "a text");
        line.number("--number", number, 3, 7, "a number");
        line.seconds("--seconds", seconds, "a time");
        line.not_together("--flag", "--text");
    }
    QoCtlStatus run(const QoCtlCommon&, QoCtlSignals&) override { return QoCtlStatus::answered; }

    std::string word;
    std::vector<std::string> words;
    bool flag = false;
    std::string text = "as it was";
    uint64_t number = 5;
    double seconds = 1;
};

/// @return whether the probe took these words
bool probe_takes(const Words& arguments, Probe** taken, std::vector<std::unique_ptr<QoCtlCommand>>& commands) {
    commands.clear();
    commands.push_back(std::make_unique<Probe>());
    *taken = static_cast<Probe*>(commands.front().get());
    std::vector<const char*> words{"pushpullctl", "probe"};
    for (const std::string& argument : arguments) words.push_back(argument.c_str());
    int status = 0;
    testing::internal::CaptureStderr();
    const auto options = qo_ctl_parse(static_cast<int>(words.size()), words.data(), commands, status);
    testing::internal::GetCapturedStderr();
    return options.has_value();
}

TEST(DeclaredOptions, AreFilled) {
    std::vector<std::unique_ptr<QoCtlCommand>> commands;
    Probe* probe = nullptr;
    ASSERT_TRUE(probe_takes({"a", "b", "c", "--text", "t", "--number", "7", "--seconds", "0.5"}, &probe, commands));
    EXPECT_EQ(probe->word, "a");
    EXPECT_THAT(probe->words, ElementsAre("b", "c"));
    EXPECT_EQ(probe->text, "t");
    EXPECT_EQ(probe->number, 7U);
    EXPECT_EQ(probe->seconds, 0.5);
    ASSERT_TRUE(probe_takes({"a", "--flag"}, &probe, commands));
    EXPECT_TRUE(probe->flag);
    EXPECT_EQ(probe->text, "as it was");
    EXPECT_EQ(probe->number, 5U);
}

TEST(DeclaredOptions, HaveTheirLimits) {
    std::vector<std::unique_ptr<QoCtlCommand>> commands;
    Probe* probe = nullptr;
    for (const Words& words :
         {Words{}, Words{"a", "--number", "2"}, Words{"a", "--number", "8"}, Words{"a", "--number", "x"},
          Words{"a", "--seconds", "0"}, Words{"a", "--seconds", "nan"}, Words{"a", "--seconds", "1e9"},
          Words{"a", "--flag", "--text", "t"}, Words{"a", "--text"}})
        EXPECT_FALSE(probe_takes(words, &probe, commands)) << text_of(words);
}

}  // namespace
