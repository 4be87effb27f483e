// Whether what was written was taken: publish --verify, set, get --value and save against the real service.
#include <filesystem>
#include <fstream>

#include "component.h"
#include "pushpullctl_run.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

std::string value(const std::string& pointer) { return run_pushpullctl({"get", "--value", pointer}).output; }

class PushpullctlVerify : public RunningService {};

TEST_F(PushpullctlVerify, WhatWasTakenEndsWith0AndSaysNothing) {
    const PushpullctlResult result = run_pushpullctl(
        {"publish", "--verify", R"({"version":{"schemaVersion":"7"},"devices":[{"id":2,"device":{"x":[{"id":0}]}}]})"});
    EXPECT_EQ(result.status, 0) << result.messages;
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.messages, "");
}

TEST_F(PushpullctlVerify, WhatTheClassMayNotWriteIsListed) {
    const PushpullctlResult result = run_pushpullctl(
        {"publish", "--verify", "--as", "WEBSERVER_GATEWAY_C0", R"({"version":{"schemaVersion":"7"},"ofNobody":1})"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, R"({"not_taken":"/version/schemaVersion","why":"is \"0.0\""})"
                             "\n"
                             R"({"not_taken":"/ofNobody","why":"is not there"})"
                             "\n");
    EXPECT_THAT(result.messages, HasSubstr("2 places not taken"));
}

TEST_F(PushpullctlVerify, AnElementWithoutAnIdAndWhatComesBehindItAreListed) {
    const PushpullctlResult result =
        run_pushpullctl({"publish", "--verify", R"({"devices":[{"x":1}],"version":{"schemaVersion":"7"}})"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr(R"({"not_taken":"/devices/?","why":"is not there"})"));
    EXPECT_THAT(result.output, HasSubstr(R"("/version/schemaVersion")"));
}

TEST_F(PushpullctlVerify, ANameThatNoPointerReachesIsSaidToBeUnknown) {
    const PushpullctlResult result = run_pushpullctl({"publish", "--verify", R"({"a/b":1})"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("cannot be read back"));
}

TEST_F(PushpullctlVerify, WhatIsLongerThanAMessageIsReadBackInParts) {
    const std::string text =
        R"({"version":{"a":")" + std::string(700, 'a') + R"(","b":")" + std::string(700, 'b') + "\"}}";
    EXPECT_EQ(run_pushpullctl({"publish", "--verify", "--message-size", "1024", text}).status, 0);
    const PushpullctlResult one = run_pushpullctl(
        {"publish", "--verify", "--message-size", "512", R"({"version":{"c":")" + std::string(700, 'c') + "\"}}"});
    EXPECT_EQ(one.status, 1);
    EXPECT_THAT(one.output, HasSubstr("longer than a message"));
}

// ---- set and get --value ----

class PushpullctlSet : public RunningService {};

TEST_F(PushpullctlSet, TakesAnyJsonValue) {
    for (const char* text : {"21.50", "true", "null", "-1", R"({"a":[]})"}) {
        const PushpullctlResult result = run_pushpullctl({"set", "/version/mine", text});
        EXPECT_EQ(result.status, 0) << text << result.messages;
        EXPECT_EQ(value("/version/mine"), std::string(text) + "\n");
        run_pushpullctl({"delete", "/version/mine"});
    }
    EXPECT_EQ(run_pushpullctl({"set", "/version/mine", "\"a \\\"b\\\"\""}).status, 0);
    EXPECT_EQ(value("/version/mine"), "a \"b\"\n");
}

TEST_F(PushpullctlSet, TakesATextAsItStands) {
    EXPECT_EQ(run_pushpullctl({"set", "--string", "/version/schemaVersion", "12"}).status, 0);
    EXPECT_THAT(run_pushpullctl({"get", "/version/schemaVersion"}).output, HasSubstr("\"12\""));
    const PushpullctlResult result = run_pushpullctl({"set", "/version/schemaVersion", "Shop"});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.messages, HasSubstr("for a text: --string"));
}

TEST_F(PushpullctlSet, ReachesElementsOfArraysByTheirPositions) {
    EXPECT_EQ(run_pushpullctl({"set", "/devices/3/device/x/y", "5"}).status, 0);
    EXPECT_EQ(value("/devices/3/device/x/y"), "5\n");
    EXPECT_EQ(value("/devices/3/id"), "3\n");
    // Digits that are a name.
    EXPECT_EQ(run_pushpullctl({"set", "/version/7/size", "1"}).status, 0);
    EXPECT_EQ(value("/version/7"), R"({"size":1})"
                                   "\n");
}

TEST_F(PushpullctlSet, SaysWhatWasNotTaken) {
    const PushpullctlResult result = run_pushpullctl({"set", "/version", "5"});
    EXPECT_EQ(result.status, 1) << "an object is not overwritten by a number";
    EXPECT_THAT(result.output, HasSubstr(R"({"not_taken":"/version","why":"is {)"));
    EXPECT_EQ(run_pushpullctl({"set", "--no-verify", "/version", "5"}).status, 0);
    EXPECT_EQ(run_pushpullctl({"set", "/", "5"}).status, 2);
}

TEST_F(PushpullctlSet, ValuesOfSeveralPointersComeInTheirOrder) {
    const PushpullctlResult result =
        run_pushpullctl({"get", "--value", "/version/schemaVersion", "/nothing", "/version"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, testing::StartsWith("0.0\n{"));
}

// ---- save ----

class PushpullctlSave : public RunningService {};

TEST_F(PushpullctlSave, EndsWith0WhenTheFileIsNew) {
    EXPECT_EQ(run_pushpullctl({"save"}).status, 0);
    EXPECT_EQ(run_pushpullctl({"save"}).status, 0) << "although nothing has changed";
    EXPECT_TRUE(std::filesystem::exists("/kivo/data/saved_tree.json"));
}

TEST_F(PushpullctlSave, EndsWith1WhenItIsNot) {
    std::filesystem::remove_all("/kivo/data");
    const PushpullctlResult result = run_pushpullctl({"save"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages, HasSubstr("is not new, as seen from here"));
    EXPECT_EQ(run_pushpullctl({"save", "--blind"}).status, 0);
}

}  // namespace
