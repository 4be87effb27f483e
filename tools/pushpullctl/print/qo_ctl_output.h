/// What a person or a script sees: JSON on standard output, messages on standard error.
#ifndef QO_CTL_OUTPUT_H
#define QO_CTL_OUTPUT_H

#include <string>
#include <string_view>

#include "qo_pushpull_json.h"

/// How a JSON text is written. For a pipe or a file: one text per line, without colour.
struct QoCtlStyle {
    bool formatted = false;  // over several lines, as the service writes it, and tables instead of JSON
    bool coloured = false;
};

/// Whether a terminal of this kind (TERM; null is none) obeys commands, as those for colours.
bool qo_ctl_obeys_commands(const char* terminal_kind);

/// Whether colours are wanted on it where nobody said so: NO_COLOR is set to something when they are not.
bool qo_ctl_wants_colours(const char* terminal_kind, const char* no_color);

/// `node` as text with a line feed at its end, without characters that a terminal would obey (qo_ctl_harmless).
std::string qo_ctl_render(const JSONNODE* node, QoCtlStyle style);

/// A valid JSON text as its node, any other text as a string.
QoJsonNode qo_ctl_text_node(std::string_view text);

/// Appends a member that holds a text to an object.
void qo_ctl_add_text(JSONNODE* object, std::string_view name, std::string_view text);

/// `text` as a line: a valid JSON text in the style, any other text as a JSON string.
std::string qo_ctl_render_text(std::string_view text, QoCtlStyle style);

/// Writes all of `text` to a descriptor. @return false with errno when it could not be.
bool qo_ctl_write(int descriptor, std::string_view text);

/// One message for a person, on standard error: "pushpullctl: ", the text, made harmless, and a line feed.
void qo_ctl_say(const std::string& text);

/// As qo_ctl_say, only when somebody sits there: standard error is a terminal.
void qo_ctl_tell_person(const std::string& text);

/// `number` of `name`, with an s unless it is one: "2 messages".
std::string qo_ctl_count(long number, const std::string& name);

#endif
