/// The files that the service writes on request, on its board: the saved tree, and the debug dump of all of it.
#ifndef QO_CTL_WRITTEN_FILE_H
#define QO_CTL_WRITTEN_FILE_H

#include <cstdint>
#include <string>

#include "qo_ctl_session.h"
#include "qo_ctl_status.h"

struct QoCtlWritten {
    QoCtlStatus status = QoCtlStatus::answered;
    std::string file;   // where the service writes it
    bool seen = false;  // it was written there, as seen from here, since the request
    int64_t bytes = 0;  // its length, when seen
};

/// Lets the service write the file and waits until it has handled that.
QoCtlWritten qo_ctl_request_dump(QoCtlSession& session);
QoCtlWritten qo_ctl_request_save(QoCtlSession& session);

#endif
