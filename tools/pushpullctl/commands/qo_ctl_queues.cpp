// queues: how full the message queues are.
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>

#include "qo_ctl_commands.h"
#include "qo_ctl_padded.h"
#include "qo_ctl_queue_look.h"
#include "qo_ctl_service_queue.h"
#include "qo_ctl_shared.h"
#include "qo_pushpull_json.h"

namespace {

constexpr size_t kBarWidth = 20;        // characters
constexpr size_t kComponentWidth = 24;  // characters
constexpr std::string_view kNameTitle = "QUEUE";
constexpr std::chrono::milliseconds kRefresh{1000};
constexpr std::chrono::milliseconds kLookAtSignals{100};
constexpr char kClearScreen[] = "\033[H\033[2J";
constexpr char kRed[] = "\033[31m";
constexpr char kBold[] = "\033[1m";
constexpr char kPlain[] = "\033[0m";

/// "display (812), stopped"; of several, one behind the other.
std::string readers(const QoCtlQueue& queue) {
    std::string text;
    for (const QoCtlProcess& reader : queue.readers) {
        text += (text.empty() ? "" : "; ") + qo_ctl_shown(reader.program) + " (" + std::to_string(reader.id) + "), " +
                std::string(qo_ctl_process_state(reader.state));
    }
    return text.empty() ? "nobody seen" : text;
}

std::string queue_row(const QoCtlQueue& queue, size_t name_width, bool service, bool coloured) {
    const bool full = queue.messages >= queue.max_messages;
    const char* color = full ? kRed : kBold;
    const bool marked = coloured && (full || service);
    const std::string depth = std::to_string(queue.messages) + "/" + std::to_string(queue.max_messages);
    return (marked ? color : "") + qo_ctl_padded(qo_ctl_shown(queue.name), name_width) + "  " +
           qo_ctl_fill_bar(queue.messages, queue.max_messages, kBarWidth) + qo_ctl_padded(depth, 12, true) +
           qo_ctl_padded(std::to_string(queue.message_size), 10, true) + " bytes" +
           (queue.full_for < 0 ? "" : qo_ctl_padded(std::to_string(queue.full_for), 8, true) + " s") + "  " +
           qo_ctl_padded(qo_ctl_component_shown(queue), kComponentWidth) + "  " + readers(queue) +
           (marked ? kPlain : "") + "\n";
}

std::string queue_titles(size_t name_width, bool watched) {
    return qo_ctl_padded(std::string(kNameTitle), name_width) + "  " + qo_ctl_padded("FULL", kBarWidth + 2) +
           qo_ctl_padded("MESSAGES", 12, true) + qo_ctl_padded("OF SIZE", 16, true) + (watched ? "  FULL FOR" : "") +
           "  " + qo_ctl_padded("COMPONENT", kComponentWidth) + "  READ BY\n";
}

std::string queue_json(const QoCtlQueue& queue, bool service) {
    const QoJsonNode node(json_new(JSON_NODE));
    json_push_back(node.get(), json_new_a("queue", qo_ctl_shown(queue.name).c_str()));
    json_push_back(node.get(), json_new_i("messages", queue.messages));
    json_push_back(node.get(), json_new_i("max_messages", queue.max_messages));
    json_push_back(node.get(), json_new_i("message_size", queue.message_size));
    json_push_back(node.get(), json_new_b("service", service ? 1 : 0));
    if (queue.full_for >= 0) json_push_back(node.get(), json_new_i("full_for", queue.full_for));
    qo_ctl_add_component(node.get(), queue);
    JSONNODE* const readers = qo_json_append_named(node.get(), JSON_ARRAY, "readers");
    for (const QoCtlProcess& reader : queue.readers) {
        JSONNODE* const process = qo_json_append_named(readers, JSON_NODE, "");
        qo_ctl_add_process(process, reader);
    }
    return qo_ctl_render(node.get(), QoCtlStyle{});
}

std::string render_queues(const std::vector<QoCtlQueue>& queues, const std::string& service, QoCtlStyle style) {
    size_t name_width = kNameTitle.size();
    for (const QoCtlQueue& queue : queues) name_width = std::max(name_width, queue.name.size());
    std::string text = style.formatted && !queues.empty() ? queue_titles(name_width, queues[0].full_for >= 0) : "";
    for (const QoCtlQueue& queue : queues) {
        const bool is_service = queue.name == service;
        text +=
            style.formatted ? queue_row(queue, name_width, is_service, style.coloured) : queue_json(queue, is_service);
    }
    return text;
}

bool has_queue(const std::vector<QoCtlQueue>& queues, const std::string& name) {
    return std::any_of(
        queues.begin(), queues.end(), [&](const QoCtlQueue& queue) { return queue.name == name; });
}

// ---- watching ----

/// Lets single keys through, unseen, for as long as it lives. Does nothing where standard input is no terminal.
class SingleKeys {
public:
    SingleKeys() : terminal_(tcgetattr(STDIN_FILENO, &before_) == 0) {
        if (!terminal_) return;
        termios keys = before_;
        keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &keys);
    }
    ~SingleKeys() {
        if (terminal_) tcsetattr(STDIN_FILENO, TCSANOW, &before_);
    }
    SingleKeys(const SingleKeys&) = delete;
    SingleKeys& operator=(const SingleKeys&) = delete;

