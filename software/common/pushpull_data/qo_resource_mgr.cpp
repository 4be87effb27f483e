// The registry of components and their queues.
#include "qo_resource_mgr.h"

#include <errno.h>
#include <fcntl.h>
#include <syslog.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "qo_pushpull_cleared_umask.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_descriptor.h"
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_queue_monitor.h"

// ---- one component ----

resource::resource() : UnitID(QO_CMPID_RESERVED), msg_queue_descriptor(0) {}

void resource::set_unit_id(eQO_CMP_IDs_ comp_id) { UnitID = comp_id; }

eQO_CMP_IDs_ resource::get_unit_id() const { return UnitID; }

void resource::set_queue_name(const std::string& name) { QueueName = name; }

const std::string& resource::get_queue_name() const { return QueueName; }

void resource::set_msg_queue_descriptor(mqd_t descriptor) { msg_queue_descriptor = descriptor; }

mqd_t resource::getMsg_queue_descriptor() const { return msg_queue_descriptor; }

// ---- life ----

ResourceMgr::ResourceMgr() : unit_ids_{}, index(-1), queue_monitor(std::make_shared<QoPushPullQueueMonitor>()) {}

ResourceMgr::~ResourceMgr() {
    for (std::unique_ptr<resource>& entry : Tbl) entry.reset();
    queue_monitor.reset();
}

void ResourceMgr::init() {}

void ResourceMgr::execute() {}

void ResourceMgr::terminate() {
    for (const std::unique_ptr<resource>& entry : Tbl) {
        if (!entry) continue;
        close_msg_queue(entry->getMsg_queue_descriptor());
        entry->set_msg_queue_descriptor(0);
        entry->set_queue_name("");
        entry->set_unit_id(QO_CMPID_RESERVED);
    }
    std::fill(std::begin(unit_ids_), std::end(unit_ids_), QO_CMPID_RESERVED);
}

QoPushPullQueueMonitor& ResourceMgr::monitor() const { return *queue_monitor; }

// ---- registering ----

int32_t ResourceMgr::comp_register(eQO_CMP_IDs_ comp_id, std::string queue_name, const mq_attr* attributes) {
    if (comp_id == QO_CMPID_RESERVED) {
        syslog(LOG_ERR, "Invalid Res_ID [QO_CMPID_RESERVED] = %d", comp_id);
        return -1;
    }
    const int32_t slot = find_slot(comp_id);
    if (slot == QO_MAX_RESOURCES) {
        syslog(LOG_ERR, "Res Mgr Table Full , ERR_CODE:%d", QO_ERR_REGISTRY_FULL);
        return QO_ERR_REGISTRY_FULL;
    }
    if (Tbl[slot]) return confirm_registration(*Tbl[slot], queue_name, attributes);
    auto entry = std::make_unique<resource>();
    entry->set_unit_id(comp_id);
    entry->set_queue_name(queue_name);
    QoDescriptor queue(open_msg_queue(queue_name, attributes));
    if (!queue) {
        syslog(LOG_ERR, "ResourceMgr MessageQueue: mq_open: - failed: ERR_CODE : %d", QO_ERR_QUEUE_OPEN);
        return QO_ERR_QUEUE_OPEN;
    }
    entry->set_msg_queue_descriptor(queue.get());
    // The last step that can fail.
    queue_monitor->addQueue(queue_name, comp_id, queue.get());
    static_cast<void>(queue.release());
    Tbl[slot] = std::move(entry);
    unit_ids_[slot] = comp_id;
    index = slot;
    return 0;
}

int32_t ResourceMgr::confirm_registration(resource& entry, const std::string& queue_name, const mq_attr* attributes) {
    if (entry.get_queue_name() != queue_name) {
        syslog(LOG_CRIT, "Register WARNING: Component (%d) already registered but with different queue %s",
               entry.get_unit_id(), queue_name.c_str());
        return 0;
    }
    if (!qo_is_unlinked(entry.getMsg_queue_descriptor())) return 0;
    syslog(LOG_WARNING, "ResourceMgr MessageQueue: %s of component %d was removed, opening it anew", queue_name.c_str(),
           entry.get_unit_id());
    return reopen_queue(entry, attributes);
}

// Nobody reads the queue that the entry has.
int32_t ResourceMgr::reopen_queue(resource& entry, const mq_attr* attributes) {
    const std::string queue_name = entry.get_queue_name();
    QoDescriptor queue(open_msg_queue(queue_name, attributes));
    if (!queue) {
        syslog(LOG_ERR, "ResourceMgr MessageQueue: mq_open: - failed: ERR_CODE : %d", QO_ERR_QUEUE_OPEN);
        return QO_ERR_QUEUE_OPEN;
    }
    queue_monitor->addQueue(queue_name, entry.get_unit_id(), queue.get());
    close_msg_queue(entry.getMsg_queue_descriptor());
    entry.set_msg_queue_descriptor(queue.release());
    return 0;
}

int32_t ResourceMgr::forget_resource(eQO_CMP_IDs_ comp_id) {
    if (index >= QO_MAX_RESOURCES) {
        syslog(LOG_ERR, "'index' shall never be equal or more than QO_MAX_RESOURCES");
        return -1;
    }
    const int32_t slot = find_slot(comp_id);
    if (!is_used(slot)) {
        syslog(LOG_ERR, "ResourceMgr forget_resource: Resource Entry not Found = %d, ERR_CODE=%ld", comp_id,
               static_cast<long>(QO_ERR_NOT_REGISTERED));
        return QO_ERR_NOT_REGISTERED;
    }
    close_msg_queue(Tbl[slot]->getMsg_queue_descriptor());
    std::swap(Tbl[slot], Tbl[index]);
    unit_ids_[slot] = unit_ids_[index];
    Tbl[index].reset();
    --index;
    return 0;
}

