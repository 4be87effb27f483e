// The stack trace that a crash leaves in the log.
#include "qo_backtrace.h"

#include <errno.h>
#include <execinfo.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cxxabi.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string>

namespace {

static_assert(sizeof(time_t) >= 8, "a 32-bit time ends in January 2038; see cmake/QoCompileOptions.cmake");

constexpr size_t kMaxSignals = 15;
constexpr int kNoSignal = -1;
constexpr int kMaxFrames = 64;
constexpr unsigned kTraceLimitSeconds = 5;
constexpr size_t kNameBufferSize = 256;  // bytes; the demangler makes it larger where needed

using SignalList = std::array<int, kMaxSignals>;

struct BtConfig {
    SignalList trace_signals;
    SignalList callback_signals;
    qo_bt_callback_t callback;
};

BtConfig btConfig;  // written by qo_bt_install() only
volatile sig_atomic_t signal_in_trace;

struct Free {
    void operator()(void* memory) const { free(memory); }
};
using Text = std::unique_ptr<char, Free>;

SignalList copy_signals(const int* signals) {
    SignalList copied;
    copied.fill(kNoSignal);
    for (size_t index = 0; signals != nullptr && index < kMaxSignals && signals[index] != kNoSignal; ++index)
        copied[index] = signals[index];
    return copied;
}

bool contains(const SignalList& signals, int signal) {
    return std::find(signals.begin(), signals.end(), signal) != signals.end();
}

bool set_handler(int signal) {
    struct sigaction action = {};
    action.sa_sigaction = qo_bt_signal_handler;
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigemptyset(&action.sa_mask);
    // Its handler may log as well: between two steps of a trace it would wait for the logger for ever.
    sigaddset(&action.sa_mask, SIGTERM);
    if (sigaction(signal, &action, nullptr) == 0) return true;
    syslog(LOG_ERR, "[ST]: error setting signal handler for %d (%s)\n", signal, strsignal(signal));
    return false;
}

bool set_handlers() {
    for (const int signal : btConfig.trace_signals)
        if (signal != kNoSignal && !set_handler(signal)) return false;
    for (const int signal : btConfig.callback_signals)
        if (signal != kNoSignal && !contains(btConfig.trace_signals, signal) && !set_handler(signal)) return false;
    return true;
}

// The demangled name, or null. `buffer` is the demangler's to enlarge.
const char* demangle(const char* name, Text& buffer, size_t& buffer_size) {
    int status = 0;
    char* demangled = abi::__cxa_demangle(name, buffer.get(), &buffer_size, &status);
    if (status != 0 || demangled == nullptr) return nullptr;
    if (demangled != buffer.get()) {
        static_cast<void>(buffer.release());  // freed by the demangler
        buffer.reset(demangled);
    }
    return demangled;
}

// Cuts "module(function+offset) [address]" at its marks. Returns false when it has another form.
bool cut_symbol_line(char* line, char*& function, char*& offset) {
    char* open = strrchr(line, '(');
    char* plus = open == nullptr ? nullptr : strchr(open, '+');
    char* close = plus == nullptr ? nullptr : strchr(plus, ')');
    if (close == nullptr) return false;
    *open = *plus = *close = '\0';
    function = open + 1;
    offset = plus + 1;
    return true;
}

void log_frame(char* line, void* frame, Text& buffer, size_t& buffer_size) {
    const unsigned address = static_cast<unsigned>(reinterpret_cast<uintptr_t>(frame));
    char* function = nullptr;
    char* offset = nullptr;
    if (!cut_symbol_line(line, function, offset))
        syslog(LOG_ERR, "[ST]:  %s, Addr: %x\n", line, address);
    else if (const char* demangled = demangle(function, buffer, buffer_size); demangled != nullptr)
        syslog(LOG_ERR, "[ST]:  %s : %s+%s, Addr: %x\n", line, demangled, offset, address);
    else
        syslog(LOG_ERR, "[ST]:  %s : %s()+%s, Addr: %x\n", line, function, offset, address);
}

// Logs all frames but the first, which is the signal handler.
void log_frames(void* const* frames, int count) {
    const std::unique_ptr<char*, Free> lines(count > 0 ? backtrace_symbols(frames, count) : nullptr);
    if (lines == nullptr) {
        syslog(LOG_ERR, "[ST]:  <empty, possibly corrupt>\n");
        return;
    }
    size_t buffer_size = kNameBufferSize;
    Text buffer(static_cast<char*>(malloc(buffer_size)));
    for (int index = 1; index < count; ++index) log_frame(lines.get()[index], frames[index], buffer, buffer_size);
}

void call_back(int signal) {
    if (btConfig.callback != nullptr) btConfig.callback(signal);
}

// The callback gets its turn all the same. Then the process ends: the interrupted code could never go on.
void give_up_trace(int alarm_signal) {
    if (contains(btConfig.callback_signals, signal_in_trace)) call_back(signal_in_trace);
    ::signal(alarm_signal, SIG_DFL);
    raise(alarm_signal);
}

// A signal inside the allocator or the logger has left their locks taken: better no trace than a process that hangs
// for ever and is never started again.
void limit_trace_time(int signal) {
    signal_in_trace = signal;
    struct sigaction action = {};
    action.sa_handler = give_up_trace;
    action.sa_flags = SA_NODEFER;  // the callback may use the alarm itself
    sigemptyset(&action.sa_mask);
    sigaction(SIGALRM, &action, nullptr);
    sigset_t only_alarm;
    sigemptyset(&only_alarm);
    sigaddset(&only_alarm, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &only_alarm, nullptr);
    alarm(kTraceLimitSeconds);
}

void end_trace_limit() {
    alarm(0);
    ::signal(SIGALRM, SIG_DFL);
}

}  // namespace

int qo_bt_install(const char* name, const int* traceSignals, const int* callbackSignals, qo_bt_callback_t callback) {
    btConfig = {copy_signals(traceSignals), copy_signals(callbackSignals), callback};
    // The first use loads a library, which must not happen in the handler.
    void* first_use[1];
    backtrace(first_use, 1);
    if (!set_handlers()) return -1;
    syslog(LOG_DEBUG, "[ST]:BT installed for %s\n", name != nullptr ? name : "");
    return 0;
}

void qo_bt_signal_handler(int signal, siginfo_t*, void*) {
    const int interrupted_errno = errno;
    const bool traced = contains(btConfig.trace_signals, signal);
    const bool called_back = contains(btConfig.callback_signals, signal);
    if (!traced && !called_back) _exit(1);
    if (traced) {
        limit_trace_time(signal);
        syslog(LOG_ERR, "[ST]:----- stack trace start %lld------\n", static_cast<long long>(time(nullptr)));
        void* frames[kMaxFrames];
        log_frames(frames, backtrace(frames, kMaxFrames));
        syslog(LOG_ERR, "[ST]:----- stack trace end ------\n");
        if (!called_back) _exit(1);
        end_trace_limit();
    }
    call_back(signal);
    errno = interrupted_errno;
}

void qo_bt_default_callback(int signal) {
    syslog(LOG_ERR, "[ST]: signal received %d \n", signal);
    _exit(0);
}
