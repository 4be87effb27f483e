/// The plain way to the text of a request: its tree is built and written. It tells what the client library, which
/// writes the text straight, has to write.
#ifndef QO_REQUEST_TREE_WRITER_H
#define QO_REQUEST_TREE_WRITER_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "qo_pushpull_json.h"
#include "qo_pushpull_process_api.h"

class QoRequestTreeWriter {
public:
    /// @return "" when the tree cannot be built.
    static std::string write(const QoProcessApi& request) {
        const QoJsonNode root(json_new(JSON_NODE));
        const bool complete =
            add_text(root, "function", request.getfunction()) && add_arg(root, request) && add_que(root, request);
        return complete ? qo_json_write_formatted(root.get()) : std::string();
    }

private:
    static bool add(const QoJsonNode& parent, QoJsonNode child) {
        return qo_json_push_back(parent.get(), std::move(child));
    }

    static bool add_text(const QoJsonNode& parent, std::string_view name, const std::string& text) {
        return add(parent, QoJsonNode(json_new_a_n(name.data(), name.size(), text.data(), text.size())));
    }

    static bool add_number(const QoJsonNode& parent, const char* name, int32_t value) {
        return add(parent, QoJsonNode(json_new_i(name, value)));
    }

    static bool add_flag(const QoJsonNode& parent, const char* name, bool flag) {
        return !flag || add(parent, QoJsonNode(json_new_b(name, 1)));
    }

    static bool add_arg(const QoJsonNode& root, const QoProcessApi& request) {
        QoJsonNode arg = qo_json_new_named(JSON_NODE, "arg");
        const eQO_CMP_IDs_ destination = request.getdstcomp_id();
        return add_number(arg, "comp_id", request.getcomp_id()) &&
               (destination == QO_CMPID_RESERVED || add_number(arg, "dst_comp_id", destination)) &&
               add_text(arg, "buffer", request.getBuff()) &&
               add_flag(arg, "notifyOnChangeOnly", request.get_notify_on_change_only()) &&
               add_flag(arg, "pack_and_send", request.get_pack_and_send()) &&
               (request.getsenderId().empty() || add_text(arg, "sender_id", request.getsenderId())) &&
               add(root, std::move(arg));
    }

    static bool add_que(const QoJsonNode& root, const QoProcessApi& request) {
        if (request.getque_maxmsg() <= 0 || request.getque_msgsize() <= 0) return true;
        QoJsonNode que = qo_json_new_named(JSON_NODE, "que");
        return add_number(que, "flags", request.getque_flags()) && add_number(que, "maxmsg", request.getque_maxmsg()) &&
               add_number(que, "msgsize", request.getque_msgsize()) &&
               add_number(que, "curmsgs", request.getque_curmsgs()) && add(root, std::move(que));
    }
};

#endif
