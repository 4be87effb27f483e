/// The texts that travel: what a received text is, and what a pointer means in it. Pure functions; any thread.
#ifndef QO_CTL_TEXT_H
#define QO_CTL_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "qo_json.h"

/// A text from the service: the answer to a "get" that carried a sender id, or anything else.
struct QoCtlReceived {
    std::optional<std::string_view> sender_id;  // of an answer; a view into the text that was given
    std::string_view body;                      // the text behind the "sender_id:...;" prefix, or all of it
};

/// Takes the prefix of an answer off. A prefix without its ";" is no prefix.
QoCtlReceived qo_ctl_received(std::string_view text);

enum class QoCtlAnswerKind {
    json,     // a node
    missing,  // "pointer:{}": there is no such node
    size,     // "pointer:number": the number of elements; -1 when it cannot be asked
};

/// What the body of an answer to a "get" of `pointer` is.
struct QoCtlAnswer {
    QoCtlAnswerKind kind;
    int64_t size;  // with QoCtlAnswerKind::size, else 0
};
QoCtlAnswer qo_ctl_answer(std::string_view pointer, std::string_view body);

/// The segments of a pointer; empty ones, which the service skips too, are left out.
std::vector<std::string_view> qo_ctl_segments(std::string_view pointer);

/// Why a pointer cannot be sent at all: "" when it can. Pointers begin with "/", hold no ";", which separates the
/// pointers of a request, and are valid UTF-8.
std::string qo_ctl_pointer_fault(std::string_view pointer);

/// The node that `pointer` addresses in an answer, in which an array holds the addressed element only; null when
/// it is not there. `passes_array` (null allowed) is set to whether the pointer names an element of an array.
JSONNODE* qo_ctl_addressed(JSONNODE* answer, std::string_view pointer, bool* passes_array);

/// True when `pointer` addresses a node of a packed answer, in which array elements stand at their positions.
bool qo_ctl_packed_holds(JSONNODE* packed, std::string_view pointer);

/// True for what stays of a deleted array element that was not the last: {"id": its position}.
bool qo_ctl_is_placeholder(JSONNODE* element);

#endif
