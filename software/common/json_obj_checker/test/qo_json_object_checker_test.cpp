// Which published objects the checker lets through, and what it gives back of them.
#include "qo_json_object_checker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "log_capture.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class CheckJson : public testing::Test {
protected:
    QoJsonObjectCheckResult check(const std::string& json, QoJsonCheckMode mode = jsonCheckNormal) {
        log_.clear();
        text_ = json;
        const QoJsonObjectCheckResult result = qoCheckJson(text_, mode);
        expect_same_from_tree(json, mode, result);
        return result;
    }

    QoLogCapture log_;
    std::string text_;

private:
    void expect_same_from_tree(const std::string& json, QoJsonCheckMode mode, QoJsonObjectCheckResult result) {
        const std::vector<QoLogLine> lines = log_.lines();
        log_.clear();
        JSONNODE* tree = json_parse_n(json.data(), json.size());
        EXPECT_EQ(qoCheckJson(tree, mode), result);
        EXPECT_EQ(log_.lines(), lines);
        EXPECT_EQ(tree == nullptr, result == jsonObjectNotAcceptable);
        char* text = json_write(tree);
        if (text != nullptr) EXPECT_EQ(text, text_);
        json_free(text);
        json_delete(tree);
    }
};

std::string clock_with(const std::string& members) { return "{\"system\":{\"clock\":{" + members + "}}}"; }

std::string address_with(const std::string& members) { return "{\"address\":{" + members + "}}"; }

std::string alert_with(const std::string& members) {
    return "{\"alarms\":{\"alertCmd\":{\"alert\":{" + members + "}}}}";
}

TEST_F(CheckJson, AcceptedTextIsReplacedByTheObjectsOwnText) {
    EXPECT_EQ(check("{ \"logs\" : { \"mapper\" : \"\\u0041\", \"n\":35.0 } }"), jsonObjectAcceptable);
    EXPECT_EQ(text_, R"({"logs":{"mapper":"A","n":35.0}})");
}

TEST_F(CheckJson, RefusedTextIsLeftAsItWas) {
    EXPECT_EQ(check("{ \"version\" : {} }"), jsonObjectNotAcceptable);
    EXPECT_EQ(text_, "{ \"version\" : {} }");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(CheckJson, TypeNotInTheRegistryIsRefused) {
    for (const char* text : {R"({"version":{"schemaVersion":"9"}})", R"({"siblings":[{"id":0}]})", R"({"rgw":{}})",
                             R"({"unheardOf":{}})", "[]", "{}", "{", ""})
        EXPECT_EQ(check(text), jsonObjectNotAcceptable) << text;
}

TEST_F(CheckJson, KindsWithoutChecksOfTheirOwnPass) {
    for (const char* text :
         {R"({"centerButton":{}})", R"({"command":{}})", R"({"devices":[]})", R"({"fwm":{}})", R"({"interfaces":[]})",
          R"({"logs":{}})", R"({"resetKivo":{}})", R"({"privateNode":{}})", R"({"parameterUpdate":{}})",
          R"({"parameterReset":{}})", R"({"userAccess":{}})", R"({"serverAssigned":{}})", R"({"errorRecovery":{}})"}) {
        EXPECT_EQ(check(text), jsonObjectAcceptable) << text;
        EXPECT_EQ(text_, text);
    }
}

TEST_F(CheckJson, NobodySlipsAnObjectPastBehindAnother) {
    EXPECT_EQ(check(R"({"logs":{},"system":{"clock":{"offset":999999}}})"), jsonObjectNotAcceptable);
}

TEST_F(CheckJson, DuplicateMemberCannotHideAValue) {
    EXPECT_EQ(check(clock_with(R"("offset":0,"offset":999999)")), jsonObjectNotAcceptable);
    EXPECT_EQ(check(R"({"system":{"clock":{},"clock":{"offset":999999}}})"), jsonObjectNotAcceptable);
    EXPECT_EQ(check(R"({"system":{"time":{},"time":{}}})", jsonCheckStrict), jsonObjectNotAcceptable);
}

TEST_F(CheckJson, OffsetOfADayPassesAndOneSecondMoreIsRefused) {
    EXPECT_EQ(check(clock_with("\"offset\":86400")), jsonObjectAcceptable);
    EXPECT_EQ(check(clock_with("\"offset\":-86400")), jsonObjectAcceptable);
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_EQ(check(clock_with("\"offset\":86401")), jsonObjectNotAcceptable);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "Invalid time offset 86401"}));
    EXPECT_EQ(check(clock_with("\"offset\":-86401")), jsonObjectNotAcceptable);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "Invalid time offset -86401"}));
}

TEST_F(CheckJson, OffsetThatIsNoWholeNumberIsRefused) {
    for (const char* value : {"\"3600\"", "0.5", "null", "{}", "99999999999"}) {
        EXPECT_EQ(check(clock_with(std::string("\"offset\":") + value)), jsonObjectNotAcceptable) << value;
        EXPECT_EQ(check(clock_with(std::string("\"dstOffset\":") + value)), jsonObjectNotAcceptable) << value;
    }
}

TEST_F(CheckJson, DstOffsetIsZeroOrOneHour) {
    EXPECT_EQ(check(clock_with("\"dstOffset\":3600")), jsonObjectAcceptable);
    EXPECT_EQ(check(clock_with("\"dstOffset\":0")), jsonObjectAcceptable);
    EXPECT_EQ(check(clock_with("\"dstOffset\":1800")), jsonObjectNotAcceptable);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "Invalid DST offset 1800"}));
}

