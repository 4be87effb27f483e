// monitor: what the service is asked, as it happens.
#include "qo_ctl_commands.h"
#include "qo_ctl_components.h"
#include "qo_ctl_harmless.h"
#include "qo_ctl_log_follower.h"
#include "qo_ctl_padded.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_subject.h"
#include "qo_pushpull_json.h"

namespace {

constexpr std::chrono::milliseconds kLook{100};

/// The names of components in place of their queues, where they are known.
std::vector<std::string> told_names(const QoCtlHandled& handled, const QoCtlTraffic& traffic) {
    std::vector<std::string> names;
    for (const std::string& queue : handled.told) {
        const eQO_CMP_IDs_ id = traffic.component_of(queue);
        names.push_back(id == QO_CMPID_RESERVED ? queue : qo_ctl_component_name(id));
    }
    return names;
}

std::string joined(const std::vector<std::string>& parts, const char* between) {
    std::string text;
    for (const std::string& part : parts) text += (text.empty() ? "" : between) + part;
    return text;
}

std::string sender_name(const QoCtlRequest& request) {
    return request.sender == QO_CMPID_RESERVED ? "-" : qo_ctl_component_name(request.sender);
}

std::string row_of(const QoCtlHandled& handled, const std::vector<std::string>& told) {
    const QoCtlRequest& request = handled.request;
    constexpr size_t kSenderWidth = 24;
    constexpr size_t kKindWidth = 11;
    std::string text = (handled.time.empty() ? "" : handled.time + "  ") +
                       qo_ctl_padded(sender_name(request), kSenderWidth) + "  " +
                       qo_ctl_padded(request.kind.empty() ? "?" : request.kind, kKindWidth) + "  ";
    if (request.destination != QO_CMPID_RESERVED) text += "to " + qo_ctl_component_name(request.destination) + ": ";
    text += qo_ctl_subject(request) + "  " + std::to_string(handled.bytes) + " B";
    if (!request.whole) text += " (cut)";
    if (handled.outcome != QoCtlOutcome::done) {
        text += "  " + std::string(qo_ctl_outcome_name(handled.outcome)) + ": " + joined(handled.reasons, "; ");
        if (handled.more_reasons > 0) text += "; and " + std::to_string(handled.more_reasons) + " more";
    }
    if (!told.empty()) text += "  told " + joined(told, ", ");
    return qo_ctl_harmless(text) + "\n";
}

void add_text(JSONNODE* object, const char* name, const std::string& text) {
    const std::string plain = qo_ctl_harmless(text);
    json_push_back(object, json_new_a(name, plain.c_str()));
}

void add_texts(JSONNODE* object, const char* name, const std::vector<std::string>& texts) {
    JSONNODE* const array = qo_json_append_named(object, JSON_ARRAY, name);
    for (const std::string& text : texts) add_text(array, "", text);
}

std::string json_of(const QoCtlHandled& handled, const std::vector<std::string>& told) {
    const QoCtlRequest& request = handled.request;
    const QoJsonNode node(json_new(JSON_NODE));
    if (!handled.time.empty()) add_text(node.get(), "time", handled.time);
    if (request.sender != QO_CMPID_RESERVED) {
        add_text(node.get(), "component", sender_name(request));
        json_push_back(node.get(), json_new_i("number", request.sender));
    }
    add_text(node.get(), "kind", request.kind);
    if (request.destination != QO_CMPID_RESERVED)
        add_text(node.get(), "destination", qo_ctl_component_name(request.destination));
    add_text(node.get(), "subject", qo_ctl_subject(request));
    json_push_back(node.get(), json_new_i("bytes", handled.bytes));
    json_push_back(node.get(), json_new_b("whole", request.whole ? 1 : 0));
    add_text(node.get(), "result", std::string(qo_ctl_outcome_name(handled.outcome)));
    add_texts(node.get(), "reasons", handled.reasons);
    if (handled.more_reasons > 0)
        json_push_back(node.get(), json_new_i("more_reasons", static_cast<int64_t>(handled.more_reasons)));
    add_texts(node.get(), "told", told);
    return qo_ctl_render(node.get(), QoCtlStyle{});
}

class Monitor : public QoCtlCommand {
public:
    Help help() const override {
        return {"monitor", "Show each request to the service as it happens",
                "A line for each request: time, sender, kind, what it is about, bytes, what was refused or failed,\n"
                "and who was told. Read from the service's log, in which requests stand at the level \"debug\": from\n"
                "the journal, a syslog file that is followed, or - for standard input. Where the log drops debug\n"
                "lines nothing shows: the journal needs MaxLevelStore=debug in journald.conf (its default), rsyslog\n"
                "a rule as \"user.debug /var/log/pushpull.log\".\n\n"
                "Example:\n  pushpullctl monitor --kind publish --pointer /system\n"
                "  pushpullctl monitor --file /var/log/syslog\n  pushpullctl monitor - < pushpull.log"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.word("SOURCE", source_, "- for standard input", QoCtlCommandLine::Need::optional);
        line.text("--file", file_, "FILE", "follow a syslog file instead of the journal; - is standard input");
        line.text("--sender", sender_text_, "NAME|NUMBER", "only requests of this component");
        line.text("--kind", kind_, "KIND", "only requests of this kind, as publish");
        line.text("--pointer", pointer_, "POINTER", "only requests that concern this node, or one above or below it");
        line.not_together("--file", "SOURCE");
    }
    std::string fault() override {
        if (!source_.empty() && source_ != "-") return "\"" + source_ + "\" is no source; for a file: --file";
        if (!source_.empty()) file_ = source_;
        if (std::string fault = pointer_.empty() ? "" : qo_ctl_pointers_fault({pointer_}); !fault.empty()) return fault;
        return sender_text_.empty() ? "" : qo_ctl_take_component(sender_text_, sender_);
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    bool is_wanted(const QoCtlRequest& request) const {
        return (sender_ == QO_CMPID_RESERVED || sender_ == request.sender) &&
               (kind_.empty() || kind_ == request.kind) && (pointer_.empty() || qo_ctl_concerns(request, pointer_));
    }
    QoCtlStatus follow(QoCtlLogSource& source, QoCtlStyle style, const QoCtlSignals& signals) const;

    std::string source_;
    std::string file_;  // "": the journal
    std::string sender_text_;
    eQO_CMP_IDs_ sender_ = QO_CMPID_RESERVED;  // QO_CMPID_RESERVED: any
    std::string kind_;
    std::string pointer_;
};

QoCtlStatus Monitor::follow(QoCtlLogSource& source, QoCtlStyle style, const QoCtlSignals& signals) const {
    QoCtlStatus status = QoCtlStatus::answered;
    std::string output;
    const QoCtlTraffic* known = nullptr;
    QoCtlTraffic traffic([&](const QoCtlHandled& handled) {
        if (!is_wanted(handled.request)) return;
        const std::vector<std::string> told = told_names(handled, *known);
        output += style.formatted ? row_of(handled, told) : json_of(handled, told);
    });
    known = &traffic;
    QoCtlLogFollower follower(source, traffic);
    auto state = QoCtlLogSource::State::quiet;
    while (status == QoCtlStatus::answered && state != QoCtlLogSource::State::ended && signals.caught() == 0) {
        state = follower.read(kLook);
        if (!output.empty()) status = qo_ctl_print(output, status);
        output.clear();
    }
    return status;
}

QoCtlStatus Monitor::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    const std::unique_ptr<QoCtlLogSource> source = qo_ctl_open_log(file_, QoCtlLogEnd::followed);
    if (!source) return QoCtlStatus::failed;
    qo_ctl_say("reading " + source->name() +
               "; requests show where its debug lines are kept (see: pushpullctl monitor --help)");
    signals.watch(-1);  // no queue to be woken through
    const QoCtlStatus status = follow(*source, qo_ctl_stdout_style(common), signals);
    signals.unwatch();
    const bool ended_by_itself = signals.caught() == 0 && file_.empty();
    return ended_by_itself ? QoCtlStatus::failed : status;
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_monitor() { return std::make_unique<Monitor>(); }
