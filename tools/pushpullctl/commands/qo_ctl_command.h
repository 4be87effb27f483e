/// What a command of pushpullctl is.
#ifndef QO_CTL_COMMAND_H
#define QO_CTL_COMMAND_H

#include <chrono>
#include <string>

#include "qo_component_ids.h"
#include "qo_ctl_command_line.h"
#include "qo_ctl_signals.h"
#include "qo_ctl_status.h"

enum class QoCtlColor { automatic, always, never };

/// What every command can be told.
struct QoCtlCommon {
    eQO_CMP_IDs_ identity = QO_CMPID_RESERVED;  // QO_CMPID_RESERVED: one of the command's own choice
    std::string instance;                       // suffix of the service's queue name
    std::chrono::milliseconds timeout{5000};    // for each answer
    long message_size = 0;                      // bytes of a message of the own queue; 0: the largest possible
    QoCtlColor color = QoCtlColor::automatic;
    bool json_lines = false;  // one JSON text per line on a terminal too
};

/// One command: its place on the command line, and what it does. It is used once.
class QoCtlCommand {
public:
    struct Help {
        const char* name;
        const char* description;
        const char* notes;  // behind its options: what to know, and an example
    };

    virtual ~QoCtlCommand() = default;
    QoCtlCommand() = default;
    QoCtlCommand(const QoCtlCommand&) = delete;
    QoCtlCommand& operator=(const QoCtlCommand&) = delete;

    virtual Help help() const = 0;

    /// Says what stands on the command line besides QoCtlCommon's.
    virtual void declare(QoCtlCommandLine&) {}

    /// Called when the command line has been read. @return what is wrong with it; "" when it can be carried out
    virtual std::string fault() { return ""; }

    /// Does all of the work, says on standard error what went wrong, and writes its JSON to standard output once its
    /// session is over; what follows writes while it does.
    virtual QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) = 0;
};

#endif