TEST_F(CheckJson, EveryClockLimitIsTestedAndLogged) {
    EXPECT_EQ(check(clock_with(R"("offset":90000,"tz":"XYZ","dstOffset":1,"format":"13hour")")),
              jsonObjectNotAcceptable);
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_ERR, "Invalid time offset 90000"},
                            QoLogLine{LOG_ERR, "Invalid time zone name (empty)"},
                            QoLogLine{LOG_ERR, "Invalid DST offset 1"}, QoLogLine{LOG_ERR, "Invalid clock format"}));
}

TEST_F(CheckJson, StrictPublisherCannotSetTheTime) {
    const std::string text = R"({"system":{"time":{"currentTime":"x"},"status":{"door":"open"}}})";
    EXPECT_EQ(check(text, jsonCheckStrict), jsonObjectAcceptableModified);
    EXPECT_EQ(text_, R"({"system":{"status":{"door":"open"}}})");
    EXPECT_EQ(check(text, jsonCheckNormal), jsonObjectAcceptable);
    EXPECT_EQ(text_, text);
}

TEST_F(CheckJson, StrictPublisherCannotSetTheRealTimeClock) {
    EXPECT_EQ(check(clock_with(R"("setRtcTime":"x","tz":"NST")"), jsonCheckStrict), jsonObjectAcceptableModified);
    EXPECT_EQ(text_, clock_with(R"("tz":"NST")"));
    EXPECT_EQ(check(clock_with(R"("localSetRtcTime":"x","tz":"NST")"), jsonCheckStrict), jsonObjectAcceptableModified);
    EXPECT_EQ(text_, clock_with(R"("tz":"NST")"));
    EXPECT_EQ(check(clock_with(R"("setRtcTime":"x","localSetRtcTime":"y","tz":"NST")"), jsonCheckStrict),
              jsonObjectAcceptableModified);
    EXPECT_EQ(text_, clock_with(R"("tz":"NST")"));
    EXPECT_EQ(check(clock_with(R"("tz":"NST")"), jsonCheckStrict), jsonObjectAcceptable);
}

TEST_F(CheckJson, StrictPublisherIsToldOfWhateverWasLeftOutWhateverItsType) {
    for (const char* members :
         {R"("time":"now")", R"("clock":{"setRtcTime":5})", R"("clock":{"localSetRtcTime":{}})"}) {
        EXPECT_EQ(check("{\"system\":{" + std::string(members) + "}}", jsonCheckStrict), jsonObjectAcceptableModified)
            << members;
    }
    EXPECT_EQ(check(R"({"system":{"time":"now","clock":{"setRtcTime":5,"localSetRtcTime":{}}}})", jsonCheckStrict),
              jsonObjectAcceptableModified);
    EXPECT_EQ(text_, R"({"system":{"clock":{}}})");
}

TEST_F(CheckJson, LimitsRefuseEvenWhatPresenceModified) {
    EXPECT_EQ(check(clock_with(R"("setRtcTime":"x","offset":90000)"), jsonCheckStrict), jsonObjectNotAcceptable);
}

TEST_F(CheckJson, AddressBoundsThemselvesPass) {
    EXPECT_EQ(check(address_with(R"("latitude":90.0,"longitude":180.0,"country":"US")")), jsonObjectAcceptable);
    EXPECT_EQ(check(address_with(R"("latitude":-90,"longitude":-180,"country":"CA")")), jsonObjectAcceptable);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(CheckJson, AddressBeyondTheBoundsIsRefused) {
    EXPECT_EQ(check(address_with("\"latitude\":90.5")), jsonObjectNotAcceptable);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "Invalid address latitude"}));
    EXPECT_EQ(check(address_with("\"longitude\":-180.00001")), jsonObjectNotAcceptable);
}

TEST_F(CheckJson, NotANumberLongitudeIsRefused) {
    EXPECT_EQ(check(address_with(R"("longitude":"12","latitude":null,"country":"DE")")), jsonObjectNotAcceptable);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_ERR, "Invalid address country"},
                                          QoLogLine{LOG_ERR, "Invalid address longitude"},
                                          QoLogLine{LOG_ERR, "Invalid address latitude"}));
}

TEST_F(CheckJson, UnknownTextsOfTheCommandedAlertAreRefused) {
    EXPECT_EQ(check(alert_with(R"("priority":"urgent","action":"x","clearedBy":"y","optionalfieldType":"z")")),
              jsonObjectNotAcceptable);
    EXPECT_THAT(log_.lines(),
                ElementsAre(QoLogLine{LOG_ERR, "Invalid alert action"}, QoLogLine{LOG_ERR, "Invalid alert priority"},
                            QoLogLine{LOG_ERR, "Invalid alert clearedBy"},
                            QoLogLine{LOG_ERR, "Invalid alert optionanalfieldType"}));
    EXPECT_EQ(
        check(alert_with(R"("priority":"minor","action":"clear","clearedBy":"device","optionalfieldType":"null")")),
        jsonObjectAcceptable);
    EXPECT_EQ(check(alert_with("\"priority\":5")), jsonObjectNotAcceptable);
}

TEST_F(CheckJson, AlertsInsideActiveAreNotChecked) {
    EXPECT_EQ(check(R"({"alarms":{"active":[{"id":0,"alert":{"priority":"urgent"}}]}})"), jsonObjectAcceptable);
    EXPECT_EQ(check(R"({"alarms":{"alertCmd":{}}})"), jsonObjectAcceptable);
}

}  // namespace
