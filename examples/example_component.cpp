// The life of an example component on the client library.
#include "example_component.h"

#include <errno.h>
#include <mqueue.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <utility>

namespace {

// A component that is told little at a time needs no queue of 64 x 262144 bytes: the kernel charges the whole
// size to the user at once. An answer that is longer than a message is lost, so choose it for what you read.
constexpr int32_t kQueueMessages = 10;
constexpr int32_t kMessageSize = 4096;  // bytes

constexpr std::chrono::milliseconds kAnswerTimeout{2000};
constexpr size_t kShownBytes = 70;  // of a text that is sent or received

volatile sig_atomic_t stop_requested = 0;

void request_stop(int) { stop_requested = 1; }

// Without SA_RESTART, so that a read of standard input ends too.
void catch_stop_signals() {
    struct sigaction action = {};
    action.sa_handler = request_stop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

// Answers come with line breaks and tabs, which never stand inside a JSON string: without them it is one line.
std::string on_one_line(const std::string& text) {
    std::string line;
    for (const char character : text)
        if (character != '\n' && character != '\t') line += character;
    if (line.size() <= kShownBytes) return line;
    return line.substr(0, kShownBytes) + "... (" + std::to_string(text.size()) + " bytes)";
}

}  // namespace

ExampleComponent::ExampleComponent(eQO_CMP_IDs_ id, std::string name, std::string instance)
    : id_(id), name_(std::move(name)), instance_(std::move(instance)), queue_name_("/" + name_ + instance_) {
    setvbuf(stdout, nullptr, _IOLBF, 0);  // each line at once, also into a pipe
}

ExampleComponent::~ExampleComponent() {
    if (registered_ && !told_to_exit_) {
        says("leaves");
        api_.comp_unregister(id_);
    }
    if (queue_ != nullptr) {
        queue_.reset();
        mq_unlink(queue_name_.c_str());
    }
}

bool ExampleComponent::start() {
    catch_stop_signals();
    if (api_.init(instance_) != 0) {
        fprintf(stderr, "%s: the service does not run: cannot open its queue: %s\n", name_.c_str(), strerror(errno));
        return false;
    }
    // The own queue comes first: the service opens it when it handles the registration.
    queue_.reset(api_.create_receive_queue(queue_name_, kQueueMessages, kMessageSize));
    if (queue_ == nullptr) {
        fprintf(stderr, "%s: cannot create its queue %s: %s\n", name_.c_str(), queue_name_.c_str(), strerror(errno));
        return false;
    }
    mq_attr attributes = {};
    attributes.mq_maxmsg = kQueueMessages;
    attributes.mq_msgsize = kMessageSize;
    registered_ = sent(api_.comp_register(id_, queue_name_, &attributes), "register, told on queue " + queue_name_);
    return registered_;
}

bool ExampleComponent::running() const { return stop_requested == 0 && !told_to_exit_ && !queue_failed_; }

std::optional<std::string> ExampleComponent::next_message(std::chrono::milliseconds timeout) {
    const int32_t length = queue_->timed_receive(timeout);
    if (length == 0) return std::nullopt;
    if (length < 0) {
        fprintf(stderr, "%s: cannot receive: %s\n", name_.c_str(), strerror(errno));
        queue_failed_ = true;
        return std::nullopt;
    }
    std::string text = queue_->get_queue_buffer();
    tell("<-", on_one_line(text));
    // The service ends and has told everybody: there is nobody left to unregister from.
    told_to_exit_ = text == "exit";
    if (told_to_exit_) return std::nullopt;
    return text;
}

std::optional<std::string> ExampleComponent::receive(std::chrono::milliseconds timeout) {
    if (kept_.empty()) return next_message(timeout);
    std::string text = std::move(kept_.front());
    kept_.pop_front();
    return text;
}

std::optional<std::string> ExampleComponent::ask(const std::string& pointers) {
    // The service sends the tag back, so this answer can be told from everything else that is on its way.
    const std::string tag = name_;
    const std::string prefix = "sender_id:" + tag + ";";
    tell("->", on_one_line("get " + pointers));
    if (api_.get(id_, pointers, tag, true) != 0) return std::nullopt;

    const auto deadline = std::chrono::steady_clock::now() + kAnswerTimeout;
    while (running() && std::chrono::steady_clock::now() < deadline) {
        std::optional<std::string> text = next_message(std::chrono::milliseconds(100));
        if (!text) continue;
        if (text->compare(0, prefix.size(), prefix) == 0) return text->substr(prefix.size());
        kept_.push_back(std::move(*text));
    }
    return std::nullopt;
}

bool ExampleComponent::subscribe(const std::string& pointer, bool changes_only) {
    return sent(api_.subscribe(id_, pointer, changes_only),
                "subscribe to " + pointer + (changes_only ? ", changes only" : ""));
}

bool ExampleComponent::publish(const std::string& json) { return sent(api_.publish(id_, json), "publish " + json); }

bool ExampleComponent::get(const std::string& pointers, const std::string& tag) {
    return sent(api_.get(id_, pointers, tag, true), "get " + pointers + ", tagged \"" + tag + "\"");
}

bool ExampleComponent::ask_service_to_exit() { return sent(api_.exit_request(id_, "true"), "exit"); }

void ExampleComponent::says(const std::string& text) const { tell(" .", text); }

void ExampleComponent::tell(const char* direction, const std::string& text) const {
    printf("%-18s %s %s\n", name_.c_str(), direction, text.c_str());
}

bool ExampleComponent::sent(int32_t result, const std::string& what) const {
    if (result == 0) {
        tell("->", on_one_line(what));
        return true;
    }
    fprintf(stderr, "%s: could not send: %s\n", name_.c_str(), what.c_str());
    return false;
}

std::string instance_from(int argc, char** argv) {
    const std::string instance = argc > 1 ? argv[1] : "";
    if (instance != "--help" && instance != "-h") return instance;
    printf("usage: %s [SUFFIX]\nTalks to the service that was started with -m SUFFIX, or to the one without.\n",
           argv[0]);
    exit(EXIT_SUCCESS);
}
