// When the data tree is saved: the timer that gathers changes into one save, and what counts as a change to be saved.
#include <chrono>
#include <string_view>
#include <utility>

#include "qo_pushpull_blocked_signal.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_live_objects.h"
#include "qo_pushpull_mutex_lock.h"
#include "qo_pushpull_thread_timer.h"
#include "qo_pushpull_utilities.h"

namespace {

constexpr std::string_view kDoNotPersist = "doNotPersist";

std::chrono::nanoseconds time_left(const itimerspec& time) {
    return std::chrono::seconds(time.it_value.tv_sec) + std::chrono::nanoseconds(time.it_value.tv_nsec);
}

timespec to_timespec(std::chrono::nanoseconds time) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
    return {static_cast<time_t>(seconds.count()), static_cast<long>((time - seconds).count())};
}

}  // namespace

// ---- save timer ----

// An expiry that has its thread needs no other one.
bool DataMgr::TakeExpiry() {
    const QoMutexLock lock(mutex_);
    if (timer_id_ == timer_t{}) return false;
    [[maybe_unused]] const bool disarmed = SetTimer({});
    return true;
}

int DataMgr::CreateTimerToSaveTree() {
    const QoMutexLock lock(mutex_);
    const bool pending = timer_id_ != timer_t{};
    itimerspec remaining{};
    const bool remaining_known = pending && timer_gettime(timer_id_, &remaining) == 0;
    if (waits_for_retry_) remaining = {};  // a change is reason enough to try earlier
    if (pending && timer_extend_cnt <= timings_.extensions) ++timer_extend_cnt;
    const bool running = !remaining_known || time_left(remaining).count() != 0;
    switch (next_save_timer_step(pending, running, timer_extend_cnt, timings_)) {
        case QoSaveTimerStep::arm:
            timer_extend_cnt = 0;
            waits_for_retry_ = false;
            if (!CreateTimer()) {
                QO_LOG(LOG_ERR, "Cannot create timer!");
                return -1;
            }
            if (!SetTimer(timings_.first)) {
                QO_LOG(LOG_ERR, "Cannot set time in the timer!");
                CleanUpTimerInfo();
                return -1;
            }
            QO_LOG(LOG_INFO, "Timer to save the data tree created!");
            return 0;
        case QoSaveTimerStep::extend:
            if (remaining_known && !SetTimer(time_left(remaining) + timings_.extension))
                QO_LOG(LOG_ERR, "Timer extended attempted but failed!");
            else if (remaining_known)
                waits_for_retry_ = false;
            return 0;
        case QoSaveTimerStep::leave:
            QO_LOG(LOG_DEBUG, "Timer is already running!");
            return 0;
    }
    return 0;
}

void DataMgr::ArmRetry() {
    const QoMutexLock lock(mutex_);
    itimerspec remaining{};
    // A change that came while the save failed has a timer of its own, which comes earlier.
    if (timer_id_ == timer_t{} || (timer_gettime(timer_id_, &remaining) == 0 && time_left(remaining).count() != 0))
        return;
    if (!SetTimer(timings_.retry)) {
        QO_LOG_IN("SaveDataTree", LOG_ERR, "Cannot set time in the timer!");
        return;
    }
    waits_for_retry_ = true;
    timer_extend_cnt = 0;
}

bool DataMgr::CreateTimer() { return qo_create_thread_timer(&DataMgr::TimerCallBack, this, timer_id_); }

bool DataMgr::SetTimer(std::chrono::nanoseconds after) {
    itimerspec time{};
    time.it_value = to_timespec(after);
    // The C library starts a thread for each expiry, and forgets the expiry when it gets no memory for that.
    time.it_interval = to_timespec(timings_.retry);
    return timer_settime(timer_id_, 0, &time, nullptr) == 0;
}

int DataMgr::CleanUpTimerInfo() {
    if (timer_id_ != timer_t{}) timer_delete(std::exchange(timer_id_, timer_t{}));
    return 0;
}

void DataMgr::TimerCallBack(union sigval value) {
    const QoBlockedSignal blocked(SIGTERM);
    if (value.sival_ptr == nullptr) {
        QO_LOG(LOG_ERR, "Call back did not provide a pointer!");
        return;
    }
    auto* store = static_cast<DataMgr*>(value.sival_ptr);
    // What the save came to was logged; nobody waits for it.
    QoLiveObjects<DataMgr>::if_alive(store, [store] { [[maybe_unused]] const int saved = store->SaveDataTree(true); });
}

// ---- what is to be saved ----

bool DataMgr::IsNodeNonPersistent(JSONNODE* node, bool& marker_found) {
    if (node == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return false;
    }
    // A node may have any number of members, and nearly none has a marker.
    if (qo_json_find(node, kDoNotPersist) == nullptr) return false;
    marker_found = true;
    for (const JSONNODE* member : QoJsonChildren(node))
        if (qo_json_name(member) == kDoNotPersist && json_as_bool(member) != 0) return true;
    return false;
}

bool DataMgr::DecideByMarker(JSONNODE* node, bool& persistent_change, bool& decided) {
    bool marker_found = false;
    const bool non_persistent = IsNodeNonPersistent(node, marker_found);
    if (marker_found) {
        decided = true;
        persistent_change = persistent_change || !non_persistent;
    }
    return marker_found;
}

int DataMgr::CheckForSavingDataTree(JSONNODE* data, JSONNODE* published, bool& persistent_change, bool& decided) {
    if (data == nullptr || published == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return -1;
    }
    if (persistent_change) return 0;
    const JSONNODE* level = json_type(data) == JSON_ARRAY ? json_at(data, 0) : data;
    for (JSONNODE* member : QoJsonChildren(published)) {
        JSONNODE* found = qo_json_find(level, qo_json_name(member));
        const bool is_array = json_type(member) == JSON_ARRAY;
        if (found == nullptr && !is_array) continue;
        if (!is_array && json_empty(found) != 0) {
            if (qo_json_name(member) == kDoNotPersist) {
                decided = true;
                persistent_change = persistent_change || json_as_bool(member) == 0;
            }
            continue;
        }
        // Deliberate: a published array that is not there, because it was refused, is asked for all the same, and the
        // log tells that there is no node.
        // Test: SaveDecision.ANewArrayThatWasRefusedIsLookedForOnceAndOnceForEachElement
        const bool by_first_element = is_array && json_type(found) == JSON_ARRAY && json_empty(found) == 0;
        if (DecideByMarker(by_first_element ? json_at(found, 0) : found, persistent_change, decided)) return 0;
        if (is_array)
            CheckElementsForSaving(found, member, persistent_change, decided);
        else if (CheckForSavingDataTree(found, member, persistent_change, decided) != 0)
            return -1;
    }
    return 0;
}

void DataMgr::CheckElementsForSaving(JSONNODE* data, JSONNODE* array, bool& persistent_change, bool& decided) {
    for (JSONNODE* element : QoJsonChildren(array)) {
        // An element without a node does not keep the others from deciding.
        [[maybe_unused]] const int result = CheckForSavingDataTree(data, element, persistent_change, decided);
    }
}
