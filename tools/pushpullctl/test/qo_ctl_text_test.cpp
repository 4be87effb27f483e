// Received texts, answers and pointers.
#include "qo_ctl_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qo_ctl_harmless.h"
#include "qo_pushpull_json.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(ReceivedText, AnAnswerLosesItsSenderIdAndOnlyThat) {
    const QoCtlReceived received = qo_ctl_received(R"(sender_id:ctl-7-1;{"a":"x;y"})");
    EXPECT_EQ(received.sender_id, "ctl-7-1");
    EXPECT_EQ(received.body, R"({"a":"x;y"})");
}

TEST(ReceivedText, AnEmptySenderIdIsOne) { EXPECT_EQ(qo_ctl_received("sender_id:;{}").sender_id, ""); }

TEST(ReceivedText, AnythingElseIsNoAnswer) {
    for (const char* text : {"", R"({"a":1})", "exit", "NODE DELETED: /a", "sync:5:sender_id:1;x", "sender_id:7"}) {
        const QoCtlReceived received = qo_ctl_received(text);
        EXPECT_EQ(received.sender_id, std::nullopt) << text;
        EXPECT_EQ(received.body, text);
    }
}

TEST(Answer, ANodeIsJson) {
    EXPECT_EQ(qo_ctl_answer("/a", R"({"a":1})").kind, QoCtlAnswerKind::json);
    EXPECT_EQ(qo_ctl_answer("/a", "").kind, QoCtlAnswerKind::json);
    EXPECT_EQ(qo_ctl_answer("/a", "/ab:{}").kind, QoCtlAnswerKind::json);
    EXPECT_EQ(qo_ctl_answer("/a", "/a").kind, QoCtlAnswerKind::json);
}

TEST(Answer, AMissingNodeIsThePointerWithAnEmptyObject) {
    EXPECT_EQ(qo_ctl_answer("/x", "/x:{}").kind, QoCtlAnswerKind::missing);
    EXPECT_EQ(qo_ctl_answer("/a:b", "/a:b:{}").kind, QoCtlAnswerKind::missing);
}

TEST(Answer, ASizeIsThePointerWithANumber) {
    EXPECT_EQ(qo_ctl_answer("/devices/size", "/devices/size:16").kind, QoCtlAnswerKind::size);
    EXPECT_EQ(qo_ctl_answer("/devices/size", "/devices/size:16").size, 16);
    EXPECT_EQ(qo_ctl_answer("/size", "/size:-1").size, -1);
    EXPECT_EQ(qo_ctl_answer("/size", "/size:1x").kind, QoCtlAnswerKind::json);
}

TEST(Pointer, SegmentsAreTheTextsBetweenSlashesWithoutTheEmptyOnes) {
    EXPECT_THAT(qo_ctl_segments("/a//b/"), ElementsAre("a", "b"));
    EXPECT_THAT(qo_ctl_segments("/"), IsEmpty());
    EXPECT_THAT(qo_ctl_segments("///"), IsEmpty());
    EXPECT_THAT(qo_ctl_segments("/a~1b"), ElementsAre("a~1b"));
}

TEST(Pointer, WhatCannotBeSentIsTold) {
    EXPECT_EQ(qo_ctl_pointer_fault("/system/config"), "");
    EXPECT_EQ(qo_ctl_pointer_fault("/"), "");
    EXPECT_NE(qo_ctl_pointer_fault(""), "");
    EXPECT_NE(qo_ctl_pointer_fault("system"), "");
    EXPECT_NE(qo_ctl_pointer_fault("/a;/b"), "");
    EXPECT_NE(qo_ctl_pointer_fault("/\xff"), "");
}

TEST(Addressed, TheNodeIsFoundAndAnArrayHoldsTheAskedElementOnly) {
    const QoJsonNode answer = qo_json_parse(R"({"zones":[{"id":7,"temp":5}],"a":{"b":true}})");
    bool passes_array = true;
    EXPECT_EQ(qo_json_string(qo_ctl_addressed(answer.get(), "/a/b", &passes_array)), "true");
    EXPECT_FALSE(passes_array);
    EXPECT_EQ(json_as_int(qo_ctl_addressed(answer.get(), "/zones/7/temp", &passes_array)), 5);
    EXPECT_TRUE(passes_array);
    EXPECT_EQ(qo_ctl_addressed(answer.get(), "/zones/x", nullptr), nullptr);
    EXPECT_EQ(qo_ctl_addressed(answer.get(), "/a/c", nullptr), nullptr);
    EXPECT_EQ(qo_ctl_addressed(answer.get(), "/a/b/c", nullptr), nullptr);
    EXPECT_EQ(qo_ctl_addressed(nullptr, "/a", nullptr), nullptr);
}

