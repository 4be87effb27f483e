/// Logs a stack trace to the system log when a signal arrives, and hands signals to a callback.
///
/// A signal of the trace list leaves one line per stack frame at error level and then ends the process with status
/// 1; a signal of the callback list goes to the callback; a signal of both is traced, then handed to the callback.
/// One configuration per process, installed once at start-up before any of its signals can arrive.
#ifndef QO_BACKTRACE_H
#define QO_BACKTRACE_H

#include <signal.h>

/// Called in signal context, on the thread that took the signal.
using qo_bt_callback_t = void (*)(int signal);

/// Installs qo_bt_signal_handler for every signal of both lists, which replace those of an earlier call wholly.
/// A signal that only the earlier call named keeps the handler, and then ends the process with status 1.
/// @param name            of the program, for the log line
/// @param traceSignals    ended by -1, at most 15 are taken; null means none
/// @param callbackSignals likewise
/// @param callback        may be null
/// @return 0; -1 when a handler could not be set: logged, and the signals after it are left alone.
int qo_bt_install(const char* name, const int* traceSignals, const int* callbackSignals, qo_bt_callback_t callback);

/// The installed handler. SIGTERM is blocked while it runs, the callback included. It logs and allocates memory, which
/// is not async-signal-safe: a signal that interrupted the allocator or the logger blocks the trace for ever. A trace
/// that is not complete after 5 seconds is therefore given up: a signal of both lists still goes to the callback, which
/// must not count on the logger then, and the process ends by SIGALRM. A pending alarm() of the process and its handler
/// are lost. A fault inside the handler (a wrecked stack, a jump to an unmapped address) has the signal's default
/// action: the process ends by it, without the rest of the trace.
void qo_bt_signal_handler(int signal, siginfo_t* information, void* context);

/// A callback that logs the signal and ends the process with status 0.
void qo_bt_default_callback(int signal);

#endif
