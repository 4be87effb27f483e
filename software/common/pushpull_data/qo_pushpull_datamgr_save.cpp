// How the data tree survives: writing it with its CRC and a backup, and the debug dump.
#include <errno.h>
#include <stdio.h>
#include <unistd.h>

#include <exception>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_file_replacement.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_initializer.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_life.h"
#include "qo_pushpull_mutex_lock.h"
#include "qo_pushpull_set_aside.h"
#include "qo_pushpull_stats.h"
#include "qo_pushpull_tree_crc.h"
#include "qo_pushpull_utilities.h"

namespace {

/// Held for a whole save, so that two never interleave, also not those of two stores of this process. Taken
/// before the mutex of a store, which is let go while the disk works.
std::mutex saving_mutex;

/// What the file of a tree begins with: all up to the value of its member "crc", which comes first. Nothing when that
/// member cannot be made.
std::optional<std::string> text_of_crc(const std::string& digits) {
    const QoJsonNode crc_alone(json_new(JSON_NODE));
    // Refused only when the member could not be made.
    if (!qo_json_push_back(crc_alone.get(), QoJsonNode(json_new_a("crc", digits.c_str())))) return std::nullopt;
    constexpr std::string_view closing = "\n}";
    std::string text = qo_json_write_formatted(crc_alone.get());
    text.resize(text.size() - closing.size());
    return text;
}

/// Appends the text of the tree, which is an object, so that it follows the member "crc" instead of an opening brace.
/// @return the CRC of the whole text; nothing when the disk refused it.
std::optional<uint32_t> append_tree(QoFileReplacement& file, const QoJsonSnapshot& tree) {
    uint32_t crc = QO_CRC32_START;
    bool first = true;
    const bool written = tree.write_formatted_to([&](std::string_view piece) {
        crc = qo_crc32_update(crc, piece);
        if (!std::exchange(first, false)) return file.append(piece);
        if (piece == "{}") return file.append("\n}");
        return file.append(",") && file.append(piece.substr(1));
    });
    return written ? std::optional(crc) : std::nullopt;
}

enum class Written { whole, no_crc, refused };

/// Writes the saved file of a tree: its formatted text with the CRC of that as first member. Only pieces of it are in
/// memory, so the CRC is known when the text is written: its digits are put in then. When there are fewer than
/// expected, because the first ones are 0, the text is written a second time.
Written write_saved_text(QoFileReplacement& file, const QoJsonSnapshot& tree) {
    if (tree.type() != JSON_NODE) return Written::no_crc;
    for (std::string digits(8, '0');;) {
        const std::optional<std::string> beginning = text_of_crc(digits);
        if (!beginning) return Written::no_crc;
        if (!file.restart() || !file.append(*beginning)) return Written::refused;
        const std::optional<uint32_t> crc = append_tree(file, tree);
        if (!crc) return Written::refused;
        const std::string calculated = FormatTreeCrc(*crc);
        if (calculated.size() == digits.size()) {
            const auto at = static_cast<off_t>(beginning->rfind(digits));
            return file.overwrite(at, calculated) && file.flush() ? Written::whole : Written::refused;
        }
        digits = calculated;
    }
}

}  // namespace

/// The save timer while a save runs. It is not the store's then, so that a change that lands meanwhile gets a
/// timer of its own and is saved by it.
class DataMgr::TakenTimer {
public:
    /// The caller holds the store's mutex.
    explicit TakenTimer(DataMgr& store) : store_(store), timer_(std::exchange(store.timer_id_, timer_t{})) {}
    /// The save failed: the timer is the store's again, as it was, unless another has come for all changes.
    ~TakenTimer() {
        if (timer_ == timer_t{}) return;
        const QoMutexLock lock(store_.mutex_);
        if (store_.timer_id_ == timer_t{})
            store_.timer_id_ = timer_;
        else
            timer_delete(timer_);
    }
    TakenTimer(const TakenTimer&) = delete;
    TakenTimer& operator=(const TakenTimer&) = delete;

    /// The save succeeded.
    void cancel() {
        if (timer_ != timer_t{}) timer_delete(std::exchange(timer_, timer_t{}));
    }

private:
    DataMgr& store_;
    timer_t timer_;
};

int DataMgr::SaveDataTree(bool timer_triggered) {
    const std::lock_guard saving(saving_mutex);
    if (timer_triggered && !TakeExpiry()) {
        QO_LOG(LOG_ERR, "Save request overridden");
        return 0;
    }
    // A disk that refuses for days is logged once, not with every attempt of the timer.
    const bool quiet = timer_triggered && failed_timed_saves_ > 0;
    int result = -1;
    try {
        result = SaveDataTree(timer_triggered, quiet);
    } catch (const std::exception& error) {
        if (!quiet) QO_LOG(LOG_ERR, "Couldn't save the data tree: %s", error.what());
    }
    if (result != 0 && timer_triggered) {
        ++failed_timed_saves_;
        ArmRetry();
    }
    if (result == 0 && failed_timed_saves_ > 0)
        QO_LOG(LOG_INFO, "Saving succeeds again after %lu failed attempts", std::exchange(failed_timed_saves_, 0));
    return result;
}

