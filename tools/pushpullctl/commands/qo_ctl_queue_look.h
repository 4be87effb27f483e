/// What the commands that show queues share.
#ifndef QO_CTL_QUEUE_LOOK_H
#define QO_CTL_QUEUE_LOOK_H

#include <string>
#include <vector>

#include "qo_ctl_queue_list.h"
#include "qo_pushpull_json.h"

/// All queues that can be looked at, in alphabetical order, with their readers and, as far as their names tell,
/// components.
struct QoCtlQueueLook {
    std::vector<QoCtlQueue> queues;
    std::vector<QoCtlProcess> closed;  // processes that could not be looked into
};

/// Looks at them, with a word on standard error about those that cannot be looked at.
/// @param service the name of the service's queue, which is all there is where queues cannot be listed
QoCtlQueueLook qo_ctl_look_at_queues(const std::string& service);

/// Says on standard error that some processes were not looked into, which may be the readers of queues.
void qo_ctl_say_what_is_closed(const std::vector<QoCtlProcess>& closed);

/// A name or a text of somebody else's, for a table.
std::string qo_ctl_shown(std::string text);

/// The component's name; "-" when it is not known.
std::string qo_ctl_component_shown(const QoCtlQueue& queue);

/// "component" and "number", when they are known.
void qo_ctl_add_component(JSONNODE* object, const QoCtlQueue& queue);

/// "process", "program", "state" and "since".
void qo_ctl_add_process(JSONNODE* object, const QoCtlProcess& process);

#endif
