// How the data tree comes back: the saved tree, or its backup, is read at start-up and its CRC is checked.
#include <string.h>

#include <utility>

#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_file_reader.h"
#include "qo_pushpull_file_replacement.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_set_aside.h"
#include "qo_pushpull_tree_crc.h"
#include "qo_pushpull_utilities.h"

std::string DataMgr::SavedFile() const { return paths_.data_directory + QO_SAVED_TREE_FILE; }

std::string DataMgr::ActiveTreeFile() const { return paths_.data_directory + QO_ACTIVE_TREE_FILE; }

void DataMgr::TidyDirectory() const {
    const std::string saved_file = SavedFile();
    QoFileReplacement::remove_strays(saved_file);
    QoFileReplacement::remove_strays(ActiveTreeFile());
    // Former versions of this service left them readable by everyone.
    for (const std::string& file : {saved_file, saved_file + QO_BACKUP_EXTENSION, ActiveTreeFile()})
        QoFileReplacement::close_to_others(file);
}

int DataMgr::CreateDataTree() {
    const std::string saved_file = SavedFile();
    const std::string back_up_file = saved_file + QO_BACKUP_EXTENSION;
    TidyDirectory();
    QoFileReader saved(saved_file);
    if (!saved.absent()) {
        QO_LOG(LOG_INFO, "Saved configuration found");
        data_tree_ = ParseJsonFile(saved);
        if (data_tree_ != nullptr) {
            DoesDataTreeCRCMatch();
        } else if (saved.error() != 0) {
            saved_file_unread_ = true;
            QO_LOG(LOG_CRIT, "Saved configuration %s cannot be read and is kept: errno %d (%s)", saved_file.c_str(),
                   saved.error(), strerror(saved.error()));
        } else {
            QO_LOG(LOG_CRIT, "Saved configuration cannot be parsed");
            if (!qo_set_aside_bad(saved_file)) QO_LOG(LOG_CRIT, "Cannot remove invalid file");
        }
    } else {
        QO_LOG(LOG_INFO, "No saved configuration found");
    }
    if (data_tree_ != nullptr) return 0;

    QoFileReader back_up(back_up_file);
    if (back_up.absent()) {
        QO_LOG(LOG_INFO, "No back up configuration found");
        return saved.absent() ? 0 : -1;
    }
    QO_LOG(LOG_INFO, "Back up saved config found");
    data_tree_ = ParseJsonFile(back_up);
    if (data_tree_ != nullptr) return DoesDataTreeCRCMatch() ? 0 : -1;
    if (back_up.error() != 0) {
        back_up_unread_ = true;
        QO_LOG(LOG_CRIT, "Saved back up configuration %s cannot be read and is kept: errno %d (%s)",
               back_up_file.c_str(), back_up.error(), strerror(back_up.error()));
        return -1;
    }
    QO_LOG(LOG_CRIT, "Saved back up configuration cannot be parsed");
    if (!qo_set_aside_bad(back_up_file)) QO_LOG(LOG_CRIT, "Cannot remove invalid back up file");
    return -1;
}

bool DataMgr::DoesDataTreeCRCMatch() {
    if (data_tree_ == nullptr) {
        QO_LOG(LOG_ERR, "Null data tree!");
        return false;
    }
    const QoTreeCrcCheck check = TakeOutTreeCrc(data_tree_);
    if (check.result == QoTreeCrcCheck::Result::match) return true;
    if (check.result == QoTreeCrcCheck::Result::missing)
        QO_LOG(LOG_ERR, "Cannot find CRC info in saved configuration");
    else
        QO_LOG(LOG_ERR, "Saved and calculated CRC do not match");
    QO_LOG(LOG_CRIT, "Discarding saved configuration");
    json_delete(std::exchange(data_tree_, nullptr));
    return false;
}
