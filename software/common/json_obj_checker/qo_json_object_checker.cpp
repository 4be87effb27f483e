// The checks of published objects, and the table that finds the one for a text.
#include "qo_json_object_checker.h"

#include <syslog.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

namespace {

constexpr int kSecondsOfDay = 86400;     // largest offset from UTC, either way
constexpr int kSecondsOfHour = 3600;     // the one daylight saving offset but 0
constexpr double kMaxLongitude = 180.0;  // degrees, either way
constexpr double kMaxLatitude = 90.0;    // degrees, either way

struct ObjectCheck {
    QoJsonObjType objType;
    const QoJsonObjectChecker* objChecker;
};

const QoJsonObjFactory qoJsonCheckObjectFactory;

const QoJsonObjectCheckerAddress address_checker;
const QoJsonObjectCheckerAlerts alerts_checker;
const QoJsonObjectCheckerDefault<QoCenterButton> center_button_checker;
const QoJsonObjectCheckerDefault<QoCommand> command_checker;
const QoJsonObjectCheckerDefault<QoDevicesWrapper> devices_checker;
const QoJsonObjectCheckerDefault<QoFwm> fwm_checker;
const QoJsonObjectCheckerDefault<QoInterfacesWrapper> interfaces_checker;
const QoJsonObjectCheckerDefault<QoLogs> logs_checker;
const QoJsonObjectCheckerDefault<QoResetKivo> reset_checker;
const QoJsonObjectCheckerSystem system_checker;
const QoJsonObjectCheckerDefault<QoPrivateNode> private_node_checker;
const QoJsonObjectCheckerDefault<QoParameterUpdate> parameter_update_checker;
const QoJsonObjectCheckerDefault<QoParameterReset> parameter_reset_checker;
const QoJsonObjectCheckerDefault<QoUserAccess> user_access_checker;
const QoJsonObjectCheckerDefault<QoServerAssigned> server_assigned_checker;
const QoJsonObjectCheckerDefault<QoErrorRecovery> error_recovery_checker;

constexpr ObjectCheck qoJsonObjectChecks[] = {
    {kAddressObj, &address_checker},
    {kAlertsObj, &alerts_checker},
    {kCenterButtonObj, &center_button_checker},
    {kCommandObj, &command_checker},
    {kDevicesWrapperObj, &devices_checker},
    {kFwmObj, &fwm_checker},
    {kInterfacesWrapperObj, &interfaces_checker},
    {kLogsObj, &logs_checker},
    {kResetKivoObj, &reset_checker},
    {kSystemObj, &system_checker},
    {kPrivateNodeObj, &private_node_checker},
    {kParameterUpdateObj, &parameter_update_checker},
    {kParameterResetObj, &parameter_reset_checker},
    {kUserAccessObj, &user_access_checker},
    {kServerAssignedObj, &server_assigned_checker},
    {kErrorRecoveryObj, &error_recovery_checker},
};

/// Null when objects of that kind are not to be published by clients.
const QoJsonObjectChecker* find_checker(QoJsonObjType type) {
    const ObjectCheck* check = std::find_if(std::begin(qoJsonObjectChecks), std::end(qoJsonObjectChecks),
                                            [type](const ObjectCheck& entry) { return entry.objType == type; });
    return check == std::end(qoJsonObjectChecks) ? nullptr : check->objChecker;
}

/// The presence check alone leaves members out, so its result is that of the whole; the others only refuse.
QoJsonObjectCheckResult check_object(const QoJsonObjectChecker& checker, const std::shared_ptr<qoJsonObj>& object,
                                     QoJsonCheckMode mode) {
    const QoJsonObjectCheckResult presence = checker.checkPresence(object, mode);
    if (presence == jsonObjectNotAcceptable) return jsonObjectNotAcceptable;
    if (checker.checkRules(object, mode) == jsonObjectNotAcceptable) return jsonObjectNotAcceptable;
    if (checker.checkLimits(object, mode) == jsonObjectNotAcceptable) return jsonObjectNotAcceptable;
    return presence;
}

bool beyond(double value, double limit) { return std::isnan(value) || value < -limit || value > limit; }

}  // namespace

QoJsonObjectCheckResult QoJsonObjectChecker::checkPresence(std::shared_ptr<qoJsonObj>, QoJsonCheckMode) const {
    return jsonObjectAcceptable;
}

QoJsonObjectCheckResult QoJsonObjectChecker::checkRules(std::shared_ptr<qoJsonObj>, QoJsonCheckMode) const {
    return jsonObjectAcceptable;
}

QoJsonObjectCheckResult QoJsonObjectChecker::checkLimits(std::shared_ptr<qoJsonObj>, QoJsonCheckMode) const {
    return jsonObjectAcceptable;
}

QoJsonObjectCheckResult QoJsonObjectCheckerSystem::checkPresence(std::shared_ptr<qoJsonObj> object,
                                                                 QoJsonCheckMode mode) const {
    const auto system = std::static_pointer_cast<QoSystem>(object);
    QoSystemStatus* status = nullptr;
    system->getStatus(&status);
    if (mode == jsonCheckNormal) return jsonObjectAcceptable;

    // Asked for by their presence: a member of another type is left out too, which the log has to tell.
    bool modified = system->getTime(nullptr);
    system->setTimeValid(false);
    QoSystemClock* clock = nullptr;
    if (system->getClock(&clock)) {
        if (clock->getSetRtcTime(nullptr) || clock->getLocalSetRtcTime(nullptr)) modified = true;
        clock->setLocalSetRtcTimeValid(false);
        clock->setSetRtcTimeValid(false);
    }
    return modified ? jsonObjectAcceptableModified : jsonObjectAcceptable;
}

