// The store that the fuzzers share, and the C library's log functions replaced by ones that only format.
#include "fuzz_store.h"

#include <stdarg.h>
#include <stdlib.h>
#include <syslog.h>

#include <chrono>

#include "qo_pushpull_files.h"
#include "scratch_directory.h"

namespace {

std::string last_line;

// Formats every line, so that a wrong argument is seen.
__attribute__((format(printf, 1, 0))) void take_line(const char* format, va_list arguments) {
    char* text = nullptr;
    // The analyzer does not see that the callers started the list.
    qo_require(vasprintf(&text, format, arguments) >= 0, "a line can be formatted");  // NOLINT(clang-analyzer-valist.*)
    last_line = text;
    free(text);
}

}  // namespace

// These stand before the C library's own.
extern "C" {
__attribute__((format(printf, 2, 3))) void syslog(int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    take_line(format, arguments);
    va_end(arguments);
}

__attribute__((format(printf, 3, 4))) void __syslog_chk(int, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    take_line(format, arguments);
    va_end(arguments);
}
}

std::unique_ptr<DataMgr> qo_fuzz_store(std::string_view defaults) {
    // Holds the defaults file; nothing else is ever written there.
    static const QoScratchDirectory directory;
    directory.write(QO_DEFAULTS_FILE, std::string(defaults));
    constexpr QoSaveTimings kNever{.first = std::chrono::hours(24 * 365), .extension = std::chrono::milliseconds(0)};
    auto store = std::make_unique<DataMgr>(QoStorePaths{"/nonexistent/qo_fuzz/", directory.path()}, kNever);
    qo_require(store->Init(nullptr) == 0, "the store starts");
    return store;
}

std::string qo_data_tree_text(DataMgr& store) {
    last_line.clear();
    store.PrintDataTree();
    return last_line;
}

std::string qo_subscription_tree_text(DataMgr& store) {
    last_line.clear();
    store.PrintSubscriptionTree();
    return last_line;
}
