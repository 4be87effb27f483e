/// A component in C++ on the client library: registered for as long as the object lives and the service runs, told of
/// publishes by handlers, and registered anew when the service was restarted or reset. Public; C++17; compiles alone.
///
///     QoPushpullClientSettings settings;
///     settings.id = QO_CMPID_DEMO;
///     settings.queue_name = "/display";
///     QoPushpullClient display(settings);
///     display.subscribe("/system/status", [](const std::string& text) { show(text); });
///     if (display.open() != 0) return EXIT_FAILURE;  // the reason is in errno
///     display.run();                                 // until display.stop()
///
/// **Threads.** There are none inside. One thread uses the object: it calls run(), or dispatch() whenever descriptor()
/// is readable, and every handler is called there. Only stop() may be called from anywhere, a signal handler included.
///
/// **The service may be absent.** It may start later, end, be killed or be reset. The object asks it every now and then
/// (`look_interval`) whether it still knows this component. When no answer comes, it registers and subscribes again, as
/// often as it takes; on_lost and on_joined tell when. What was published in between was missed: subscriptions with
/// `read_first` are read again by themselves.
#ifndef QO_PUSHPULL_CLIENT_HPP
#define QO_PUSHPULL_CLIENT_HPP

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "qo_pushpull_api.h"

class QoPushpullOwnQueue;
class QoPushpullWaker;

struct QoPushpullClientSettings {
    eQO_CMP_IDs_ id = QO_CMPID_RESERVED;             // of this component alone: the service knows one queue for each
    std::string queue_name;                          // of this component alone, with a leading slash
    std::string instance;                            // the suffix that the service was given with -m; mostly ""
    int32_t queue_messages = 10;                     // what may come during the longest piece of work
    int32_t message_size = 8192;                     // bytes of the longest text that is received, NUL included
    std::chrono::milliseconds answer_timeout{2000};  // for whatever the service has to answer or to make room for
    std::chrono::milliseconds look_interval{5000};   // from one look whether the service knows us to the next
    std::chrono::milliseconds retry{250};            // from one attempt to register to the next
};

struct QoPushpullSubscription {
    bool changes_only = false;  // told only of publishes that changed a value of the tree
    bool read_first = false;    // told of the node as it is, once subscribed and each time that the service is back
};

enum class QoPushpullOutcome {
    done,
    no_such_node,  // the service has answered that it cannot read the pointer
    no_answer,     // none in time; perhaps one that is longer than message_size
    not_sent,      // a pointer with a ";", a text that is not UTF-8 or too long, a service queue that stays full
    not_joined,    // the service does not know this component, for now
};

struct QoPushpullAnswer {
    QoPushpullOutcome outcome = QoPushpullOutcome::done;
    std::string text;  // the node in the objects of its path, formatted JSON; for a "/size" the number; else ""
    explicit operator bool() const { return outcome == QoPushpullOutcome::done; }
};

class QoPushpullClient {
public:
    using TextHandler = std::function<void(const std::string& text)>;

    explicit QoPushpullClient(QoPushpullClientSettings settings);
    /// Unregisters where the service is there, and removes the queue. Waits half a second at most for the answer to a
    /// registration that is on its way, and answer_timeout for room in the service's queue.
    ~QoPushpullClient();
    QoPushpullClient(const QoPushpullClient&) = delete;
    QoPushpullClient& operator=(const QoPushpullClient&) = delete;

    // ---- coming ----

    /// Makes the receive queue and begins to register. A queue of that name which an earlier process left behind is
    /// taken over, empty. Does not wait for the service.
    /// @return 0; -1 with errno: EBUSY when a running process holds the queue, which then has this identifier;
    ///         ENOMEM, EMFILE or EINVAL when the system allows no queue of that size.
    int32_t open();

    /// Dispatches until the service has confirmed the registration.
    /// @return false when it has not within `timeout`: it does not run, does not read its queue, or knows another
    ///         queue for this identifier ("already registered but with different queue" in its log).
    bool wait_until_joined(std::chrono::milliseconds timeout);

    /// Whether the service knew this component when last heard of.
    bool joined() const { return state_ == State::kJoined; }

    // ---- what arrives; set before open(). Handlers may call everything; dispatch(), run() and
    // wait_until_joined() do nothing there. An exception of theirs leaves dispatch() or run(), and the object goes on
    // as if the handler had returned. ----

    /// Called each time that the service has confirmed the registration and was sent the subscriptions.
    void on_joined(std::function<void()> handler) { on_joined_ = std::move(handler); }
    /// Called when the service has ended, was reset, or does not answer.
    void on_lost(std::function<void()> handler) { on_lost_ = std::move(handler); }
    /// Called when another component has deleted what one of our subscriptions is told of.
    void on_deleted(std::function<void(const std::string& pointer)> handler) { on_deleted_ = std::move(handler); }
    /// Called for a text that another component has sent to this one by a "sync".
    void on_sync(std::function<void(eQO_CMP_IDs_ sender, const std::string& text)> handler) {
        on_sync_ = std::move(handler);
    }

    /// Has `handler` called for publishes of other components that reach the node or go through it to one below, now
    /// and after every restart of the service. It is given the whole text as it was published, which may reach other
    /// nodes too and be anything that is JSON. A text that reaches several subscriptions goes to the handler of each,
    /// in the order in which they were made. Names are compared down to the first array; what stands in an array
    /// is not looked at.
    /// @param pointer of an object or array of the default tree; "/" for every publish
    /// @return false for a pointer with a ";" or one that is subscribed to already with another `changes_only`
    bool subscribe(const std::string& pointer, TextHandler handler, QoPushpullSubscription options = {});

