/// Trees in files: what the service saved or dumped, its defaults, and snapshots. No state; any thread.
#ifndef QO_CTL_TREE_FILE_H
#define QO_CTL_TREE_FILE_H

#include <string>

#include "qo_pushpull_json.h"

struct QoCtlTreeFile {
    QoJsonNode tree;    // null when it could not be read
    std::string fault;  // why, with line and column where the text is wrong
};

/// Reads a file. Of a saved tree, the member "crc" of the root is no part of the tree and left out.
QoCtlTreeFile qo_ctl_read_tree_file(const std::string& path);

/// The tree that the service starts with where it has no file of defaults.
QoJsonNode qo_ctl_built_in_defaults();

#endif
