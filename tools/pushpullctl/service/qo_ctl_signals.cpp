// Waiting for signals as for input, and undoing a session at the first.
#include "qo_ctl_signals.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <ctime>

#include "qo_ctl_output.h"
#include "qo_pushpull_constants.h"

namespace {

bool is_ignored(int signal_number) {
    struct sigaction now {};
    return sigaction(signal_number, nullptr, &now) == 0 && now.sa_handler == SIG_IGN;
}

void ignore(int signal_number, struct sigaction& before) {
    struct sigaction ignoring {};
    ignoring.sa_handler = SIG_IGN;
    sigaction(signal_number, &ignoring, &before);
}

}  // namespace

QoCtlSignals::QoCtlSignals() {
    sigemptyset(&watched_);
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP, SIGTSTP})
        if (!is_ignored(signal_number)) sigaddset(&watched_, signal_number);
    pthread_sigmask(SIG_BLOCK, &watched_, &mask_before_);
    // A reader of standard output that goes away is noticed where it is written to. A terminal that is another
    // job's does not stop this one, for the reason that SIGTSTP does not.
    ignore(SIGPIPE, pipe_before_);
    ignore(SIGTTOU, output_before_);
    ignore(SIGTTIN, input_before_);
}

QoCtlSignals::~QoCtlSignals() { release(); }

void QoCtlSignals::watch(mqd_t queue) {
    {
        const std::lock_guard<std::mutex> guard(queue_mutex_);
        queue_ = queue;
    }
    if (thread_.joinable()) return;
    signals_ = signalfd(-1, &watched_, SFD_CLOEXEC);
    quit_.emplace();
    thread_ = std::thread([this] { run(); });
}

void QoCtlSignals::unwatch() {
    if (!thread_.joinable()) return;
    quit_->set();
    thread_.join();
    close(signals_);
    const std::lock_guard<std::mutex> guard(queue_mutex_);
    queue_ = -1;
}

void QoCtlSignals::run() {
    std::array<pollfd, 2> ends{{{signals_, POLLIN, 0}, {quit_->descriptor(), POLLIN, 0}}};
    while (poll(ends.data(), ends.size(), -1) >= 0 && ends[1].revents == 0) {
        signalfd_siginfo signal{};
        if (read(signals_, &signal, sizeof signal) == static_cast<ssize_t>(sizeof signal))
            take(static_cast<int>(signal.ssi_signo));
    }
}

void QoCtlSignals::take(int signal_number) {
    if (signal_number == SIGTSTP) {
        qo_ctl_say(
            "not stopped: the service restarts the device when the queue of a stopped client stays full; "
            "end with Ctrl-C");
        return;
    }
    int none = 0;
    caught_.compare_exchange_strong(none, signal_number);
    wake();
}

void QoCtlSignals::wake() {
    // A deadline that has passed: a full queue wakes its reader by itself.
    const timespec passed{};
    const std::lock_guard<std::mutex> guard(queue_mutex_);
    mq_timedsend(queue_, kWakeUpText, sizeof kWakeUpText, QO_MESSAGE_PRIORITY, &passed);
}

void QoCtlSignals::release() {
    if (!held_) return;
    held_ = false;
    unwatch();
    sigaction(SIGPIPE, &pipe_before_, nullptr);
    sigaction(SIGTTOU, &output_before_, nullptr);
    sigaction(SIGTTIN, &input_before_, nullptr);
    pthread_sigmask(SIG_SETMASK, &mask_before_, nullptr);
}
