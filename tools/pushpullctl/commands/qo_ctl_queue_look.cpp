// Looking at all queues and their readers.
#include "qo_ctl_queue_look.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "qo_ctl_components.h"
#include "qo_ctl_moment.h"
#include "qo_ctl_output.h"
#include "qo_ctl_own_queue.h"
#include "qo_ctl_queue_readers.h"
#include "qo_ctl_statistics.h"

namespace {

constexpr size_t kMostNamed = 5;  // processes

std::string mounts() {
    std::ifstream file("/proc/self/mounts");
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// The names of all queues, or of the service's alone, with a word about it, where they cannot be listed.
std::vector<std::string> names_to_look_at(const std::string& service) {
    const std::optional<std::string> directory = qo_ctl_queue_directory(mounts());
    if (!directory) {
        qo_ctl_say(
            "only the service's queue is shown; to see all: mkdir -p /dev/mqueue && mount -t mqueue none /dev/mqueue");
        return {service};
    }
    std::optional<std::vector<std::string>> names = qo_ctl_queue_names(*directory);
    if (!names) {
        qo_ctl_say(*directory + ": " + std::strerror(errno));
        return {service};
    }
    return *names;
}

eQO_CMP_IDs_ component_by_name(const std::string& queue) {
    if (qo_ctl_may_be_service_queue(queue)) return QO_CMPID_PUSHPULL;
    return qo_ctl_owner_of_queue(queue).value_or(QO_CMPID_RESERVED);
}

}  // namespace

QoCtlQueueLook qo_ctl_look_at_queues(const std::string& service) {
    QoCtlQueueLook look;
    for (const std::string& name : names_to_look_at(service)) {
        std::optional<QoCtlQueue> queue = qo_ctl_look_at_queue(name);
        if (queue) {
            queue->component = component_by_name(name);
            look.queues.push_back(*std::move(queue));
        } else if (name != service || errno != ENOENT) {
            qo_ctl_say(name + ": " + std::strerror(errno));
        }
    }
    look.closed = qo_ctl_find_readers(look.queues);
    return look;
}

void qo_ctl_say_what_is_closed(const std::vector<QoCtlProcess>& closed) {
    if (closed.empty()) return;
    std::string text = "not looked into, for want of permission:";
    for (size_t i = 0; i < std::min(closed.size(), kMostNamed); ++i)
        text += (i == 0 ? " " : ", ") + closed[i].program + " (" + std::to_string(closed[i].id) + ")";
    if (closed.size() > kMostNamed) text += " and " + std::to_string(closed.size() - kMostNamed) + " more";
    qo_ctl_say(text + "; run as root to see whether they read a queue");
}

std::string qo_ctl_shown(std::string text) { return qo_ctl_plain_name(std::move(text)); }

std::string qo_ctl_component_shown(const QoCtlQueue& queue) {
    return queue.component == QO_CMPID_RESERVED ? "-" : qo_ctl_component_name(queue.component);
}

void qo_ctl_add_component(JSONNODE* object, const QoCtlQueue& queue) {
    if (queue.component == QO_CMPID_RESERVED) return;
    json_push_back(object, json_new_a("component", qo_ctl_component_name(queue.component).c_str()));
    json_push_back(object, json_new_i("number", queue.component));
}

void qo_ctl_add_process(JSONNODE* object, const QoCtlProcess& process) {
    json_push_back(object, json_new_i("process", process.id));
    json_push_back(object, json_new_a("program", qo_ctl_shown(process.program).c_str()));
    json_push_back(object, json_new_a("state", std::string(qo_ctl_process_state(process.state)).c_str()));
    json_push_back(object, json_new_a("since", qo_ctl_second_text(process.started).c_str()));
}