    /// Ends what was subscribed with exactly this pointer. No handler of it is called from here on.
    void unsubscribe(const std::string& pointer);

    // ---- requests. They are sent only while joined() ----

    /// @return false when it was not sent; on_joined is the place to publish again. Nothing tells whether
    ///         the service took it.
    bool publish(const std::string& json);

    /// Asks for one node and waits for the answer. What else arrives meanwhile is kept for the next dispatch(), up to
    /// 1000 texts, which end the wait.
    QoPushpullAnswer get(const std::string& pointer, std::chrono::milliseconds timeout);
    QoPushpullAnswer get(const std::string& pointer) { return get(pointer, settings_.answer_timeout); }

    /// Waits until the service has handled every request sent so far, whatever became of it.
    bool wait_until_handled(std::chrono::milliseconds timeout);
    bool wait_until_handled() { return wait_until_handled(settings_.answer_timeout); }

    /// Any other request of the client library:
    ///     client.request([](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.clear(id, "/system/config"); });
    /// @return whether it was sent.
    bool request(const std::function<int32_t(QoPushpullApi& api, eQO_CMP_IDs_ id)>& request);

    // ---- the loop ----

    /// Readable (POLLIN) whenever dispatch() has something to do; for a component with a loop of its own. The same for
    /// the whole life from open() on, and this object's; -1 before.
    int descriptor() const;

    /// Handles what has arrived and what is due. Does not wait for messages; a request that it has to send waits
    /// for room in the service's queue, answer_timeout at most.
    void dispatch();

    /// Dispatches until stop().
    void run();

    /// Ends run(), or the next one, once what has arrived is handled. Any thread, any signal handler; not after the
    /// destructor has begun.
    void stop() noexcept;

private:
    using Clock = std::chrono::steady_clock;
    enum class State { kClosed, kJoining, kJoined };
    struct Subscribed {
        std::string pointer;
        TextHandler handler;
        QoPushpullSubscription options;
        bool ended = false;
    };

    void begin_joining();
    void try_to_join();
    bool service_has_room() const;
    void take_registration();
    void lose_registration();
    void announce(const std::shared_ptr<Subscribed>& subscribed, bool first_of_pointer);
    bool is_first_of_pointer(const Subscribed& subscribed) const;
    void do_what_is_due();
    void look();
    void due_in(std::chrono::milliseconds time);
    std::optional<std::string> next_text();
    void handle(const std::string& text);
    void handle_answer(const std::string& tag, const std::string& body);
    void handle_sync(const std::string& text) const;
    void notify(const std::string& text);
    std::optional<std::string> wait_for(const std::string& tag, Clock::time_point deadline);
    std::string next_tag();
    void wait_for_work(std::chrono::milliseconds timeout) const;

    const QoPushpullClientSettings settings_;
    QoPushpullApi api_;
    std::unique_ptr<QoPushpullOwnQueue> queue_;
    std::unique_ptr<QoPushpullWaker> waker_;
    std::atomic<bool> stop_requested_{false};  // any thread

    State state_ = State::kClosed;
    bool asked_to_join_ = false;  // since begin_joining(): a registration may be on its way
    std::string join_tag_;        // its answer confirms the registration
    std::string look_tag_;        // of the look under way; "" for none
    Clock::time_point due_{};
    uint64_t tags_ = 0;  // so far

    std::vector<std::shared_ptr<Subscribed>> subscriptions_;
    std::map<std::string, std::weak_ptr<Subscribed>> reads_;  // by tag: what was asked for by read_first
    std::deque<std::string> kept_;                            // arrived while an answer was waited for
    bool dispatching_ = false;

    std::function<void()> on_joined_;
    std::function<void()> on_lost_;
    std::function<void(const std::string&)> on_deleted_;
    std::function<void(eQO_CMP_IDs_, const std::string&)> on_sync_;
};

/// The same with the values of the component's own JSON library in place of texts. `Json` is the author's:
///
///     struct Json {
///         using Value = TheirJson;
///         static std::optional<Value> parse(const std::string& text);  // nothing for what is no JSON; does not throw
///         static std::string print(const Value& value);
///     };
///     QoPushpullJsonClient<Json> json(client);
///     json.subscribe("/system/status", [](const Json::Value& status) { ... });
///
/// Handlers are not called for texts that Json::parse refuses. May end before the client does.
template <typename Json>
class QoPushpullJsonClient {
public:
    using Value = typename Json::Value;
    static_assert(std::is_same_v<decltype(Json::parse(std::declval<const std::string&>())), std::optional<Value>>,
                  "Json needs: static std::optional<Value> parse(const std::string& text)");
    static_assert(std::is_same_v<decltype(Json::print(std::declval<const Value&>())), std::string>,
                  "Json needs: static std::string print(const Value& value)");

    /// @param client has to live as long as this object
    explicit QoPushpullJsonClient(QoPushpullClient& client) : client_(client) {}

    bool subscribe(const std::string& pointer, std::function<void(const Value& value)> handler,
                   QoPushpullSubscription options = {}) {
        const auto parse_and_handle = [handler = std::move(handler)](const std::string& text) {
            if (const std::optional<Value> value = Json::parse(text)) handler(*value);
        };
        return client_.subscribe(pointer, parse_and_handle, options);
    }

    bool publish(const Value& value) { return client_.publish(Json::print(value)); }

    /// Nothing when there was no answer, or none that Json::parse takes; QoPushpullClient::get tells which.
    std::optional<Value> get(const std::string& pointer, std::chrono::milliseconds timeout) {
        const QoPushpullAnswer answer = client_.get(pointer, timeout);
        return answer ? Json::parse(answer.text) : std::nullopt;
    }

private:
    QoPushpullClient& client_;
};

#endif
