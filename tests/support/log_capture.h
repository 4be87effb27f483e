/// What the code under test wrote with syslog(), in order, instead of the system log. Linked into every test
/// program; thread-safe.
#ifndef QO_TEST_LOG_CAPTURE_H
#define QO_TEST_LOG_CAPTURE_H

#include <syslog.h>

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

/// Two lines are equal when level and text are: in which function a statement stands breaks no test.
struct QoLogLine {
    int level;
    std::string text;            // as qo_log_line() makes it
    std::string operation = {};  // "TreeMerge" in "PushPull:TreeMerge@123: text"; "" in lines without

    bool operator==(const QoLogLine& other) const { return level == other.level && text == other.text; }
};
void PrintTo(const QoLogLine& line, std::ostream* stream);

/// A line as it was logged. "PushPull:Load@123: text" becomes "PushPull:*@#: text" of the operation "Load", likewise
/// with "PushPull DENY:". "LOG: f@123: text" only loses its line number; other texts stay as they are.
QoLogLine qo_log_line(int level, const std::string& text);

/// Holds what was logged since it was created; one at a time.
class QoLogCapture {
public:
    QoLogCapture();
    ~QoLogCapture();
    QoLogCapture(const QoLogCapture&) = delete;
    QoLogCapture& operator=(const QoLogCapture&) = delete;
    /// All lines so far.
    std::vector<QoLogLine> lines() const;
    /// All lines so far but those of LOG_DEBUG.
    std::vector<QoLogLine> lines_above_debug() const;
    bool contains(int level, const std::string& text) const;
    void clear();
    /// Has `look` called for every further line, by the thread that logs it and before it goes on; null for no more.
    void on_line(std::function<void(const QoLogLine& line)> look);
    /// Writes every further line to `descriptor` too: for a forked child, whose memory the test does not see.
    void copy_to(int descriptor);
    /// Reads what copy_to() wrote, until the end of the file: until all who could write have ended.
    static std::vector<QoLogLine> read_copies(int descriptor);
};

#endif