TEST(Addressed, InAPackedAnswerElementsStandAtTheirPositions) {
    const QoJsonNode packed = qo_json_parse(R"({"zones":[{"id":0},{"id":1},{"id":2,"temp":5}]})");
    EXPECT_TRUE(qo_ctl_packed_holds(packed.get(), "/zones/2/temp"));
    EXPECT_TRUE(qo_ctl_packed_holds(packed.get(), "/zones/ +2x/temp"));
    EXPECT_FALSE(qo_ctl_packed_holds(packed.get(), "/zones/1/temp"));
    EXPECT_FALSE(qo_ctl_packed_holds(packed.get(), "/zones/3"));
    EXPECT_FALSE(qo_ctl_packed_holds(packed.get(), "/other"));
}

TEST(Harmless, IsATextWithoutControlCharacters) {
    EXPECT_EQ(qo_ctl_harmless("/plain caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"),
              "/plain caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80");
    EXPECT_EQ(qo_ctl_harmless(std::string("a\0b\t\n\x1b[2J\x7f", 10)), R"(a\u0000b\u0009\u000a\u001b[2J\u007f)");
    EXPECT_EQ(qo_ctl_harmless("\xC2\x80\xC2\x9B\xC2\x9F\xC2\xA0"), "\\u0080\\u009b\\u009f\xC2\xA0");
    EXPECT_EQ(qo_ctl_harmless("{\n\t\x1b", "\n\t"), "{\n\t\\u001b");
}

TEST(Harmless, IsATextThatNothingTurnsAround) {
    EXPECT_EQ(qo_ctl_harmless("\xD8\x9C\xE2\x80\x8E\xE2\x80\x8F"), R"(\u061c\u200e\u200f)");
    EXPECT_EQ(qo_ctl_harmless("\xE2\x80\xAA\xE2\x80\xAB\xE2\x80\xAC\xE2\x80\xAD\xE2\x80\xAE"),
              R"(\u202a\u202b\u202c\u202d\u202e)");
    EXPECT_EQ(qo_ctl_harmless("\xE2\x81\xA6\xE2\x81\xA7\xE2\x81\xA8\xE2\x81\xA9"), R"(\u2066\u2067\u2068\u2069)");
    const char* neighbours =
        "\xD8\x9B\xD8\x9D \xE2\x80\x8D\xE2\x80\x90 \xE2\x80\xA9\xE2\x80\xAF \xE2\x81\xA5\xE2\x81\xAA \xD7\x90";
    EXPECT_EQ(qo_ctl_harmless(neighbours), neighbours);
}

TEST(Harmless, IsATextWhoseBytesAreUtf8OrShown) {
    EXPECT_EQ(qo_ctl_harmless("\x9b\x32J"), R"(\x9b2J)");
    EXPECT_EQ(qo_ctl_harmless("\xff caf\xe9"), R"(\xff caf\xe9)");
    EXPECT_EQ(qo_ctl_harmless("\xC0\x9B"), R"(\xc0\x9b)") << "an overlong form";
    EXPECT_EQ(qo_ctl_harmless("\xE0\x82\x9B"), R"(\xe0\x82\x9b)") << "an overlong form";
    EXPECT_EQ(qo_ctl_harmless("\xED\xA0\x80"), R"(\xed\xa0\x80)") << "a surrogate";
    EXPECT_EQ(qo_ctl_harmless("\xF4\x90\x80\x80"), R"(\xf4\x90\x80\x80)") << "beyond the last character";
    EXPECT_EQ(qo_ctl_harmless("\xF0\x80\x82\x9B"), R"(\xf0\x80\x82\x9b)") << "an overlong form";
    EXPECT_EQ(qo_ctl_harmless("\xE2\x80"), R"(\xe2\x80)") << "cut short";
    EXPECT_EQ(qo_ctl_harmless("\xC2\xC2\x9B"), R"(\xc2\u009b)");
}

TEST(Placeholder, IsAnObjectWithNothingButItsId) {
    EXPECT_TRUE(qo_ctl_is_placeholder(qo_json_parse(R"({"id":2})").get()));
    EXPECT_FALSE(qo_ctl_is_placeholder(qo_json_parse(R"({"id":2,"temp":5})").get()));
    EXPECT_FALSE(qo_ctl_is_placeholder(qo_json_parse("{}").get()));
    EXPECT_FALSE(qo_ctl_is_placeholder(qo_json_parse("[2]").get()));
    EXPECT_FALSE(qo_ctl_is_placeholder(nullptr));
}

}  // namespace
