/// The service's debug dump: the whole tree, written to a file on the service's board.
#ifndef QO_CTL_DUMP_H
#define QO_CTL_DUMP_H

#include <cstdint>
#include <string>

#include "qo_ctl_session.h"
#include "qo_ctl_status.h"

struct QoCtlDump {
    QoCtlStatus status = QoCtlStatus::answered;
    std::string file;   // where the service writes it
    bool seen = false;  // it was written there, as seen from here, since the request
    int64_t bytes = 0;  // its length, when seen
};

/// Lets the service write its dump and waits until it has handled that.
QoCtlDump qo_ctl_request_dump(QoCtlSession& session);

#endif
