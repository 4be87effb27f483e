// check-saved and check-defaults: what the service would make of its files.
#include "qo_ctl_check.h"
#include "qo_ctl_commands.h"
#include "qo_pushpull_file_reader.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_utilities.h"

namespace {

using Verdict = QoCtlSavedFile::Verdict;

void add_text(const QoJsonNode& object, const char* name, std::string_view text) {
    json_push_back(object.get(), json_new_a_n(name, std::string_view(name).size(), text.data(), text.size()));
}

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
    add_text(report, "file", path);
    add_text(report, "verdict", qo_ctl_verdict_name(file.verdict));
    if (!file.calculated.empty()) {
        add_text(report, "crc", file.stored);
        add_text(report, "calculated", file.calculated);
    }
    add_text(report, "service", action_on(file.verdict, is_back_up));
    return qo_ctl_render(report.get(), style);
}

bool can_be_read(const std::string& path) {
    if (DoesFileExist(path)) return true;
    qo_ctl_say(path + ": is not there or cannot be read");
    return false;
}

std::string mistake_report(const QoCtlMistake& mistake, QoCtlStyle style) {
    const QoJsonNode report(json_new(JSON_NODE));
    add_text(report, "pointer", mistake.pointer);
    add_text(report, "mistake", mistake.text);
    return qo_ctl_render(report.get(), style);
}

std::vector<QoCtlMistake> mistakes_in(const std::string& path) {
    QoFileReader file(path);
    const QoJsonNode tree(ParseJsonFile(file));
    if (file.error() != 0) return {{"/", "cannot be read: the service would not start"}};
    if (tree) return qo_ctl_mistakes_in_defaults(tree.get());
    return {{"/", "is no valid JSON, or nested deeper than " + std::to_string(JSON_MAX_PARSE_DEPTH) +
                      " levels: the service would use its built-in defaults"}};
}

}  // namespace

QoCtlStatus qo_ctl_check_saved(const QoCtlOptions& options, QoCtlSignals& signals) {
    signals.release();
    const std::string& path = options.files.front();
    if (!can_be_read(path)) return QoCtlStatus::usage;
    const QoCtlStyle style = qo_ctl_stdout_style(options);
    const bool is_back_up = path.ends_with(QO_BACKUP_EXTENSION);
    const QoCtlSavedFile file = qo_ctl_check_saved_file(path);
    if (file.verdict == Verdict::unreadable) {
        qo_ctl_say(path + ": cannot be read");
        return QoCtlStatus::usage;
    }
    std::string text = saved_file_report(path, file, is_back_up, style);
    if (file.verdict == Verdict::good) return qo_ctl_print(text, QoCtlStatus::answered);
    if (!is_back_up) {
        const std::string back_up = path + QO_BACKUP_EXTENSION;
        text += saved_file_report(back_up, qo_ctl_check_saved_file(back_up), true, style);
    }
    return qo_ctl_print(text, QoCtlStatus::failed);
}

QoCtlStatus qo_ctl_check_defaults(const QoCtlOptions& options, QoCtlSignals& signals) {
    signals.release();
    const std::string& path = options.files.front();
    if (!can_be_read(path)) return QoCtlStatus::usage;
    const QoCtlStyle style = qo_ctl_stdout_style(options);
    const std::vector<QoCtlMistake> mistakes = mistakes_in(path);
    std::string text;
    for (const QoCtlMistake& mistake : mistakes) text += mistake_report(mistake, style);
    const QoJsonNode total(json_new(JSON_NODE));
    add_text(total, "file", path);
    json_push_back(total.get(), json_new_i("mistakes", static_cast<int64_t>(mistakes.size())));
    text += qo_ctl_render(total.get(), style);
    return qo_ctl_print(text, mistakes.empty() ? QoCtlStatus::answered : QoCtlStatus::failed);
}
