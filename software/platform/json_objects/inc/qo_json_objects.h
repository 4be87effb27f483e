/// Typed objects made from published JSON texts: what kind of object a text is, typed access to the members
/// that are checked, and the object written back as text.
///
/// What is a known object
/// - A text is a known object when it is one JSON object with exactly one member, the member's name is a
///   known kind, its value has the JSON type of that kind, and no object anywhere inside it has two members
///   of one name: nobody slips an unchecked object past a checker behind a checked one.
/// - `system`, `centerButton`, `command`, `fwm`, `logs`, `resetKivo`, `privateNode`, `parameterUpdate`,
///   `parameterReset`, `userAccess`, `serverAssigned`, `errorRecovery` and `address` hold an object,
///   `devices` and `interfaces` an array. The alert containers `alerts`, `alarms`, `errors` and `infoalerts`,
///   each an object, are all of the one kind kAlertsObj.
/// - The other top-level members of the data tree (`version`, `siblings`, `rgw`, ...) are known objects too,
///   of reserved kinds.
///
/// Getters
/// - A getter answers true when the member is present and has the member's JSON type, and then stores it
///   through its argument; a null argument asks for the presence alone, whatever the type. A member marked
///   not valid counts as absent. What a getter stores belongs to the object and lives as long as it.
/// - A present member that an enumeration getter cannot map, by its text or because it is no string, gives
///   the enumeration's error value and true, so that it is refused and not ignored. Matching is exact.
/// - A present `offset` or `dstOffset` that is no number, has a fraction or lies outside 32 bits gives INT_MIN
///   and true; a present `longitude` or `latitude` that is no number gives not-a-number and true. No limit
///   accepts either, so such a member is refused like a value out of range.
///
/// Threads: an object is used by one thread at a time; the factory by any.
#ifndef QO_JSON_OBJECTS_H
#define QO_JSON_OBJECTS_H

#include <memory>
#include <string>
#include <vector>

#include "qo_json.h"
#include "qo_json_obj_type.h"

/// A member with the object that it stands in.
struct QoJsonMember {
    JSONNODE* parent;
    JSONNODE* member;
};

/// What every known object is.
class qoJsonObj {
public:
    qoJsonObj(const qoJsonObj&) = delete;
    qoJsonObj& operator=(const qoJsonObj&) = delete;
    virtual ~qoJsonObj();

    std::string jsonWord;   ///< the name of the text's one member
    QoJsonObjType objType;  ///< which kind of object it is

    /// Replaces `json` by the object as compact text: every member in its order, numbers as they were
    /// written, but for the members marked not valid.
    void toJson(std::string& json);
    /// Addition: gives up the object's tree, less the members marked not valid. The caller owns it; the
    /// object is empty afterwards and only to be destroyed.
    JSONNODE* releaseTree();

protected:
    /// Takes over `tree`, an object with exactly one member.
    qoJsonObj(QoJsonObjType type, JSONNODE* tree);
    /// The value of the text's one member.
    JSONNODE* value() const;
    /// Adds the members marked not valid in this object and in its parts.
    virtual void collectNotValid(std::vector<QoJsonMember>& members) const;

private:
    JSONNODE* tree_;  // owned; null once released
};

/// The members of one JSON object inside a known object, and which of them are marked not valid.
class QoJsonMembers {
public:
    explicit QoJsonMembers(JSONNODE* node);
    /// The member of that name unless marked not valid; null when there is none.
    JSONNODE* find(const char* name) const;
    /// Marks the member of that name valid or not, whether it is present or not.
    void setValid(const char* name, bool valid);
    /// Adds the members that are present and marked not valid.
    void collectNotValid(std::vector<QoJsonMember>& members) const;

private:
    JSONNODE* node_;
    std::vector<std::string> not_valid_;
};

class QoSystemStatus {};
class QoSystemTime {};

class QoSystemClock {
public:
    enum tzEnum {
        kTzNonStandard = 0,  // "Non-Standard"
        kTzNST = 1,
        kTzAST = 2,
        kTzEST = 3,
        kTzCST = 4,
        kTzMST = 5,
        kTzPST = 6,
        kTzAKST = 7,
        kTzHAST = 8,
        kTzSST = 9,
        kTzChST = 10,
        kTzWAKT = 11,
        kTzError = 12
    };
    enum formatEnum { kFormat12hour = 0, kFormat24hour = 1, kFormatError = 2 };  // "12hour", "24hour"

    explicit QoSystemClock(JSONNODE* node);
    bool getSetRtcTime(std::string* text) const;
    bool getLocalSetRtcTime(std::string* text) const;
    void setSetRtcTimeValid(bool valid);
    void setLocalSetRtcTimeValid(bool valid);
    bool getOffset(int* seconds) const;
    bool getTz(tzEnum* tz) const;
    bool getDstOffset(int* seconds) const;
    bool getFormat(formatEnum* format) const;
    void collectNotValid(std::vector<QoJsonMember>& members) const;

private:
    QoJsonMembers members_;
};

