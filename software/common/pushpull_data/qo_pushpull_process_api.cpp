// A request: its fields, and how its text is read.
#include "qo_pushpull_process_api.h"

#include <syslog.h>

#include <span>
#include <string_view>
#include <utility>

#include "qo_pushpull_json.h"
#include "qo_pushpull_request_text.h"

namespace {

// ---- reading ----

/// A member of the request text and what takes its value over.
struct MemberRow {
    std::string_view name;
    void (*take)(QoProcessApi& request, const JSONNODE* value);
};

int32_t as_int32(const JSONNODE* value) { return qo_json_int32(value).value_or(0); }
bool as_flag(const JSONNODE* value) { return json_as_bool(value) != 0; }
eQO_CMP_IDs_ as_component(const JSONNODE* value) { return static_cast<eQO_CMP_IDs_>(as_int32(value)); }

using Request = QoProcessApi;
using Value = const JSONNODE*;

constexpr MemberRow kArgMembers[] = {
    {"comp_id", [](Request& request, Value value) { request.setcomp_id(as_component(value)); }},
    {"dst_comp_id", [](Request& request, Value value) { request.setdstcomp_id(as_component(value)); }},
    {"buffer", [](Request& request, Value value) { request.setBuff(qo_json_string(value)); }},
    {"notifyOnChangeOnly", [](Request& request, Value value) { request.set_notify_on_change_only(as_flag(value)); }},
    {"pack_and_send", [](Request& request, Value value) { request.set_pack_and_send(as_flag(value)); }},
    {"sender_id", [](Request& request, Value value) { request.setsenderId(qo_json_string(value)); }},
};

constexpr MemberRow kQueMembers[] = {
    {"flags", [](Request& request, Value value) { request.setque_flags(as_int32(value)); }},
    {"maxmsg", [](Request& request, Value value) { request.setque_maxmsg(as_int32(value)); }},
    {"msgsize", [](Request& request, Value value) { request.setque_msgsize(as_int32(value)); }},
    {"curmsgs", [](Request& request, Value value) { request.setque_curmsgs(as_int32(value)); }},
};

/// Takes the members of `object` over. @return false at a child without a node.
bool take_members(QoProcessApi& request, JSONNODE* object, std::span<const MemberRow> rows) {
    for (const JSONNODE* member : QoJsonChildren(object)) {
        if (member == nullptr) return false;
        const std::string_view name = qo_json_name(member);
        for (const MemberRow& row : rows)
            if (name == row.name) row.take(request, member);
    }
    return true;
}

int take_root_member(QoProcessApi& request, JSONNODE* member) {
    const std::string_view name = qo_json_name(member);
    if (name == "function") {
        request.setfunction(qo_json_string(member));
    } else if (name == "arg" && !take_members(request, member, kArgMembers)) {
        syslog(LOG_DEBUG, "Invalid JSONNODE_ITERATOR : a");
        return -1;
    } else if (name == "que" && !take_members(request, member, kQueMembers)) {
        syslog(LOG_DEBUG, "Invalid JSONNODE_ITERATOR : que_iter");
        return -1;
    }
    return 0;
}

// ---- fields ----

// Copies of a request share their texts: one that is shared is replaced, so that they keep their values.
void assign(std::shared_ptr<std::string>& field, std::string_view text) {
    const bool has_usual_room = field->capacity() <= QO_KEPT_TEXT_ROOM || text.size() > QO_KEPT_TEXT_ROOM;
    if (field.use_count() == 1 && has_usual_room)
        field->assign(text);
    else
        field = std::make_shared<std::string>(text);
}

}  // namespace

QoProcessApi::QoProcessApi()
    : paction(std::make_shared<std::string>()),
      pbuff(std::make_shared<std::string>()),
      pjsonstring(std::make_shared<std::string>()),
      psenderId(std::make_shared<std::string>()) {}

int QoProcessApi::parseJSON(const std::string& text) {
    if (!document_) document_ = std::make_shared<QoJsonDocument>();
    const QoJsonDocument::Tree root = document_->read(text);
    if (root.get() == nullptr) {
        syslog(LOG_DEBUG, "Invalid JSON Node , %s", text.c_str());
        return -1;
    }
    for (JSONNODE* member : QoJsonChildren(root.get())) {
        if (member == nullptr) {
            syslog(LOG_DEBUG, "Invalid JSON JSONNODE_ITERATOR : i");
            return -1;
        }
        if (take_root_member(*this, member) != 0) return -1;
    }
    return 0;
}

void QoProcessApi::toJSON() {
    const QoRequestFields fields{.function = getfunction(),
                                 .comp_id = pcomp_id,
                                 .buffer = getBuff(),
                                 .queue = {que_flags, que_maxmsg, que_msgsize, que_curmsgs},
                                 .notify_on_change_only = notify_on_change_only,
                                 .sender_id = getsenderId(),
                                 .dst_comp_id = dst_comp_id,
                                 .pack_and_send = pack_and_send};
    if (pjsonstring.use_count() > 1) pjsonstring = std::make_shared<std::string>();
    *pjsonstring = qo_request_text(fields, std::move(*pjsonstring));
}

void QoProcessApi::setfunction(std::string_view function) { assign(paction, function); }
const std::string& QoProcessApi::getfunction() const { return *paction; }
void QoProcessApi::setBuff(std::string_view buffer) { assign(pbuff, buffer); }
const std::string& QoProcessApi::getBuff() const { return *pbuff; }
void QoProcessApi::setsenderId(std::string_view sender_id) { assign(psenderId, sender_id); }
const std::string& QoProcessApi::getsenderId() const { return *psenderId; }
void QoProcessApi::setcomp_id(eQO_CMP_IDs_ comp_id) { pcomp_id = comp_id; }
eQO_CMP_IDs_ QoProcessApi::getcomp_id() const { return pcomp_id; }
void QoProcessApi::setdstcomp_id(eQO_CMP_IDs_ comp_id) { dst_comp_id = comp_id; }
eQO_CMP_IDs_ QoProcessApi::getdstcomp_id() const { return dst_comp_id; }
void QoProcessApi::setque_flags(int32_t flags) { que_flags = flags; }
int32_t QoProcessApi::getque_flags() const { return que_flags; }
void QoProcessApi::setque_maxmsg(int32_t maxmsg) { que_maxmsg = maxmsg; }
int32_t QoProcessApi::getque_maxmsg() const { return que_maxmsg; }
void QoProcessApi::setque_msgsize(int32_t msgsize) { que_msgsize = msgsize; }
int32_t QoProcessApi::getque_msgsize() const { return que_msgsize; }
void QoProcessApi::setque_curmsgs(int32_t curmsgs) { que_curmsgs = curmsgs; }
int32_t QoProcessApi::getque_curmsgs() const { return que_curmsgs; }
void QoProcessApi::set_notify_on_change_only(bool on) { notify_on_change_only = on; }
bool QoProcessApi::get_notify_on_change_only() const { return notify_on_change_only; }
void QoProcessApi::set_pack_and_send(bool on) { pack_and_send = on; }
bool QoProcessApi::get_pack_and_send() const { return pack_and_send; }
void QoProcessApi::setJsonString(std::string_view text) { assign(pjsonstring, text); }
const std::string& QoProcessApi::getJsonString() const { return *pjsonstring; }
size_t QoProcessApi::getJsonStringSize() const { return pjsonstring->size(); }
