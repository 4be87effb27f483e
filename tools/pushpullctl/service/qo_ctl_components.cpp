// The names of the component identifiers.
#include "qo_ctl_components.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdint>
#include <limits>

#include "qo_pushpull_conventions.h"

namespace {

constexpr QoCtlComponent kComponents[] = {
#include "qo_ctl_component_table.inc"
};

std::string upper(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char character) { return static_cast<char>(std::toupper(character)); });
    return result;
}

std::string_view without_prefix(std::string_view name) {
    for (const std::string_view prefix : {std::string_view("QO_CMPID_"), std::string_view("QO_CMP_ID_")})
        if (name.starts_with(prefix)) return name.substr(prefix.size());
    return name;
}

std::optional<eQO_CMP_IDs_> id_of_number(std::string_view text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = hexadecimal ? text.substr(2) : text;
    int64_t number = 0;
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), number, hexadecimal ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    if (number < 1 || number > std::numeric_limits<int32_t>::max()) return std::nullopt;
    return static_cast<eQO_CMP_IDs_>(number);
}

}  // namespace

std::span<const QoCtlComponent> qo_ctl_components() { return kComponents; }

std::optional<eQO_CMP_IDs_> qo_ctl_component_id(std::string_view text) {
    const std::string wanted = upper(text);
    const std::string_view name = without_prefix(wanted);
    for (const QoCtlComponent& component : kComponents)
        if (component.name == name && component.id != QO_CMPID_RESERVED) return component.id;
    return id_of_number(text);
}

std::string qo_ctl_take_component(const std::string& text, eQO_CMP_IDs_& id) {
    const std::optional<eQO_CMP_IDs_> found = qo_ctl_component_id(text);
    if (!found) return "\"" + text + "\" is no component; see: pushpullctl components";
    id = *found;
    return "";
}

std::string qo_ctl_component_name(eQO_CMP_IDs_ id) {
    for (const QoCtlComponent& component : kComponents)
        if (component.id == id) return std::string(component.name);
    return std::to_string(static_cast<int32_t>(id));
}

eQO_COMPONENT_CLASS_ qo_ctl_component_class(eQO_CMP_IDs_ id) { return qo_component_class(id); }

std::string_view qo_ctl_class_name(eQO_COMPONENT_CLASS_ component_class) {
    switch (component_class) {
        case QO_LOCAL_CLIENT:
            return "local client";
        case QO_REMOTE_CLIENT:
            return "remote client";
        case QO_INTERNAL:
            break;
    }
    return "internal";
}
