// Starting the service for the demo, and knowing when it is ready.
#include "demo_service.h"

#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "qo_pushpull_api.h"
#include "qo_pushpull_constants.h"

namespace {

struct QueueSize {
    long messages;
    long bytes;
    const char* words;
};

// The kernel charges the whole size of a queue to the user when it is made. The service keeps a queue that exists,
// whatever its size, so a smaller one is made beforehand where the full one is not allowed.
constexpr QueueSize kQueueSizes[] = {
    {QO_QUEUE_MAXMSG, QO_QUEUE_MSGSIZE, "64 messages of 262144 bytes, as on the device"},
    {2, QO_QUEUE_MSGSIZE, "2 messages of 262144 bytes, made beforehand: this machine does not allow 64 of them"},
    {8, 8192, "8 messages of 8192 bytes, made beforehand: this machine does not allow larger ones"},
};

std::string make_queue(const std::string& name) {
    qo_set_mqueue_limits();
    int error = 0;
    for (const QueueSize& size : kQueueSizes) {
        mq_attr attributes = {};
        attributes.mq_maxmsg = size.messages;
        attributes.mq_msgsize = size.bytes;
        const mqd_t queue = mq_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, QO_QUEUE_MODE, &attributes);
        if (queue >= 0) {
            mq_close(queue);
            return size.words;
        }
        error = errno;
    }
    throw NotSeen("cannot make the queue " + name + ": " + strerror(error) +
                  "; the limit is \"ulimit -q\", for all queues of a user together");
}

sockaddr_un abstract_address(const std::string& name) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path + 1, sizeof address.sun_path - 1);
    return address;
}

int make_ready_socket(const std::string& name) {
    const sockaddr_un address = abstract_address(name);
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    const int ready = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (ready < 0 || bind(ready, reinterpret_cast<const sockaddr*>(&address), length) != 0)
        throw NotSeen(std::string("cannot play systemd's part: ") + strerror(errno));
    return ready;
}

std::vector<std::string> service_command(const DemoPlace& place, bool statistics) {
    std::vector<std::string> command = {place.programs + "/qo_pushpull"};
    if (!place.instance.empty()) command.insert(command.end(), {"-m", place.instance});
    if (statistics) command.emplace_back("-l");
    return command;
}

std::string path_with(const std::string& folder) {
    const char* path = getenv("PATH");
    return "PATH=" + folder + ":" + (path != nullptr ? path : "/usr/bin:/bin");
}

}  // namespace

DemoService::DemoService(const DemoPlace& place, Statistics statistics)
    : instance_(place.instance), queue_name_(QO_SERVICE_QUEUE_NAME + place.instance) {
    queue_size_ = make_queue(queue_name_);
    const std::string ready_name = "qo_pushpull_demo." + std::to_string(getpid());
    ready_socket_ = make_ready_socket(ready_name);
    // A service whose queue stays full restarts the device. In the demo its commands meet stand-ins.
    process_ = std::make_unique<DemoProcess>(
        service_command(place, statistics == Statistics::on),
        std::vector<std::string>{path_with(place.stand_ins), "NOTIFY_SOCKET=@" + ready_name});
}

DemoService::~DemoService() {
    process_.reset();
    if (ready_socket_ >= 0) close(ready_socket_);
    mq_unlink(queue_name_.c_str());
}

bool DemoService::wait_until_ready(DemoClock::time_point deadline) {
    while (readable(ready_socket_, deadline)) {
        char text[256] = {};
        const ssize_t length = recv(ready_socket_, text, sizeof text - 1, 0);
        if (length > 0 && strstr(text, "READY=1") != nullptr) return true;
    }
    return false;
}

std::optional<int> DemoService::wait_for_end(DemoClock::time_point deadline) {
    const std::optional<int> status = process_->wait_for_end(deadline);
    if (!status || !WIFEXITED(*status)) return std::nullopt;
    return WEXITSTATUS(*status);
}

void DemoService::ask_to_exit() {
    QoPushpullApi api(instance_);
    if (api.init(instance_) != 0) return;
    const std::string queue_name = "/demo" + instance_;
    mq_attr attributes = {};
    attributes.mq_maxmsg = 4;
    attributes.mq_msgsize = 64;
    const std::unique_ptr<QoPushpullReceiveQueue> queue(api.create_receive_queue(
        queue_name, static_cast<int32_t>(attributes.mq_maxmsg), static_cast<int32_t>(attributes.mq_msgsize)));
    if (queue == nullptr) return;
    // The other components are told only when the one that asks is registered.
    api.comp_register(QO_CMPID_TESTPUBLISHER, queue_name, &attributes);
    api.exit_request(QO_CMPID_TESTPUBLISHER, "true");
    queue->timed_receive(std::chrono::seconds(2));
    mq_unlink(queue_name.c_str());
}
