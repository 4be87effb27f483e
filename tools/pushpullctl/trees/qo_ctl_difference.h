/// How two trees differ, place by place. Pure functions; any thread.
#ifndef QO_CTL_DIFFERENCE_H
#define QO_CTL_DIFFERENCE_H

#include <string>
#include <vector>

#include "qo_json.h"

/// The way from the root to a node: names of members, and positions in arrays in decimal.
using QoCtlPath = std::vector<std::string>;

/// As the service takes it: "/devices/device/2"; "/" for the root. Nothing is escaped, so a name that holds a "/" or a
/// ";" is beyond its reach (qo_ctl_is_reachable).
std::string qo_ctl_pointer(const QoCtlPath& path);

/// As RFC 6901 has it, with "~0" and "~1"; "" for the root.
std::string qo_ctl_json_pointer(const QoCtlPath& path);

/// Whether the service can be asked for this place.
bool qo_ctl_is_reachable(const QoCtlPath& path);

/// One place at which two trees differ. Nothing below it is told of.
struct QoCtlDifference {
    QoCtlPath path;
    JSONNODE* before = nullptr;  // null: added. Both belong to their trees.
    JSONNODE* after = nullptr;   // null: removed
};

/// What has to be done to `before` to make it `after`, in an order in which it can be done (RFC 6902): members by their
/// names, whatever their order; elements by their positions, surplus ones removed from the end on. Of members of one
/// name the first counts. Numbers are compared by their values.
std::vector<QoCtlDifference> qo_ctl_differences(JSONNODE* before, JSONNODE* after);

/// What of a published object does not stand in the tree: members, and elements at the position that their "id" names.
/// An element without one is told of as a whole. `before` is what was published, `after` what stands there, if
/// anything.
std::vector<QoCtlDifference> qo_ctl_not_taken(JSONNODE* published, JSONNODE* tree);

#endif
