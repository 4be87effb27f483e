// Asks for the sizes of arrays, which is short, however much they hold.
#include "qo_ctl_positions.h"

#include "qo_ctl_fragment.h"
#include "qo_ctl_text.h"
#include "qo_pushpull_json.h"

bool qo_ctl_is_array(QoCtlSession& session, const std::string& pointer, QoCtlStatus& status) {
    // The service cuts a size query at the first "/size".
    const bool has_size = pointer.find("/size") == std::string::npos;
    const std::string asked = has_size ? pointer + "/size" : pointer;
    const QoCtlExchange exchange = session.ask(asked, false);
    status = exchange.status;
    if (exchange.status != QoCtlStatus::answered || exchange.answers.empty()) return false;
    const std::string& body = exchange.answers.front();
    const QoCtlAnswer answer = qo_ctl_answer(asked, body);
    if (has_size) return answer.kind == QoCtlAnswerKind::size && answer.size >= 0;
    return json_type(qo_ctl_addressed(qo_json_parse(body).get(), pointer, nullptr)) == JSON_ARRAY;
}

std::vector<bool> qo_ctl_positions(QoCtlSession& session, const QoCtlPath& path, QoCtlStatus& status) {
    std::vector<bool> positions(path.size(), false);
    QoCtlPath before;
    for (size_t i = 0; i < path.size() && status == QoCtlStatus::answered; ++i) {
        if (i > 0 && qo_ctl_may_be_position(path[i]))
            positions[i] = qo_ctl_is_array(session, qo_ctl_pointer(before), status);
        before.push_back(path[i]);
    }
    return positions;
}
