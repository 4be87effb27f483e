// How the data tree survives: loading it at start-up, saving it with its CRC and a backup, the timer that gathers
// changes into one save, and what counts as a change to be saved.
#include <stdio.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_file_replacement.h"
#include "qo_pushpull_initializer.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_live_objects.h"
#include "qo_pushpull_mutex_lock.h"
#include "qo_pushpull_sigterm_mask.h"
#include "qo_pushpull_stats.h"
#include "qo_pushpull_tree_crc.h"
#include "qo_pushpull_utilities.h"

namespace {

constexpr std::string_view kDoNotPersist = "doNotPersist";

/// Held for a whole save, so that two never interleave, also not those of two stores of this process. Taken
/// before the mutex of a store, which is let go while the disk works.
std::mutex saving_mutex;

/// The text of the saved file: the formatted text of the tree, with its CRC as first member. Nothing for a tree
/// that is no object.
std::optional<std::string> saved_text(const QoJsonNode tree) {
    if (json_type(tree.get()) != JSON_NODE) {
        return std::nullopt;
    }
    const std::string text = qo_json_write_formatted(tree.get());
    const QoJsonNode crc_alone(json_new(JSON_NODE));
    // Refused only when the member could not be made.
    if (json_push_back(crc_alone.get(), json_new_a("crc", FormatTreeCrc(CalcCrc32(text)).c_str())) == 0) {
        return std::nullopt;
    }
    std::string whole = qo_json_write_formatted(crc_alone.get());
    if (json_empty(tree.get()) == 0) {
        // The same bytes as inserting the member into the tree and writing that, without writing it twice.
        constexpr std::string_view closing = "\n}";
        whole.resize(whole.size() - closing.size());
        whole += ',';
        whole.append(text, 1);
    }
    return whole;
}

std::chrono::nanoseconds time_left(const itimerspec& time) {
    return std::chrono::seconds(time.it_value.tv_sec) + std::chrono::nanoseconds(time.it_value.tv_nsec);
}

}  // namespace

// ---- loading ---------------------------------------------------------------------------------

int DataMgr::CreateDataTree() {
    const std::string saved_file = SavedFile();
    const std::string back_up_file = saved_file + QO_BACKUP_EXTENSION;
    RemoveStrayFiles();
    // Former versions of this service left them readable by everyone.
    for (const std::string& file : {saved_file, back_up_file, ActiveTreeFile()}) {
        QoFileReplacement::close_to_others(file);
    }
    const bool saved_file_found = DoesFileExist(saved_file);
    if (saved_file_found) {
        QO_LOG(LOG_INFO, "Saved configuration found");
        data_tree_ = ParseJsonFile(saved_file);
        if (data_tree_ != nullptr) {
            DoesDataTreeCRCMatch();
        } else {
            QO_LOG(LOG_CRIT, "Saved configuration cannot be parsed");
            if (remove(saved_file.c_str()) != 0) {
                QO_LOG(LOG_CRIT, "Cannot remove invalid file");
            }
        }
    } else {
        QO_LOG(LOG_INFO, "No saved configuration found");
    }
    if (data_tree_ != nullptr) {
        return 0;
    }

    if (!DoesFileExist(back_up_file)) {
        QO_LOG(LOG_INFO, "No back up configuration found");
        return saved_file_found ? -1 : 0;
    }
    QO_LOG(LOG_INFO, "Back up saved config found");
    data_tree_ = ParseJsonFile(back_up_file);
    if (data_tree_ == nullptr) {
        QO_LOG(LOG_CRIT, "Saved back up configuration cannot be parsed");
        if (remove(back_up_file.c_str()) != 0) {
            QO_LOG(LOG_CRIT, "Cannot remove invalid back up file");
        }
        return -1;
    }
    return DoesDataTreeCRCMatch() ? 0 : -1;
}

bool DataMgr::DoesDataTreeCRCMatch() {
    if (data_tree_ == nullptr) {
        QO_LOG(LOG_ERR, "Null data tree!");
        return false;
    }
    const QoTreeCrcCheck check = TakeOutTreeCrc(data_tree_);
    if (check.result == QoTreeCrcCheck::Result::match) {
        return true;
    }
    if (check.result == QoTreeCrcCheck::Result::missing) {
        QO_LOG(LOG_ERR, "Cannot find CRC info in saved configuration");
    } else {
        QO_LOG(LOG_ERR, "Saved and calculated CRC do not match");
    }
    QO_LOG(LOG_CRIT, "Discarding saved configuration");
    json_delete(std::exchange(data_tree_, nullptr));
    return false;
}

// ---- saving ----------------------------------------------------------------------------------

std::string DataMgr::SavedFile() const { return paths_.data_directory + QO_SAVED_TREE_FILE; }

std::string DataMgr::ActiveTreeFile() const { return paths_.data_directory + QO_ACTIVE_TREE_FILE; }

