// Which subscriptions a published text concerns, found without a JSON library.
#include "qo_pushpull_client_text.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(TextReaches, TheNodeItselfAndWhatLiesBelowIt) {
    EXPECT_TRUE(qo_text_reaches(R"({"system":{"status":{"systemTemperature":78}}})", "/system/status"));
    EXPECT_TRUE(qo_text_reaches(R"({"system":{"status":{"systemTemperature":78}}})", "/system"));
    EXPECT_TRUE(qo_text_reaches(R"({"system":{"status":5}})", "/system/status"));
    EXPECT_TRUE(qo_text_reaches("{\n\t\"system\" :\r\n {  \"status\"\t: {} } }", "/system/status"));
}

TEST(TextReaches, NothingBesideOrBelowWhatWasPublished) {
    EXPECT_FALSE(qo_text_reaches(R"({"system":{"config":{"name":"x"}}})", "/system/status"));
    EXPECT_FALSE(qo_text_reaches(R"({"system":{}})", "/system/status"));
    EXPECT_FALSE(qo_text_reaches(R"({"system":5})", "/system/status"));
    EXPECT_FALSE(qo_text_reaches(R"({"systems":{"status":{}}})", "/system/status"));
}

TEST(TextReaches, MembersOfOtherObjectsAreNotTakenForTheNode) {
    EXPECT_FALSE(qo_text_reaches(R"({"fwm":{"system":{"status":1}}})", "/system/status"));
    EXPECT_FALSE(qo_text_reaches(R"({"system":{"config":{"status":1}}})", "/system/status"));
    EXPECT_FALSE(qo_text_reaches(R"({"system":{"config":{}},"fwm":{"status":1}})", "/system/status"));
    EXPECT_FALSE(qo_text_reaches(R"([{"system":{"status":1}}])", "/system/status"));
}

TEST(TextReaches, LaterMembersAndMembersOfTheSameName) {
    EXPECT_TRUE(qo_text_reaches(R"({"a":[1,{"b":{}}],"system":{"config":{"x":[]},"status":{}}})", "/system/status"));
    EXPECT_TRUE(qo_text_reaches(R"({"system":{"config":{}},"system":{"status":{}}})", "/system/status"));
}

TEST(TextReaches, ValuesAreNotTakenForNames) {
    EXPECT_FALSE(qo_text_reaches(R"({"system":"status"})", "/system/status"));
    EXPECT_FALSE(qo_text_reaches(R"({"system":["status",{"status":1}]})", "/fwm"));
    EXPECT_FALSE(qo_text_reaches(R"({"note":"{\"system\":{\"status\":1}}"})", "/system/status"));
}

TEST(TextReaches, WhatStandsBehindAnArrayIsTakenForReached) {
    EXPECT_TRUE(qo_text_reaches(R"({"devices":[{"id":3}]})", "/devices/3/device"));
    EXPECT_TRUE(qo_text_reaches(R"({"devices":[]})", "/devices"));
}

TEST(TextReaches, TheWholeTreeIsReachedByEverything) {
    EXPECT_TRUE(qo_text_reaches("{}", "/"));
    EXPECT_TRUE(qo_text_reaches("", "/"));
}

TEST(TextReaches, SlashesAtTheEndAndTwiceInARowAddNoName) {
    EXPECT_TRUE(qo_text_reaches(R"({"system":{"status":1}})", "/system//status/"));
}

TEST(TextReaches, ANameWithABackslashIsTakenForAnyName) {
    EXPECT_TRUE(qo_text_reaches(R"({"sys\u0074em":{"status":1}})", "/system/status"));
    EXPECT_FALSE(qo_text_reaches(R"({"sys\u0074em":{"config":1}})", "/system/status"));
}

TEST(TextReaches, EndsOnTextsThatAreNoJson) {
    for (const char* text : {"", "\"", "\"\\", "{\"system", "{\"system\"", "{\"system\":", "}}}]]]", "[[[[",
                             "{\"system\":{", "pushpull", "{]}[}\"system\":{\"status\":"})
        EXPECT_FALSE(qo_text_reaches(text, "/system/status")) << text;
}

// A walk that started anew for each opened object would take minutes.
TEST(TextReaches, TakesOneWalkHoweverDeepTheText) {
    std::string deep;
    for (int level = 0; level < 200000; ++level) deep += "{\"system\":[";
    EXPECT_TRUE(qo_text_reaches(deep, "/system/status"));
    EXPECT_FALSE(qo_text_reaches(deep, "/status"));
}

}  // namespace
