/// What every example component needs and a real one would have too: a receive queue of its own, its registration
/// with the service, questions that are answered, and a clean end whatever ends it.
///
/// Each example prints a line for whatever it sends ("->"), is told ("<-") and makes of it (".").
#ifndef EXAMPLE_COMPONENT_H
#define EXAMPLE_COMPONENT_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "qo_component_ids.h"
#include "qo_pushpull_api.h"

/// One component. Its thread is the one that created it; at most one object in a process.
class ExampleComponent {
public:
    /// @param name     of the program in its lines, and with the instance of its receive queue
    /// @param instance the instance suffix of the service to talk to, as given to its option -m; usually ""
    ExampleComponent(eQO_CMP_IDs_ id, std::string name, std::string instance);

    /// Unregisters unless the service has gone, closes the receive queue and removes it from the system.
    ~ExampleComponent();
    ExampleComponent(const ExampleComponent&) = delete;
    ExampleComponent& operator=(const ExampleComponent&) = delete;

    /// Opens the queues and registers; from here on SIGINT and SIGTERM make running() false.
    /// @return false when the service or the own queue cannot be opened; the reason is then on stderr
    bool start();

    /// False once a signal or the service's "exit" asks the component to end, or its queue has failed.
    bool running() const;

    /// The next text from the service, waiting at most `timeout`; nothing when none came or the end has.
    /// A caller that waits in a loop keeps the timeout short, so that running() is looked at.
    std::optional<std::string> receive(std::chrono::milliseconds timeout);

    /// Reads one or several pointers (separated by ";") as one packed answer, which has to fit in a message of
    /// the receive queue. Whatever else arrives meanwhile is kept for receive().
    /// @return the answer without its "sender_id:" prefix; nothing when none came within two seconds
    std::optional<std::string> ask(const std::string& pointers);

    /// The requests of the client library, as this component; each says what it sends. There is no answer to
    /// them: requests are handled in the order in which they arrive, so the answer to a later ask() shows that
    /// they are done.
    /// @return false when the request could not be sent
    bool subscribe(const std::string& pointer, bool changes_only);
    bool publish(const std::string& json);
    bool get(const std::string& pointers, const std::string& tag);
    bool ask_service_to_exit();

    /// Prints one line of this component.
    void says(const std::string& text) const;

private:
    std::optional<std::string> next_message(std::chrono::milliseconds timeout);
    void tell(const char* direction, const std::string& text) const;
    bool sent(int32_t result, const std::string& what) const;

    const eQO_CMP_IDs_ id_;
    const std::string name_;
    const std::string instance_;
    const std::string queue_name_;
    QoPushpullApi api_;
    std::unique_ptr<QoPushpullReceiveQueue> queue_;
    std::deque<std::string> kept_;  // arrived while ask() waited for its answer
    bool registered_ = false;
    bool told_to_exit_ = false;
    bool queue_failed_ = false;
};

/// The instance suffix from the command line, "PROGRAM [INSTANCE]". With --help it says so and ends the program.
std::string instance_from(int argc, char** argv);

#endif
