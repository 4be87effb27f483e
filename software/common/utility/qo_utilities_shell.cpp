// Apart from the functions that call it, so that a test's linker can put something else in its place.
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "qo_utilities_command.h"

namespace {

// The parent's handlers are not the child's: SIGTERM's would post to the service in the child's name.
void reset_signals() {
    struct sigaction by_default {};
    by_default.sa_handler = SIG_DFL;
    // Those that cannot be set are refused, which is right.
    for (int number = 1; number < NSIG; ++number) sigaction(number, &by_default, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void become_shell(const char* command, rlim_t file_bytes) {
    setpgid(0, 0);
    reset_signals();
    // The service's own is 0 while it makes a queue.
    umask(S_IRWXG | S_IRWXO);
    const rlimit file_size{file_bytes, file_bytes};
    if (file_bytes != RLIM_INFINITY) setrlimit(RLIMIT_FSIZE, &file_size);
    // Kernels before 5.9 do not know it; the command then has copies that it does not use.
    syscall(SYS_close_range, STDERR_FILENO + 1, ~0U, 0);
    execl("/bin/sh", "sh", "-c", command, nullptr);
    _exit(127);  // as the shell says it of what it cannot run
}

}  // namespace

pid_t qo_start_shell(const char* command, rlim_t file_bytes) noexcept {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    // Not posix_spawn(), which waits until the shell was found: for ever on a disk that hangs. Not fork(), which takes
    // the locks that an interrupted thread may hold.
    const pid_t process = _Fork();
    if (process == 0) become_shell(command, file_bytes);
    const int error = errno;
    // Both do it, whoever comes first; it fails once the shell runs, and then the child has done it.
    if (process > 0) setpgid(process, process);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return process;
}