    /// Waits that long for a "q". @return true when it came
    bool wait_for_q(std::chrono::milliseconds time) {
        pollfd input{terminal_ ? STDIN_FILENO : -1, POLLIN, 0};
        if (poll(&input, 1, static_cast<int>(time.count())) <= 0) return false;
        char key = 'q';  // a terminal that has gone ends it too
        return read(STDIN_FILENO, &key, 1) <= 0 || key == 'q';
    }

private:
    termios before_{};
    bool terminal_;
};

/// @return true when the one who watches has had enough
bool watched_enough(SingleKeys& keys, const QoCtlSignals& signals) {
    const auto next = std::chrono::steady_clock::now() + kRefresh;
    while (std::chrono::steady_clock::now() < next)
        if (signals.caught() != 0 || keys.wait_for_q(kLookAtSignals)) return true;
    return false;
}

/// How many queues the screen has room for, besides the titles, the line about the others and the cursor's.
size_t screen_room() {
    constexpr size_t kOtherLines = 3;
    winsize screen{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &screen) != 0 || screen.ws_row == 0) return SIZE_MAX;
    return screen.ws_row > kOtherLines ? screen.ws_row - kOtherLines : 1;
}

/// The queues as they are shown on a terminal, or line by line in a pipe.
std::string render_watched(std::vector<QoCtlQueue> queues, const std::string& service, QoCtlStyle style) {
    if (!style.formatted) return render_queues(queues, service, style);
    const size_t left_out = qo_ctl_keep_fullest(queues, service, screen_room());
    return (queues.empty() ? "no queues\n" : render_queues(queues, service, style)) +
           (left_out == 0 ? "" : "and " + std::to_string(left_out) + " more that are less full\n");
}

QoCtlStatus watch_queues(const QoCtlCommon& common, QoCtlSignals& signals) {
    const std::string service = qo_ctl_service_queue_name(common.instance);
    const QoCtlStyle style = qo_ctl_stdout_style(common);
    const bool screen = style.formatted && isatty(STDOUT_FILENO) != 0 && qo_ctl_obeys_commands(std::getenv("TERM"));
    const char* top_of_screen = screen ? kClearScreen : "";
    SingleKeys keys;
    QoCtlFullTimes full_times;
    signals.watch(-1);  // no queue to be woken through
    QoCtlStatus status = QoCtlStatus::answered;
    do {
        std::vector<QoCtlQueue> queues = qo_ctl_look_at_queues(service).queues;
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        full_times.note(queues, static_cast<long>(std::chrono::duration_cast<std::chrono::seconds>(now).count()));
        status = qo_ctl_print(top_of_screen + render_watched(std::move(queues), service, style), QoCtlStatus::answered);
    } while (status == QoCtlStatus::answered && !watched_enough(keys, signals));
    signals.unwatch();
    return status;
}

class Queues : public QoCtlCommand {
public:
    Help help() const override {
        return {
            "queues", "Show how full the message queues are",
            "Needs no running service. Lists what the message queue file system shows, usually at /dev/mqueue, and\n"
            "which processes read the queues, as far as they can be looked into (see: pushpullctl who).\n"
            "With --watch also for how many seconds each queue has been seen full without a break: a component's\n"
            "queue that stays full for 120 restarts the device.\n\n"
            "Example:\n  pushpullctl queues --watch"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.flag("--watch", watch_, "show them again every second, until q or Ctrl-C");
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    bool watch_ = false;
};

QoCtlStatus Queues::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    if (watch_) return watch_queues(common, signals);
    signals.release();
    const std::string service = qo_ctl_service_queue_name(common.instance);
    const std::vector<QoCtlQueue> queues = qo_ctl_look_at_queues(service).queues;
    const bool service_seen = has_queue(queues, service);
    if (!service_seen) qo_ctl_say("the service's queue " + service + " is not there or cannot be opened");
    const QoCtlStatus status = service_seen ? QoCtlStatus::answered : QoCtlStatus::unreachable;
    return qo_ctl_print(render_queues(queues, service, qo_ctl_stdout_style(common)), status);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_queues() { return std::make_unique<Queues>(); }
