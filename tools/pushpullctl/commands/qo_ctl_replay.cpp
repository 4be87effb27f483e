// replay: publishes what was recorded.
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>

#include "qo_ctl_commands.h"
#include "qo_ctl_recording.h"
#include "qo_ctl_shared.h"

namespace {

constexpr double kSlowest = 0.001;
constexpr double kFastest = 1000000;

class Replay : public QoCtlCommand {
public:
    Help help() const override {
        return {"replay", "Publish what was recorded",
                "Publishes the texts of a file that \"record\" or \"subscribe --timestamps\" wrote, at the pace at\n"
                "which they were heard, or --speed times as fast. What is no object, as the notice of a deletion,\n"
                "cannot be published and is counted. The whole file is checked before anything is sent.\n\n"
                "Example:\n  pushpullctl replay hour.jsonl --speed 10 --as BASE_SIMULATOR"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.word("FILE", file_, "what was recorded");
        line.text("--speed", speed_text_, "N", "so many times as fast (default 1)");
    }
    std::string fault() override;
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    using Clock = std::chrono::steady_clock;

    std::string read_file();
    /// When an entry is due, counted from the first.
    Clock::duration due(const QoCtlRecorded& entry) const {
        const double ms = static_cast<double>(entry.time - entries_.front().time) / speed_;
        return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double, std::milli>(ms));
    }
    QoCtlStatus publish_all(QoCtlSession& session);

    std::string file_;
    std::string speed_text_;
    double speed_ = 1;
    std::vector<QoCtlRecorded> entries_;
    int64_t published_ = 0;
    int64_t skipped_ = 0;
};

std::string Replay::fault() {
    if (!speed_text_.empty()) {
        const char* const end = speed_text_.data() + speed_text_.size();
        const auto read = std::from_chars(speed_text_.data(), end, speed_);
        // Also false for what is no number.
        const bool fits = read.ec == std::errc() && read.ptr == end && speed_ >= kSlowest && speed_ <= kFastest;
        if (!fits) return "\"" + speed_text_ + "\" is no speed from 0.001 to 1000000";
    }
    return read_file();
}

std::string Replay::read_file() {
    std::ifstream file(file_, std::ios::binary);
    if (!file) return file_ + ": " + std::strerror(errno);
    size_t number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        std::optional<QoCtlRecorded> entry = qo_ctl_read_recorded(line);
        if (!entry) return file_ + ":" + std::to_string(number) + ": no line of a recording";
        entries_.push_back(*std::move(entry));
    }
    return file.bad() ? file_ + ": cannot be read" : "";
}

QoCtlStatus Replay::publish_all(QoCtlSession& session) {
    const Clock::time_point start = Clock::now();
    for (const QoCtlRecorded& entry : entries_) {
        if (const QoCtlStatus status = session.wait_until(start + due(entry)); status != QoCtlStatus::answered)
            return status;
        if (entry.object.empty()) {
            ++skipped_;
            continue;
        }
        const auto publish = [&entry](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.publish(id, entry.object); };
        if (const QoCtlStatus status = session.send(publish, entry.object); status != QoCtlStatus::answered)
            return status;
        ++published_;
    }
    return session.fence();
}

QoCtlStatus Replay::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    QoCtlStatus status = session.open();
    if (status != QoCtlStatus::answered) return status;
    status = publish_all(session);
    session.close();
    signals.release();
    const QoJsonNode node(json_new(JSON_NODE));
    json_push_back(node.get(), json_new_i("published", published_));
    json_push_back(node.get(), json_new_i("skipped", skipped_));
    return qo_ctl_print(qo_ctl_render(node.get(), qo_ctl_stdout_style(common)), status);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_replay() { return std::make_unique<Replay>(); }
