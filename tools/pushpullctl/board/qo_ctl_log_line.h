/// Lines of the system log, as a syslog daemon writes them to a file and as the journal gives them out. Pure functions;
/// any thread.
#ifndef QO_CTL_LOG_LINE_H
#define QO_CTL_LOG_LINE_H

#include <optional>
#include <string>
#include <string_view>

/// How the service calls itself in the log.
inline constexpr char QO_CTL_LOG_IDENT[] = "PushPull";

struct QoCtlLogLine {
    enum class Origin {
        service,  // it names the service
        other,    // it names another program
        bare,     // nothing stands before the text: of a log without headers, or the rest of a line with a line feed
    };
    Origin origin = Origin::bare;
    std::string time;  // as it stands there; "" when none does
    std::string text;  // what was logged
};

/// A line of a file: "Nov 22 13:00:00 host PushPull[812]: text", with an RFC 3339 time, with a "<15>" before it,
/// without the host, or the text alone.
QoCtlLogLine qo_ctl_read_log_line(std::string_view line);

/// A line of the journal's JSON. @return nothing when it is none
std::optional<QoCtlLogLine> qo_ctl_read_journal_line(std::string_view json);

/// A text of several lines that a syslog daemon put in one: what it writes for the line feeds and tabs between the
/// tokens of a JSON text ("#012", "\n", "\012") becomes blanks; strings stay.
std::string qo_ctl_without_layout_escapes(std::string_view json);

#endif
