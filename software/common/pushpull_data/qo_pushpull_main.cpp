// The entry of the process: options, crash handler, SIGTERM and SIGUSR1, and the status it ends with.
#include "qo_pushpull_main.h"

#include <ctype.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <syslog.h>
#include <unistd.h>

#include <chrono>
#include <exception>
#include <memory>
#include <string>

#include "qo_backtrace.h"
#include "qo_pushpull.h"
#include "qo_pushpull_api.h"
#include "qo_pushpull_blocked_signal.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_signal_gate.h"
#include "qo_pushpull_systemd.h"
#include "qo_pushpull_watchdog.h"
#include "qo_utilities_command.h"

namespace {

constexpr char kRebootCommand[] = "reboot now";
constexpr unsigned kRebootDelayS = 5;  // seconds between SIGUSR1 and the reboot

struct Options {
    bool statistics = false;
    std::string queue_suffix;
};

// Descriptor 0 means "no queue is open" to the registry, so no queue may ever get it.
void open_standard_descriptors() {
    int descriptor = 0;
    do {
        descriptor = open("/dev/null", O_RDWR | O_NOCTTY);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor > STDERR_FILENO) close(descriptor);
}

void install_crash_handler(const char* program) {
    // SIGUSR1 stands in both on purpose: the trace shows where the service is stuck, then the callback reboots.
    static const int handledSignalsTrace[] = {SIGSEGV, SIGILL, SIGFPE, SIGUSR1, -1};
    static const int handledSignalsCallback[] = {SIGUSR1, -1};
    // A failure is logged by the handler itself; the service starts without stack traces.
    [[maybe_unused]] const int result =
        qo_bt_install(program, handledSignalsTrace, handledSignalsCallback, signalCallback);
}

void report_bad_option() {
    if (optopt == 'm') {
        syslog(LOG_ERR, "Option -%c requires an argument (instance name).", optopt);
    } else if (isprint(optopt) != 0) {
        // Deliberate: a missing argument of -d or -y is reported as an unknown option too, for neither does anything.
        // Test: Options.AMissingArgumentOfDOrYIsReportedAsAnUnknownOption
        syslog(LOG_ERR, "Unknown option '-%c'.\n", optopt);
    } else {
        syslog(LOG_ERR, "Unknown option character '\\x%x'.\n", static_cast<unsigned>(optopt));
    }
}

bool parse_options(int argc, char* argv[], Options& options) {
    int option = 0;
    while ((option = getopt(argc, argv, "lvm:d:y:")) != -1) {
        switch (option) {
            case 'l':
                syslog(LOG_INFO, "Pushpull Logging is enabled");
                options.statistics = true;
                break;
            case 'v':
                syslog(LOG_INFO, "pushpull_data version 0.1");
                break;
            case 'm':
                if (optarg != nullptr) options.queue_suffix = optarg;
                break;
            case 'd':  // accepted and inert
                break;
            case '?':
                report_bad_option();
                return false;
            // Deliberate: -y is an option that nothing handles; whoever passes it asks for something the service cannot
            // do. Test: Options.YWithAnyArgumentAborts
            default:
                abort();
        }
    }
    return true;
}

int run_service(const Options& options) {
    auto service = std::make_unique<PushPullData>(options.statistics);
    service->queue_suffix_name = options.queue_suffix;
    service->init(options.queue_suffix);
    // During start-up a SIGTERM ends the process by its default action. From here on the handler takes it, and acts
    // only while execute waits for a request.
    const QoSignalGate working(QoSignalGate::State::kWorking);
    signal(SIGTERM, PushPullData::SignalHandler);
    // Its result is the exit handler's and was logged; the exit status does not carry it.
    [[maybe_unused]] const int exit_result = service->execute();
    service->terminate();
    const int status = service->exit_status();
    service.reset();
    return status;
}

// Time for the reboot to be asked for before systemd clears away what the ended service has left running.
constexpr std::chrono::seconds kRebootLimit{10};

// The line before the reboot waits for nobody, but its time stamp needs the C library's lock around time zones, which
// the code that the signal interrupted may hold.
void reboot_unannounced(int) {
    qo_run_command(kRebootCommand, {kRebootLimit, QoPastLimit::left_running});
    _exit(1);
}

// On standard output, unless its reader has let it fill up or has ended: the process is to end as it should all the
// same.
void announce_exit() {
    constexpr char kText[] = "Pushpull About to Exit\n";
    pollfd output{STDOUT_FILENO, POLLOUT, 0};
    if (poll(&output, 1, 0) != 1 || output.revents != POLLOUT) return;
    [[maybe_unused]] const ssize_t written = write(STDOUT_FILENO, kText, sizeof kText - 1);
}

}  // namespace

void signalCallback(int signal_number) {
    if (signal_number != SIGUSR1) return;
    const QoBlockedSignal pauses_are_whole(qo_life_timer_signal());
    signal(SIGALRM, reboot_unannounced);
    alarm(kRebootDelayS);
    syslog(LOG_CRIT, "Received queue full signal (SIGUSR1) - Rebooting system in 5 seconds");
    alarm(0);
    signal(SIGALRM, SIG_DFL);
    unsigned seconds_left = kRebootDelayS;
    while (seconds_left > 0) seconds_left = sleep(seconds_left);
    // Without a reboot the service goes on serving, whatever becomes of the command; nobody waits for it.
    qo_run_command(kRebootCommand, {std::chrono::milliseconds(0), QoPastLimit::left_running});
}

void PushPullData::SignalHandler(int signal_number) {
    // A timer's notification thread starts with no signal blocked, so SIGTERM may be delivered to it while the main
    // thread holds a lock that this handler needs.
    if (gettid() != getpid()) {
        tgkill(getpid(), getpid(), signal_number);
        return;
    }
    if (signal_number == SIGTERM && !QoSignalGate::may_sigterm_act()) return;
    const QoBlockedSignal pauses_are_whole(qo_life_timer_signal());
    auto api = std::make_unique<QoPushpullApi>();
    // A failure shows in the posts, which open the queue again.
    [[maybe_unused]] const int32_t init_result = api->init("");
    const std::string act = QO_REQUEST_CONFIRMATION;
    announce_exit();
    syslog(LOG_WARNING, "Pushpull About to Exit \n");
    if (signal_number != SIGTERM) {
        [[maybe_unused]] const int32_t terminate_result = api->terminate();
        return;
    }
    syslog(LOG_ALERT, "Received SIGTERM - Pushpull will Exit \n");
    // Whether the posts get through changes nothing: the process ends at once and the next one discards them.
    [[maybe_unused]] const int32_t flush_result = api->flush(QO_CMPID_DEBUG_LOGGER);
    [[maybe_unused]] const int32_t exit_result = api->exit_request(QO_CMPID_DEBUG_LOGGER, act);
    exit(0);
}

int pushpull_main(int argc, char* argv[]) {
    open_standard_descriptors();
    opterr = 0;
    openlog("PushPull", LOG_ODELAY, LOG_USER);
    install_crash_handler(argv[0]);
    Options options;
    if (!parse_options(argc, argv, options)) return 1;
    try {
        return run_service(options);
    } catch (const std::exception& error) {
        syslog(LOG_CRIT, "exception %s", error.what());
        // The status is that of an accepted exit request, after which the unit leaves the service down. systemd takes
        // this for a missed sign of life and starts the service again, whatever the status is. It reads it before it
        // learns of the end.
        [[maybe_unused]] const int notified = qo_notify_systemd("WATCHDOG=trigger", QO_SYSTEMD_PATIENCE);
    }
    return 0;
}
