/// A program that runs as long as this object lives.
#ifndef QO_BENCH_CHILD_PROCESS_H
#define QO_BENCH_CHILD_PROCESS_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

/// Longer than anything takes that works.
constexpr int kQoPatience_s = 30;

class QoChildProcess {
public:
    /// Starts it with nothing to read and its output thrown away.
    /// @param variables "NAME=value", beside our own environment
    explicit QoChildProcess(std::vector<std::string> command, const std::vector<std::string>& variables = {});
    ~QoChildProcess();
    QoChildProcess(const QoChildProcess&) = delete;
    QoChildProcess& operator=(const QoChildProcess&) = delete;

    pid_t id() const { return process_; }

private:
    pid_t process_ = -1;
};

/// Tries again at once, and again, until it works. Throws std::runtime_error when it does not in kQoPatience_s.
void qo_retry(const std::string& what, const std::function<bool()>& attempt);

/// A port of the loopback interface that nobody listens on.
int qo_free_port();

#endif
