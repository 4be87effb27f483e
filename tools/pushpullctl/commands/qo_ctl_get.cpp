// get: what stands at pointers.
#include "qo_ctl_commands.h"
#include "qo_ctl_harmless.h"
#include "qo_ctl_live_tree.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_text.h"
#include "qo_pushpull_json.h"

namespace {

enum class Form {
    whole,
    size,
    value,
    names
};  // of an answer: with its path, a number of elements, the bare value, names

/// A text without its quotes: as it is for a program, made harmless for a terminal.
std::string value_line(JSONNODE* node, QoCtlStyle style) {
    if (json_type(node) != JSON_STRING) return qo_ctl_render(node, style);
    const std::string text(qo_json_string(node));
    return (style.formatted ? qo_ctl_harmless(text, "\n\t") : text) + "\n";
}

/// The pointers of the children, a line each: what a shell completes.
std::string name_lines(const std::string& pointer, JSONNODE* node) {
    std::string text;
    size_t position = 0;
    for (const JSONNODE* child : QoJsonChildren(node)) {
        const bool in_array = json_type(node) == JSON_ARRAY;
        const std::string name = in_array ? std::to_string(position++) : std::string(qo_json_name(child));
        text += qo_ctl_harmless(pointer + "/" + name) + "\n";
    }
    return text;
}

/// @param asked what was asked for: the pointer itself, or its size
void take_answer(const std::string& pointer, const std::string& asked, const std::string& body, Form form,
                 QoCtlStyle style, QoCtlResult& result) {
    const QoCtlAnswer answer = qo_ctl_answer(asked, body);
    if (answer.kind == QoCtlAnswerKind::missing)
        result.fail(pointer + ": no such node");
    else if (answer.kind == QoCtlAnswerKind::size && answer.size < 0)
        result.fail(pointer + ": no array there whose size can be asked for");
    else if (answer.kind == QoCtlAnswerKind::size)
        result.text += std::to_string(answer.size) + "\n";
    else if (json_is_valid_n(body.data(), body.size()) == 0)
        result.fail(pointer + ": the answer is not valid JSON");
    else if (form == Form::names)
        result.text += name_lines(pointer, qo_ctl_addressed(qo_json_parse(body).get(), pointer, nullptr));
    else if (form == Form::value)
        result.text += value_line(qo_ctl_addressed(qo_json_parse(body).get(), pointer, nullptr), style);
    else
        result.text += qo_ctl_render_text(body, style);
}

/// One request per pointer, so that each answer is known to be that pointer's.
void get_each(QoCtlSession& session, const std::vector<std::string>& pointers, Form form, QoCtlStyle style,
              QoCtlResult& result) {
    for (const std::string& pointer : pointers) {
        const std::string asked = form == Form::size ? pointer + "/size" : pointer;
        const QoCtlExchange exchange = session.ask(asked, false);
        if (exchange.status != QoCtlStatus::answered) {
            result.status = exchange.status;
            return;
        }
        if (exchange.answers.empty())
            result.fail(qo_ctl_too_long(pointer, session));
        else
            take_answer(pointer, asked, exchange.answers.front(), form, style, result);
    }
}

std::string joined(const std::vector<std::string>& pointers) {
    std::string list;
    for (const std::string& pointer : pointers) list += (list.empty() ? "" : ";") + pointer;
    return list;
}

void get_packed(QoCtlSession& session, const std::vector<std::string>& pointers, QoCtlStyle style,
                QoCtlResult& result) {
    const QoCtlExchange exchange = session.ask(joined(pointers), true);
    result.status = exchange.status;
    if (exchange.status != QoCtlStatus::answered) return;
    std::vector<QoJsonNode> packed;
    for (const std::string& answer : exchange.answers) {
        QoJsonNode node = qo_json_parse(answer);
        // {} comes when there was nothing to pack.
        if (json_empty(node.get()) == 1) continue;
        result.text += qo_ctl_render(node.get(), style);
        packed.push_back(std::move(node));
    }
    for (const std::string& pointer : pointers) {
        bool held = false;
        for (const QoJsonNode& node : packed) held = held || qo_ctl_packed_holds(node.get(), pointer);
        if (!held) result.fail(pointer + ": no such node, or longer than a message");
    }
}

class Get : public QoCtlCommand {
public:
    Help help() const override {
        return {"get", "Read nodes of the data tree",
                "Each answer keeps the path from the root; a node of an array comes alone in its array.\n"
                "With --value only the value is printed, with --size the number of an array's elements, with\n"
                "--names the pointers of what is below. Ends with 1 when a node does not exist.\n\n"
                "Example:\n  pushpullctl get /system/config /version\n  pushpullctl get --size /devices\n"
                "  name=$(pushpullctl get --value /system/config/name)"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.words("POINTER", pointers_, "JSON pointer, as /system/config");
        line.flag("--pack", pack_, "let the service join the answers in as few messages as fit");
        line.flag("--size", size_, "ask for the numbers of elements of arrays");
        line.flag("--value", value_, "the bare value, without its path; texts without quotes");
        line.flag("--names", names_, "the pointers of what is below, a line each");
        line.not_together("--names", "--pack");
        line.not_together("--names", "--size");
        line.not_together("--names", "--value");
        line.not_together("--size", "--pack");
        line.not_together("--value", "--pack");
        line.not_together("--value", "--size");
    }
    std::string fault() override;
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    Form form() const { return size_ ? Form::size : value_ ? Form::value : names_ ? Form::names : Form::whole; }

    std::vector<std::string> pointers_;
    bool pack_ = false;
    bool size_ = false;
    bool value_ = false;
    bool names_ = false;
};

std::string Get::fault() {
    if (std::string fault = qo_ctl_pointers_fault(pointers_); !fault.empty()) return fault;
    for (const std::string& pointer : pointers_) {
        if (qo_ctl_segments(pointer).empty())
            return "the service does not give the whole tree in one answer; use: pushpullctl tree";
        if (size_ && pointer.find("/size") != std::string::npos)
            return pointer + ": the service cuts a size query at the first \"/size\"";
    }
    return "";
}

QoCtlStatus Get::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    const QoCtlStyle style = qo_ctl_stdout_style(common);
    QoCtlResult result;
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    result.status = session.open();
    if (result.status != QoCtlStatus::answered) return result.status;
    if (pack_)
        get_packed(session, pointers_, style, result);
    else
        get_each(session, pointers_, form(), style, result);
    session.close();
    signals.release();
    return qo_ctl_print(result.text, result.status);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_get() { return std::make_unique<Get>(); }