void DataMgr::RemoveStrayFiles() const {
    const std::lock_guard saving(saving_mutex);
    QoFileReplacement::remove_strays(SavedFile());
    QoFileReplacement::remove_strays(ActiveTreeFile());
}

/// The save timer while a save runs. It is not the store's then, so that a change that lands meanwhile gets a
/// timer of its own and is saved by it.
class DataMgr::TakenTimer {
public:
    /// The caller holds the store's mutex.
    explicit TakenTimer(DataMgr& store) : store_(store), timer_(std::exchange(store.timer_id_, timer_t{})) {}
    /// The save failed: the timer is the store's again, as it was, unless another has come for all changes.
    ~TakenTimer() {
        if (timer_ == timer_t{}) {
            return;
        }
        const QoMutexLock lock(store_.mutex_);
        if (store_.timer_id_ == timer_t{}) {
            store_.timer_id_ = timer_;
        } else {
            timer_delete(timer_);
        }
    }
    TakenTimer(const TakenTimer&) = delete;
    TakenTimer& operator=(const TakenTimer&) = delete;

    /// The save succeeded.
    void cancel() {
        if (timer_ != timer_t{}) {
            timer_delete(std::exchange(timer_, timer_t{}));
        }
    }

private:
    DataMgr& store_;
    timer_t timer_;
};

int DataMgr::SaveDataTree(bool timer_triggered) {
    const std::lock_guard saving(saving_mutex);
    if (timer_triggered && !IsSavePending()) {
        QO_LOG(LOG_ERR, "Save request overridden");
        return 0;
    }
    const std::string path = SavedFile();
    QoFileReplacement file(path);
    if (!file.open()) {
        QO_LOG(LOG_ERR, "Couldn't open file to save the data tree");
        return -1;
    }

    QoJsonNode copy;
    std::optional<TakenTimer> timer;
    {
        const QoMutexLock lock(mutex_);
        if (data_tree_ == nullptr) {
            QO_LOG(LOG_ERR, "No data tree available to save");
            return -1;
        }
        copy.reset(json_duplicate(data_tree_));
        if (!copy) {
            QO_LOG(LOG_ERR, "json duplicate failed.");
            return -1;
        }
        timer.emplace(*this);
    }
    initializer_->TrimNonPersistentData(copy.get());
    const std::optional<std::string> text = saved_text(std::move(copy));
    if (!text) {
        QO_LOG(LOG_ERR, "json new failed.");
        return -1;
    }
    if (!file.write(*text)) {
        QO_LOG(LOG_ERR, "Couldn't write file to save the data tree: %m");
        return -1;
    }

    const QoFileReplacement::Former former = file.keep_former();
    if (!file.put_in_place()) {
        QO_LOG(LOG_ERR, "Couldn't open file to save the data tree");
        return -1;
    }
    if (former == QoFileReplacement::Former::kept) {
        // Not having a backup does not stop the save, and was logged.
        [[maybe_unused]] const int backed_up = RenameAsBackUpFile(path, file.former_name());
    } else if (former == QoFileReplacement::Former::lost) {
        QO_LOG(LOG_CRIT, "Back up failed");
    }
    if (_pushpull_stats) {
        _pushpull_stats->inc_saves();
    }
    sync();
    if (!timer_triggered) {
        QO_LOG(LOG_INFO, "Forced Save");
        QO_LOG(LOG_INFO, "Pending timer to save data is cancelled, if any");
    }
    timer->cancel();
    QO_LOG(LOG_INFO, "Saved the data tree");
    return 0;
}

int DataMgr::RenameAsBackUpFile(const std::string& path, const std::string& other_name) {
    const std::string& from = other_name.empty() ? path : other_name;
    const std::string back_up_file = path + QO_BACKUP_EXTENSION;
    // An existing backup is replaced in one step, so that there always is one.
    bool renamed = rename(from.c_str(), back_up_file.c_str()) == 0;
    if (!renamed && DoesFileExist(from) && DoesFileExist(back_up_file)) {
        if (remove(back_up_file.c_str()) != 0) {
            QO_LOG(LOG_ERR, "Cannot remove existing .bak file");
        }
        renamed = rename(from.c_str(), back_up_file.c_str()) == 0;
    }
    if (!renamed) {
        QO_LOG(LOG_CRIT, "Back up failed");
        return -1;
    }
    return 0;
}

int DataMgr::SaveActiveTreeForDebug() {
    const QoMutexLock lock(mutex_);
    QoFileReplacement file(ActiveTreeFile());
    if (!file.open()) {
        QO_LOG(LOG_ERR, "Couldn't open file to save the active data tree");
        return -1;
    }
    if (data_tree_ == nullptr) {
        QO_LOG(LOG_ERR, "Save Active Tree: No data tree available to save");
        return -1;
    }
    if (!file.write(qo_json_write_formatted(data_tree_))) {
        QO_LOG(LOG_ERR, "Couldn't write file to save the active data tree: %m");
        return -1;
    }
    if (!file.put_in_place()) {
        QO_LOG(LOG_ERR, "Couldn't open file to save the active data tree");
        return -1;
    }
    sync();
    return 0;
}

