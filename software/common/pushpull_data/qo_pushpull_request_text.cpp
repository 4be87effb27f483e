// The text of a request, written straight: byte for byte what the JSON library's formatted writer makes of a tree.
#include "qo_pushpull_request_text.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <utility>

#include "qo_json.h"
#include "qo_pushpull_conventions.h"

namespace {

constexpr size_t kEnvelope = 256;  // bytes, about what a request has beside its buffer

bool is_text(std::string_view text) { return text.empty() || json_is_text_n(text.data(), text.size()) != 0; }

/// A text that is put together. Until it is finished the string is longer than the text.
class RequestWriter {
public:
    /// @param usual_size bytes that the text is likely to get
    RequestWriter(std::string room, size_t usual_size) : text_(std::move(room)) {
        if (text_.size() < usual_size) text_.resize(usual_size);
    }

    void put(std::string_view piece) {
        piece.copy(room_for(piece.size()), piece.size());
        size_ += piece.size();
    }

    void put(int32_t number) {
        constexpr size_t kLongest = std::numeric_limits<int32_t>::digits10 + 2;  // one digit more, and the sign
        char* const room = room_for(kLongest);
        size_ += static_cast<size_t>(std::to_chars(room, room + kLongest, number).ptr - room);
    }

    void put_string(std::string_view text) {
        constexpr size_t kBlock = 256;  // bytes, so that there is never much more room than is needed
        put("\"");
        while (!text.empty()) {
            const std::string_view block = text.substr(0, kBlock);
            char* const room = room_for(block.size() * JSON_LONGEST_ESCAPE + JSON_ESCAPE_SPARE);
            size_ += json_escape_n(block.data(), block.size(), room);
            text.remove_prefix(block.size());
        }
        put("\"");
    }

    std::string finish() {
        text_.resize(size_);
        return std::move(text_);
    }

private:
    char* room_for(size_t count) {
        if (text_.size() - size_ < count) text_.resize(std::max(size_ + count, text_.size() + text_.size() / 4));
        return text_.data() + size_;
    }

    std::string text_;
    size_t size_ = 0;
};

void put_queue(RequestWriter& writer, const QoRequestFields::Queue& queue) {
    writer.put(",\n\t\"que\": {\n\t\t\"flags\": ");
    writer.put(queue.flags);
    writer.put(",\n\t\t\"maxmsg\": ");
    writer.put(queue.maxmsg);
    writer.put(",\n\t\t\"msgsize\": ");
    writer.put(queue.msgsize);
    writer.put(",\n\t\t\"curmsgs\": ");
    writer.put(queue.curmsgs);
    writer.put("\n\t}");
}

}  // namespace

std::string qo_request_text(const QoRequestFields& request, std::string room) {
    if (!is_text(request.function) || !is_text(request.buffer) || !is_text(request.sender_id)) return {};
    if (room.capacity() > QO_KEPT_TEXT_ROOM && request.buffer.size() <= QO_KEPT_TEXT_ROOM) room = std::string();
    RequestWriter writer(std::move(room), request.buffer.size() + kEnvelope);
    writer.put("{\n\t\"function\": ");
    writer.put_string(request.function);
    writer.put(",\n\t\"arg\": {\n\t\t\"comp_id\": ");
    writer.put(request.comp_id);
    if (request.dst_comp_id != QO_CMPID_RESERVED) {
        writer.put(",\n\t\t\"dst_comp_id\": ");
        writer.put(request.dst_comp_id);
    }
    writer.put(",\n\t\t\"buffer\": ");
    writer.put_string(request.buffer);
    if (request.notify_on_change_only) writer.put(",\n\t\t\"notifyOnChangeOnly\": true");
    if (request.pack_and_send) writer.put(",\n\t\t\"pack_and_send\": true");
    if (!request.sender_id.empty()) {
        writer.put(",\n\t\t\"sender_id\": ");
        writer.put_string(request.sender_id);
    }
    writer.put("\n\t}");
    if (qo_queue_attributes_count(request.queue.maxmsg, request.queue.msgsize)) put_queue(writer, request.queue);
    writer.put("\n}");
    return writer.finish();
}
