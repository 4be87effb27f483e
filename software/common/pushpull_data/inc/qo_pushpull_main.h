/// The process: options, signals and the life of the one service object.
#ifndef QO_PUSHPULL_MAIN_H
#define QO_PUSHPULL_MAIN_H

/// Runs the service until an accepted exit request ends it. Everything is reported through syslog. Call it from
/// the main thread, once per process.
///
/// Options: -l collect statistics; -v log the version and go on; -m NAME read the queue "/pushpull" followed by
/// NAME; -d ARG accepted, without effect; -y ARG ends the process with abort().
/// @return the exit status: 0 after an exit request or a caught exception, which makes systemd start the service again;
/// 1 for a bad option, with nothing
///         created, and when the service had to end (PushPullData::exit_status). A SIGTERM ends the process with status
///         0 from inside this call.
int pushpull_main(int argc, char* argv[]);

/// What follows the stack trace of a signal. For SIGUSR1, which the queue monitor's script sends when a queue stays
/// full: waits five seconds and reboots the device; returns when the reboot did not happen. When the logger does not
/// take its line within these seconds, because the signal interrupted it, the process ends with status 1 after the
/// reboot command. Nothing for any other signal. Runs in signal context on whichever thread was interrupted; uses the
/// alarm of the process.
void signalCallback(int signal_number);

#endif
