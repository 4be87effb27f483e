// Whole trees: snapshot, diff and defaults.
#include <filesystem>
#include <fstream>
#include <map>

#include "component.h"
#include "pushpullctl_run.h"
#include "qo_pushpull_json.h"

namespace {

using testing::HasSubstr;

class PushpullctlTrees : public RunningService {
protected:
    std::string file(const std::string& name) { return events().scratch() + name; }
    std::string written(const std::string& name, const std::string& text) {
        std::ofstream(file(name)) << text;
        return file(name);
    }
};

TEST_F(PushpullctlTrees, ASnapshotIsTheTree) {
    ASSERT_EQ(run_pushpullctl({"snapshot", file("a.json")}).status, 0);
    const PushpullctlResult same = run_pushpullctl({"diff", file("a.json"), "live"});
    EXPECT_EQ(same.status, 0);
    EXPECT_EQ(same.output, "");
    EXPECT_EQ(run_pushpullctl({"snapshot", "/nowhere/a.json"}).status, 1);
}

TEST_F(PushpullctlTrees, WhatChangedSinceIsShownByPointer) {
    ASSERT_EQ(run_pushpullctl({"snapshot", file("a.json")}).status, 0);
    ASSERT_EQ(run_pushpullctl({"set", "--string", "/version/schemaVersion", "9"}).status, 0);
    ASSERT_EQ(run_pushpullctl({"set", "/version/new", "1"}).status, 0);
    ASSERT_EQ(run_pushpullctl({"delete", "/error"}).status, 0);
    const PushpullctlResult changed = run_pushpullctl({"diff", file("a.json"), "live"});
    EXPECT_EQ(changed.status, 1);
    EXPECT_THAT(changed.output, HasSubstr("~ /version/schemaVersion: \"0.0\" -> \"9\"\n+ /version/new: 1\n"));
    EXPECT_THAT(changed.output, HasSubstr("- /error: [{"));
    const PushpullctlResult patch = run_pushpullctl({"diff", "--json", file("a.json"), "live"});
    EXPECT_THAT(patch.output, HasSubstr(R"({"op":"replace","path":"/version/schemaVersion","value":"9"})"));
    EXPECT_THAT(patch.output, HasSubstr(R"({"op":"remove","path":"/error"})"));
}

TEST_F(PushpullctlTrees, ARestoreBringsValuesMembersAndElementsBack) {
    ASSERT_EQ(run_pushpullctl({"set", "/version/mine", R"({"a":{"b":1},"c":"x"})"}).status, 0);
    ASSERT_EQ(run_pushpullctl({"set", "/devices/2/device/t", "5"}).status, 0);
    ASSERT_EQ(run_pushpullctl({"snapshot", file("a.json")}).status, 0);
    ASSERT_EQ(run_pushpullctl({"set", "--string", "/version/schemaVersion", "9"}).status, 0);
    ASSERT_EQ(run_pushpullctl({"set", "/version/surplus", "1"}).status, 0);
    for (const char* pointer : {"/version/mine", "/devices/2", "/error"})
        ASSERT_EQ(run_pushpullctl({"delete", pointer}).status, 0);
    const PushpullctlResult result = run_pushpullctl({"restore", file("a.json")});
    // What tells how /error is treated cannot be published.
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.output, "+ /error/0/doNotPersist: true\n") << result.messages;
    const PushpullctlResult left = run_pushpullctl({"diff", file("a.json"), "live"});
    EXPECT_EQ(left.output, "+ /version/surplus: 1\n- /error/0/doNotPersist: true\n");
    EXPECT_EQ(run_pushpullctl({"clear", "/error"}).status, 0);
    EXPECT_EQ(run_pushpullctl({"restore", "--exact", file("a.json")}).status, 0);
    EXPECT_EQ(run_pushpullctl({"diff", file("a.json"), "live"}).status, 0);
}

TEST_F(PushpullctlTrees, ARestoreGoesInPiecesThatFitInAMessage) {
    std::string large = R"({"version":{"large":{)";
    for (int i = 0; i < 400; ++i)
        large += (i == 0 ? "\"" : ",\"") + std::to_string(i) + R"(":")" + std::string(1000, 'x') + "\"";
    large += "}}}";
    const std::string wanted = written("large.json", large);
    EXPECT_EQ(run_pushpullctl({"restore", wanted}).status, 0);
    EXPECT_EQ(run_pushpullctl({"get", "--value", "/version/large/399"}).output, std::string(1000, 'x') + "\n");
}

