/// The command line of pushpullctl.
#ifndef QO_CTL_OPTIONS_H
#define QO_CTL_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qo_component_ids.h"

enum class QoCtlCommand {
    get,
    publish,
    subscribe,
    delete_node,
    clear,
    save,
    dump,
    sync,
    init,
    exit,
    tree,
    components,
    queues,
    stats,
    check_saved,
    check_defaults,
};

enum class QoCtlColor { automatic, always, never };

/// A command line that can be carried out. Members that the command does not have keep their defaults.
struct QoCtlOptions {
    QoCtlCommand command = QoCtlCommand::get;

    // of every command
    eQO_CMP_IDs_ identity = QO_CMPID_RESERVED;  // QO_CMPID_RESERVED: one of the command's own choice
    std::string instance;                       // suffix of the service's queue name
    std::chrono::milliseconds timeout{5000};    // for each answer
    long message_size = 0;                      // bytes of a message of the own queue; 0: the largest possible
    QoCtlColor color = QoCtlColor::automatic;
    bool json_lines = false;  // one JSON text per line on a terminal too

    std::vector<std::string> pointers;             // get, subscribe, delete, clear
    bool pack = false;                             // get
    bool size = false;                             // get
    bool on_change_only = false;                   // subscribe
    uint64_t count = 0;                            // subscribe: notifications after which it ends; 0: never
    std::string text;                              // publish: the JSON text; sync: what is forwarded
    eQO_CMP_IDs_ destination = QO_CMPID_RESERVED;  // sync
    bool ask_for_dump = true;                      // tree
    bool watch = false;                            // queues
    std::vector<std::string> files;                // stats; empty: those that the service writes; the one to check
    size_t rows = 20;                              // stats: how many are shown
    std::string plot;                              // stats: the file for the picture; "" for none
};

/// Reads the command line and, for "publish", the text from its file or from standard input. Says on standard
/// error what is wrong with it; prints help and the version on standard output.
/// @param status set when there is nothing to carry out: 0 after help or the version, 2 after a fault
/// @return nothing when there is nothing to carry out
std::optional<QoCtlOptions> qo_ctl_parse(int argc, const char* const* argv, int& status);

#endif
