// Publishing, and looking whether it was taken.
#include "qo_ctl_write.h"

#include "qo_ctl_harmless.h"
#include "qo_ctl_read_back.h"
#include "qo_pushpull_json.h"

namespace {

std::string refusal_text(const QoCtlRefusal& refusal, QoCtlStyle style) {
    if (style.formatted) return qo_ctl_harmless("not taken: " + refusal.pointer + " " + refusal.why) + "\n";
    const QoJsonNode node(json_new(JSON_NODE));
    qo_ctl_add_text(node.get(), "not_taken", refusal.pointer);
    qo_ctl_add_text(node.get(), "why", refusal.why);
    return qo_ctl_render(node.get(), style);
}

}  // namespace

QoCtlStatus qo_ctl_publish_object(QoCtlSession& session, const std::string& object, bool verify, QoCtlStyle style,
                                  QoCtlResult& result) {
    const auto publish = [&object](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.publish(id, object); };
    result.status = session.send(publish, object);
    if (result.status == QoCtlStatus::answered) result.status = session.fence();
    if (result.status != QoCtlStatus::answered || !verify) return result.status;
    const QoCtlReadBack read_back = qo_ctl_read_back(session, qo_json_parse(object).get());
    result.status = read_back.status;
    for (const QoCtlRefusal& refusal : read_back.refusals) result.text += refusal_text(refusal, style);
    if (result.status == QoCtlStatus::answered && !read_back.refusals.empty())
        result.fail(qo_ctl_count(static_cast<long>(read_back.refusals.size()), "place") +
                    " not taken; the service's log tells why");
    return result.status;
}
