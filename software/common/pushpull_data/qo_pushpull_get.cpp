// The request "get": reading nodes and sizes, and packing several answers.
#include <syslog.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <string_view>
#include <utility>

#include "qo_pushpull.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_pointer_list.h"
#include "qo_pushpull_utilities.h"
#include "qo_resource_mgr.h"

// ---- sizes ----

namespace {

constexpr std::string_view kSizeSegment = "size";
constexpr std::string_view kSizeMarker = "/size";

// The segments of a pointer in order; its first character stands for the leading "/", whatever it is.
class PointerSegments {
public:
    explicit PointerSegments(std::string_view pointer) : pointer_(pointer) {}

    bool next() {
        if (slash_ >= pointer_.length()) return false;
        const size_t end = std::min(pointer_.find('/', slash_ + 1), pointer_.length());
        segment_ = pointer_.substr(slash_ + 1, end - slash_ - 1);
        slash_ = end;
        return true;
    }
    std::string_view segment() const { return segment_; }

private:
    std::string_view pointer_;
    std::string_view segment_;
    size_t slash_ = 0;  // in front of the next segment
};

bool has_size_segment(std::string_view pointer) {
    PointerSegments segments(pointer);
    while (segments.next())
        if (segments.segment() == kSizeSegment) return true;
    return false;
}

// True when the segment is wholly an integer, as an input stream reads one.
bool read_integer(std::string_view segment, int& value) {
    std::istringstream stream{std::string(segment)};
    stream >> value;
    return !stream.fail() && stream.peek() == std::istringstream::traits_type::eof();
}

}  // namespace

bool CheckSizeRequested(const std::string& path, std::string& out) {
    std::string_view previous;
    int empty_segments = 0;
    for (PointerSegments segments(path); segments.next();) {
        const std::string_view segment = segments.segment();
        if (segment.empty()) {
            // A message can hold 260,000 slashes in a row; the log is told of the first ones.
            if (empty_segments++ < QO_MAX_SLASH_LINES)
                QO_LOG(LOG_DEBUG, "Root path or dangling / or back to back slashes //");
            continue;
        }
        if (segment == kSizeSegment && !previous.empty()) {
            int position = 0;
            if (read_integer(previous, position)) {
                syslog(LOG_ERR, "PushPull:%s@%d:out =%d,Read path incorrect", static_cast<const char*>(__func__),
                       __LINE__, position);
                return false;
            }
            // Deliberate: the first "/size" in the text counts, even inside a longer name; components rely on it.
            // Test: Get.ASizeIsCutAtTheFirstSizeInTheTextEvenInsideALongerName
            out = path.substr(0, path.find(kSizeMarker));
            return true;
        }
        if (segment == kSizeSegment)
            syslog(LOG_DEBUG, "PushPull:%s@%d:prev_node_name size is=0", static_cast<const char*>(__func__), __LINE__);
        previous = segment;
    }
    return false;
}

// ---- reading one node ----

namespace {

std::string sender_id_prefix(const std::string& sender_id) {
    return sender_id.empty() ? "" : "sender_id:" + sender_id + ";";
}

}  // namespace

int PushPullData::get_node(const std::string& pointer, std::string* text, const std::string& sender_id) {
    const bool may_ask_size = pointer.find(kSizeMarker) != std::string::npos;
    std::string path;
    const bool asks_size = may_ask_size && CheckSizeRequested(pointer, path);
    const bool refused = may_ask_size && !asks_size && has_size_segment(pointer);
    std::string answer;
    if (asks_size)
        answer = read_array_size(pointer, path);
    else if (!refused)
        answer = read_node(pointer);
    const int result = answer.empty() ? -1 : 0;
    if (answer.empty()) answer = pointer + (asks_size || refused ? ":-1" : ":{}");
    *text = sender_id.empty() ? std::move(answer) : sender_id_prefix(sender_id) + answer;
    return result;
}

// The node at a pointer with the path to it, as formatted text; "" when it cannot be read.
std::string PushPullData::read_node(const std::string& pointer) {
    if (std::string straight; data_mgr->AppendNodeText(pointer, straight)) return straight;
    const QoJsonNode response(json_new(JSON_NODE));
    long array_size = 0;
    if (data_mgr->ReadNode(pointer, response.get(), false, array_size) != 0 || json_empty(response.get()) != 0) {
        syslog(LOG_ERR, "comp_get: ReadNode failed OR json_size is zero, node = %s", pointer.c_str());
        return "";
    }
    std::string text = qo_json_write_formatted(response.get());
    if (text.empty()) syslog(LOG_ERR, "comp_get : Empty Buffer");
    return text;
}

// The size of the array at `path`, as the answer to `pointer`; "" when there is no array.
std::string PushPullData::read_array_size(const std::string& pointer, const std::string& path) {
    const QoJsonNode response(json_new(JSON_NODE));
    long array_size = -1;
    if (data_mgr->ReadNode(path, response.get(), true, array_size) != 0 || json_empty(response.get()) != 0) {
        syslog(LOG_ERR, "comp_get: ReadNode failed OR json_size is zero, node = %s", pointer.c_str());
        return "";
    }
    if (array_size < 0) return "";
    std::ostringstream digits;
    ConvertIntToString(array_size, digits);
    return pointer + ":" + digits.str();
}

// ---- get ----

// The answers of one "get" that share a message.
struct PushPullData::PackedAnswer {
    eQO_CMP_IDs_ requester;
    std::string prefix;
    QoJsonNode node;  // null before the first answer

    std::string text() const { return prefix + qo_json_write(node.get()); }
};

