/// What became of a published object.
#ifndef QO_CTL_READ_BACK_H
#define QO_CTL_READ_BACK_H

#include <string>
#include <vector>

#include "qo_ctl_session.h"
#include "qo_json.h"

/// One place of a published object that the service did not take as it was published.
struct QoCtlRefusal {
    std::string pointer;
    std::string why;  // "is 5", "is not there", "cannot be read back"
};

struct QoCtlReadBack {
    QoCtlStatus status = QoCtlStatus::answered;
    std::vector<QoCtlRefusal> refusals;
};

/// Reads every place of the published object back and compares. What another component publishes meanwhile counts as
/// what the service made of it.
QoCtlReadBack qo_ctl_read_back(QoCtlSession& session, JSONNODE* published);

#endif
