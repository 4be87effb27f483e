/// What a request is about. Pure functions; any thread.
#ifndef QO_CTL_SUBJECT_H
#define QO_CTL_SUBJECT_H

#include <string>
#include <string_view>

#include "qo_ctl_request.h"

/// For one line: the pointers of a request that has some; of a publish the way to the first node that has several
/// members or a value, and the names of those, "/system/status {humidity, systemTemperature}"; the queue of a
/// registration.
std::string qo_ctl_subject(const QoCtlRequest& request);

/// Whether it reads, changes or follows the node at the pointer, or one above or below it.
bool qo_ctl_concerns(const QoCtlRequest& request, std::string_view pointer);

#endif