int PushPullData::comp_get(eQO_CMP_IDs_ comp_id, const std::string& pointers, bool internal,
                           const std::string& sender_id, bool pack_and_send) {
    if (!resource_mgr->is_comp_registered(comp_id)) {
        syslog(LOG_ERR, "comp_get: Component not Registered: ncomp_id=%d, get_data = %s", comp_id, pointers.c_str());
        return -1;
    }
    int result = -1;
    bool complete = true;
    PackedAnswer packed{comp_id, sender_id_prefix(sender_id), nullptr};
    for (QoPointerList list(pointers, clock_); complete && list.next();) {
        if (list.overdue()) {
            complete = false;
            break;
        }
        // A failed read's text is handled like an answer.
        std::string text;
        [[maybe_unused]] const int read_result = get_node(list.pointer(), &text, sender_id);
        if (internal) {
            result = republish(comp_id, list.pointer(), text);
        } else if (pack_and_send) {
            complete = pack_answer(text, packed, result);
        } else {
            syslog(LOG_DEBUG, "pushpull : normal GET");
            result = send_answer(comp_id, text);
        }
    }
    if (packed.node) {
        result = send_answer(comp_id, packed.text());
        syslog(LOG_DEBUG, "comp_get : packed buff sent");
    }
    if (!complete) result = -1;
    if (result == -1) syslog(LOG_ERR, " comp_get : Incorrect Path or comp_notify Failed");
    return result;
}

int PushPullData::send_answer(eQO_CMP_IDs_ comp_id, const std::string& text) {
    const int result = comp_notify(1, &comp_id, text);
    if (result == -1) syslog(LOG_ERR, " comp_get : comp_notify Failed");
    return result;
}

// After a "clear": the restored node goes to its subscribers, or to the requester when they cannot be found.
int PushPullData::republish(eQO_CMP_IDs_ comp_id, const std::string& pointer, const std::string& text) {
    std::array<eQO_CMP_IDs_, QO_MAX_SUBSCRIBERS> comp_ids{comp_id};
    int count = 1;
    const QoJsonNode subscribers(json_new(JSON_NODE));
    if (subscribers && data_mgr->GetSubscribersByJsonPtr(pointer, subscribers.get()) == 0)
        count = parse_and_get_cmpIDs(subscribers.get(), comp_id, comp_ids.data(), true);
    syslog(LOG_DEBUG, "comp_get : send_data %s", text.c_str());
    const int result = comp_notify(count, comp_ids.data(), text);
    if (result == -1) syslog(LOG_ERR, " comp_get : comp_notify ERROR");
    return result;
}

namespace {

// An answer without its "sender_id:" prefix.
std::string_view json_part(const std::string& text) {
    const size_t end = text.starts_with("sender_id:") ? text.find(';') : std::string::npos;
    if (end == std::string::npos) {
        syslog(LOG_DEBUG, "comp_get : No senderIDBuff found");
        return text;
    }
    const std::string prefix = text.substr(0, end + 1);
    syslog(LOG_DEBUG, "comp_get : buff offset = %d, senderIDBuff = %s", static_cast<int>(prefix.length()),
           prefix.c_str());
    return std::string_view(text).substr(prefix.length());
}

}  // namespace

// Joins an answer to those before it, which are sent first when it does not fit beside them. An answer too large by
// itself is sent when the next one comes, or at the end, and fails there. What cannot be joined, such as a size, a
// failed read or an array whose elements have no "id", is logged and not sent. False when there is no queue to answer
// to.
bool PushPullData::pack_answer(const std::string& text, PackedAnswer& packed, int& result) {
    syslog(LOG_DEBUG, "comp_get : pack and send buff");
    if (!packed.node) packed.node.reset(json_new(JSON_NODE));
    const std::string_view json = json_part(text);
    const mqd_t descriptor = resource_mgr->getMsg_queue_descriptor(packed.requester);
    if (!qo_has_answer_queue(descriptor)) return false;
    const std::string packed_text = packed.text();
    if (!qo_check_mqueue_limit(descriptor, static_cast<long>(packed_text.length()), static_cast<long>(json.length())) &&
        json_empty(packed.node.get()) == 0) {
        syslog(LOG_DEBUG, "pushpull : MessageQueue size full and send the packed buff");
        result = send_answer(packed.requester, packed_text);
        packed.node.reset(json_new(JSON_NODE));
    }
    const QoJsonNode answer = qo_json_parse(json);
    if (!answer ||
        data_mgr->PackMultipleGetResponse(packed.node.get(), answer.get(), get_comp_class(packed.requester)) != 0)
        syslog(LOG_DEBUG, "pushpull : MessageQueue: GET : packing error");
    return true;
}

bool qo_has_answer_queue(mqd_t descriptor) {
    if (descriptor != -1) return true;
    syslog(LOG_ERR, "pushpull : MessageQueue: GET :Invalid Descriptor and break");
    return false;
}

bool qo_check_mqueue_limit(mqd_t descriptor, long packed_length, long new_length) {
    mq_attr attributes{};
    if (mq_getattr(descriptor, &attributes) != 0) return false;
    const long limit = static_cast<long>(attributes.mq_msgsize);
    syslog(LOG_DEBUG, "qo_check_mqueue_limit : packed_buff_length = %ld, new_buff_length = %ld, attr.mq_msgsize = %ld",
           packed_length, new_length, limit);
    if (packed_length + new_length >= limit) {
        syslog(LOG_DEBUG, "qo_check_mqueue_limit : return false");
        return false;
    }
    syslog(LOG_DEBUG, "qo_check_mqueue_limit : return true");
    return true;
}
