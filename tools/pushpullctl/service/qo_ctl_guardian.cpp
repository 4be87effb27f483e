// The child process that tidies up.
#include "qo_ctl_guardian.h"

#include <fcntl.h>
#include <limits.h>
#include <mqueue.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "qo_ctl_own_queue.h"
#include "qo_pushpull_api.h"

namespace {

/// Written to the pipe in one piece, so that the child always holds a whole one.
struct Duty {
    eQO_CMP_IDs_ registered_as;
    std::array<char, NAME_MAX + 2> queue_name;  // with its slash and its NUL
};
static_assert(sizeof(Duty) <= PIPE_BUF);

constexpr int kChildPipe = 3;  // the only descriptor of the child besides the standard ones

bool read_duty(Duty& duty) {
    Duty next{};
    ssize_t length = 0;
    do {
        length = read(kChildPipe, &next, sizeof next);
    } while (length < 0 && errno == EINTR);
    if (length != static_cast<ssize_t>(sizeof next)) return false;
    duty = next;
    return true;
}

/// Nothing of the parent's terminal, pipes or process group may hold the child, nor the child them.
void leave_parent(int pipe) {
    // First out of the way of the descriptors below, one of which it is when pushpullctl was started without.
    pipe = fcntl(pipe, F_DUPFD, kChildPipe + 1);
    setsid();
    prctl(PR_SET_NAME, "pushpullctl-end");
    const int null_device = open("/dev/null", O_RDWR);
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) dup2(null_device, standard);
    dup2(pipe, kChildPipe);
    // A kernel without close_range leaves them open, which only keeps queues in memory a little longer.
    syscall(SYS_close_range, kChildPipe + 1, ~0U, 0);
}

void tidy_up(const std::string& instance, const Duty& duty) {
    const QoCtlDescriptor queue(mq_open(duty.queue_name.data(), O_RDWR));
    // The next pushpullctl may have taken the queue over already, and the registration with it.
    if (queue.get() == -1 || !qo_ctl_lock_queue(queue.get())) return;
    if (duty.registered_as != QO_CMPID_RESERVED) {
        QoPushpullApi api(instance);
        api.init(instance);
        api.comp_unregister(duty.registered_as);
        api.terminate();
    }
    mq_unlink(duty.queue_name.data());
}

[[noreturn]] void run_child(int pipe, const std::string& instance) {
    leave_parent(pipe);
    Duty duty{};
    while (read_duty(duty)) {
    }
    if (duty.queue_name[0] != '\0') tidy_up(instance, duty);
    _exit(0);
}

}  // namespace

void QoCtlGuardian::start(const std::string& instance) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
    child_ = fork();
    if (child_ == 0) {
        close(ends[1]);
        run_child(ends[0], instance);
    }
    close(ends[0]);
    if (child_ == -1) {
        close(ends[1]);
        return;
    }
    pipe_ = ends[1];
}

void QoCtlGuardian::set_duty(const std::string& queue_name, eQO_CMP_IDs_ registered_as) {
    Duty duty{};
    duty.registered_as = registered_as;
    queue_name.copy(duty.queue_name.data(), duty.queue_name.size() - 1);
    // A child that is gone has left nothing to do; SIGPIPE is ignored while there is a session.
    [[maybe_unused]] const ssize_t written = write(pipe_, &duty, sizeof duty);
}

QoCtlGuardian::~QoCtlGuardian() {
    if (pipe_ == -1) return;
    set_duty("", QO_CMPID_RESERVED);
    close(pipe_);
    waitpid(child_, nullptr, 0);
}
