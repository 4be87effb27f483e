// The C library's logging functions, for the one program that links this source: the service. Whatever runs in its
// process and logs, the client library and other libraries included, goes through its sender (docs/adr/0004), within
// the budget of the request that is being handled.
#undef _FORTIFY_SOURCE  // the header would define what is defined here

#include <stdarg.h>
#include <syslog.h>

#include "qo_utilities_log.h"
#include "qo_utilities_log_budget.h"

namespace {

__attribute__((format(printf, 2, 0))) void write_line(int priority, const char* format, va_list arguments) {
    if (QoLogBudget::take(priority, format)) QoLogBudget::spend(format, qo_log().write(priority, format, arguments));
}

}  // namespace

extern "C" {

void __syslog_chk(int priority, int flag, const char* format, ...) __attribute__((format(printf, 3, 4)));
void __vsyslog_chk(int priority, int flag, const char* format, va_list arguments) __attribute__((format(printf, 3, 0)));

void openlog(const char* ident, int options, int facility) { qo_log().open(ident, options, facility); }

/// The connection stays: another thread may be using it.
void closelog() { qo_log().open(nullptr, LOG_ODELAY, 0); }

int setlogmask(int mask) noexcept { return qo_log().set_mask(mask); }

void vsyslog(int priority, const char* format, va_list arguments) { write_line(priority, format, arguments); }

void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(priority, format, arguments);
    va_end(arguments);
}

void __vsyslog_chk(int priority, int, const char* format, va_list arguments) {
    write_line(priority, format, arguments);
}

void __syslog_chk(int priority, int, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write_line(priority, format, arguments);
    va_end(arguments);
}
}
