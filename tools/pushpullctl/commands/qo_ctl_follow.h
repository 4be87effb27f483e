/// What the commands that follow publishes share.
#ifndef QO_CTL_FOLLOW_H
#define QO_CTL_FOLLOW_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "qo_ctl_shared.h"

/// What is followed, and when that ends.
struct QoCtlFollowing {
    std::vector<std::string> pointers;
    bool changes_only = false;
    uint64_t count = 0;  // notifications after which it ends; 0: any number
    double seconds = 0;  // after which it ends; 0: never

    void declare(QoCtlCommandLine& line);
};

/// Follows until Ctrl-C, or until the limits that are given, and writes `render(text)` for each text to a descriptor,
/// which stays the caller's. Says on standard error what went wrong.
/// @param output_name for messages: "standard output"
QoCtlStatus qo_ctl_follow(const QoCtlFollowing& following, const QoCtlCommon& common, QoCtlSignals& signals, int output,
                          const std::string& output_name,
                          const std::function<std::string(const std::string& text)>& render);

#endif
