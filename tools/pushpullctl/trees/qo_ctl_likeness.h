/// What in a tree is unlike a model, and may be a slip. Pure functions; any thread.
#ifndef QO_CTL_LIKENESS_H
#define QO_CTL_LIKENESS_H

#include <string>
#include <string_view>
#include <vector>

#include "qo_json.h"

struct QoCtlUnlikeness {
    std::string pointer;
    std::string text;  // "is not in the built-in tree; did you mean "name"?"
};

/// Members that the model does not have, with the name that is most like theirs, and values of another type than there.
/// Elements are compared with the model's first. What the model has and the tree has not is no slip.
std::vector<QoCtlUnlikeness> qo_ctl_unlikenesses(JSONNODE* tree, JSONNODE* model);

/// The smallest number of characters that have to be put in, taken out or replaced to make one of the other.
size_t qo_ctl_edit_distance(std::string_view a, std::string_view b);

#endif
