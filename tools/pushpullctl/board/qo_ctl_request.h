/// A request, read from its text as the service logs it. Pure functions; any thread.
#ifndef QO_CTL_REQUEST_H
#define QO_CTL_REQUEST_H

#include <string>
#include <string_view>

#include "qo_component_ids.h"

struct QoCtlRequest {
    bool whole = false;  // false: what stands here is what could be read of a text that was cut or is no JSON
    std::string kind;
    eQO_CMP_IDs_ sender = QO_CMPID_RESERVED;
    eQO_CMP_IDs_ destination = QO_CMPID_RESERVED;  // of a "sync"
    std::string buffer;                            // cut where the text is
    bool changes_only = false;                     // of a "subscribe"
};

/// Reads a text that may be cut at any byte, and in which a syslog daemon may have escaped the line feeds.
QoCtlRequest qo_ctl_read_request(std::string_view text);

/// A JSON text that was cut, closed so that it can be read as far as it goes: without the string or number that it
/// breaks off in only where that is a name. "" when nothing can be made of it.
std::string qo_ctl_closed_json(std::string_view cut);

#endif
