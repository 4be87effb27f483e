// The objects: typed access to their members, and their text.
#include "qo_json_objects.h"

#include <algorithm>
#include <climits>
#include <limits>
#include <string_view>
#include <utility>

namespace {

std::string_view text_of(const JSONNODE* node) {
    size_t length = 0;
    const char* text = json_string_view(node, &length);
    return {text, length};
}

JSONNODE* find_object(const QoJsonMembers& members, const char* name) {
    JSONNODE* member = members.find(name);
    return json_type(member) == JSON_NODE ? member : nullptr;
}

/// @param part what stands for the member when it is an object, else null
template <typename Part>
bool get_object(const QoJsonMembers& members, const char* name, Part* part, Part** object) {
    if (object == nullptr) return members.find(name) != nullptr;
    if (part != nullptr) *object = part;
    return part != nullptr;
}

bool get_string(const QoJsonMembers& members, const char* name, std::string* text) {
    const JSONNODE* member = members.find(name);
    if (member == nullptr || text == nullptr) return member != nullptr;
    if (json_type(member) != JSON_STRING) return false;
    *text = text_of(member);
    return true;
}

bool is_whole_number(const JSONNODE* node, int64_t value) {
    JSONNODE* whole = json_new_i(nullptr, value);
    const bool equal = json_equal(node, whole) != 0;
    json_delete(whole);
    return equal;
}

bool get_int(const QoJsonMembers& members, const char* name, int* number) {
    const JSONNODE* member = members.find(name);
    if (member == nullptr) return false;
    int64_t value = 0;
    const bool fits =
        json_get_int(member, &value) != 0 && value >= INT_MIN && value <= INT_MAX && is_whole_number(member, value);
    if (number != nullptr) *number = fits ? static_cast<int>(value) : INT_MIN;
    return true;
}

bool get_double(const QoJsonMembers& members, const char* name, double* number) {
    const JSONNODE* member = members.find(name);
    if (member == nullptr) return false;
    const bool is_number = json_type(member) == JSON_NUMBER;
    if (number != nullptr) *number = is_number ? json_as_float(member) : std::numeric_limits<double>::quiet_NaN();
    return true;
}

/// `texts` stand in the order of the enumeration's values; its error value is the one behind the last.
template <typename Enum, size_t kCount>
bool get_enum(const QoJsonMembers& members, const char* name, const std::string_view (&texts)[kCount], Enum* value) {
    const JSONNODE* member = members.find(name);
    if (member == nullptr) return false;
    const std::string_view* found = std::end(texts);
    if (json_type(member) == JSON_STRING) found = std::find(std::begin(texts), std::end(texts), text_of(member));
    if (value != nullptr) *value = static_cast<Enum>(found - std::begin(texts));
    return true;
}

constexpr std::string_view kTzTexts[] = {"Non-Standard", "NST",  "AST",  "EST", "CST",  "MST",
                                         "PST",          "AKST", "HAST", "SST", "ChST", "WAKT"};
constexpr std::string_view kFormatTexts[] = {"12hour", "24hour"};
constexpr std::string_view kCountryTexts[] = {"US", "CA"};
constexpr std::string_view kActionTexts[] = {"set", "clear"};
constexpr std::string_view kPriorityTexts[] = {"minor", "moderate", "critical", "warning", "info"};
constexpr std::string_view kClearedByTexts[] = {"active",    "hardReset", "softReset", "user",
                                                "installer", "orvel",     "special",   "device"};
constexpr std::string_view kOptionalfieldTypeTexts[] = {"null", "equipmentType", "voltage", "temperature", "humidity"};
static_assert(std::size(kTzTexts) == QoSystemClock::kTzError);
static_assert(std::size(kFormatTexts) == QoSystemClock::kFormatError);
static_assert(std::size(kCountryTexts) == QoAddress::kCountryError);
static_assert(std::size(kActionTexts) == QoAlert::kActionError);
static_assert(std::size(kPriorityTexts) == QoAlert::kPriorityError);
static_assert(std::size(kClearedByTexts) == QoAlert::kClearedByError);
static_assert(std::size(kOptionalfieldTypeTexts) == QoAlert::kOptionalfieldTypeError);

/// Takes members out of their objects and puts them back in their places at the end of its life.
class QoMembersLeftOut {
public:
    explicit QoMembersLeftOut(const std::vector<QoJsonMember>& members) {
        for (const QoJsonMember& left_out : members) {
            const JSONNODE_ITERATOR begin = json_begin(left_out.parent);
            const auto position =
                static_cast<size_t>(std::find(begin, json_end(left_out.parent), left_out.member) - begin);
            taken_.push_back({left_out.parent, json_pop_back_at(left_out.parent, position), position});
        }
    }
    QoMembersLeftOut(const QoMembersLeftOut&) = delete;
    QoMembersLeftOut& operator=(const QoMembersLeftOut&) = delete;
    ~QoMembersLeftOut() {
        // Backwards: each position was counted without the members taken out before it.
        for (auto taken = taken_.rbegin(); taken != taken_.rend(); ++taken)
            json_insert(taken->parent, json_begin(taken->parent) + taken->position, taken->member);
    }

private:
    struct Taken {
        JSONNODE* parent;
        JSONNODE* member;
        size_t position;
    };
    std::vector<Taken> taken_;
};

}  // namespace

// ---- qoJsonObj ----

qoJsonObj::qoJsonObj(QoJsonObjType type, JSONNODE* tree) : objType(type), tree_(tree) {
    size_t length = 0;
    const char* name = json_name_view(value(), &length);
    jsonWord.assign(name, length);
}

qoJsonObj::~qoJsonObj() { json_delete(tree_); }

JSONNODE* qoJsonObj::value() const { return json_at(tree_, 0); }

