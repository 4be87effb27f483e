// set: gives one place of the tree a value.
#include "qo_ctl_commands.h"
#include "qo_ctl_fragment.h"
#include "qo_ctl_positions.h"
#include "qo_ctl_text.h"
#include "qo_ctl_write.h"
#include "qo_pushpull_json.h"

namespace {

class Set : public QoCtlCommand {
public:
    Help help() const override {
        return {"set", "Give one place of the data tree a value",
                "VALUE is JSON: a number, true, false, null, a \"text\" in quotes, an object or an array; with\n"
                "--string it is a text as it stands. Publishes the object that holds it; a position of an array\n"
                "is published as the \"id\" of the element. Reads it back, unless --no-verify is given, and\n"
                "ends with 1 when it was not taken.\n\n"
                "Example:\n  pushpullctl set --string /system/config/name Shop\n"
                "  pushpullctl set /devices/device/0/setpoint 21.5"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.word("POINTER", pointer_, "JSON pointer, as /system/config");
        line.word("VALUE", value_, "the value, as JSON");
        line.flag("--string", is_string_, "the value is a text as it stands");
        line.flag("--no-verify", no_verify_, "do not read it back");
    }
    std::string fault() override;
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    QoJsonNode value() const;

    std::string pointer_;
    std::string value_;
    bool is_string_ = false;
    bool no_verify_ = false;
};

QoJsonNode Set::value() const {
    return is_string_ ? QoJsonNode(json_new_a_n("", 0, value_.data(), value_.size())) : qo_json_parse(value_);
}

std::string Set::fault() {
    if (std::string fault = qo_ctl_pointers_fault({pointer_}); !fault.empty()) return fault;
    if (qo_ctl_segments(pointer_).empty()) return "the whole tree cannot be set; use: pushpullctl publish";
    if (value()) return "";
    return is_string_ ? "the value is not valid UTF-8" : "the value is not valid JSON; for a text: --string";
}

QoCtlStatus Set::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    QoCtlSession session(qo_ctl_session_settings(common), signals);
    QoCtlResult result;
    result.status = session.open();
    if (result.status != QoCtlStatus::answered) return result.status;
    const std::vector<std::string_view> segments = qo_ctl_segments(pointer_);
    const QoCtlPath path(segments.begin(), segments.end());
    const std::vector<bool> positions = qo_ctl_positions(session, path, result.status);
    if (result.status == QoCtlStatus::answered) {
        const QoJsonNode object = qo_ctl_fragment(path, positions, value());
        qo_ctl_publish_object(session, qo_json_write(object.get()), !no_verify_, qo_ctl_stdout_style(common), result);
    }
    session.close();
    signals.release();
    return qo_ctl_print(result.text, result.status);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_set() { return std::make_unique<Set>(); }
