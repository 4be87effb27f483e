/// What the service was asked and what became of it, followed in its log. The requests stand there at the level
/// "debug", refusals, registrations and subscriptions also above it. One thread only.
#ifndef QO_CTL_TRAFFIC_H
#define QO_CTL_TRAFFIC_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "qo_component_ids.h"
#include "qo_ctl_log_line.h"
#include "qo_ctl_request.h"

enum class QoCtlOutcome {
    done,
    refused,      // in part or as a whole: the tree holds something else
    undelivered,  // somebody was not told
    failed,
};

/// "done", "refused", ...
std::string_view qo_ctl_outcome_name(QoCtlOutcome outcome);

/// One request and its consequences.
struct QoCtlHandled {
    std::string time;
    QoCtlRequest request;
    int64_t bytes = 0;  // of the message, NUL included
    QoCtlOutcome outcome = QoCtlOutcome::done;
    std::vector<std::string> reasons;  // the first of them
    size_t more_reasons = 0;
    std::vector<std::string> told;  // queues that a text was sent into
};

class QoCtlTraffic {
public:
    using Take = std::function<void(const QoCtlHandled&)>;
    /// @param take called for each request once nothing more can be said of it
    explicit QoCtlTraffic(Take take) : take_(std::move(take)) {}

    void add(const QoCtlLogLine& line);

    /// Nothing more will be said of the last request.
    void finish();

    /// Whether a request waits for what may still be said of it, and whether that is likely to have been all.
    bool is_waiting() const { return current_.has_value(); }
    bool is_settled() const { return settled_; }

    /// As far as the log told. The queue of each registered component, and its subscriptions: pointer, and whether it
    /// is only told of changes.
    const std::map<eQO_CMP_IDs_, std::string>& queues() const { return queues_; }
    using Subscriptions = std::map<std::string, bool>;
    const std::map<eQO_CMP_IDs_, Subscriptions>& subscriptions() const { return subscriptions_; }
    /// The component with that queue; QO_CMPID_RESERVED when none is known.
    eQO_CMP_IDs_ component_of(std::string_view queue) const;

private:
    void begin(const QoCtlLogLine& line, std::string_view numbers_and_text);
    void go_on_with(std::string_view rest_of_text);
    bool note_outcome(std::string_view text);
    void note_told(std::string_view text);
    void note_registration(std::string_view text);
    void note_subscription(std::string_view text);
    void apply(const QoCtlRequest& request);
    void forget(eQO_CMP_IDs_ component);
    void forget_all();

    Take take_;
    std::optional<QoCtlHandled> current_;
    std::string text_;      // of the current request, as far as it came
    bool settled_ = false;  // of the current request
    std::map<eQO_CMP_IDs_, std::string> queues_;
    std::map<eQO_CMP_IDs_, Subscriptions> subscriptions_;
};

#endif