void qoJsonObj::collectNotValid(std::vector<QoJsonMember>&) const {}

void qoJsonObj::toJson(std::string& json) {
    std::vector<QoJsonMember> not_valid;
    collectNotValid(not_valid);
    const QoMembersLeftOut left_out(not_valid);
    size_t length = 0;
    char* text = json_write_n(tree_, &length);
    json.assign(text == nullptr ? "" : text, length);
    json_free(text);
}

JSONNODE* qoJsonObj::releaseTree() {
    std::vector<QoJsonMember> not_valid;
    collectNotValid(not_valid);
    for (const QoJsonMember& left_out : not_valid) json_delete(left_out.member);
    return std::exchange(tree_, nullptr);
}

// ---- QoJsonMembers ----

QoJsonMembers::QoJsonMembers(JSONNODE* node) : node_(node) {}

JSONNODE* QoJsonMembers::find(const char* name) const {
    if (std::find(not_valid_.begin(), not_valid_.end(), name) != not_valid_.end()) return nullptr;
    return json_find(node_, name);
}

void QoJsonMembers::setValid(const char* name, bool valid) {
    std::erase(not_valid_, name);
    if (!valid) not_valid_.emplace_back(name);
}

void QoJsonMembers::collectNotValid(std::vector<QoJsonMember>& members) const {
    for (const std::string& name : not_valid_) {
        JSONNODE* member = json_find(node_, name.c_str());
        if (member != nullptr) members.push_back({node_, member});
    }
}

// ---- QoSystemClock ----

QoSystemClock::QoSystemClock(JSONNODE* node) : members_(node) {}

bool QoSystemClock::getSetRtcTime(std::string* text) const { return get_string(members_, "setRtcTime", text); }

bool QoSystemClock::getLocalSetRtcTime(std::string* text) const {
    return get_string(members_, "localSetRtcTime", text);
}

void QoSystemClock::setSetRtcTimeValid(bool valid) { members_.setValid("setRtcTime", valid); }

void QoSystemClock::setLocalSetRtcTimeValid(bool valid) { members_.setValid("localSetRtcTime", valid); }

bool QoSystemClock::getOffset(int* seconds) const { return get_int(members_, "offset", seconds); }

bool QoSystemClock::getTz(tzEnum* tz) const { return get_enum(members_, "tz", kTzTexts, tz); }

bool QoSystemClock::getDstOffset(int* seconds) const { return get_int(members_, "dstOffset", seconds); }

bool QoSystemClock::getFormat(formatEnum* format) const { return get_enum(members_, "format", kFormatTexts, format); }

void QoSystemClock::collectNotValid(std::vector<QoJsonMember>& members) const { members_.collectNotValid(members); }

// ---- QoSystem ----

QoSystem::QoSystem(JSONNODE* tree) : qoJsonObj(kSystemObj, tree), members_(value()) {
    if (JSONNODE* clock = find_object(members_, "clock")) clock_ = std::make_unique<QoSystemClock>(clock);
}

bool QoSystem::getStatus(QoSystemStatus** status) {
    return get_object(members_, "status", find_object(members_, "status") == nullptr ? nullptr : &status_, status);
}

bool QoSystem::getTime(QoSystemTime** time) {
    return get_object(members_, "time", find_object(members_, "time") == nullptr ? nullptr : &time_, time);
}

bool QoSystem::getClock(QoSystemClock** clock) { return get_object(members_, "clock", clock_.get(), clock); }

void QoSystem::setTimeValid(bool valid) { members_.setValid("time", valid); }

void QoSystem::collectNotValid(std::vector<QoJsonMember>& members) const {
    members_.collectNotValid(members);
    if (clock_ != nullptr) clock_->collectNotValid(members);
}

// ---- QoAddress ----

QoAddress::QoAddress(JSONNODE* tree) : qoJsonObj(kAddressObj, tree), members_(value()) {}

bool QoAddress::getCountry(countryEnum* country) const { return get_enum(members_, "country", kCountryTexts, country); }

bool QoAddress::getLongitude(double* degrees) const { return get_double(members_, "longitude", degrees); }

bool QoAddress::getLatitude(double* degrees) const { return get_double(members_, "latitude", degrees); }

// ---- QoAlert, QoAlertCmd, QoAlerts ----

QoAlert::QoAlert(JSONNODE* node) : members_(node) {}

bool QoAlert::getAction(actionEnum* action) const { return get_enum(members_, "action", kActionTexts, action); }

bool QoAlert::getPriority(priorityEnum* priority) const {
    return get_enum(members_, "priority", kPriorityTexts, priority);
}

bool QoAlert::getClearedBy(clearedByEnum* cleared_by) const {
    return get_enum(members_, "clearedBy", kClearedByTexts, cleared_by);
}

bool QoAlert::getOptionalfieldType(optionalfieldTypeEnum* type) const {
    return get_enum(members_, "optionalfieldType", kOptionalfieldTypeTexts, type);
}

QoAlertCmd::QoAlertCmd(JSONNODE* node) : members_(node) {
    if (JSONNODE* alert = find_object(members_, "alert")) alert_ = std::make_unique<QoAlert>(alert);
}

bool QoAlertCmd::getAlert(QoAlert** alert) { return get_object(members_, "alert", alert_.get(), alert); }

QoAlerts::QoAlerts(JSONNODE* tree) : qoJsonObj(kAlertsObj, tree), members_(value()) {
    if (JSONNODE* command = find_object(members_, "alertCmd")) alert_cmd_ = std::make_unique<QoAlertCmd>(command);
}

bool QoAlerts::getAlertCmd(QoAlertCmd** alert_cmd) {
    return get_object(members_, "alertCmd", alert_cmd_.get(), alert_cmd);
}
