// Which lines of the log say what. They are written where the request kinds are handled.
#include "qo_ctl_traffic.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "qo_pushpull_conventions.h"

namespace {

constexpr size_t kMostReasons = 8;           // kept of one request
constexpr size_t kLongestReason = 300;       // bytes
constexpr size_t kMostSubscriptions = 1024;  // of one component
constexpr size_t kMostComponents = 1024;

constexpr std::string_view kReceived = "PushPullData : mq_receive: retval: ";
constexpr std::string_view kReceivedText = " , msg: ";
constexpr std::string_view kTold = "mq_send success: msg size = ";
constexpr std::string_view kToldList = ", queue list = \"";
constexpr std::string_view kRegistered = "QoPushPullQueueMonitor: Adding queue ";
constexpr std::string_view kSubscribed = "comp_subscribe : Subscription Passed for \"";
constexpr std::string_view kGatewayForgotten = "*********UNREGISTERING:RGW COMP_IDs";
constexpr std::string_view kStarted = "PushPullData Start";

struct OutcomeLine {
    std::string_view begin;
    QoCtlOutcome outcome;
    bool last = false;  // nothing is logged behind it
};

constexpr OutcomeLine kOutcomes[] = {
    {"PushPull DENY:", QoCtlOutcome::refused},
    {"PushPull:TreeMerge@", QoCtlOutcome::refused},
    {"UpdateNode Failed", QoCtlOutcome::refused},
    {"UpdateNode Warning", QoCtlOutcome::refused},
    {"Register WARNING", QoCtlOutcome::refused},
    {"Send message from pushpull to ", QoCtlOutcome::undelivered},
    {"comp_sync() from pushpull to ", QoCtlOutcome::undelivered},
    {"comp_get: ReadNode failed", QoCtlOutcome::failed},
    {"comp_subscribe : Subscription Failed", QoCtlOutcome::failed},
    {"comp_unsubscribe : Unsubscription Failed", QoCtlOutcome::failed},
    {"comp_register fail", QoCtlOutcome::failed},
    {"comp_delete : DeleteNode - ERROR", QoCtlOutcome::failed},
    {"Component not Registered", QoCtlOutcome::failed},
    {"Component -not Registered", QoCtlOutcome::failed},
    {"comp_get: Component not Registered", QoCtlOutcome::failed},
    {"Published JSON is invalid", QoCtlOutcome::failed},
    {"parseJSON failed in pushpull", QoCtlOutcome::failed, true},
    {"exception ", QoCtlOutcome::failed, true},
    {"Component Registration failed", QoCtlOutcome::failed, true},
    {"Component subscription failed", QoCtlOutcome::failed, true},
    {"Comp unsubscription failed", QoCtlOutcome::failed, true},
    {"Component data publish failed", QoCtlOutcome::failed, true},
    {"Component get data failed", QoCtlOutcome::failed, true},
    {"component save request failed", QoCtlOutcome::failed, true},
    {"component save debug request failed", QoCtlOutcome::failed, true},
    {"component delete request failed", QoCtlOutcome::failed, true},
    {"component clear request failed", QoCtlOutcome::failed, true},
    {"component unregister request failed", QoCtlOutcome::failed, true},
    {"Component comp_init data failed", QoCtlOutcome::failed, true},
    {"Component comp_exit data failed", QoCtlOutcome::failed, true},
    {"Component comp_sync failed", QoCtlOutcome::failed, true},
};

std::string_view without_blanks_before(std::string_view text) {
    return text.substr(std::min(text.find_first_not_of(' '), text.size()));
}

/// Takes a number off the text. @return nothing when there is none
std::optional<int64_t> take_number(std::string_view& text) {
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return std::nullopt;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return number;
}

/// "reason" of "PushPull DENY:TreeMerge@123: reason".
std::string reason_of(std::string_view text) {
    if (text.starts_with("PushPull")) {
        const size_t end = text.find(": ");
        if (end != std::string_view::npos) text.remove_prefix(end + 2);
    }
    return std::string(text.substr(0, kLongestReason));
}

/// The number behind `title` in the last part of a line, which a name before it cannot be mistaken for.
std::optional<eQO_CMP_IDs_> last_component(std::string_view text, std::string_view title, size_t& title_begin) {
    title_begin = text.rfind(title);
    if (title_begin == std::string_view::npos) return std::nullopt;
    std::string_view digits = text.substr(title_begin + title.size());
    const std::optional<int64_t> number = take_number(digits);
    return number ? std::optional(static_cast<eQO_CMP_IDs_>(*number)) : std::nullopt;
}

/// Whether a subscription to `pointer` is one at or below `top`.
bool is_below(std::string_view pointer, std::string_view top) {
    while (top.ends_with('/')) top.remove_suffix(1);
    return pointer.starts_with(top) && (pointer.size() == top.size() || pointer[top.size()] == '/');
}

}  // namespace

std::string_view qo_ctl_outcome_name(QoCtlOutcome outcome) {
    constexpr std::array<std::string_view, 4> kNames = {"done", "refused", "undelivered", "failed"};
    return kNames[static_cast<size_t>(outcome)];
}

void QoCtlTraffic::add(const QoCtlLogLine& line) {
    if (line.origin == QoCtlLogLine::Origin::other) return;
    const std::string_view text = without_blanks_before(line.text);
    if (text.starts_with(kReceived))
        begin(line, text.substr(kReceived.size()));
    else if (text.starts_with(kRegistered))
        note_registration(text.substr(kRegistered.size()));
    else if (text.starts_with(kSubscribed))
        note_subscription(text.substr(kSubscribed.size()));
    else if (text.starts_with(kStarted))
        forget_all();
    else if (text.starts_with(kGatewayForgotten))
        for (const eQO_CMP_IDs_ id :
             {QO_CMPID_REMOTE_GATEWAY_DM, QO_CMPID_REMOTE_GATEWAY_CM, QO_CMPID_REMOTE_GATEWAY_RM})
            forget(id);
    else if (text.starts_with(kTold))
        note_told(text);
    else if (!note_outcome(text) && line.origin == QoCtlLogLine::Origin::bare)
        go_on_with(line.text);
}

