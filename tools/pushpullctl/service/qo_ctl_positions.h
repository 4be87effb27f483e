/// Which segments of a pointer are positions in arrays.
#ifndef QO_CTL_POSITIONS_H
#define QO_CTL_POSITIONS_H

#include <vector>

#include "qo_ctl_difference.h"
#include "qo_ctl_session.h"

/// Whether an array stands at the pointer.
/// @param status set to what is not answered, if anything
bool qo_ctl_is_array(QoCtlSession& session, const std::string& pointer, QoCtlStatus& status);

/// Asks the service what stands before each segment that may be a position: where that is an array, it is one.
/// @param status set to what is not answered, if anything
std::vector<bool> qo_ctl_positions(QoCtlSession& session, const QoCtlPath& path, QoCtlStatus& status);

#endif
