// The least that can pass texts on by message queues: takes each out of one queue and puts it into the others. Looks at
// nothing, keeps nothing. With --log it writes the two lines of a publish that the service writes too, by syslog(3).
//   queue_relay [--log] QUEUE SUBSCRIBERS_QUEUE...
#include <mqueue.h>
#include <string.h>
#include <syslog.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

mqd_t open_queue(const char* name, int flags) {
    const mqd_t queue = mq_open(name, flags);
    if (queue == -1) {
        std::perror(name);
        std::exit(EXIT_FAILURE);
    }
    return queue;
}

}  // namespace

int main(int argc, char** argv) {
    const bool log = argc > 1 && strcmp(argv[1], "--log") == 0;
    char** const names = argv + (log ? 2 : 1);
    if (argv + argc - names < 2) return EXIT_FAILURE;
    const mqd_t source = open_queue(names[0], O_RDONLY);
    std::vector<mqd_t> targets;
    std::string queue_list;
    for (char** name = names + 1; *name != nullptr; ++name) {
        targets.push_back(open_queue(*name, O_WRONLY));
        queue_list.append(*name).append(";");
    }
    mq_attr attributes{};
    mq_getattr(source, &attributes);
    std::vector<char> buffer(static_cast<size_t>(attributes.mq_msgsize));
    openlog("PushPull", LOG_ODELAY, LOG_USER);
    for (;;) {
        const ssize_t length = mq_receive(source, buffer.data(), buffer.size(), nullptr);
        if (length < 1) return EXIT_FAILURE;
        if (log)
            syslog(LOG_DEBUG, "PushPullData : mq_receive: retval: %d , msg: %s", static_cast<int>(length),
                   buffer.data());
        for (const mqd_t target : targets) mq_send(target, buffer.data(), static_cast<size_t>(length), 1);
        if (log)
            syslog(LOG_DEBUG, "mq_send success: msg size = %d, queue list = \"%s\"", static_cast<int>(length - 1),
                   queue_list.c_str());
    }
}
