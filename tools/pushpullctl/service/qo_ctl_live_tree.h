/// The whole tree that the service holds.
#ifndef QO_CTL_LIVE_TREE_H
#define QO_CTL_LIVE_TREE_H

#include <span>
#include <string_view>

#include "qo_ctl_session.h"
#include "qo_pushpull_json.h"

/// Lets the service write its dump and reads that, where it can be seen from here; otherwise, and without
/// `ask_for_dump`, asks for the known top-level members one by one, and says so.
/// @param status failed when a member is longer than a message, no_answer and others when the reading broke off
/// @return null when there is nothing
QoJsonNode qo_ctl_read_live_tree(QoCtlSession& session, bool ask_for_dump, QoCtlStatus& status);

/// The top-level members of the built-in default tree, in its order.
std::span<const std::string_view> qo_ctl_tree_members();

/// Why an answer did not come that is longer than the messages of the own queue.
std::string qo_ctl_too_long(const std::string& pointer, const QoCtlSession& session);

#endif
