// explain: all that is known of one place of the tree.
#include "qo_ctl_commands.h"
#include "qo_ctl_harmless.h"
#include "qo_ctl_rules.h"
#include "qo_ctl_source.h"
#include "qo_ctl_text.h"
#include "qo_ctl_tree_file.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_utilities.h"

namespace {

constexpr size_t kLongestValue = 200;  // characters that are shown of a value

const char* type_name(const JSONNODE* node) {
    constexpr const char* kNames[] = {"null", "string", "number", "boolean", "array", "object"};  // by the type
    return kNames[static_cast<unsigned char>(json_type(node))];
}

class Explain : public QoCtlCommand {
public:
    Help help() const override {
        return {"explain", "Say all that is known of one place of the tree",
                "Its type, value and default, who may write it (components of the device, local clients, remote\n"
                "clients, by the tree's own rules), whether it is saved, and its size. Of an object or an array,\n"
                "who may add to it. TREE may be one of the names that \"diff\" takes; without it, it is live.\n\n"
                "Example:\n  pushpullctl explain /system/config/name"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.word("POINTER", pointer_, "JSON pointer, as /system/config");
        line.word("TREE", name_, "where the rules are taken from", QoCtlCommandLine::Need::optional);
    }
    std::string fault() override { return qo_ctl_pointers_fault({pointer_}); }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string pointer_;
    std::string name_ = QO_CTL_LIVE;
};

/// The tree that the service starts with: the site's, or what is built in.
QoJsonNode default_tree() {
    const std::string site = std::string(QO_DEFAULTS_DIRECTORY) + QO_DEFAULTS_FILE;
    QoJsonNode tree = DoesFileExist(site) ? qo_ctl_read_tree_file(site).tree : nullptr;
    return tree ? std::move(tree) : qo_ctl_built_in_defaults();
}

void add_copy(const QoJsonNode& object, const char* name, const JSONNODE* node) {
    QoJsonNode copy(json_duplicate(node));
    json_set_name(copy.get(), name);
    qo_json_push_back(object.get(), std::move(copy));
}

QoJsonNode report_of(const std::string& pointer, const QoCtlRules& rules, const JSONNODE* in_defaults) {
    QoJsonNode report(json_new(JSON_NODE));
    qo_ctl_add_text(report.get(), "pointer", pointer);
    qo_ctl_add_text(report.get(), "type", type_name(rules.node));
    add_copy(report, "value", rules.node);
    if (in_defaults != nullptr) add_copy(report, "default", in_defaults);
    constexpr const char* kWriters[] = {"internal_may_write", "local_may_write", "remote_may_write"};
    for (size_t i = 0; i < rules.may_write.size(); ++i)
        json_push_back(report.get(), json_new_b(kWriters[i], rules.may_write[i] ? 1 : 0));
    json_push_back(report.get(), json_new_b("saved", rules.persists ? 1 : 0));
    json_push_back(report.get(), json_new_i("bytes", static_cast<int64_t>(qo_json_write(rules.node).size())));
    if (qo_json_is_container(rules.node))
        json_push_back(report.get(), json_new_i("children", static_cast<int64_t>(json_size(rules.node))));
    if (rules.max_items) json_push_back(report.get(), json_new_i("largest_id", *rules.max_items));
    return report;
}

/// One line for each member.
std::string lines_of(JSONNODE* report) {
    std::string text;
    for (const JSONNODE* member : QoJsonChildren(report)) {
        std::string value = qo_json_write(member);
        if (value.size() > kLongestValue) value = value.substr(0, kLongestValue) + "...";
        std::string name(qo_json_name(member));
        name.resize(20, ' ');
        text += name + qo_ctl_harmless(value) + "\n";
    }
    return text;
}

QoCtlStatus Explain::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlStatus status = QoCtlStatus::answered;
    const QoJsonNode tree = qo_ctl_take_tree(name_, common, signals, status);
    signals.release();
    if (!tree) return status;
    const std::vector<std::string_view> segments = qo_ctl_segments(pointer_);
    const QoCtlPath path(segments.begin(), segments.end());
    const QoCtlRules rules = qo_ctl_rules(tree.get(), path);
    if (rules.node == nullptr) {
        qo_ctl_say(pointer_ + ": no such node");
        return QoCtlStatus::failed;
    }
    const QoJsonNode defaults = default_tree();
    const QoJsonNode report = report_of(pointer_, rules, qo_ctl_rules(defaults.get(), path).node);
    const QoCtlStyle style = qo_ctl_stdout_style(common);
    return qo_ctl_print(style.formatted ? lines_of(report.get()) : qo_ctl_render(report.get(), style),
                        QoCtlStatus::answered);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_explain() { return std::make_unique<Explain>(); }
