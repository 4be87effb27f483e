// From a text to the object that it is.
#include <algorithm>
#include <string_view>
#include <unordered_set>

#include "qo_json_objects.h"

namespace {

using MakeObject = std::shared_ptr<qoJsonObj> (*)(JSONNODE* tree);

template <typename T>
std::shared_ptr<qoJsonObj> make(JSONNODE* tree) {
    return std::make_shared<T>(tree);
}

struct KnownKind {
    std::string_view word;
    char json_type;
    MakeObject make;
};

constexpr KnownKind kKnownKinds[] = {
    {"system", JSON_NODE, make<QoSystem>},
    {"devices", JSON_ARRAY, make<QoDevicesWrapper>},
    {"command", JSON_NODE, make<QoCommand>},
    {"interfaces", JSON_ARRAY, make<QoInterfacesWrapper>},
    {"alarms", JSON_NODE, make<QoAlerts>},
    {"alerts", JSON_NODE, make<QoAlerts>},
    {"errors", JSON_NODE, make<QoAlerts>},
    {"infoalerts", JSON_NODE, make<QoAlerts>},
    {"address", JSON_NODE, make<QoAddress>},
    {"centerButton", JSON_NODE, make<QoCenterButton>},
    {"fwm", JSON_NODE, make<QoFwm>},
    {"logs", JSON_NODE, make<QoLogs>},
    {"resetKivo", JSON_NODE, make<QoResetKivo>},
    {"privateNode", JSON_NODE, make<QoPrivateNode>},
    {"parameterUpdate", JSON_NODE, make<QoParameterUpdate>},
    {"parameterReset", JSON_NODE, make<QoParameterReset>},
    {"userAccess", JSON_NODE, make<QoUserAccess>},
    {"serverAssigned", JSON_NODE, make<QoServerAssigned>},
    {"errorRecovery", JSON_NODE, make<QoErrorRecovery>},
    {"systemCommandRequest", JSON_NODE, make<QoPlainObj<kReservedObj77>>},
    {"remoteStatus", JSON_NODE, make<QoPlainObj<kReservedObj78>>},
    {"usb", JSON_NODE, make<QoPlainObj<kReservedObj79>>},
    {"rgw", JSON_NODE, make<QoPlainObj<kReservedObj80>>},
    {"nmDbusNotifications", JSON_NODE, make<QoPlainObj<kReservedObj81>>},
    {"dlm", JSON_NODE, make<QoPlainObj<kReservedObj82>>},
    {"version", JSON_NODE, make<QoPlainObj<kReservedObj83>>},
    {"siblings", JSON_ARRAY, make<QoPlainObj<kReservedObj84>>},
    {"kivoLog", JSON_NODE, make<QoPlainObj<kReservedObj85>>},
    {"ledErrorType", JSON_NODE, make<QoPlainObj<kReservedObj86>>},
    {"nmKivowifi", JSON_NODE, make<QoPlainObj<kReservedObj87>>},
    {"error", JSON_ARRAY, make<QoPlainObj<kReservedObj88>>},
    {"connectionManagement", JSON_ARRAY, make<QoPlainObj<kReservedObj89>>},
};

std::string_view name_of(const JSONNODE* node) {
    size_t length = 0;
    const char* name = json_name_view(node, &length);
    return {name, length};
}

/// Objects of so few members are searched pair by pair, which is quicker than a table.
constexpr ptrdiff_t kPairwiseMembers = 16;

bool names_are_unique(JSONNODE_ITERATOR first, JSONNODE_ITERATOR last) {
    if (last - first > kPairwiseMembers) {
        std::unordered_set<std::string_view> seen;
        return std::all_of(first, last, [&](const JSONNODE* member) { return seen.insert(name_of(member)).second; });
    }
    for (JSONNODE_ITERATOR member = first; member != last; ++member) {
        const std::string_view name = name_of(*member);
        if (std::any_of(first, member, [&](const JSONNODE* before) { return name_of(before) == name; })) return false;
    }
    return true;
}

/// Recursive: a parsed text is nested JSON_MAX_PARSE_DEPTH levels at most.
bool members_are_unique(JSONNODE* node) {
    const JSONNODE_ITERATOR first = json_begin(node);
    const JSONNODE_ITERATOR last = json_end(node);
    if (json_type(node) == JSON_NODE && !names_are_unique(first, last)) return false;
    return std::all_of(first, last,
                       [](JSONNODE* child) { return json_empty(child) != 0 || members_are_unique(child); });
}

const KnownKind* find_kind(const JSONNODE* tree) {
    if (json_type(tree) != JSON_NODE || json_size(tree) != 1) return nullptr;
    const JSONNODE* member = json_at(tree, 0);
    const std::string_view word = name_of(member);
    const auto* kind = std::find_if(std::begin(kKnownKinds), std::end(kKnownKinds),
                                    [&](const KnownKind& known) { return known.word == word; });
    return kind != std::end(kKnownKinds) && kind->json_type == json_type(member) ? kind : nullptr;
}

}  // namespace

std::shared_ptr<qoJsonObj> QoJsonObjFactory::makeObj(const std::string& json) const {
    return makeObj(json_parse_n(json.data(), json.size()));
}

std::shared_ptr<qoJsonObj> QoJsonObjFactory::makeObj(JSONNODE* tree) const {
    const KnownKind* kind = find_kind(tree);
    if (kind == nullptr || !members_are_unique(tree)) {
        json_delete(tree);
        return nullptr;
    }
    return kind->make(tree);
}
