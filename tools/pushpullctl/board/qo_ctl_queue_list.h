/// The message queues of this IPC namespace, looked at from outside.
#ifndef QO_CTL_QUEUE_LIST_H
#define QO_CTL_QUEUE_LIST_H

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qo_component_ids.h"
#include "qo_ctl_process.h"

/// A queue: how many messages wait in it, and its limits.
struct QoCtlQueue {
    std::string name;
    long messages;
    long max_messages;
    long message_size;   // bytes
    long full_for = -1;  // seconds; -1 when nobody watches
    dev_t device = 0;    // with the inode, what makes two descriptors the same queue
    ino_t inode = 0;
    eQO_CMP_IDs_ component = QO_CMPID_RESERVED;  // whose it is; QO_CMPID_RESERVED when that is not known
    std::vector<QoCtlProcess> readers = {};      // when they were looked for
};

/// Where the message queue file system is mounted, as /proc/self/mounts shows it: /dev/mqueue before any other
/// place. Nothing when it is mounted nowhere.
std::optional<std::string> qo_ctl_queue_directory(std::string_view mounts);

/// The names of the queues in a directory of that file system, with their slash, in alphabetical order; nothing
/// with errno when it cannot be read.
std::optional<std::vector<std::string>> qo_ctl_queue_names(const std::string& directory);

/// Looks at one queue. @return nothing with errno when it cannot be opened
std::optional<QoCtlQueue> qo_ctl_look_at_queue(const std::string& name);

/// For how long queues have been seen full without a break, from one look to the next.
class QoCtlFullTimes {
public:
    /// Sets `full_for` of every queue: 0 for one that has room. A queue that is not there any more is forgotten.
    /// @param now monotonic seconds
    void note(std::vector<QoCtlQueue>& queues, long now);

private:
    std::map<std::string, long> full_since_;
};

/// Keeps so many queues, `service` and those that are fullest, in their order. @return how many were left out
size_t qo_ctl_keep_fullest(std::vector<QoCtlQueue>& queues, const std::string& service, size_t most);

/// A bar of `width` characters: "[####......]" with '#' for what is full. One message shows, and only a full queue
/// leaves no '.'.
std::string qo_ctl_fill_bar(long messages, long max_messages, size_t width);

#endif
