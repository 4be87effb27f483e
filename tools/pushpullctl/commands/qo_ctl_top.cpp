// top: the queues, their readers and the service, live.
#include "qo_ctl_top.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>

#include "qo_ctl_commands.h"
#include "qo_ctl_components.h"
#include "qo_ctl_log_follower.h"
#include "qo_ctl_queue_look.h"
#include "qo_ctl_service_queue.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_subject.h"
#include "qo_ctl_top_screen.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kRefresh{1000};
constexpr std::chrono::milliseconds kLook{100};
constexpr size_t kMostRefusals = 20;
constexpr char kTopOfScreen[] = "\033[H";
constexpr char kClearRestOfLine[] = "\033[K";
constexpr char kClearRest[] = "\033[J";

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

struct ScreenSize {
    size_t columns = SIZE_MAX;
    size_t rows = SIZE_MAX;
    bool operator==(const ScreenSize&) const = default;
};

/// Without the last line, where the cursor stands. As large as can be where there is no screen.
ScreenSize screen_size() {
    winsize screen{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &screen) != 0 || screen.ws_row < 2 || screen.ws_col == 0) return {};
    return {screen.ws_col, static_cast<size_t>(screen.ws_row) - 1};
}

/// Draws over what stands there, which flickers less than clearing first.
std::string drawn_over(const std::string& text) {
    std::string screen = kTopOfScreen;
    for (const char character : text)
        screen += character == '\n' ? kClearRestOfLine + std::string("\n") : std::string(1, character);
    return screen + kClearRest;
}

/// What went through the log since the last look.
class Requests {
public:
    explicit Requests(const std::string& log) {
        if (!log.empty()) source_ = qo_ctl_open_log(log, QoCtlLogEnd::followed);
        if (source_) follower_.emplace(*source_, traffic_);
    }
    bool is_open() const { return source_ != nullptr; }
    const QoCtlTraffic& traffic() const { return traffic_; }

    void read() {
        constexpr int kMostPieces = 1000;  // so that the screen goes on, however much there is
        for (int i = 0; follower_ && i < kMostPieces; ++i)
            if (follower_->read(std::chrono::milliseconds(0)) != QoCtlLogSource::State::lines) return;
    }
    void tell(QoCtlTopView& view) {
        const Clock::time_point now = Clock::now();
        const double seconds = std::chrono::duration<double>(now - since_).count();
        view.has_log = is_open();
        for (auto& [kind, count] : counts_)
            view.requests[kind] = seconds > 0 ? static_cast<double>(count) / seconds : 0;
        view.refusals = refusals_;
        for (auto& [kind, count] : counts_) count = 0;
        since_ = now;
    }

private:
    void take(const QoCtlHandled& handled) {
        constexpr size_t kMostKinds = 50;
        const QoCtlRequest& request = handled.request;
        if (counts_.size() < kMostKinds || counts_.count(request.kind) != 0) ++counts_[request.kind];
        if (handled.outcome == QoCtlOutcome::done) return;
        refusals_.push_back((handled.time.empty() ? "" : handled.time + " ") + qo_ctl_component_name(request.sender) +
                            " " + request.kind + " " + qo_ctl_subject(request) + ": " +
                            (handled.reasons.empty() ? "" : handled.reasons.front()));
        if (refusals_.size() > kMostRefusals) refusals_.pop_front();
    }

    std::unique_ptr<QoCtlLogSource> source_;
    QoCtlTraffic traffic_{[this](const QoCtlHandled& handled) { take(handled); }};
    std::optional<QoCtlLogFollower> follower_;
    std::map<std::string, uint64_t> counts_;
    std::deque<std::string> refusals_;
    Clock::time_point since_ = Clock::now();
};

QoCtlTopView look(const std::string& service, QoCtlFullTimes& full_times, Requests& requests) {
    QoCtlTopView view;
    view.service = service;
    view.queues = qo_ctl_look_at_queues(service).queues;
    const auto now = Clock::now().time_since_epoch();
    full_times.note(view.queues, static_cast<long>(std::chrono::duration_cast<std::chrono::seconds>(now).count()));
    for (QoCtlQueue& queue : view.queues) {
        if (queue.component == QO_CMPID_RESERVED) queue.component = requests.traffic().component_of(queue.name);
        if (queue.name == service && !queue.readers.empty())
            view.resident_kib = qo_ctl_resident_kib(queue.readers.front().id);
    }
    requests.tell(view);
    return view;
}

enum class Wish { refresh, redraw, end };

/// Waits for the next look, for a screen of another size, or for the one who has seen enough.
Wish wait(SingleKeys& keys, const ScreenSize& size, Requests& requests, const QoCtlSignals& signals) {
    const auto next = Clock::now() + kRefresh;
    while (Clock::now() < next) {
        if (signals.caught() != 0 || keys.wait_for_q(kLook)) return Wish::end;
        requests.read();
        if (screen_size() != size) return Wish::redraw;
    }
    return Wish::refresh;
}

class Top : public QoCtlCommand {
public:
    Help help() const override {
        return {"top", "Watch queues, readers and the service live",
                "Shows every second how full the queues are, for how many seconds each has been seen full, and who\n"
                "reads them, the service's memory and the component that is furthest behind; with --log also\n"
                "requests a second by kind and the last that were refused. Fits any terminal: what has no room is\n"
                "left out. q or Ctrl-C ends it. Into a pipe it writes JSON, one object a line.\n\n"
                "Example:\n  sudo pushpullctl top --log /var/log/syslog"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.text("--log", log_, "FILE", "follow a syslog file of the service for requests and refusals");
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override {
        return qo_ctl_run_top(log_, common, signals);
    }

private:
    std::string log_;
};

}  // namespace

QoCtlStatus qo_ctl_run_top(const std::string& log, const QoCtlCommon& common, QoCtlSignals& signals) {
    const std::string service = qo_ctl_service_queue_name(common.instance);
    const QoCtlStyle style = qo_ctl_stdout_style(common);
    const bool screen = style.formatted && isatty(STDOUT_FILENO) != 0 && qo_ctl_obeys_commands(std::getenv("TERM"));
    Requests requests(log);
    if (!log.empty() && !requests.is_open()) return QoCtlStatus::failed;
    SingleKeys keys;
    QoCtlFullTimes full_times;
    signals.watch(-1);  // no queue to be woken through
    QoCtlStatus status = QoCtlStatus::answered;
    Wish wish = Wish::refresh;
    QoCtlTopView view;
    while (status == QoCtlStatus::answered && wish != Wish::end) {
        if (wish == Wish::refresh) view = look(service, full_times, requests);
        const ScreenSize size = screen_size();
        std::string text =
            style.formatted ? qo_ctl_top_screen(view, size.columns, size.rows, style.coloured) : qo_ctl_top_lines(view);
        status = qo_ctl_print(screen ? drawn_over(text) : text, status);
        if (status == QoCtlStatus::answered) wish = wait(keys, size, requests, signals);
    }
    signals.unwatch();
    return status;
}

std::unique_ptr<QoCtlCommand> qo_ctl_make_top() { return std::make_unique<Top>(); }