/// `system`
class QoSystem : public qoJsonObj {
public:
    explicit QoSystem(JSONNODE* tree);
    bool getStatus(QoSystemStatus** status);
    bool getTime(QoSystemTime** time);
    bool getClock(QoSystemClock** clock);
    void setTimeValid(bool valid);

protected:
    void collectNotValid(std::vector<QoJsonMember>& members) const override;

private:
    QoJsonMembers members_;
    QoSystemStatus status_;
    QoSystemTime time_;
    std::unique_ptr<QoSystemClock> clock_;  // null when the system holds no clock object
};

/// `address`
class QoAddress : public qoJsonObj {
public:
    enum countryEnum { kCountryUS = 0, kCountryCA = 1, kCountryError = 2 };  // "US", "CA"

    explicit QoAddress(JSONNODE* tree);
    bool getCountry(countryEnum* country) const;
    bool getLongitude(double* degrees) const;
    bool getLatitude(double* degrees) const;

private:
    QoJsonMembers members_;
};

class QoAlert {
public:
    enum priorityEnum {
        kPriorityMinor = 0,  // "minor" and so on
        kPriorityModerate = 1,
        kPriorityCritical = 2,
        kPriorityWarning = 3,
        kPriorityInfo = 4,
        kPriorityError = 5
    };
    enum actionEnum { kActionSet = 0, kActionClear = 1, kActionError = 2 };  // "set", "clear"
    enum clearedByEnum {
        kClearedByActive = 0,     // "active"
        kClearedByHardReset = 1,  // "hardReset"
        kClearedBySoftReset = 2,  // "softReset"
        kClearedByUser = 3,
        kClearedByInstaller = 4,
        kClearedByOrvel = 5,
        kClearedBySpecial = 6,
        kClearedByDevice = 7,
        kClearedByError = 8
    };
    enum optionalfieldTypeEnum {
        kOptionalfieldTypeNull = 0,           // the text "null"
        kOptionalfieldTypeEquipmentType = 1,  // "equipmentType"
        kOptionalfieldTypeVoltage = 2,
        kOptionalfieldTypeTemperature = 3,
        kOptionalfieldTypeHumidity = 4,
        kOptionalfieldTypeError = 5
    };

    explicit QoAlert(JSONNODE* node);
    bool getAction(actionEnum* action) const;
    bool getPriority(priorityEnum* priority) const;
    bool getClearedBy(clearedByEnum* cleared_by) const;
    bool getOptionalfieldType(optionalfieldTypeEnum* type) const;

private:
    QoJsonMembers members_;
};

class QoAlertCmd {
public:
    explicit QoAlertCmd(JSONNODE* node);
    bool getAlert(QoAlert** alert);

private:
    QoJsonMembers members_;
    std::unique_ptr<QoAlert> alert_;  // null when the command holds no alert object
};

/// An alert container: `alerts`, `alarms`, `errors` or `infoalerts`
class QoAlerts : public qoJsonObj {
public:
    explicit QoAlerts(JSONNODE* tree);
    bool getAlertCmd(QoAlertCmd** alert_cmd);

private:
    QoJsonMembers members_;
    std::unique_ptr<QoAlertCmd> alert_cmd_;  // null when the container holds no alertCmd object
};

/// A known object without typed members.
template <QoJsonObjType kType>
class QoPlainObj : public qoJsonObj {
public:
    explicit QoPlainObj(JSONNODE* tree) : qoJsonObj(kType, tree) {}
};
using QoCenterButton = QoPlainObj<kCenterButtonObj>;
using QoCommand = QoPlainObj<kCommandObj>;
using QoDevicesWrapper = QoPlainObj<kDevicesWrapperObj>;
using QoFwm = QoPlainObj<kFwmObj>;
using QoInterfacesWrapper = QoPlainObj<kInterfacesWrapperObj>;
using QoLogs = QoPlainObj<kLogsObj>;
using QoResetKivo = QoPlainObj<kResetKivoObj>;
using QoPrivateNode = QoPlainObj<kPrivateNodeObj>;
using QoParameterUpdate = QoPlainObj<kParameterUpdateObj>;
using QoParameterReset = QoPlainObj<kParameterResetObj>;
using QoUserAccess = QoPlainObj<kUserAccessObj>;
using QoServerAssigned = QoPlainObj<kServerAssignedObj>;
using QoErrorRecovery = QoPlainObj<kErrorRecoveryObj>;

/// Makes typed objects. Without state.
class QoJsonObjFactory {
public:
    /// The object that the text is; null when it is no known object.
    std::shared_ptr<qoJsonObj> makeObj(const std::string& json) const;
    /// Addition: the same from a parsed text, which is taken over whatever the result.
    std::shared_ptr<qoJsonObj> makeObj(JSONNODE* tree) const;
};

#endif
