/// What the members "writeAccess", "doNotPersist" and "maxItems" of a tree say of one of its places. Pure functions;
/// any thread.
#ifndef QO_CTL_RULES_H
#define QO_CTL_RULES_H

#include <array>
#include <cstdint>
#include <optional>

#include "qo_component_ids.h"
#include "qo_ctl_difference.h"

/// Of one place.
struct QoCtlRules {
    JSONNODE* node = nullptr;  // null: there is nothing, and the rest says nothing
    /// By class: whether a value may be changed here; of an object or an array, whether members may be added.
    std::array<bool, 3> may_write{};
    bool persists = true;              // whether it is in the saved tree
    std::optional<int64_t> max_items;  // of an array: the largest "id" that is taken
};

QoCtlRules qo_ctl_rules(JSONNODE* tree, const QoCtlPath& path);

#endif
