/// The component identifiers by their names, as a person writes them. No state; any thread.
#ifndef QO_CTL_COMPONENTS_H
#define QO_CTL_COMPONENTS_H

#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "qo_component_ids.h"

/// A named identifier. The name is the enumerator's without QO_CMPID_ or QO_CMP_ID_ and lives for ever.
struct QoCtlComponent {
    std::string_view name;
    eQO_CMP_IDs_ id;
};

/// Every named identifier, in the order of qo_component_ids.h.
std::span<const QoCtlComponent> qo_ctl_components();

/// The identifier that `text` means: a name with or without its prefix, in upper or lower case, or a number,
/// decimal or hexadecimal with 0x. Numbers need no name: the connections of a gateway block have none.
/// @return nothing for an unknown name and for a number below 1 or beyond 32 bits.
std::optional<eQO_CMP_IDs_> qo_ctl_component_id(std::string_view text);

/// Sets the identifier that `text` means. @return "", or what is wrong with it for the one who wrote it
std::string qo_ctl_take_component(const std::string& text, eQO_CMP_IDs_& id);

/// The name of an identifier, or its number in decimal when it has none.
std::string qo_ctl_component_name(eQO_CMP_IDs_ id);

/// The class that decides what the component may write.
eQO_COMPONENT_CLASS_ qo_ctl_component_class(eQO_CMP_IDs_ id);

/// "internal", "local client" or "remote client".
std::string_view qo_ctl_class_name(eQO_COMPONENT_CLASS_ component_class);

#endif
