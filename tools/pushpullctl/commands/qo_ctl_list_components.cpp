// components: which component identifiers there are.
#include <cstdio>

#include "qo_ctl_commands.h"
#include "qo_ctl_components.h"
#include "qo_ctl_padded.h"
#include "qo_ctl_shared.h"
#include "qo_pushpull_json.h"

namespace {

std::string hexadecimal(eQO_CMP_IDs_ id) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(id));
    return text;
}

std::string component_row(const QoCtlComponent& component) {
    return qo_ctl_padded(std::string(component.name), 30) +
           qo_ctl_padded(std::to_string(static_cast<int32_t>(component.id)), 10, true) + "  " +
           qo_ctl_padded(hexadecimal(component.id), 10, true) + "  " +
           std::string(qo_ctl_class_name(qo_ctl_component_class(component.id))) + "\n";
}

std::string component_json(const QoCtlComponent& component) {
    const QoJsonNode node(json_new(JSON_NODE));
    const std::string_view class_name = qo_ctl_class_name(qo_ctl_component_class(component.id));
    json_push_back(node.get(), json_new_a("name", component.name.data()));
    json_push_back(node.get(), json_new_i("number", component.id));
    json_push_back(node.get(), json_new_a("hex", hexadecimal(component.id).c_str()));
    json_push_back(node.get(), json_new_a("class", class_name.data()));
    return qo_ctl_render(node.get(), QoCtlStyle{});
}

class Components : public QoCtlCommand {
public:
    Help help() const override {
        return {"components", "List the component identifiers",
                "Needs no service.\n\nExample:\n  pushpullctl components"};
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;
};

QoCtlStatus Components::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    signals.release();
    const QoCtlStyle style = qo_ctl_stdout_style(common);
    std::string text;
    for (const QoCtlComponent& component : qo_ctl_components()) {
        if (component.id == QO_CMPID_RESERVED) continue;
        text += style.formatted ? component_row(component) : component_json(component);
    }
    return qo_ctl_print(text, QoCtlStatus::answered);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_components() { return std::make_unique<Components>(); }
