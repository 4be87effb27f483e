// record: keeps what is published, with the times.
#include <fcntl.h>

#include <cerrno>
#include <cstring>

#include "qo_ctl_commands.h"
#include "qo_ctl_follow.h"
#include "qo_ctl_recording.h"
#include "qo_pushpull_descriptor.h"

namespace {

constexpr mode_t kFileMode = 0644;

class Record : public QoCtlCommand {
public:
    Help help() const override {
        return {"record", "Keep what is published below pointers in a file",
                "Writes a line of JSON for each published text, with the time at which it was heard, until Ctrl-C,\n"
                "or until --count of them, or --for so many seconds. \"replay\" publishes them again.\n\n"
                "Example:\n  pushpullctl record --for 3600 hour.jsonl /system /devices"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.word("FILE", file_, "where they are kept; a file that is there is replaced");
        following_.declare(line);
    }
    std::string fault() override { return qo_ctl_pointers_fault(following_.pointers); }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string file_;
    QoCtlFollowing following_;
};

QoCtlStatus Record::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    const QoDescriptor file(open(file_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kFileMode));
    if (!file) {
        qo_ctl_say(file_ + ": " + std::strerror(errno));
        return QoCtlStatus::failed;
    }
    return qo_ctl_follow(following_, common, signals, file.get(), file_, [this](const std::string& text) {
        return qo_ctl_recorded(qo_ctl_now(), following_.pointers, text, QoCtlStyle{});
    });
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_record() { return std::make_unique<Record>(); }
