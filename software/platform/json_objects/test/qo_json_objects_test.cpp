// What kind of object a text is, and what its getters and its text give.
#include "qo_json_objects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>

namespace {

std::shared_ptr<qoJsonObj> make(const std::string& json) { return QoJsonObjFactory().makeObj(json); }

template <typename T>
std::shared_ptr<T> make_as(const std::string& json) {
    return std::dynamic_pointer_cast<T>(make(json));
}

std::string text_of(const std::shared_ptr<qoJsonObj>& object) {
    std::string text = "old";
    object->toJson(text);
    return text;
}

struct Kind {
    std::string text;
    QoJsonObjType type;
};

class KnownKind : public testing::TestWithParam<Kind> {};

TEST_P(KnownKind, IsMadeAndWrittenBackAsItWas) {
    const auto object = make(GetParam().text);
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->objType, GetParam().type);
    EXPECT_EQ(text_of(object), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    All, KnownKind,
    testing::Values(Kind{R"({"system":{}})", kSystemObj}, Kind{R"({"centerButton":{"status":"x"}})", kCenterButtonObj},
                    Kind{R"({"command":{}})", kCommandObj}, Kind{R"({"devices":[{"id":0}]})", kDevicesWrapperObj},
                    Kind{R"({"fwm":{}})", kFwmObj}, Kind{R"({"interfaces":[]})", kInterfacesWrapperObj},
                    Kind{R"({"logs":{}})", kLogsObj}, Kind{R"({"resetKivo":{}})", kResetKivoObj},
                    Kind{R"({"privateNode":{}})", kPrivateNodeObj},
                    Kind{R"({"parameterUpdate":{}})", kParameterUpdateObj},
                    Kind{R"({"parameterReset":{}})", kParameterResetObj}, Kind{R"({"userAccess":{}})", kUserAccessObj},
                    Kind{R"({"serverAssigned":{}})", kServerAssignedObj},
                    Kind{R"({"errorRecovery":{}})", kErrorRecoveryObj}, Kind{R"({"address":{}})", kAddressObj},
                    Kind{R"({"alerts":{}})", kAlertsObj}, Kind{R"({"alarms":{}})", kAlertsObj},
                    Kind{R"({"errors":{}})", kAlertsObj}, Kind{R"({"infoalerts":{}})", kAlertsObj}));

TEST(KindNumbers, AreTheLibrarysBinaryContract) {
    EXPECT_EQ(kAlertObj, 0);
    EXPECT_EQ(kAlertsObj, 2);
    EXPECT_EQ(kCommandObj, 10);
    EXPECT_EQ(kDevicesWrapperObj, 23);
    EXPECT_EQ(kFwmObj, 25);
    EXPECT_EQ(kInterfacesWrapperObj, 52);
    EXPECT_EQ(kAddressObj, 56);
    EXPECT_EQ(kCenterButtonObj, 57);
    EXPECT_EQ(kLogsObj, 61);
    EXPECT_EQ(kResetKivoObj, 66);
    EXPECT_EQ(kPrivateNodeObj, 69);
    EXPECT_EQ(kParameterResetObj, 71);
    EXPECT_EQ(kParameterUpdateObj, 72);
    EXPECT_EQ(kSystemObj, 76);
    EXPECT_EQ(kUserAccessObj, 105);
    EXPECT_EQ(kServerAssignedObj, 124);
    EXPECT_EQ(kErrorRecoveryObj, 134);
    EXPECT_EQ(kObjError, 140);
}

class NoKnownObject : public testing::TestWithParam<std::string> {};

TEST_P(NoKnownObject, IsNotMade) { EXPECT_EQ(make(GetParam()), nullptr); }

INSTANTIATE_TEST_SUITE_P(All, NoKnownObject,
                         testing::Values("", "{", "{}", "[]", "1", R"("system")", "null", R"([{"system":{}}])",
                                         R"({"other":{}})", R"({"System":{}})", R"({"system":{},"version":{}})",
                                         R"({"system":[]})", R"({"system":1})", R"({"devices":{}})",
                                         R"({"system":{},"system":{}})",
                                         R"({"system":{"clock":{"offset":0},"clock":{"offset":999999}}})",
                                         R"({"system":{"clock":{"offset":0,"offset":999999}}})",
                                         R"({"devices":[{"id":0,"device":{"a":1,"a":2}}]})"));

TEST(KnownObject, DuplicateNameAmongManyMembersIsFound) {
    std::string members;
    for (int i = 0; i < 100; ++i) members += "\"m" + std::to_string(i) + "\":0,";
    EXPECT_NE(make("{\"system\":{" + members + "\"last\":0}}"), nullptr);
    EXPECT_EQ(make("{\"system\":{" + members + "\"m50\":0}}"), nullptr);
}

TEST(KnownObject, KeepsEveryMemberInOrderAndNumbersAsWritten) {
    const std::string text = R"({"system":{"z":35.0,"a":123456789012345678901234567890,"m":[1,{"id":0}],"n":null}})";
    EXPECT_EQ(text_of(make(text)), text);
}

TEST(KnownObject, OtherTopLevelMembersAreOfReservedKinds) {
    for (const char* word : {"version", "rgw", "usb", "dlm", "kivoLog"}) {
        const auto object = make(std::string("{\"") + word + "\":{}}");
        ASSERT_NE(object, nullptr) << word;
        EXPECT_EQ(object->jsonWord, word);
    }
    EXPECT_NE(make(R"({"siblings":[]})"), nullptr);
}

TEST(System, StatusTimeAndClockArePresentOnlyAsObjects) {
    const auto full = make_as<QoSystem>(R"({"system":{"status":{},"time":{},"clock":{}}})");
    const auto odd = make_as<QoSystem>(R"({"system":{"status":1,"time":"x","clock":[]}})");
    ASSERT_NE(full, nullptr);
    ASSERT_NE(odd, nullptr);
    QoSystemStatus* status = nullptr;
    QoSystemTime* time = nullptr;
    QoSystemClock* clock = nullptr;
    EXPECT_TRUE(full->getStatus(&status) && full->getTime(&time) && full->getClock(&clock));
    EXPECT_TRUE(status != nullptr && time != nullptr && clock != nullptr);
    EXPECT_TRUE(full->getStatus(nullptr) && full->getTime(nullptr) && full->getClock(nullptr));
    EXPECT_FALSE(odd->getStatus(&status) || odd->getTime(&time) || odd->getClock(&clock));
}

TEST(System, NullArgumentAsksForThePresenceWhateverTheType) {
    const auto odd = make_as<QoSystem>(R"({"system":{"status":1,"time":"x","clock":[]}})");
    const auto none = make_as<QoSystem>(R"({"system":{}})");
    const auto texts = make_as<QoSystem>(R"({"system":{"clock":{"setRtcTime":5}}})");
    ASSERT_TRUE(odd && none && texts);
    EXPECT_TRUE(odd->getStatus(nullptr) && odd->getTime(nullptr) && odd->getClock(nullptr));
    EXPECT_FALSE(none->getStatus(nullptr) || none->getTime(nullptr) || none->getClock(nullptr));
    QoSystemClock* clock = nullptr;
    ASSERT_TRUE(texts->getClock(&clock));
    EXPECT_TRUE(clock->getSetRtcTime(nullptr));
    EXPECT_FALSE(clock->getLocalSetRtcTime(nullptr));
    clock->setSetRtcTimeValid(false);
    EXPECT_FALSE(clock->getSetRtcTime(nullptr));
}

TEST(System, MembersMarkedNotValidAreLeftOutAndComeBackInTheirPlaces) {
    const std::string text =
        R"({"system":{"a":1,"time":{"t":1},"clock":{"setRtcTime":"x","tz":"NST","localSetRtcTime":"y"},"z":2}})";
    const auto system = make_as<QoSystem>(text);
    ASSERT_NE(system, nullptr);
    QoSystemClock* clock = nullptr;
    ASSERT_TRUE(system->getClock(&clock));
    system->setTimeValid(false);
    clock->setSetRtcTimeValid(false);
    clock->setLocalSetRtcTimeValid(false);
    EXPECT_EQ(text_of(system), R"({"system":{"a":1,"clock":{"tz":"NST"},"z":2}})");
    EXPECT_FALSE(system->getTime(nullptr));
    EXPECT_FALSE(clock->getSetRtcTime(nullptr));
    system->setTimeValid(true);
    clock->setSetRtcTimeValid(true);
    clock->setLocalSetRtcTimeValid(true);
    EXPECT_EQ(text_of(system), text);
}

TEST(System, ReleasedTreeLacksTheMembersMarkedNotValid) {
    const auto system = make_as<QoSystem>(R"({"system":{"time":{"t":1},"z":2}})");
    ASSERT_NE(system, nullptr);
    system->setTimeValid(false);
    JSONNODE* tree = system->releaseTree();
    char* text = json_write(tree);
    EXPECT_STREQ(text, R"({"system":{"z":2}})");
    json_free(text);
    json_delete(tree);
}

TEST(Clock, TextsAreReadOnlyFromStrings) {
    const auto system = make_as<QoSystem>(R"({"system":{"clock":{"setRtcTime":"12:00","localSetRtcTime":5}}})");
    QoSystemClock* clock = nullptr;
    ASSERT_TRUE(system && system->getClock(&clock));
    std::string text;
    EXPECT_TRUE(clock->getSetRtcTime(&text));
    EXPECT_EQ(text, "12:00");
    EXPECT_FALSE(clock->getLocalSetRtcTime(&text));
}

int offset_of(const std::string& value) {
    const auto system = make_as<QoSystem>("{\"system\":{\"clock\":{\"offset\":" + value + "}}}");
    QoSystemClock* clock = nullptr;
    int offset = 0;
    EXPECT_TRUE(system && system->getClock(&clock) && clock->getOffset(&offset));
    return offset;
}

TEST(Clock, OffsetIsAWholeNumberOfTheTypesRange) {
    EXPECT_EQ(offset_of("-21600"), -21600);
    EXPECT_EQ(offset_of("3600.0"), 3600);
    EXPECT_EQ(offset_of("36e2"), 3600);
}

TEST(Clock, OffsetOfWrongTypeOrOutOfRangeIsNeverWithinLimits) {
    for (const char* value : {"\"0\"", "true", "null", "{}", "[]", "0.5", "1e300", "99999999999", "4294967296"})
        EXPECT_EQ(offset_of(value), INT_MIN) << value;
}

TEST(Clock, EnumerationsMapExactTextsOnly) {
    const struct {
        const char* text;
        QoSystemClock::tzEnum value;
    } kCases[] = {{"\"Non-Standard\"", QoSystemClock::kTzNonStandard},
                  {"\"NST\"", QoSystemClock::kTzNST},
                  {"\"AST\"", QoSystemClock::kTzAST},
                  {"\"EST\"", QoSystemClock::kTzEST},
                  {"\"CST\"", QoSystemClock::kTzCST},
                  {"\"MST\"", QoSystemClock::kTzMST},
                  {"\"PST\"", QoSystemClock::kTzPST},
                  {"\"AKST\"", QoSystemClock::kTzAKST},
                  {"\"HAST\"", QoSystemClock::kTzHAST},
                  {"\"SST\"", QoSystemClock::kTzSST},
                  {"\"ChST\"", QoSystemClock::kTzChST},
                  {"\"WAKT\"", QoSystemClock::kTzWAKT},
                  {"\"nst\"", QoSystemClock::kTzError},
                  {"\"NST \"", QoSystemClock::kTzError},
                  {"\"NST\\u0000\"", QoSystemClock::kTzError},
                  {"\"\"", QoSystemClock::kTzError},
                  {"1", QoSystemClock::kTzError},
                  {"null", QoSystemClock::kTzError}};
    for (const auto& one : kCases) {
        const auto system = make_as<QoSystem>(std::string("{\"system\":{\"clock\":{\"tz\":") + one.text + "}}}");
        QoSystemClock* clock = nullptr;
        ASSERT_TRUE(system && system->getClock(&clock)) << one.text;
        QoSystemClock::tzEnum tz = QoSystemClock::kTzError;
        EXPECT_TRUE(clock->getTz(&tz)) << one.text;
        EXPECT_EQ(tz, one.value) << one.text;
        EXPECT_FALSE(clock->getFormat(nullptr)) << one.text;
    }
}

TEST(Address, PlaceOfWrongTypeIsNotANumber) {
    const auto address = make_as<QoAddress>(R"({"address":{"longitude":"12","latitude":-33.5,"country":"CA"}})");
    ASSERT_NE(address, nullptr);
    double longitude = 0.0;
    double latitude = 0.0;
    QoAddress::countryEnum country = QoAddress::kCountryError;
    EXPECT_TRUE(address->getLongitude(&longitude) && address->getLatitude(&latitude) && address->getCountry(&country));
    EXPECT_TRUE(std::isnan(longitude));
    EXPECT_EQ(latitude, -33.5);
    EXPECT_EQ(country, QoAddress::kCountryCA);
}

TEST(Alerts, CommandAndAlertArePresentOnlyAsObjects) {
    const auto alerts = make_as<QoAlerts>(R"({"alarms":{"alertCmd":{"alert":{"priority":"info","action":"set"}}}})");
    QoAlertCmd* command = nullptr;
    QoAlert* alert = nullptr;
    ASSERT_TRUE(alerts && alerts->getAlertCmd(&command) && command->getAlert(&alert));
    QoAlert::priorityEnum priority = QoAlert::kPriorityError;
    EXPECT_TRUE(alert->getPriority(&priority));
    EXPECT_EQ(priority, QoAlert::kPriorityInfo);
    EXPECT_FALSE(alert->getClearedBy(nullptr) || alert->getOptionalfieldType(nullptr));

    EXPECT_FALSE(make_as<QoAlerts>(R"({"alarms":{"alertCmd":[]}})")->getAlertCmd(&command));
    const auto empty = make_as<QoAlerts>(R"({"alarms":{"alertCmd":{"alert":3}}})");
    ASSERT_TRUE(empty->getAlertCmd(&command));
    EXPECT_FALSE(command->getAlert(&alert));
}

}  // namespace
