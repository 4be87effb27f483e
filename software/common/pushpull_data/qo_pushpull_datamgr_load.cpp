// How the data tree comes back: the saved tree, or its backup, is read at start-up and its CRC is checked.
#include <stdio.h>

#include <utility>

#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_file_replacement.h"
#include "qo_pushpull_tree_crc.h"
#include "qo_pushpull_utilities.h"

std::string DataMgr::SavedFile() const { return paths_.data_directory + QO_SAVED_TREE_FILE; }

std::string DataMgr::ActiveTreeFile() const { return paths_.data_directory + QO_ACTIVE_TREE_FILE; }

void DataMgr::TidyDirectory() const {
    const std::string saved_file = SavedFile();
    QoFileReplacement::remove_strays(saved_file);
    QoFileReplacement::remove_strays(ActiveTreeFile());
    // Former versions of this service left them readable by everyone.
    for (const std::string& file : {saved_file, saved_file + QO_BACKUP_EXTENSION, ActiveTreeFile()}) {
        QoFileReplacement::close_to_others(file);
    }
}

int DataMgr::CreateDataTree() {
    const std::string saved_file = SavedFile();
    const std::string back_up_file = saved_file + QO_BACKUP_EXTENSION;
    TidyDirectory();
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
