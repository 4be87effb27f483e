// What loading and saving a tree takes of memory, compared with what the tree itself takes once it is loaded. For each
// kind of tree, of about 32 MiB in a file, a process of its own loads it and saves it again. Reported: the memory of
// the process before, with the tree, and at most while loading and while saving; the ratios are those of what was
// added.
#include <fcntl.h>
#include <malloc.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_file_replacement.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_json.h"
#include "scratch_directory.h"

namespace {

constexpr size_t kFileBytes = size_t{32} << 20;

/// A number of /proc/self/status, in KiB.
long status_kib(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.starts_with(name + ":")) return std::stol(line.substr(name.size() + 1));
    abort();
}

/// From now on the peak is counted anew.
void forget_peak() {
    std::ofstream references("/proc/self/clear_refs");
    references << "5";
    if (!references.flush()) abort();
}

std::string many_small_nodes() {
    std::string text = R"({"list":[)";
    for (int id = 0; text.size() < kFileBytes / 2; ++id)
        text += (id > 0 ? "," : "") + std::string(R"({"id":)") + std::to_string(id) + R"(,"on":true,"value":21.50})";
    return text + "]}";
}

/// @param piece as JSON writes it
std::string long_strings(size_t count, const std::string& piece) {
    std::string value;
    while (value.size() < kFileBytes / count) value += piece;
    std::string text = "{";
    for (size_t i = 0; i < count; ++i) text += (i > 0 ? ",\"" : "\"") + std::to_string(i) + "\":\"" + value + "\"";
    return text + "}";
}

/// Saves the tree once, so that the file has its CRC. In a process of its own.
void prepare(const std::string& directory, std::string (*make)()) {
    std::ofstream(directory + QO_DEFAULTS_FILE) << make();
    DataMgr store(QoStorePaths{directory, directory});
    if (store.Init(nullptr) != 0 || store.SaveDataTree(false) != 0) abort();
    std::ofstream(directory + QO_DEFAULTS_FILE) << "{}";
}

void measure(const std::string& directory, const char* name) {
    // What is released goes back at once, so that the resident size is that of what is in use.
    mallopt(M_TRIM_THRESHOLD, 0);
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    DataMgr store(QoStorePaths{directory, directory});
    const long before = status_kib("VmRSS");
    forget_peak();
    if (store.Init(nullptr) != 0) abort();
    const long loading = status_kib("VmHWM") - before;
    malloc_trim(0);
    const long tree = status_kib("VmRSS") - before;
    forget_peak();
    if (store.SaveDataTree(false) != 0) abort();
    const long saving = status_kib("VmHWM") - before;
    std::printf("%-44s file %6.1f MiB, tree %6.1f MiB, loading %.2f, saving %.2f\n", name,
                static_cast<double>(std::filesystem::file_size(directory + QO_SAVED_TREE_FILE)) / (1 << 20),
                static_cast<double>(tree) / 1024, static_cast<double>(loading) / static_cast<double>(tree),
                static_cast<double>(saving) / static_cast<double>(tree));
}

template <typename Work>
void in_own_process(Work work) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        work();
        std::fflush(stdout);
        _exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) abort();
}

void run(const char* name, std::string (*make)()) {
    const QoScratchDirectory scratch;
    in_own_process([&] { prepare(scratch.path(), make); });
    in_own_process([&] { measure(scratch.path(), name); });
}

}  // namespace

int main() {
    run("many small nodes", many_small_nodes);
    run(
        "150 texts of letters", [] { return long_strings(150, "0123456789"); });
    run(
        "150 texts of control characters", [] { return long_strings(150, "\\u0001"); });
    run(
        "150 texts of quotes", [] { return long_strings(150, "\\\""); });
    run(
        "one text of letters", [] { return long_strings(1, "0123456789"); });
    run("one text of control characters", [] { return long_strings(1, "\\u0001"); });
}
