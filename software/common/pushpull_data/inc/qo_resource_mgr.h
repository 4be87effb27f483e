/// The registry of components: who is registered, on which queue, and who supervises the queues.
#ifndef QO_RESOURCE_MGR_H
#define QO_RESOURCE_MGR_H

#include <mqueue.h>

#include <cstdint>
#include <memory>
#include <string>

#include "qo_component_ids.h"

class QoPushPullQueueMonitor;

inline constexpr int32_t QO_MAX_RESOURCES = 128;  // components in the registry

/// One registered component. A plain record: it opens and closes nothing. Main thread only.
class resource {
public:
    resource();
    void set_unit_id(eQO_CMP_IDs_ comp_id);
    /// QO_CMPID_RESERVED marks an entry that ResourceMgr::terminate cleared.
    eQO_CMP_IDs_ get_unit_id() const;
    void set_queue_name(const std::string& name);
    const std::string& get_queue_name() const;
    void set_msg_queue_descriptor(mqd_t descriptor);
    /// 0 when no queue is open.
    mqd_t getMsg_queue_descriptor() const;

private:
    eQO_CMP_IDs_ UnitID;
    std::string QueueName;
    mqd_t msg_queue_descriptor;
};

/// The table of registered components with their receive queues, as the service opened them for sending.
/// Owns the entries, their descriptors and the queue monitor. Main thread only, no lock of its own; what
/// touches the monitor's list takes the monitor's `_mutexList`. Failures are logged and returned; nothing throws.
class ResourceMgr {
public:
    /// Empty table; creates the queue monitor.
    ResourceMgr();
    /// Frees the entries and releases the monitor. Closes no queue: that is terminate's.
    ~ResourceMgr();
    ResourceMgr(const ResourceMgr&) = delete;
    ResourceMgr& operator=(const ResourceMgr&) = delete;

    /// Does nothing; kept for the common shape of the service's managers.
    void init();
    /// Does nothing, as init.
    void execute();
    /// Closes every registered queue and clears the entries, which stay in the table. A terminated registry is
    /// not used again: the service builds a new one.
    void terminate();

    /// Registers a component and opens its receive queue for sending, creating the queue when it does not exist.
    /// `attributes` may be null: a queue created here then has 64 messages of 262144 bytes.
    /// Who is registered already keeps the first queue, whatever name is given now. Only when that queue was removed
    /// from the system is it closed, and the name, if it is the same, opened anew.
    /// @return 0, also when already registered; -1 for QO_CMPID_RESERVED; 50001 queue open failed; 50013 registry full.
    ///         Nothing is stored on failure.
    int32_t comp_register(eQO_CMP_IDs_ comp_id, std::string queue_name, const mq_attr* attributes);
    /// Takes a component out and closes its queue. The last entry of the table moves into the gap.
    /// @return 0; 50014 not found; -1 when the table's index is corrupt. Nothing changes on failure.
    int32_t forget_resource(eQO_CMP_IDs_ comp_id);

    /// False for an unknown identifier and, logged at LOG_ERR, for QO_CMPID_RESERVED.
    bool is_comp_registered(eQO_CMP_IDs_ comp_id);
    /// The name of the component's queue, which lives until it is unregistered; "" when it is not registered.
    const std::string& get_resource_queuename(eQO_CMP_IDs_ comp_id);
    /// The descriptor of the component's queue, which stays this table's; 0 when it is not registered.
    mqd_t getMsg_queue_descriptor(eQO_CMP_IDs_ comp_id);

    /// How many slots are in use: they are 0 to this number minus 1, without gaps.
    int32_t get_no_of_resources();
    /// The descriptor in a slot; 0 when the slot is empty or its number is above 127. Never call it with a
    /// negative number.
    mqd_t getMsg_queue_descriptor(int32_t slot);
    /// The queue name in a slot, "" likewise.
    std::string get_queue_name(int32_t slot);

    /// Opens an existing queue for reading and writing, or creates it with mode 0660 whatever the umask.
    /// `attributes` may be null and is ignored unless its mq_maxmsg and mq_msgsize are above 0.
    /// @return the descriptor, blocking, the caller's to close; -1, logged, on failure.
    mqd_t open_msg_queue(const std::string& queue_name, const mq_attr* attributes);
    /// Takes a queue away from the monitor and closes it. Does nothing for 0.
    void close_msg_queue(int32_t descriptor);

    /// The monitor that supervises the registered queues and the service's own. Lives as long as the registry.
    QoPushPullQueueMonitor& monitor() const;

private:
    int32_t find_slot(eQO_CMP_IDs_ comp_id) const;
    bool is_used(int32_t slot) const;
    const resource* find_queue_of(eQO_CMP_IDs_ comp_id) const;
    int32_t confirm_registration(resource& entry, const std::string& queue_name, const mq_attr* attributes);
    int32_t reopen_queue(resource& entry, const mq_attr* attributes);

    std::unique_ptr<resource> Tbl[QO_MAX_RESOURCES];  // a null pointer is a free slot
    eQO_CMP_IDs_ unit_ids_[QO_MAX_RESOURCES];         // of the slots in use, for the search
    int32_t index;                                    // last used slot, -1 when the table is empty
    std::shared_ptr<QoPushPullQueueMonitor> queue_monitor;
};
#endif
