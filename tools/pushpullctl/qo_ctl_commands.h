/// The commands. Each does all of its work, says on standard error what went wrong, and writes its JSON to
/// standard output once its session is over; "subscribe" writes while it follows.
#ifndef QO_CTL_COMMANDS_H
#define QO_CTL_COMMANDS_H

#include <span>
#include <string_view>

#include "qo_ctl_options.h"
#include "qo_ctl_output.h"
#include "qo_ctl_session.h"
#include "qo_ctl_signals.h"
#include "qo_ctl_status.h"

QoCtlStatus qo_ctl_get(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_tree(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_subscribe(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_publish(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_delete(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_clear(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_save(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_dump(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_sync(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_init(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_exit(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_list_components(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_list_queues(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_stats(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_check_saved(const QoCtlOptions& options, QoCtlSignals& signals);
QoCtlStatus qo_ctl_check_defaults(const QoCtlOptions& options, QoCtlSignals& signals);

/// The top-level members of the built-in default tree, in its order.
std::span<const std::string_view> qo_ctl_tree_members();

// ---- shared by the commands ----

/// The session that the options ask for. Without --as it acts as the first free one of a few identifiers that no
/// component of a device in service has: those of simulators and testers, and for "delete", which needs the
/// authority, the end marker of the system controller's identifiers and its tester.
QoCtlSessionSettings qo_ctl_session_settings(const QoCtlOptions& options);

/// How standard output is to be written.
QoCtlStyle qo_ctl_stdout_style(const QoCtlOptions& options);

/// Writes `text` to standard output. @return failed, with a word about it unless the reader is gone, when it
/// could not be; `status` otherwise.
QoCtlStatus qo_ctl_print(const std::string& text, QoCtlStatus status);

#endif