// ---- save timer ------------------------------------------------------------------------------

bool DataMgr::IsSavePending() {
    const QoMutexLock lock(mutex_);
    return timer_id_ != timer_t{};
}

int DataMgr::CreateTimerToSaveTree() {
    const QoMutexLock lock(mutex_);
    const bool pending = timer_id_ != timer_t{};
    itimerspec remaining{};
    const bool remaining_known = pending && timer_gettime(timer_id_, &remaining) == 0;
    if (pending && timer_extend_cnt <= timings_.extensions) {
        ++timer_extend_cnt;
    }
    const bool running = !remaining_known || time_left(remaining).count() != 0;
    switch (next_save_timer_step(pending, running, timer_extend_cnt, timings_)) {
        case QoSaveTimerStep::arm:
            timer_extend_cnt = 0;
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
            if (remaining_known && !SetTimer(time_left(remaining) + timings_.extension)) {
                QO_LOG(LOG_ERR, "Timer extended attempted but failed!");
            }
            return 0;
        case QoSaveTimerStep::leave:
            QO_LOG(LOG_DEBUG, "Timer is already running!");
            return 0;
    }
    return 0;
}

bool DataMgr::CreateTimer() {
    sigevent notification{};
    notification.sigev_notify = SIGEV_THREAD;
    notification.sigev_notify_function = &DataMgr::TimerCallBack;
    notification.sigev_value.sival_ptr = this;
    // The thread that waits for the timer inherits the mask.
    const QoSigtermMask blocked(SIG_BLOCK);
    if (timer_create(CLOCK_MONOTONIC, &notification, &timer_id_) != 0) {
        timer_id_ = timer_t{};
        return false;
    }
    return true;
}

bool DataMgr::SetTimer(std::chrono::nanoseconds after) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(after);
    itimerspec time{};
    time.it_value.tv_sec = static_cast<time_t>(seconds.count());
    time.it_value.tv_nsec = static_cast<long>((after - seconds).count());
    return timer_settime(timer_id_, 0, &time, nullptr) == 0;
}

int DataMgr::CleanUpTimerInfo() {
    if (timer_id_ != timer_t{}) {
        timer_delete(std::exchange(timer_id_, timer_t{}));
    }
    return 0;
}

void DataMgr::TimerCallBack(union sigval value) {
    const QoSigtermMask blocked(SIG_BLOCK);
    if (value.sival_ptr == nullptr) {
        QO_LOG(LOG_ERR, "Call back did not provide a pointer!");
        return;
    }
    auto* store = static_cast<DataMgr*>(value.sival_ptr);
    // What the save came to was logged; nobody waits for it.
    QoLiveObjects<DataMgr>::if_alive(store, [store] { [[maybe_unused]] const int saved = store->SaveDataTree(true); });
}

// ---- what is to be saved ---------------------------------------------------------------------

bool DataMgr::IsNodeNonPersistent(JSONNODE* node, bool& marker_found) {
    if (node == nullptr) {
        QO_LOG(LOG_ERR, "Null node");
        return false;
    }
    // A node may have any number of members, and nearly none has a marker.
    if (qo_json_find(node, kDoNotPersist) == nullptr) {
        return false;
    }
    marker_found = true;
    for (const JSONNODE* member : QoJsonChildren(node)) {
        if (qo_json_name(member) == kDoNotPersist && json_as_bool(member) != 0) {
            return true;
        }
    }
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
    if (persistent_change) {
        return 0;
    }
    const JSONNODE* level = json_type(data) == JSON_ARRAY ? json_at(data, 0) : data;
    for (JSONNODE* member : QoJsonChildren(published)) {
        JSONNODE* found = qo_json_find(level, qo_json_name(member));
        const bool is_array = json_type(member) == JSON_ARRAY;
        if (found == nullptr && !is_array) {
            continue;
        }
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
        if (DecideByMarker(by_first_element ? json_at(found, 0) : found, persistent_change, decided)) {
            return 0;
        }
        if (is_array) {
            CheckElementsForSaving(found, member, persistent_change, decided);
        } else if (CheckForSavingDataTree(found, member, persistent_change, decided) != 0) {
            return -1;
        }
    }
    return 0;
}

void DataMgr::CheckElementsForSaving(JSONNODE* data, JSONNODE* array, bool& persistent_change, bool& decided) {
    for (JSONNODE* element : QoJsonChildren(array)) {
        // An element without a node does not keep the others from deciding.
        [[maybe_unused]] const int result = CheckForSavingDataTree(data, element, persistent_change, decided);
    }
}
