/// The shell commands that the code under test gave to system() or to qo_start_shell(); none of them is run unless a
/// test asks for it. Linked into every test program; thread-safe.
#ifndef QO_TEST_SHELL_CAPTURE_H
#define QO_TEST_SHELL_CAPTURE_H

#include <sys/resource.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

/// Holds what was given to the shell since it was created; one at a time.
class QoShellCapture {
public:
    /// What qo_start_shell() does.
    using Start = std::function<pid_t(const char* command, rlim_t file_bytes)>;

    QoShellCapture();
    ~QoShellCapture();
    QoShellCapture(const QoShellCapture&) = delete;
    QoShellCapture& operator=(const QoShellCapture&) = delete;

    std::vector<std::string> commands() const;
    /// What system() returns from now on, and as what the processes of qo_start_shell() end: a status as waitpid()
    /// gives it, or -1 when nothing could be started. 0 at first.
    void set_result(int result);
    /// Puts something in the place of qo_start_shell(), in tests whose commands do no harm the real one, which the
    /// linker calls __real_qo_start_shell. Commands are still held.
    void replace_start(Start start);
};

#endif
