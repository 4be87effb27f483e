/// The tasks of a document: what it tells to write into files, what to type, and what is printed then.
#ifndef QO_TEST_DOCUMENT_TASKS_H
#define QO_TEST_DOCUMENT_TASKS_H

#include <iosfwd>
#include <map>
#include <string>
#include <vector>

struct QoDocumentCommand {
    std::string text;      // of a shell, without its "$ "
    std::string expected;  // each line with its end; "..." stands for anything
};

struct QoDocumentTask {
    std::string name;                          // "4_Count_and_read", for the names of tests
    std::map<std::string, std::string> files;  // by name
    std::vector<QoDocumentCommand> commands;
};

/// For the names that tests are shown by.
void PrintTo(const QoDocumentTask& task, std::ostream* stream);

/// The tasks of a Markdown file, each a chapter "## 4. Count and read": its blocks "console" have commands, other
/// blocks with a file name behind the language are files.
std::vector<QoDocumentTask> qo_document_tasks(const std::string& path);

/// Whether the output is what is expected, "..." being anything.
bool qo_is_expected(const std::string& output, const std::string& expected);

#endif
