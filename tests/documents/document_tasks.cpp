// Reading commands out of a Markdown file.
#include "document_tasks.h"

#include <ctype.h>
#include <fnmatch.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace {

constexpr std::string_view kChapter = "## ";
constexpr std::string_view kFence = "```";
constexpr std::string_view kCommand = "$ ";
constexpr std::string_view kConsole = "console";
constexpr std::string_view kAnything = "...";

/// "4. Count and read" as "4_Count_and_read".
std::string task_name(std::string_view title) {
    std::string name;
    for (const char character : title)
        if (isalnum(static_cast<unsigned char>(character)) != 0)
            name += character;
        else if (!name.empty() && name.back() != '_')
            name += '_';
    return name;
}

void add_console_line(QoDocumentTask& task, const std::string& line) {
    if (line.starts_with(kCommand)) {
        task.commands.push_back({line.substr(kCommand.size()), ""});
        return;
    }
    if (task.commands.empty()) throw std::runtime_error(task.name + ": output before a command");
    task.commands.back().expected += line + "\n";
}

}  // namespace

void PrintTo(const QoDocumentTask& task, std::ostream* stream) { *stream << task.name; }

std::vector<QoDocumentTask> qo_document_tasks(const std::string& path) {
    std::ifstream document(path);
    if (!document) throw std::runtime_error("cannot read " + path);
    std::vector<QoDocumentTask> tasks;
    std::string block;  // what is behind the fence that is open; "" outside of blocks
    for (std::string line; std::getline(document, line);) {
        if (line.starts_with(kFence)) {
            block = block.empty() ? line.substr(kFence.size()) : "";
        } else if (block.empty() && line.starts_with(kChapter)) {
            tasks.push_back({task_name(line.substr(kChapter.size())), {}, {}});
        } else if (!block.empty() && !tasks.empty()) {
            const size_t blank = block.find(' ');
            if (block == kConsole) add_console_line(tasks.back(), line);
            if (blank != std::string::npos) tasks.back().files[block.substr(blank + 1)] += line + "\n";
        }
    }
    std::erase_if(tasks, [](const QoDocumentTask& task) { return task.commands.empty(); });
    return tasks;
}

bool qo_is_expected(const std::string& output, const std::string& expected) {
    std::string pattern;
    for (size_t at = 0; at < expected.size();) {
        if (expected.compare(at, kAnything.size(), kAnything) == 0) {
            pattern += '*';
            at += kAnything.size();
            continue;
        }
        if (std::string_view("*?[]\\").find(expected[at]) != std::string_view::npos) pattern += '\\';
        pattern += expected[at++];
    }
    return fnmatch(pattern.c_str(), output.c_str(), 0) == 0;
}