int DataMgr::SaveDataTree(bool timer_triggered, bool quiet) {
    const std::string path = SavedFile();
    QoFileReplacement file(path);
    if (!file.open()) {
        if (!quiet) QO_LOG_IN("SaveDataTree", LOG_ERR, "Couldn't open file to save the data tree");
        return -1;
    }

    // A publish waits while this is made, and for nothing else of a save.
    QoJsonSnapshot snapshot;
    std::optional<TakenTimer> timer;
    {
        const QoMutexLock lock(mutex_);
        if (data_tree_ == nullptr) {
            if (!quiet) QO_LOG_IN("SaveDataTree", LOG_ERR, "No data tree available to save");
            return -1;
        }
        snapshot = QoJsonSnapshot(data_tree_, Initializer::TakePersistent);
        if (!snapshot) {
            if (!quiet) QO_LOG_IN("SaveDataTree", LOG_ERR, "json duplicate failed.");
            return -1;
        }
        timer.emplace(*this);
    }
    qo_report_life();
    const Written written = write_saved_text(file, snapshot);
    if (written == Written::no_crc) {
        if (!quiet) QO_LOG_IN("SaveDataTree", LOG_ERR, "json new failed.");
        return -1;
    }
    if (written == Written::refused) {
        if (!quiet) QO_LOG_IN("SaveDataTree", LOG_ERR, "Couldn't write file to save the data tree: %m");
        return -1;
    }
    snapshot = {};

    const QoFileReplacement::Former former = file.keep_former();
    using Former = QoFileReplacement::Former;
    // What could not be read must not become the backup, which is what was loaded.
    const bool set_aside = saved_file_unread_ && former != Former::none;
    const bool only_name = former == Former::lost;
    if (set_aside && !qo_set_aside_unread(only_name ? path : file.former_name(), path)) {
        if (!quiet) QO_LOG_IN("SaveDataTree", LOG_ERR, "Couldn't set aside file %s: %m", path.c_str());
        return -1;
    }
    if (!file.put_in_place()) {
        if (!quiet) QO_LOG_IN("SaveDataTree", LOG_ERR, "Couldn't open file to save the data tree");
        // Without a second name it is missing now, unless only the flush of the directory failed.
        if (set_aside && only_name && !DoesFileExist(path)) qo_take_back_unread(path);
        return -1;
    }
    saved_file_unread_ = false;
    if (former == Former::kept && !set_aside)
        BackUp(path, file.former_name());
    else if (former == Former::lost && !set_aside)
        QO_LOG_IN("SaveDataTree", LOG_CRIT, "Back up failed");
    if (_pushpull_stats) _pushpull_stats->inc_saves();
    sync();
    qo_report_life();
    if (!timer_triggered) {
        QO_LOG_IN("SaveDataTree", LOG_INFO, "Forced Save");
        QO_LOG_IN("SaveDataTree", LOG_INFO, "Pending timer to save data is cancelled, if any");
    }
    timer->cancel();
    QO_LOG_IN("SaveDataTree", LOG_INFO, "Saved the data tree");
    return 0;
}

void DataMgr::BackUp(const std::string& path, const std::string& former_name) {
    const std::string back_up_file = path + QO_BACKUP_EXTENSION;
    if (back_up_unread_ && !qo_set_aside_unread(back_up_file, back_up_file) && errno != ENOENT) {
        QO_LOG_IN("SaveDataTree", LOG_CRIT, "Back up failed, file %s cannot be set aside: %m", back_up_file.c_str());
        return;
    }
    back_up_unread_ = false;
    // Not having a backup does not stop the save, and was logged.
    [[maybe_unused]] const int backed_up = RenameAsBackUpFile(path, former_name);
}

int DataMgr::RenameAsBackUpFile(const std::string& path, const std::string& other_name) {
    const std::string& from = other_name.empty() ? path : other_name;
    const std::string back_up_file = path + QO_BACKUP_EXTENSION;
    // An existing backup is replaced in one step, so that there always is one.
    bool renamed = rename(from.c_str(), back_up_file.c_str()) == 0;
    if (!renamed && DoesFileExist(from) && DoesFileExist(back_up_file)) {
        if (remove(back_up_file.c_str()) != 0) QO_LOG(LOG_ERR, "Cannot remove existing .bak file");
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
    const auto append = [&file](std::string_view piece) { return file.append(piece); };
    if (!qo_json_write_formatted_to(data_tree_, append) || !file.flush()) {
        QO_LOG(LOG_ERR, "Couldn't write file to save the active data tree: %m");
        return -1;
    }
    if (!file.put_in_place()) {
        QO_LOG(LOG_ERR, "Couldn't open file to save the active data tree");
        return -1;
    }
    sync();
    qo_report_life();
    return 0;
}