TEST_F(PushpullctlTrees, WithExactAValueThatBecameAnObjectIsBroughtBack) {
    ASSERT_EQ(run_pushpullctl({"set", "/version/kind", "5"}).status, 0);
    ASSERT_EQ(run_pushpullctl({"snapshot", file("a.json")}).status, 0);
    ASSERT_EQ(run_pushpullctl({"set", "/version/kind", R"({"a":1})"}).status, 0);
    EXPECT_EQ(run_pushpullctl({"restore", file("a.json")}).status, 1);
    EXPECT_EQ(run_pushpullctl({"restore", "--exact", file("a.json")}).status, 0);
    EXPECT_EQ(run_pushpullctl({"restore", "live"}).status, 2);
}

TEST_F(PushpullctlTrees, TheFilesOfTheServiceAreComparedWithoutTheirSum) {
    ASSERT_EQ(run_pushpullctl({"save"}).status, 0);
    ASSERT_EQ(run_pushpullctl({"save"}).status, 0);
    const PushpullctlResult result = run_pushpullctl({"diff", "saved", "backup"});
    EXPECT_EQ(result.status, 0) << result.output << result.messages;
    EXPECT_THAT(run_pushpullctl({"diff", "defaults", "saved"}).output, testing::Not(HasSubstr("crc")));
}

TEST_F(PushpullctlTrees, TheDefaultsAreThoseThatTheServiceStartsWith) {
    const std::string defaults = written("defaults.json", run_pushpullctl({"defaults"}).output);
    EXPECT_EQ(run_pushpullctl({"diff", defaults, "live"}).status, 0);
    EXPECT_EQ(run_pushpullctl({"check-defaults", defaults}).status, 0);
}

/// Whether the service takes a new value there from a component of the class.
bool takes(const std::string& pointer, const char* component) {
    return run_pushpullctl({"set", "--as", component, pointer, "424242"}).status == 0;
}

TEST_F(PushpullctlTrees, WhoMayWriteIsWhoIsTaken) {
    const std::map<std::string, const char*> components = {{"local", "WEBSERVER_GATEWAY_C0"},
                                                           {"remote", "REMOTE_GATEWAY_DM"}};
    for (const char* pointer : {"/version/schemaVersion", "/system/config/name", "/system/status/new",
                                "/systemCommandRequest/new", "/logs/mapper", "/devices/0/device/status/new"}) {
        ASSERT_EQ(run_pushpullctl({"set", pointer, "1"}).status, 0) << pointer;
        const std::string told = run_pushpullctl({"explain", pointer}).output;
        for (const auto& [name, component] : components) {
            const bool may = told.find("\"" + name + "_may_write\":true") != std::string::npos;
            EXPECT_EQ(takes(pointer, component), may) << pointer << " " << name << " " << told;
            ASSERT_EQ(run_pushpullctl({"set", pointer, "1"}).status, 0);
        }
    }
}

TEST_F(PushpullctlTrees, APlaceIsExplained) {
    const PushpullctlResult result = run_pushpullctl({"explain", "/version/schemaVersion"});
    EXPECT_EQ(result.output, R"({"pointer":"/version/schemaVersion","type":"string","value":"0.0","default":"0.0",)"
                             R"("internal_may_write":true,"local_may_write":false,"remote_may_write":false,)"
                             R"("saved":true,"bytes":5})"
                             "\n");
    EXPECT_THAT(run_pushpullctl({"explain", "--color", "always", "/error"}).output,
                HasSubstr("saved               false\n"));
    EXPECT_EQ(run_pushpullctl({"explain", "/version/schemaVersion", "defaults"}).output, result.output);
    EXPECT_EQ(run_pushpullctl({"explain", "/nothing"}).status, 1);
}

TEST_F(PushpullctlTrees, TheLargestPartsComeFirst) {
    const PushpullctlResult result = run_pushpullctl({"tree", "--sizes"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, testing::StartsWith(R"({"pointer":"/","bytes":)"));
    EXPECT_THAT(result.output, HasSubstr("\n"
                                         R"({"pointer":"/system","bytes":)"));
}

TEST_F(PushpullctlTrees, OfABrokenFileLineAndColumnAreTold) {
    const std::string broken = written("broken.json", "{\n  \"a\": 1,\n  \"b\" 2\n}");
    const PushpullctlResult result = run_pushpullctl({"diff", broken, "defaults"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages, HasSubstr("line 3, column 7: Missing a colon after a name of object member."));
    const PushpullctlResult checked = run_pushpullctl({"check-defaults", broken});
    EXPECT_THAT(checked.output, HasSubstr("line 3, column 7"));
    EXPECT_THAT(run_pushpullctl({"publish", "{\"a\":[1,}"}).messages, HasSubstr("line 1, column 9"));
}

}  // namespace
