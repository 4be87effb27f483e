/// Which processes read which message queues: those that hold them open, as /proc shows it.
#ifndef QO_CTL_QUEUE_READERS_H
#define QO_CTL_QUEUE_READERS_H

#include <string_view>
#include <vector>

#include "qo_ctl_process.h"
#include "qo_ctl_queue_list.h"

/// What the text of a descriptor's "fdinfo" says.
struct QoCtlDescriptorInfo {
    bool reads = false;  // open for reading, or for both
    bool locks = false;  // an advisory lock was taken through it
};
QoCtlDescriptorInfo qo_ctl_read_descriptor_info(std::string_view text);

/// Sets the readers of every queue. A queue with a lock is read by who holds the lock: the service and this program
/// lock theirs, and other processes have them open for reading and writing only to write. Any other queue is read by
/// who has it open for reading, but for the services, which hold the queues of all components.
/// @return the processes whose descriptors could not be looked at
std::vector<QoCtlProcess> qo_ctl_find_readers(std::vector<QoCtlQueue>& queues);

#endif