void QoCtlTraffic::begin(const QoCtlLogLine& line, std::string_view numbers_and_text) {
    finish();
    const std::optional<int64_t> bytes = take_number(numbers_and_text);
    if (!bytes || !numbers_and_text.starts_with(kReceivedText)) return;
    current_.emplace();
    current_->time = line.time;
    current_->bytes = *bytes;
    settled_ = false;
    text_ = numbers_and_text.substr(kReceivedText.size());
    current_->request = qo_ctl_read_request(text_);
}

void QoCtlTraffic::go_on_with(std::string_view rest_of_text) {
    if (!current_ || current_->request.whole) return;
    const auto limit = static_cast<size_t>(std::max<int64_t>(current_->bytes, 0));
    if (text_.size() + 1 + rest_of_text.size() > limit) return;
    text_.append("\n").append(rest_of_text);
    // Read once more only where it may have become whole: the message had a NUL behind it.
    if (text_.size() + 1 >= limit) current_->request = qo_ctl_read_request(text_);
}

/// @return false when the text is of no known outcome
bool QoCtlTraffic::note_outcome(std::string_view text) {
    const auto* const line =
        std::find_if(std::begin(kOutcomes), std::end(kOutcomes),
                     [text](const OutcomeLine& outcome) { return text.starts_with(outcome.begin); });
    if (line == std::end(kOutcomes)) return false;
    if (!current_) return true;
    current_->outcome = std::max(current_->outcome, line->outcome);
    settled_ = settled_ || line->last;
    if (current_->reasons.size() < kMostReasons)
        current_->reasons.push_back(reason_of(text));
    else
        ++current_->more_reasons;
    return true;
}

void QoCtlTraffic::note_told(std::string_view text) {
    if (!current_) return;
    settled_ = true;
    const size_t list_begin = text.find(kToldList);
    const size_t list_end = text.rfind('"');
    if (list_begin == std::string_view::npos || list_end < list_begin + kToldList.size()) return;
    std::string_view list = text.substr(list_begin + kToldList.size(), list_end - list_begin - kToldList.size());
    while (!list.empty()) {
        const size_t end = std::min(list.find(';'), list.size());
        const std::string name(list.substr(0, end));
        if (std::find(current_->told.begin(), current_->told.end(), name) == current_->told.end() &&
            current_->told.size() < kMostComponents)
            current_->told.push_back(name);
        list.remove_prefix(std::min(end + 1, list.size()));
    }
}

void QoCtlTraffic::note_registration(std::string_view text) {
    constexpr std::string_view kComponent = " (component ID ";
    size_t end = 0;
    const std::optional<eQO_CMP_IDs_> id = last_component(text, kComponent, end);
    if (id && (queues_.count(*id) != 0 || queues_.size() < kMostComponents)) queues_[*id] = text.substr(0, end);
}

void QoCtlTraffic::note_subscription(std::string_view text) {
    constexpr std::string_view kComponent = "\", comp_id = ";
    size_t end = 0;
    const std::optional<eQO_CMP_IDs_> id = last_component(text, kComponent, end);
    if (!id || (subscriptions_.count(*id) == 0 && subscriptions_.size() >= kMostComponents)) return;
    Subscriptions& mine = subscriptions_[*id];
    if (mine.size() < kMostSubscriptions)
        mine[std::string(text.substr(0, end))] = current_ && current_->request.changes_only;
}

void QoCtlTraffic::finish() {
    if (!current_) return;
    if (!current_->request.whole) current_->request = qo_ctl_read_request(text_);
    if (current_->outcome != QoCtlOutcome::failed) apply(current_->request);
    const QoCtlHandled handled = *std::move(current_);
    current_.reset();
    settled_ = false;
    text_.clear();
    take_(handled);
}

/// What a request that was carried out changed. Registrations and subscriptions have lines of their own.
void QoCtlTraffic::apply(const QoCtlRequest& request) {
    if (request.kind == QO_REQUEST_UNREGISTER) forget(request.sender);
    if ((request.kind == QO_REQUEST_INIT || request.kind == QO_REQUEST_EXIT) &&
        request.buffer == QO_REQUEST_CONFIRMATION)
        forget_all();
    if (request.kind != QO_REQUEST_UNSUBSCRIBE) return;
    const auto mine = subscriptions_.find(request.sender);
    if (mine == subscriptions_.end()) return;
    std::string_view list = request.buffer;
    while (!list.empty() && list[0] != ';') {
        const size_t end = std::min(list.find(';'), list.size());
        const std::string_view top = list.substr(0, end);
        std::erase_if(mine->second, [top](const auto& entry) { return is_below(entry.first, top); });
        list.remove_prefix(std::min(end + 1, list.size()));
    }
}

void QoCtlTraffic::forget(eQO_CMP_IDs_ component) {
    queues_.erase(component);
    subscriptions_.erase(component);
}

void QoCtlTraffic::forget_all() {
    queues_.clear();
    subscriptions_.clear();
}

eQO_CMP_IDs_ QoCtlTraffic::component_of(std::string_view queue) const {
    const auto found =
        std::find_if(queues_.begin(), queues_.end(), [queue](const auto& entry) { return entry.second == queue; });
    return found == queues_.end() ? QO_CMPID_RESERVED : found->first;
}