// ---- looking up ----

// The slot of a component; when it has none the first free slot, or QO_MAX_RESOURCES when there is none either.
int32_t ResourceMgr::find_slot(eQO_CMP_IDs_ comp_id) const {
    const eQO_CMP_IDs_* const end = unit_ids_ + (index + 1);
    return static_cast<int32_t>(std::find(unit_ids_, end, comp_id) - unit_ids_);
}

bool ResourceMgr::is_used(int32_t slot) const { return slot < QO_MAX_RESOURCES && Tbl[slot] != nullptr; }

bool ResourceMgr::is_comp_registered(eQO_CMP_IDs_ comp_id) {
    if (comp_id == QO_CMPID_RESERVED) {
        syslog(LOG_ERR, "Invalid Res_ID = %d", comp_id);
        return false;
    }
    const int32_t slot = find_slot(comp_id);
    if (is_used(slot)) return true;
    if (slot < QO_MAX_RESOURCES)
        syslog(LOG_DEBUG, "Tbl[%d], Scan completed & component not Registered = %d", slot, comp_id);
    return false;
}

// The entry of a component whose queue is asked for, or null with the log line that this deserves.
const resource* ResourceMgr::find_queue_of(eQO_CMP_IDs_ comp_id) const {
    if (comp_id == QO_CMPID_RESERVED) {
        syslog(LOG_ERR, "Invalid Res_ID = %d", comp_id);
        return nullptr;
    }
    const int32_t slot = find_slot(comp_id);
    if (is_used(slot)) return Tbl[slot].get();
    if (slot < QO_MAX_RESOURCES) {
        syslog(LOG_DEBUG, "Tbl[%d], Scan completed & queue name -not Registered for nComp_id = %d, ERR_CODE: %d", slot,
               comp_id, QO_ERR_NOT_REGISTERED);
    }
    return nullptr;
}

const std::string& ResourceMgr::get_resource_queuename(eQO_CMP_IDs_ comp_id) {
    static const std::string kNone;
    const resource* entry = find_queue_of(comp_id);
    return entry != nullptr ? entry->get_queue_name() : kNone;
}

mqd_t ResourceMgr::getMsg_queue_descriptor(eQO_CMP_IDs_ comp_id) {
    const resource* entry = find_queue_of(comp_id);
    return entry != nullptr ? entry->getMsg_queue_descriptor() : 0;
}

int32_t ResourceMgr::get_no_of_resources() { return index + 1; }

mqd_t ResourceMgr::getMsg_queue_descriptor(int32_t slot) {
    return is_used(slot) ? Tbl[slot]->getMsg_queue_descriptor() : 0;
}

std::string ResourceMgr::get_queue_name(int32_t slot) {
    // Deliberate: only the upper bound is checked, since callers count from 0.
    // Test: Lookup.SlotNumberIsCheckedAgainstTheUpperBound
    return is_used(slot) ? Tbl[slot]->get_queue_name() : "";
}

// ---- queues ----

namespace {

mq_attr choose_attributes(const mq_attr* given) {
    if (given != nullptr && qo_queue_attributes_count(given->mq_maxmsg, given->mq_msgsize)) return *given;
    mq_attr chosen{};
    chosen.mq_maxmsg = QO_QUEUE_MAXMSG;
    chosen.mq_msgsize = QO_QUEUE_MSGSIZE;
    return chosen;
}

// The mode holds as given: the umask is 0 around the open.
mqd_t create_msg_queue(const std::string& queue_name, mq_attr& attributes) {
    const QoClearedUmask cleared;
    return mq_open(queue_name.c_str(), O_RDWR | O_CREAT, QO_QUEUE_MODE, &attributes);
}

}  // namespace

mqd_t ResourceMgr::open_msg_queue(const std::string& queue_name, const mq_attr* attributes) {
    mq_attr chosen = choose_attributes(attributes);
    mqd_t descriptor = mq_open(queue_name.c_str(), O_RDWR);
    int open_errno = errno;
    // Deliberate: errno is tested whatever the first open returned, so a stale ENOENT opens the queue a second
    // time, which finds it. Test: OpenMsgQueue.StaleEnoentLeadsToASecondOpenAndNoLeak
    if (open_errno == ENOENT) {
        const mqd_t first = descriptor;
        descriptor = create_msg_queue(queue_name, chosen);
        open_errno = errno;
        if (first != -1) mq_close(first);
        syslog(LOG_ERR, "ResourceMgr MessageQueue: mq_open:%s no device found\n", queue_name.c_str());
    }
    if (descriptor == -1) {
        // Deliberate: "size=" carries the message count and "max=" the message size, by which logs are searched.
        // Test: OpenMsgQueue.FailureNamesTheCountAsSizeAndTheSizeAsMax
        syslog(LOG_ERR, "ResourceMgr MessageQueue: mq_open: \"%s\" - failed: %p size=%ld , max=%ld , ERR_CODE:%d",
               queue_name.c_str(), static_cast<const void*>(attributes), static_cast<long>(chosen.mq_maxmsg),
               static_cast<long>(chosen.mq_msgsize), open_errno);
    }
    return descriptor;
}

void ResourceMgr::close_msg_queue(int32_t descriptor) {
    if (descriptor == 0) return;
    queue_monitor->removeQueue(static_cast<mqd_t>(descriptor));
    // The descriptor is gone whatever mq_close returns, so there is nothing to do about a failure.
    [[maybe_unused]] const int result = mq_close(descriptor);
}