QoJsonObjectCheckResult QoJsonObjectCheckerSystem::checkLimits(std::shared_ptr<qoJsonObj> object,
                                                               QoJsonCheckMode) const {
    QoSystemClock* clock = nullptr;
    if (!std::static_pointer_cast<QoSystem>(object)->getClock(&clock)) return jsonObjectAcceptable;

    QoJsonObjectCheckResult result = jsonObjectAcceptable;
    int offset = 0;
    if (clock->getOffset(&offset) && (offset < -kSecondsOfDay || offset > kSecondsOfDay)) {
        syslog(LOG_ERR, "Invalid time offset %d", offset);
        result = jsonObjectNotAcceptable;
    }
    QoSystemClock::tzEnum tz = QoSystemClock::kTzError;
    if (clock->getTz(&tz) && tz == QoSystemClock::kTzError) {
        // The text is not shown, and may well not be empty; the line has always read like this.
        syslog(LOG_ERR, "Invalid time zone name (empty)");
        result = jsonObjectNotAcceptable;
    }
    int dst_offset = 0;
    if (clock->getDstOffset(&dst_offset) && dst_offset != 0 && dst_offset != kSecondsOfHour) {
        syslog(LOG_ERR, "Invalid DST offset %d", dst_offset);
        result = jsonObjectNotAcceptable;
    }
    QoSystemClock::formatEnum format = QoSystemClock::kFormatError;
    if (clock->getFormat(&format) && format == QoSystemClock::kFormatError) {
        syslog(LOG_ERR, "Invalid clock format");
        result = jsonObjectNotAcceptable;
    }
    return result;
}

QoJsonObjectCheckResult QoJsonObjectCheckerAddress::checkLimits(std::shared_ptr<qoJsonObj> object,
                                                                QoJsonCheckMode) const {
    const auto address = std::static_pointer_cast<QoAddress>(object);
    QoJsonObjectCheckResult result = jsonObjectAcceptable;
    QoAddress::countryEnum country = QoAddress::kCountryError;
    if (address->getCountry(&country) && country == QoAddress::kCountryError) {
        syslog(LOG_ERR, "Invalid address country");
        result = jsonObjectNotAcceptable;
    }
    double longitude = 0.0;
    if (address->getLongitude(&longitude) && beyond(longitude, kMaxLongitude)) {
        syslog(LOG_ERR, "Invalid address longitude");
        result = jsonObjectNotAcceptable;
    }
    double latitude = 0.0;
    if (address->getLatitude(&latitude) && beyond(latitude, kMaxLatitude)) {
        syslog(LOG_ERR, "Invalid address latitude");
        result = jsonObjectNotAcceptable;
    }
    return result;
}

QoJsonObjectCheckResult QoJsonObjectCheckerAlerts::checkLimits(std::shared_ptr<qoJsonObj> object,
                                                               QoJsonCheckMode) const {
    QoAlertCmd* command = nullptr;
    QoAlert* alert = nullptr;
    if (!std::static_pointer_cast<QoAlerts>(object)->getAlertCmd(&command) || !command->getAlert(&alert))
        return jsonObjectAcceptable;
    QoJsonObjectCheckResult result = jsonObjectAcceptable;
    QoAlert::actionEnum action = QoAlert::kActionError;
    if (alert->getAction(&action) && action == QoAlert::kActionError) {
        syslog(LOG_ERR, "Invalid alert action");
        result = jsonObjectNotAcceptable;
    }
    QoAlert::priorityEnum priority = QoAlert::kPriorityError;
    if (alert->getPriority(&priority) && priority == QoAlert::kPriorityError) {
        syslog(LOG_ERR, "Invalid alert priority");
        result = jsonObjectNotAcceptable;
    }
    QoAlert::clearedByEnum cleared_by = QoAlert::kClearedByError;
    if (alert->getClearedBy(&cleared_by) && cleared_by == QoAlert::kClearedByError) {
        syslog(LOG_ERR, "Invalid alert clearedBy");
        result = jsonObjectNotAcceptable;
    }
    QoAlert::optionalfieldTypeEnum type = QoAlert::kOptionalfieldTypeError;
    if (alert->getOptionalfieldType(&type) && type == QoAlert::kOptionalfieldTypeError) {
        syslog(LOG_ERR, "Invalid alert optionanalfieldType");
        result = jsonObjectNotAcceptable;
    }
    return result;
}

QoJsonObjectCheckResult qoCheckJson(std::string& json, QoJsonCheckMode mode) {
    const std::shared_ptr<qoJsonObj> object = qoJsonCheckObjectFactory.makeObj(json);
    const QoJsonObjectChecker* checker = object ? find_checker(object->objType) : nullptr;
    if (checker == nullptr) return jsonObjectNotAcceptable;
    const QoJsonObjectCheckResult result = check_object(*checker, object, mode);
    if (result != jsonObjectNotAcceptable) {
        json.clear();
        checker->toString(object, json);
    }
    return result;
}

QoJsonObjectCheckResult qoCheckJson(JSONNODE*& tree, QoJsonCheckMode mode) {
    const std::shared_ptr<qoJsonObj> object = qoJsonCheckObjectFactory.makeObj(std::exchange(tree, nullptr));
    const QoJsonObjectChecker* checker = object ? find_checker(object->objType) : nullptr;
    if (checker == nullptr) return jsonObjectNotAcceptable;
    const QoJsonObjectCheckResult result = check_object(*checker, object, mode);
    if (result != jsonObjectNotAcceptable) tree = object->releaseTree();
    return result;
}
