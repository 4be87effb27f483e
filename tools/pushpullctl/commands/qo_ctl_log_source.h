/// Where the service's log lines come from.
#ifndef QO_CTL_LOG_SOURCE_H
#define QO_CTL_LOG_SOURCE_H

#include <sys/types.h>

#include <chrono>
#include <deque>
#include <memory>
#include <string>

#include "qo_ctl_log_line.h"

class QoCtlLogSource {
public:
    virtual ~QoCtlLogSource() = default;
    QoCtlLogSource() = default;
    QoCtlLogSource(const QoCtlLogSource&) = delete;
    QoCtlLogSource& operator=(const QoCtlLogSource&) = delete;

    /// What it is, for a person: "the journal".
    virtual std::string name() const = 0;

    enum class State { lines, quiet, ended };
    /// Takes what there is, waiting for it that long. Says on standard error why it ended, unless it is a file's end.
    virtual State read(std::deque<QoCtlLogLine>& lines, std::chrono::milliseconds patience) = 0;
};

enum class QoCtlLogEnd { followed, is_all };

/// A file, "-" for standard input, or the journal when `file` is "". A file that is followed is read from its end on,
/// and from the beginning of the next one of its name when the log is rotated; else all of it is read.
/// @return null, with a word about it, when it cannot be read
std::unique_ptr<QoCtlLogSource> qo_ctl_open_log(const std::string& file, QoCtlLogEnd end);

#endif
