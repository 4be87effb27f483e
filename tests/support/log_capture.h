/// What the code under test wrote with syslog(), in order, instead of the system log. Linked into every test
/// program; thread-safe.
#ifndef QO_TEST_LOG_CAPTURE_H
#define QO_TEST_LOG_CAPTURE_H

#include <syslog.h>

#include <iosfwd>
#include <string>
#include <vector>

struct QoLogLine {
    int level;
    std::string text;  // with a source line number "@123:" written as "@#:"

    bool operator==(const QoLogLine&) const = default;
};
void PrintTo(const QoLogLine& line, std::ostream* stream);

/// "PushPull:Load@123: text" as "PushPull:Load@#: text", likewise with the other prefixes; other texts as they are.
std::string qo_without_line_number(const std::string& text);

/// Holds what was logged since it was created; one at a time.
class QoLogCapture {
public:
    QoLogCapture();
    /// All lines so far.
    std::vector<QoLogLine> lines() const;
    /// All lines so far but those of LOG_DEBUG.
    std::vector<QoLogLine> lines_above_debug() const;
    bool contains(int level, const std::string& text) const;
    void clear();
    /// Writes every further line to `descriptor` too: for a forked child, whose memory the test does not see.
    void copy_to(int descriptor);
    /// Reads what copy_to() wrote, until the end of the file: until all who could write have ended.
    static std::vector<QoLogLine> read_copies(int descriptor);
};

#endif
