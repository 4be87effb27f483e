/// The check that a client's published text passes before it is merged: only known objects get through, and
/// some of their members have limits.
#ifndef QO_JSON_OBJECT_CHECKER_H
#define QO_JSON_OBJECT_CHECKER_H

#include <memory>
#include <string>

#include "qo_json_objects.h"

/// How strictly a publisher is checked.
enum QoJsonCheckMode {
    jsonCheckNormal = 0,
    jsonCheckStrict = 1,  // the publisher may not set the system's time
};

enum QoJsonObjectCheckResult {
    jsonObjectAcceptable = 0,
    jsonObjectAcceptableModified = 1,  // acceptable once members were left out of the text
    jsonObjectNotAcceptable = 2,
};

/// Checks of one kind of object; this base accepts everything. Stateless; any thread.
class QoJsonObjectChecker {
public:
    /// Marks members not valid that the publisher may not set.
    virtual QoJsonObjectCheckResult checkPresence(std::shared_ptr<qoJsonObj> object, QoJsonCheckMode mode) const;
    virtual QoJsonObjectCheckResult checkRules(std::shared_ptr<qoJsonObj> object, QoJsonCheckMode mode) const;
    virtual QoJsonObjectCheckResult checkLimits(std::shared_ptr<qoJsonObj> object, QoJsonCheckMode mode) const;
    /// Replaces `json` by the object's text.
    virtual void toString(std::shared_ptr<qoJsonObj> object, std::string& json) const = 0;
    virtual ~QoJsonObjectChecker() = default;
};

/// Writes objects of the library class `T`; checks nothing.
template <typename T>
class QoJsonObjectCheckerDefault : public QoJsonObjectChecker {
public:
    void toString(std::shared_ptr<qoJsonObj> object, std::string& json) const override {
        std::static_pointer_cast<T>(object)->toJson(json);
    }
};

class QoJsonObjectCheckerSystem : public QoJsonObjectCheckerDefault<QoSystem> {
public:
    QoJsonObjectCheckResult checkPresence(std::shared_ptr<qoJsonObj> object, QoJsonCheckMode mode) const override;
    QoJsonObjectCheckResult checkLimits(std::shared_ptr<qoJsonObj> object, QoJsonCheckMode mode) const override;
};

class QoJsonObjectCheckerAddress : public QoJsonObjectCheckerDefault<QoAddress> {
public:
    QoJsonObjectCheckResult checkLimits(std::shared_ptr<qoJsonObj> object, QoJsonCheckMode mode) const override;
};

class QoJsonObjectCheckerAlerts : public QoJsonObjectCheckerDefault<QoAlerts> {
public:
    QoJsonObjectCheckResult checkLimits(std::shared_ptr<qoJsonObj> object, QoJsonCheckMode mode) const override;
};

/// Checks a published text. On any result but jsonObjectNotAcceptable `json` is replaced by the checked
/// object's own text; else it is left as it was. Refused limits are logged at LOG_ERR. Any thread.
QoJsonObjectCheckResult qoCheckJson(std::string& json, QoJsonCheckMode mode);

/// The same for a text that is parsed already, so that a publish is parsed once. On any result but
/// jsonObjectNotAcceptable `tree`, owned by the caller before and after, is replaced by the checked
/// object's tree; else it is deleted and set to null.
QoJsonObjectCheckResult qoCheckJson(JSONNODE*& tree, QoJsonCheckMode mode);

#endif
