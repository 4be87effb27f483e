// check-saved: what the service would make of a saved tree.
#include "qo_ctl_check.h"
#include "qo_ctl_check_shared.h"
#include "qo_ctl_commands.h"
#include "qo_ctl_shared.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_json.h"

namespace {

using Verdict = QoCtlSavedFile::Verdict;

/// What the service does at its start. @param is_back_up the file is the backup, after which only the defaults are left
std::string action_on(Verdict verdict, bool is_back_up) {
    const std::string then = is_back_up ? " and starts with the defaults" : " and tries the backup";
    switch (verdict) {
        case Verdict::good:
            return "loads it";
        case Verdict::missing:
            return is_back_up ? "starts with the defaults" : "tries the backup";
        case Verdict::unparsable:
            return "puts it aside as .bad" + then;
        case Verdict::unreadable:
            return "keeps it" + then;
        case Verdict::no_crc:
        case Verdict::crc_mismatch:
            return "discards it" + then;
    }
    return "";
}

std::string saved_file_report(const std::string& path, const QoCtlSavedFile& file, bool is_back_up, QoCtlStyle style) {
    const QoJsonNode report(json_new(JSON_NODE));
    qo_ctl_add_text(report.get(), "file", path);
    qo_ctl_add_text(report.get(), "verdict", qo_ctl_verdict_name(file.verdict));
    if (!file.calculated.empty()) {
        qo_ctl_add_text(report.get(), "crc", file.stored);
        qo_ctl_add_text(report.get(), "calculated", file.calculated);
    }
    qo_ctl_add_text(report.get(), "service", action_on(file.verdict, is_back_up));
    return qo_ctl_render(report.get(), style);
}

class CheckSaved : public QoCtlCommand {
public:
    Help help() const override {
        return {"check-saved", "Check a saved tree and say what the service would do with it",
                "Needs no service. When the file is not good, its backup (FILE.bak) is checked as well.\n"
                "Ends with 0 when FILE is good, with 1 when it is not.\n\n"
                "Example:\n  pushpullctl check-saved /kivo/data/saved_tree.json"};
    }
    void declare(QoCtlCommandLine& line) override { line.word("FILE", path_, "the file to check"); }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string path_;
};

QoCtlStatus CheckSaved::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    signals.release();
    if (!qo_ctl_can_be_read(path_)) return QoCtlStatus::usage;
    const QoCtlStyle style = qo_ctl_stdout_style(common);
    const bool is_back_up = path_.ends_with(QO_BACKUP_EXTENSION);
    const QoCtlSavedFile file = qo_ctl_check_saved_file(path_);
    if (file.verdict == Verdict::unreadable) {
        qo_ctl_say(path_ + ": cannot be read");
        return QoCtlStatus::usage;
    }
    std::string text = saved_file_report(path_, file, is_back_up, style);
    if (file.verdict == Verdict::good) return qo_ctl_print(text, QoCtlStatus::answered);
    if (!is_back_up) {
        const std::string back_up = path_ + QO_BACKUP_EXTENSION;
        text += saved_file_report(back_up, qo_ctl_check_saved_file(back_up), true, style);
    }
    return qo_ctl_print(text, QoCtlStatus::failed);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_check_saved() { return std::make_unique<CheckSaved>(); }
