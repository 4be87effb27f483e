// Writing and reading recordings.
#include "qo_ctl_recording.h"

#include <algorithm>
#include <utility>

#include "qo_ctl_subject.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_json.h"

namespace {

constexpr std::string_view kDeleted = "NODE DELETED: ";

QoCtlRequest cause_of(std::string_view text) {
    QoCtlRequest request;
    const bool deleted = text.starts_with(kDeleted);
    request.kind = deleted ? QO_REQUEST_DELETE : QO_REQUEST_PUBLISH;
    request.buffer = deleted ? text.substr(kDeleted.size()) : text;
    return request;
}

}  // namespace

std::string qo_ctl_recorded(QoCtlMoment time, std::span<const std::string> pointers, std::string_view text,
                            QoCtlStyle style) {
    const QoJsonNode node(json_new(JSON_NODE));
    json_push_back(node.get(), json_new_a("time", qo_ctl_moment_text(time).c_str()));
    const QoCtlRequest cause = cause_of(text);
    const auto pointer = std::find_if(pointers.begin(), pointers.end(), [&cause](const std::string& followed) {
        return qo_ctl_concerns(cause, followed);
    });
    if (pointer != pointers.end()) json_push_back(node.get(), json_new_a("pointer", pointer->c_str()));
    QoJsonNode heard = qo_ctl_text_node(text);
    json_set_name(heard.get(), "text");
    qo_json_push_back(node.get(), std::move(heard));
    return qo_ctl_render(node.get(), style);
}

std::optional<QoCtlRecorded> qo_ctl_read_recorded(std::string_view line) {
    const QoJsonNode node = qo_json_parse(line);
    if (!node || json_type(node.get()) != JSON_NODE) return std::nullopt;
    const JSONNODE* time = qo_json_find(node.get(), "time");
    const JSONNODE* text = qo_json_find(node.get(), "text");
    if (time == nullptr || text == nullptr) return std::nullopt;
    const std::optional<QoCtlMoment> moment = qo_ctl_read_moment(qo_json_string(time));
    if (!moment) return std::nullopt;
    // A node writes itself without its name.
    return QoCtlRecorded{*moment, json_type(text) == JSON_NODE ? qo_json_write(text) : ""};
}
