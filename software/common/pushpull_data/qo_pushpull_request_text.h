/// Writes the text of a request, see QoProcessApi::toJSON.
#ifndef QO_PUSHPULL_REQUEST_TEXT_H
#define QO_PUSHPULL_REQUEST_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "qo_component_ids.h"

constexpr size_t QO_KEPT_TEXT_ROOM = 16384;  // bytes that stay for the next text; room for a larger one is given back

/// What a request text tells. Refers to texts of the caller's.
struct QoRequestFields {
    struct Queue {
        int32_t flags = 0;
        int32_t maxmsg = 0;   // messages
        int32_t msgsize = 0;  // bytes
        int32_t curmsgs = 0;  // messages
    };

    std::string_view function = {};
    eQO_CMP_IDs_ comp_id = QO_CMPID_RESERVED;
    std::string_view buffer = {};
    Queue queue = {};
    bool notify_on_change_only = false;
    std::string_view sender_id = {};
    eQO_CMP_IDs_ dst_comp_id = QO_CMPID_RESERVED;
    bool pack_and_send = false;
};

/// @param room a text that is not needed any more: its memory is used again, unless that is far too much
/// (QO_KEPT_TEXT_ROOM)
/// @return "" when one of the texts is not valid UTF-8.
std::string qo_request_text(const QoRequestFields& request, std::string room);

#endif
