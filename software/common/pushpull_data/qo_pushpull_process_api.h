/// One request on its way from a component to the service: the request text in both directions.
#ifndef QO_PUSHPULL_PROCESS_API_H
#define QO_PUSHPULL_PROCESS_API_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "qo_component_ids.h"

class QoJsonDocument;

/// The fields of one request, with its text form:
///
///     {"function": kind, "arg": {"comp_id": sender, "dst_comp_id": receiver, "buffer": payload,
///      "notifyOnChangeOnly": true, "pack_and_send": true, "sender_id": tag},
///      "que": {"flags": 0, "maxmsg": messages, "msgsize": bytes, "curmsgs": 0}}
///
/// A new object holds empty texts, zeros and false flags. Any thread, one object by one thread at a time. A
/// reference from a getter lives until that field is next set or parsed. A copy shares no later change.
class QoProcessApi {
public:
    QoProcessApi();

    /// Takes the members of a request text over, in their order, so the last of a name counts. A member that is
    /// absent leaves its field as it was; unknown members are ignored, and so is everything when the root is no
    /// object. Texts keep NUL bytes ("\u0000"). Numbers are cut toward zero; what is no number or needs more than
    /// 32 bits is 0. Flags are true for JSON true only.
    /// @return 0; -1 when the text is not valid JSON, logged (LOG_DEBUG), with nothing taken over.
    int parseJSON(const std::string& text);

    /// Writes the request text, formatted, to getJsonString; "" when one of the texts is not valid UTF-8. Left out
    /// are a receiver of 0, flags that are false, an empty sender identifier, and "que" unless both its "maxmsg"
    /// and "msgsize" are above 0.
    void toJSON();

    /// The request kind, "function".
    void setfunction(std::string_view function);
    const std::string& getfunction() const;
    /// The payload, "buffer".
    void setBuff(std::string_view buffer);
    const std::string& getBuff() const;
    /// The requester's own tag, "sender_id".
    void setsenderId(std::string_view sender_id);
    const std::string& getsenderId() const;
    /// The sender, "comp_id"; parsed ones may hold any 32-bit value.
    void setcomp_id(eQO_CMP_IDs_ comp_id);
    eQO_CMP_IDs_ getcomp_id() const;
    /// The receiver of a "sync", "dst_comp_id"; QO_CMPID_RESERVED for none.
    void setdstcomp_id(eQO_CMP_IDs_ comp_id);
    eQO_CMP_IDs_ getdstcomp_id() const;
    /// Attributes of the sender's receive queue, "que": flags, messages, bytes of one message, messages now.
    void setque_flags(int32_t flags);
    int32_t getque_flags() const;
    void setque_maxmsg(int32_t maxmsg);
    int32_t getque_maxmsg() const;
    void setque_msgsize(int32_t msgsize);
    int32_t getque_msgsize() const;
    void setque_curmsgs(int32_t curmsgs);
    int32_t getque_curmsgs() const;
    /// "subscribe": only when the value changed.
    void set_notify_on_change_only(bool on);
    bool get_notify_on_change_only() const;
    /// "get": several answers in one message.
    void set_pack_and_send(bool on);
    bool get_pack_and_send() const;
    /// The text that toJSON wrote.
    void setJsonString(std::string_view text);
    const std::string& getJsonString() const;
    /// Its length in bytes, without a NUL.
    size_t getJsonStringSize() const;

private:
    std::shared_ptr<std::string> paction;
    std::shared_ptr<std::string> pbuff;
    std::shared_ptr<std::string> pjsonstring;
    std::shared_ptr<std::string> psenderId;
    std::shared_ptr<QoJsonDocument> document_;  // made by the first text that is parsed; of no use between two
    eQO_CMP_IDs_ pcomp_id = QO_CMPID_RESERVED;
    eQO_CMP_IDs_ dst_comp_id = QO_CMPID_RESERVED;
    int32_t que_flags = 0;
    int32_t que_maxmsg = 0;
    int32_t que_msgsize = 0;
    int32_t que_curmsgs = 0;
    bool notify_on_change_only = false;
    bool pack_and_send = false;
};

#endif
