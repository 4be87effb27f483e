// Which class a component belongs to, by the range of its identifier.
#include <algorithm>
#include <iterator>

#include "qo_pushpull.h"

namespace {

struct ClassRange {
    eQO_CMP_IDs_ first;
    eQO_CMP_IDs_ last;
    eQO_COMPONENT_CLASS_ component_class;
};

// Deliberate: the gateways' own identifiers and the Wi-Fi gateway's connections are internal, the _END markers are
// clients: what components may write rests on it. Test: ComponentClass.FollowsTheIdentifier
constexpr ClassRange kClients[] = {
    {QO_CMPID_WEBSERVER_GATEWAY_C0, QO_CMPID_WEBSERVER_GATEWAY_END, QO_LOCAL_CLIENT},
    {QO_CMPID_WEBSERVER_GATEWAY_REMOTE_C0, QO_CMPID_WEBSERVER_GATEWAY_REMOTE_END, QO_LOCAL_CLIENT},
    {QO_CMPID_REMOTE_GATEWAY_DM, QO_CMPID_REMOTE_GATEWAY_RM, QO_REMOTE_CLIENT},
};

}  // namespace

eQO_COMPONENT_CLASS_ PushPullData::get_comp_class(eQO_CMP_IDs_ comp_id) {
    const ClassRange* range = std::find_if(
        std::begin(kClients), std::end(kClients),
        [comp_id](const ClassRange& clients) { return comp_id >= clients.first && comp_id <= clients.last; });
    return range == std::end(kClients) ? QO_INTERNAL : range->component_class;
}
