// What the documents tell to type, typed into a shell beside a running service.
#include <stdio.h>

#include <fstream>
#include <sstream>

#include "document_tasks.h"
#include "service_process.h"

namespace {

constexpr char kDocuments[] = QO_DOCUMENTS;
constexpr size_t kCookbookTasks = 20;
constexpr char kEndOfOutput = '\036';  // behind the output of each command, with its status

std::string content(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/// A shell as its user has it: programs and libraries installed, and the compiler that made them.
std::string prelude(const std::string& folder) {
    const std::string installed = folder + "installed";
    std::ostringstream text;
    text << "cd " << folder << "\n"
         << "export PATH=" QO_PROGRAMS ":$PATH\n"
         << "export PKG_CONFIG_PATH=" << installed << "/" QO_LIBDIR "/pkgconfig\n"
         << "export LD_LIBRARY_PATH=" << installed << "/" QO_LIBDIR "\n"
         << "g++() { " QO_CXX " " QO_CXX_FLAGS " \"$@\" " QO_CXX_LINK_FLAGS "; }\n";
    return text.str();
}

/// The status of each command is left as it is for the next one.
std::string script(const QoDocumentTask& task, const std::string& folder) {
    std::string text = prelude(folder);
    if (!task.files.empty())
        text += QO_CMAKE " --install " QO_BUILD " --component client --prefix " + folder + "installed > install.log\n";
    for (const QoDocumentCommand& command : task.commands)
        text += command.text + "\nqo_status=$?; printf '\\036%d\\n' $qo_status; (exit $qo_status)\n";
    return text + "exit 0\n";
}

struct Ran {
    std::string output;
    int status = 0;
};

/// What each of the commands has printed.
std::vector<Ran> split(const std::string& output) {
    std::vector<Ran> ran;
    size_t begin = 0;
    for (size_t end = 0; (end = output.find(kEndOfOutput, begin)) != std::string::npos;) {
        const size_t line_end = output.find('\n', end);
        ran.push_back({output.substr(begin, end - begin), std::stoi(output.substr(end + 1, line_end - end - 1))});
        begin = line_end + 1;
    }
    return ran;
}

std::vector<QoDocumentTask> tasks(const char* document) {
    return qo_document_tasks(std::string(kDocuments) + document);
}

class Document : public RunningService, public testing::WithParamInterface<QoDocumentTask> {
protected:
    std::vector<Ran> type(const QoDocumentTask& task) {
        const std::string folder = events().scratch();
        for (const auto& [name, text] : task.files) std::ofstream(folder + name) << text;
        std::ofstream(folder + "script") << script(task, folder);
        // Into a file: what is left in the background would keep a pipe open.
        const std::string command = "bash " + folder + "script > " + folder + "output 2>&1 < /dev/null";
        FILE* const shell = popen(command.c_str(), "r");
        EXPECT_EQ(pclose(shell), 0);
        return split(content(folder + "output"));
    }
    /// A status that is not 0 has to be shown: the next command prints it.
    static bool is_shown(const QoDocumentTask& task, size_t index) {
        return index + 1 < task.commands.size() && task.commands[index + 1].text == "echo $?";
    }
};

TEST_P(Document, DoesWhatItTells) {
    const QoDocumentTask& task = GetParam();
    const std::vector<Ran> ran = type(task);
    ASSERT_EQ(ran.size(), task.commands.size());
    for (size_t index = 0; index < ran.size(); ++index) {
        const QoDocumentCommand& command = task.commands[index];
        EXPECT_TRUE(qo_is_expected(ran[index].output, command.expected)) << "$ " << command.text << "\n"
                                                                         << ran[index].output << "instead of\n"
                                                                         << command.expected;
        if (!is_shown(task, index)) EXPECT_EQ(ran[index].status, 0) << "$ " << command.text;
    }
}

std::string task_name(const testing::TestParamInfo<QoDocumentTask>& task) { return task.param.name; }
INSTANTIATE_TEST_SUITE_P(Cookbook, Document, testing::ValuesIn(tasks("cookbook.md")), task_name);
INSTANTIATE_TEST_SUITE_P(ComponentLife, Document, testing::ValuesIn(tasks("component_life.md")), task_name);

TEST(Cookbook, HasTwentyTasks) { EXPECT_EQ(tasks("cookbook.md").size(), kCookbookTasks); }

TEST_F(RunningService, FirstStartLogsNothingLoudThatIsNotExplained) {
    const std::string explained = content(std::string(kDocuments) + "component_life.md");
    for (const QoLogLine& line : events().log()) {
        if (line.level > LOG_ERR) continue;
        // Without the prefix of the store or a blank in front, and without the number of a descriptor.
        const size_t text = line.text.find_first_not_of(' ', line.operation.empty() ? 0 : line.text.find(": ") + 1);
        const std::string words = line.text.substr(text, line.text.find(" ::") - text);
        EXPECT_NE(explained.find(words), std::string::npos) << line.text;
    }
}

TEST(DocumentOutput, IsComparedToTheLastByte) {
    EXPECT_TRUE(qo_is_expected("", ""));
    EXPECT_TRUE(qo_is_expected("a*[1]\n", "a*[1]\n"));
    EXPECT_TRUE(qo_is_expected("{\"crc\":\"12\",\"ok\":1}\n", "{\"crc\":...,\"ok\":1}\n"));
    EXPECT_FALSE(qo_is_expected("ab[1]\n", "a*[1]\n"));
    EXPECT_FALSE(qo_is_expected("71\nmore\n", "71\n"));
    EXPECT_FALSE(qo_is_expected("", "71\n"));
}

}  // namespace
