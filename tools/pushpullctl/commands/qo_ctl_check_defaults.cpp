// check-defaults: what is wrong with a file of defaults.
#include "qo_ctl_check.h"
#include "qo_ctl_check_shared.h"
#include "qo_ctl_commands.h"
#include "qo_ctl_likeness.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_tree_file.h"
#include "qo_pushpull_file_reader.h"
#include "qo_pushpull_json.h"

namespace {

std::string warning_report(const QoCtlUnlikeness& warning, QoCtlStyle style) {
    const QoJsonNode report(json_new(JSON_NODE));
    qo_ctl_add_text(report.get(), "pointer", warning.pointer);
    qo_ctl_add_text(report.get(), "warning", warning.text);
    return qo_ctl_render(report.get(), style);
}

/// What may be a slip of who wrote it; a site may well have what the built-in tree has not.
std::vector<QoCtlUnlikeness> warnings_about(const std::string& path) {
    const QoCtlTreeFile file = qo_ctl_read_tree_file(path);
    return file.tree ? qo_ctl_unlikenesses(file.tree.get(), qo_ctl_built_in_defaults().get())
                     : std::vector<QoCtlUnlikeness>{};
}

std::string mistake_report(const QoCtlMistake& mistake, QoCtlStyle style) {
    const QoJsonNode report(json_new(JSON_NODE));
    qo_ctl_add_text(report.get(), "pointer", mistake.pointer);
    qo_ctl_add_text(report.get(), "mistake", mistake.text);
    return qo_ctl_render(report.get(), style);
}

std::vector<QoCtlMistake> mistakes_in(const std::string& path) {
    QoFileReader file(path);
    const QoJsonNode tree(ParseJsonFile(file));
    if (file.error() != 0) return {{"/", "cannot be read: the service would not start"}};
    if (tree) return qo_ctl_mistakes_in_defaults(tree.get());
    return {{"/", qo_ctl_read_tree_file(path).fault + ": the service would use its built-in defaults"}};
}

class CheckDefaults : public QoCtlCommand {
public:
    Help help() const override {
        return {"check-defaults", "Look for mistakes in a file of defaults",
                "Needs no service. One line for each mistake with the place, one for each name or type that the\n"
                "built-in tree does not have, then their numbers. Ends with 0 when there is no mistake, with 1\n"
                "otherwise.\n\n"
                "Example:\n  pushpullctl check-defaults defaults.json && cp defaults.json /kivo/others/"};
    }
    void declare(QoCtlCommandLine& line) override { line.word("FILE", path_, "the file to check"); }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string path_;
};

QoCtlStatus CheckDefaults::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    signals.release();
    if (!qo_ctl_can_be_read(path_)) return QoCtlStatus::usage;
    const QoCtlStyle style = qo_ctl_stdout_style(common);
    const std::vector<QoCtlMistake> mistakes = mistakes_in(path_);
    std::string text;
    for (const QoCtlMistake& mistake : mistakes) text += mistake_report(mistake, style);
    const std::vector<QoCtlUnlikeness> warnings = warnings_about(path_);
    for (const QoCtlUnlikeness& warning : warnings) text += warning_report(warning, style);
    const QoJsonNode total(json_new(JSON_NODE));
    qo_ctl_add_text(total.get(), "file", path_);
    json_push_back(total.get(), json_new_i("mistakes", static_cast<int64_t>(mistakes.size())));
    json_push_back(total.get(), json_new_i("warnings", static_cast<int64_t>(warnings.size())));
    text += qo_ctl_render(total.get(), style);
    return qo_ctl_print(text, mistakes.empty() ? QoCtlStatus::answered : QoCtlStatus::failed);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_check_defaults() { return std::make_unique<CheckDefaults>(); }
