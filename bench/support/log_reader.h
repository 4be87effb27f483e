/// A process that reads /dev/log and drops what it reads, as a log daemon does that keeps up. Header only.
#ifndef QO_BENCH_LOG_READER_H
#define QO_BENCH_LOG_READER_H

#include <errno.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

class QoLogReader {
public:
    QoLogReader() {
        const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const sockaddr_un address{AF_UNIX, "/dev/log"};
        if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error(std::string("/dev/log: ") + strerror(errno) + "; run this with qo_isolated");
        process_ = fork();
        if (process_ == 0) read_all(descriptor);
        close(descriptor);
        if (process_ < 0) throw std::runtime_error("no log reader");
    }
    ~QoLogReader() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
        unlink("/dev/log");
    }
    QoLogReader(const QoLogReader&) = delete;
    QoLogReader& operator=(const QoLogReader&) = delete;

private:
    [[noreturn]] static void read_all(int descriptor) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        static char buffer[262144];
        while (recv(descriptor, buffer, sizeof buffer, 0) >= 0) continue;
        _exit(1);
    }

    pid_t process_;
};

#endif
