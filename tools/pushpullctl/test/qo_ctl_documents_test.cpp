// The manual page and the completion tell of the program as it is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "qo_ctl_commands.h"
#include "qo_ctl_live_tree.h"
#include "qo_ctl_options.h"
#include "qo_pushpull_initializer.h"
#include "qo_pushpull_json.h"
#include "scratch_directory.h"

namespace {

using testing::HasSubstr;

std::vector<std::string> command_names() {
    std::vector<std::string> names;
    for (const auto& command : qo_ctl_commands()) names.emplace_back(command->help().name);
    return names;
}

std::string packaged(const std::string& name) {
    std::ostringstream text;
    text << std::ifstream(QO_PACKAGING + name).rdbuf();
    return text.str();
}

std::string help_of(const std::string& command) {
    const char* words[] = {"pushpullctl", command.c_str(), "--help"};
    int status = -1;
    testing::internal::CaptureStdout();
    qo_ctl_parse(3, words, qo_ctl_commands(), status);
    return testing::internal::GetCapturedStdout();
}

std::string without_backslashes(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), '\\'), text.end());
    return text;
}

/// True when a paragraph of the manual is headed by the command.
bool describes(const std::string& manual, const std::string& command) {
    for (const char* font : {".B ", ".BR ", ".BI "}) {
        const size_t heading = manual.find(".TP\n" + (font + command));
        if (heading != std::string::npos) return true;
    }
    return false;
}

/// The long options of a command, from its help.
std::set<std::string> options_of(const std::string& command) {
    std::set<std::string> options;
    std::istringstream lines(help_of(command));
    for (std::string line; std::getline(lines, line);) {
        // "--pack", and "-h,--help"
        std::string word;
        std::istringstream(line) >> word;
        const size_t begin = word.rfind("-h,", 0) == 0 ? 3 : 0;
        if (word.rfind("--", begin) == begin) options.insert(word.substr(begin));
    }
    return options;
}

TEST(TreeMembers, AreTheTopLevelMembersOfTheDefaultTree) {
    std::string text;
    getDefaultTree(text);
    const QoJsonNode tree = qo_json_parse(text);
    std::vector<std::string_view> names;
    for (JSONNODE* member : QoJsonChildren(tree.get())) names.push_back(qo_json_name(member));
    EXPECT_THAT(qo_ctl_tree_members(), testing::ElementsAreArray(names));
}

TEST(Manual, DescribesEveryCommandAndOption) {
    // Options are written with escaped dashes there.
    const std::string manual = without_backslashes(packaged("pushpullctl.1"));
    for (const std::string& command : command_names()) {
        EXPECT_TRUE(describes(manual, command)) << command;
        for (const std::string& option : options_of(command)) EXPECT_THAT(manual, HasSubstr(option));
    }
}

TEST(Completion, OffersEveryCommandAndOption) {
    const std::string completion = packaged("pushpullctl.bash-completion");
    std::string commands;
    for (const std::string& command : command_names()) commands += (commands.empty() ? "" : " ") + command;
    EXPECT_THAT(completion, HasSubstr("local commands='" + commands + "'"));
    for (const std::string& command : command_names()) {
        EXPECT_FALSE(options_of(command).empty());
        for (const std::string& option : options_of(command)) EXPECT_THAT(completion, HasSubstr(option)) << command;
    }
}

TEST(Completion, OffersTheTopLevelMembers) {
    std::istringstream words(packaged("pushpullctl.bash-completion"));
    std::set<std::string> offered;
    for (std::string word; words >> word;)
        offered.insert(word.substr(word.find('/') == std::string::npos ? 0 : word.find('/')));
    for (const std::string_view member : qo_ctl_tree_members()) {
        const std::string pointer = "/" + std::string(member);
        EXPECT_TRUE(offered.count(pointer) == 1 || offered.count(pointer + "'") == 1) << pointer;
    }
}

TEST(Comparison, NamesTestsThatExist) {
    std::string tests;
    for (const auto& source : std::filesystem::directory_iterator(QO_TESTS)) {
        std::ostringstream text;
        text << std::ifstream(source.path()).rdbuf();
        tests += text.str();
    }
    std::ostringstream document;
    document << std::ifstream(QO_COMPARISON).rdbuf();
    const std::string rows = document.str();
    const std::regex name("`(Pushpullctl\\w*)\\.(\\w+)` \\|\n");
    size_t named = 0;
    for (std::sregex_iterator it(rows.begin(), rows.end(), name), end; it != end; ++it, ++named) {
        const std::string test = "(" + (*it)[1].str() + ", " + (*it)[2].str() + ")";
        EXPECT_THAT(tests, HasSubstr(test));
    }
    const auto lines = static_cast<size_t>(std::count(rows.begin(), rows.end(), '\n'));
    EXPECT_GT(named, 20U);
    EXPECT_LT(lines - named, 20U) << "every row names a test at its end";
}

}  // namespace
