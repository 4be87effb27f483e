// A component's registration, its subscriptions and its questions, kept up over restarts of the service.
#include "qo_pushpull_client.hpp"

#include <errno.h>
#include <fcntl.h>
#include <mqueue.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <string_view>

#include "qo_pushpull_client_text.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_own_queue.h"
#include "qo_pushpull_waker.h"

namespace {

using std::chrono::milliseconds;

// Asked for to learn that the service has come this far: the answer is short, whatever was published.
constexpr char kFencePointer[] = "/siblings/size";
constexpr char kTagBegin[] = "sender_id:";
constexpr char kDeletedBegin[] = "NODE DELETED: ";
constexpr char kSyncBegin[] = "sync:";
constexpr milliseconds kLastWord{500};  // for the answer that tells whether there is a registration to take back
constexpr size_t kMostKept = 1000;      // texts kept while an answer is waited for

bool begins_with(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

/// All attempts of the library together take as long as one answer.
QoPushpullApiTimings api_timings(milliseconds answer_timeout) {
    QoPushpullApiTimings timings;
    timings.reopen_pause = milliseconds(1);
    timings.send_deadline = answer_timeout / QO_SEND_ATTEMPTS;
    timings.retry_pause = milliseconds(1);
    return timings;
}

/// What answers to a question begin with.
std::string tag_prefix(const std::string& tag) { return kTagBegin + tag + ";"; }

/// Does something at the end of a block, however it ends.
template <typename Action>
class AtEnd {
public:
    explicit AtEnd(Action action) : action_(std::move(action)) {}
    ~AtEnd() { action_(); }
    AtEnd(const AtEnd&) = delete;
    AtEnd& operator=(const AtEnd&) = delete;

private:
    Action action_;
};

}  // namespace

QoPushpullClient::QoPushpullClient(QoPushpullClientSettings settings)
    : settings_(std::move(settings)),
      api_(settings_.instance, api_timings(settings_.answer_timeout)),
      queue_(std::make_unique<QoPushpullOwnQueue>()),
      waker_(std::make_unique<QoPushpullWaker>()) {}

QoPushpullClient::~QoPushpullClient() {
    // The registration may be another process's as long as no answer has come to our queue.
    if (state_ == State::kJoining && asked_to_join_ && wait_for(join_tag_, Clock::now() + kLastWord))
        state_ = State::kJoined;
    if (state_ == State::kJoined) api_.comp_unregister(settings_.id);
}

// ---- coming, and coming back ----

int32_t QoPushpullClient::open() {
    if (queue_->open(settings_.queue_name, settings_.queue_messages, settings_.message_size) != 0) return -1;
    if (!waker_->open() || !waker_->watch(queue_->descriptor())) return -1;
    begin_joining();
    return 0;
}

bool QoPushpullClient::wait_until_joined(milliseconds timeout) {
    const Clock::time_point deadline = Clock::now() + timeout;
    dispatch();
    while (!dispatching_ && !joined() && Clock::now() < deadline) {
        wait_for_work(std::chrono::ceil<milliseconds>(deadline - Clock::now()));
        dispatch();
    }
    return joined();
}

/// One tag for all attempts until the answer to any of them: registering again changes nothing.
void QoPushpullClient::begin_joining() {
    state_ = State::kJoining;
    asked_to_join_ = false;
    join_tag_ = next_tag();
    look_tag_.clear();
    reads_.clear();
    // A queue that was removed lasts, and its memory counts, until everybody has let go of it.
    api_.terminate();
    try_to_join();
}

void QoPushpullClient::try_to_join() {
    due_in(settings_.retry);
    // A service that starts now would make a queue of its own under a name that is gone.
    if (!queue_->is_named()) {
        if (queue_->open(settings_.queue_name, settings_.queue_messages, settings_.message_size) != 0) return;
        if (!waker_->watch(queue_->descriptor())) return;
    }
    // Opened each time: the service may have made its queue anew.
    if (!service_has_room() || api_.init(settings_.instance) != 0) return;
    asked_to_join_ = true;
    if (api_.comp_register(settings_.id, queue_->name(), &queue_->attributes()) != 0) return;
    api_.get(settings_.id, kFencePointer, join_tag_, false);
}

/// The requests of a service that does not run stay in its queue. They must not fill it, attempt by attempt.
bool QoPushpullClient::service_has_room() const {
    const QoDescriptor queue(mq_open((QO_SERVICE_QUEUE_NAME + settings_.instance).c_str(), O_RDWR | O_CLOEXEC));
    mq_attr now{};
    return queue && mq_getattr(queue.get(), &now) == 0 && now.mq_curmsgs * 2 < now.mq_maxmsg;
}

void QoPushpullClient::take_registration() {
    state_ = State::kJoined;
    join_tag_.clear();
    due_in(settings_.look_interval);
    // Only now: until the answer, the identifier might have been another process's.
    const auto subscriptions = subscriptions_;
    for (const auto& subscribed : subscriptions) announce(subscribed, is_first_of_pointer(*subscribed));
    if (on_joined_) on_joined_();
}

void QoPushpullClient::lose_registration() {
    const bool was_joined = joined();
    begin_joining();
    if (was_joined && on_lost_) on_lost_();
}

// ---- subscriptions ----

bool QoPushpullClient::subscribe(const std::string& pointer, TextHandler handler, QoPushpullSubscription options) {
    if (pointer.empty() || pointer.find(';') != std::string::npos) return false;
    const auto other_mode = [&](const std::shared_ptr<Subscribed>& subscribed) {
        return subscribed->pointer == pointer && subscribed->options.changes_only != options.changes_only;
    };
    // The service keeps the first mode of a node.
    if (std::any_of(subscriptions_.begin(), subscriptions_.end(), other_mode)) return false;
    auto subscribed = std::make_shared<Subscribed>();
    subscribed->pointer = pointer;
    subscribed->handler = std::move(handler);
    subscribed->options = options;
    subscriptions_.push_back(subscribed);
    if (joined()) announce(subscribed, is_first_of_pointer(*subscribed));
    return true;
}

void QoPushpullClient::unsubscribe(const std::string& pointer) {
    bool others_below = false;
    const auto ends = [&](const std::shared_ptr<Subscribed>& subscribed) {
        subscribed->ended = subscribed->pointer == pointer;
        others_below = others_below || (!subscribed->ended && begins_with(subscribed->pointer, pointer));
        return subscribed->ended;
    };
    subscriptions_.erase(std::remove_if(subscriptions_.begin(), subscriptions_.end(), ends), subscriptions_.end());
    // The service would end those below too. Then it rather goes on telling us more than we want.
    if (joined() && !others_below) api_.un_subscribe(settings_.id, pointer);
}

bool QoPushpullClient::is_first_of_pointer(const Subscribed& subscribed) const {
    const auto same_pointer = [&](const std::shared_ptr<Subscribed>& other) {
        return other->pointer == subscribed.pointer;
    };
    return std::find_if(subscriptions_.begin(), subscriptions_.end(), same_pointer)->get() == &subscribed;
}

/// Subscribed to first and read then: what is published between the two is told.
void QoPushpullClient::announce(const std::shared_ptr<Subscribed>& subscribed, bool first_of_pointer) {
    if (first_of_pointer) api_.subscribe(settings_.id, subscribed->pointer, subscribed->options.changes_only);
    if (!subscribed->options.read_first) return;
    const std::string tag = next_tag();
    if (api_.get(settings_.id, subscribed->pointer, tag, false) == 0) reads_[tag] = subscribed;
}

// ---- requests ----

bool QoPushpullClient::publish(const std::string& json) {
    return request([&json](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.publish(id, json); });
}

bool QoPushpullClient::request(const std::function<int32_t(QoPushpullApi& api, eQO_CMP_IDs_ id)>& request) {
    return joined() && request(api_, settings_.id) == 0;
}

QoPushpullAnswer QoPushpullClient::get(const std::string& pointer, milliseconds timeout) {
    if (!joined()) return {QoPushpullOutcome::not_joined, ""};
    // Several pointers have several answers.
    if (pointer.find(';') != std::string::npos) return {QoPushpullOutcome::not_sent, ""};
    const Clock::time_point deadline = Clock::now() + timeout;
    const std::string tag = next_tag();
    if (api_.get(settings_.id, pointer, tag, false) != 0) return {QoPushpullOutcome::not_sent, ""};
    const std::optional<std::string> answer = wait_for(tag, deadline);
    if (!answer) return {QoPushpullOutcome::no_answer, ""};
    if (*answer == pointer + ":{}" || *answer == pointer + ":-1") return {QoPushpullOutcome::no_such_node, ""};
    const std::string size_begin = pointer + ":";
    const bool is_size = begins_with(*answer, size_begin);
    return {QoPushpullOutcome::done, is_size ? answer->substr(size_begin.size()) : *answer};
}

bool QoPushpullClient::wait_until_handled(milliseconds timeout) {
    const QoPushpullOutcome outcome = get(kFencePointer, timeout).outcome;
    return outcome == QoPushpullOutcome::done || outcome == QoPushpullOutcome::no_such_node;
}

std::optional<std::string> QoPushpullClient::wait_for(const std::string& tag, Clock::time_point deadline) {
    const std::string prefix = tag_prefix(tag);
    while (kept_.size() < kMostKept) {
        std::optional<std::string> text = queue_->take();
        if (text && begins_with(*text, prefix)) return text->substr(prefix.size());
        if (text) {
            kept_.push_back(std::move(*text));
            waker_->wake();  // for a loop of the component's own, which would not see what is no longer in the queue
        } else if (!queue_->wait_until(deadline)) {
            break;
        }
    }
    return std::nullopt;
}

/// Told apart also from those of an earlier process, whose answers may still be on their way.
std::string QoPushpullClient::next_tag() { return std::to_string(getpid()) + "-" + std::to_string(++tags_); }

// ---- the loop ----

int QoPushpullClient::descriptor() const { return waker_->descriptor(); }

void QoPushpullClient::run() {
    while (!dispatching_ && !stop_requested_.exchange(false)) {
        wait_for_work(milliseconds(-1));
        dispatch();
    }
}

void QoPushpullClient::stop() noexcept {
    stop_requested_ = true;
    waker_->wake();
}

/// @param timeout below 0: no limit
void QoPushpullClient::wait_for_work(milliseconds timeout) const {
    pollfd work{waker_->descriptor(), POLLIN, 0};
    poll(&work, 1, static_cast<int>(timeout.count()));
}

void QoPushpullClient::dispatch() {
    if (dispatching_ || state_ == State::kClosed) return;
    dispatching_ = true;
    const AtEnd end([this] {
        dispatching_ = false;
        if (!kept_.empty()) waker_->wake();
    });
    waker_->settle();
    // As many as there are now: a component with a loop of its own has other things to do as well.
    for (size_t left = kept_.size() + static_cast<size_t>(queue_->waiting()); left > 0; --left)
        if (const std::optional<std::string> text = next_text()) handle(*text);
    // Behind the texts, for the answer that is waited for may be among them.
    if (Clock::now() >= due_) do_what_is_due();
}

std::optional<std::string> QoPushpullClient::next_text() {
    if (kept_.empty()) return queue_->take();
    std::string text = std::move(kept_.front());
    kept_.pop_front();
    return text;
}

void QoPushpullClient::do_what_is_due() {
    if (state_ == State::kJoining)
        try_to_join();
    else if (look_tag_.empty())
        look();
    else
        lose_registration();
}

void QoPushpullClient::look() {
    look_tag_ = next_tag();
    api_.get(settings_.id, kFencePointer, look_tag_, false);
    due_in(settings_.answer_timeout);
}

void QoPushpullClient::due_in(milliseconds time) {
    due_ = Clock::now() + time;
    waker_->set_due(due_);
}

void QoPushpullClient::handle(const std::string& text) {
    if (begins_with(text, kTagBegin)) {
        const size_t end = text.find(';');
        const size_t tag_begin = sizeof kTagBegin - 1;
        if (end != std::string::npos) handle_answer(text.substr(tag_begin, end - tag_begin), text.substr(end + 1));
    } else if (text == QO_INIT_ANSWER || text == QO_EXIT_ANSWER || text == QO_EXIT_NOTICE) {
        lose_registration();
    } else if (begins_with(text, kDeletedBegin)) {
        if (on_deleted_) on_deleted_(text.substr(sizeof kDeletedBegin - 1));
    } else if (begins_with(text, kSyncBegin)) {
        handle_sync(text);
    } else {
        notify(text);
    }
}

/// An answer that is none of these comes late: whoever asked waits no longer.
void QoPushpullClient::handle_answer(const std::string& tag, const std::string& body) {
    if (state_ == State::kJoining && tag == join_tag_) {
        take_registration();
    } else if (joined() && tag == look_tag_) {
        look_tag_.clear();
        due_in(settings_.look_interval);
    } else if (const auto read = reads_.find(tag); read != reads_.end()) {
        const std::shared_ptr<Subscribed> subscribed = read->second.lock();
        reads_.erase(read);
        if (subscribed && !subscribed->ended && body != subscribed->pointer + ":{}") subscribed->handler(body);
    }
}

void QoPushpullClient::handle_sync(const std::string& text) const {
    const char* const number = text.data() + sizeof kSyncBegin - 1;
    const char* const end = text.data() + text.size();
    int32_t sender = QO_CMPID_RESERVED;
    const auto [behind, error] = std::from_chars(number, end, sender);
    if (error != std::errc() || behind == end || *behind != ':' || !on_sync_) return;
    on_sync_(static_cast<eQO_CMP_IDs_>(sender), std::string(behind + 1, end));
}

void QoPushpullClient::notify(const std::string& text) {
    const auto subscriptions = subscriptions_;  // a handler may change them
    for (const auto& subscribed : subscriptions)
        if (!subscribed->ended && qo_text_reaches(text, subscribed->pointer)) subscribed->handler(text);
}
