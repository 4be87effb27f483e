/// Which segments of a pointer are positions in arrays.
#ifndef QO_CTL_POSITIONS_H
#define QO_CTL_POSITIONS_H

#include <vector>

#include "qo_ctl_difference.h"
#include "qo_ctl_session.h"

/// Asks the service what stands before each segment that may be a position: where that is an array, it is one.
/// @param status set to what is not answered, if anything
std::vector<bool> qo_ctl_positions(QoCtlSession& session, const QoCtlPath& path, QoCtlStatus& status);

#endif
