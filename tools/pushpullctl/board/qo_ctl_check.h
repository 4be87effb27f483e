/// What the service would make of its files, said without it. No state; any thread.
#ifndef QO_CTL_CHECK_H
#define QO_CTL_CHECK_H

#include <string>
#include <string_view>
#include <vector>

#include "qo_json.h"

/// What a file would be to the service as its saved tree.
struct QoCtlSavedFile {
    enum class Verdict { good, missing, unreadable, unparsable, no_crc, crc_mismatch } verdict = Verdict::missing;
    std::string stored;      // the text of the member "crc"
    std::string calculated;  // the CRC of the rest; "" when there is nothing to compare with it
};

/// Reads the file with the functions that the service uses.
QoCtlSavedFile qo_ctl_check_saved_file(const std::string& path);

/// "good", "missing", "unreadable", "unparsable", "no crc" or "crc mismatch".
std::string_view qo_ctl_verdict_name(QoCtlSavedFile::Verdict verdict);

struct QoCtlMistake {
    std::string pointer;  // of the node; "/" for the root
    std::string text;
};

/// What is wrong with a tree of defaults, level by level. Time nearly in proportion to the tree; no recursion.
std::vector<QoCtlMistake> qo_ctl_mistakes_in_defaults(JSONNODE* tree);

#endif
