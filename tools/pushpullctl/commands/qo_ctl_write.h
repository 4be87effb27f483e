/// What the commands that publish share.
#ifndef QO_CTL_WRITE_H
#define QO_CTL_WRITE_H

#include <string>

#include "qo_ctl_shared.h"

/// Publishes an object and waits until the service has handled it.
/// @param verify reads it back then; each place that was not taken is told on standard output in the style
/// @return failed when something was not taken
QoCtlStatus qo_ctl_publish_object(QoCtlSession& session, const std::string& object, bool verify, QoCtlStyle style,
                                  QoCtlResult& result);

#endif
