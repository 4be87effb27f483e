/// What has to be published to change one place of the tree. Pure functions; any thread.
#ifndef QO_CTL_FRAGMENT_H
#define QO_CTL_FRAGMENT_H

#include <string_view>
#include <vector>

#include "qo_ctl_difference.h"
#include "qo_pushpull_json.h"

/// Whether a segment may be the position of an array's element: digits, and not too many.
bool qo_ctl_may_be_position(std::string_view segment);

/// An object that holds the value at the path.
/// @param is_position for each segment, whether it is the position of an element, which is published as its "id"; only
///                    of those that may be
QoJsonNode qo_ctl_fragment(const QoCtlPath& path, const std::vector<bool>& is_position, QoJsonNode value);

#endif
