/// Where in a tree the bytes are. Pure functions; any thread.
#ifndef QO_CTL_SIZES_H
#define QO_CTL_SIZES_H

#include <cstddef>
#include <string>
#include <vector>

#include "qo_json.h"

struct QoCtlSize {
    std::string pointer;
    size_t bytes;  // of its JSON text, without white space
    size_t children;
};

/// All objects and arrays of the tree that hold something, the largest first.
std::vector<QoCtlSize> qo_ctl_sizes(JSONNODE* tree);

#endif
