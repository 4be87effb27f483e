// How JSON is shown.
#include "qo_ctl_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "qo_pushpull_json.h"

namespace {

constexpr QoCtlStyle kLines{false, false};
constexpr QoCtlStyle kFormatted{true, false};
constexpr QoCtlStyle kColoured{true, true};

std::string without_colours(std::string text) {
    for (size_t begin = text.find("\033["); begin != std::string::npos; begin = text.find("\033["))
        text.erase(begin, text.find('m', begin) + 1 - begin);
    return text;
}

TEST(Colours, AreForTerminalsThatObeyAndForPeopleWhoWantThem) {
    EXPECT_TRUE(qo_ctl_wants_colours("xterm", nullptr));
    EXPECT_TRUE(qo_ctl_wants_colours("xterm", ""));
    EXPECT_FALSE(qo_ctl_wants_colours("xterm", "1"));
    for (const char* kind : {"dumb", "", static_cast<const char*>(nullptr)}) {
        EXPECT_FALSE(qo_ctl_wants_colours(kind, nullptr));
        EXPECT_FALSE(qo_ctl_obeys_commands(kind));
    }
}

TEST(Rendering, ForAPipeEachTextIsOneLine) {
    EXPECT_EQ(qo_ctl_render_text("{\n\t\"a\": [1,\n2.50]\n}", kLines), "{\"a\":[1,2.50]}\n");
}

TEST(Rendering, ForATerminalItIsSpreadOverLines) {
    EXPECT_EQ(qo_ctl_render_text(R"({"a":[1]})", kFormatted), "{\n\t\"a\": [\n\t\t1\n\t]\n}\n");
}

TEST(Rendering, ColoursChangeNothingButColours) {
    for (const char* text : {R"({"a":[1,"x\ny",true,null,{}],"b\"":{"c":[],"d":-1e5},"":{"deep":[[["z"]]]}})", "[]",
                             "{}", R"("text")", "5"}) {
        const std::string coloured = qo_ctl_render_text(text, kColoured);
        EXPECT_EQ(without_colours(coloured), qo_ctl_render_text(text, kFormatted));
    }
    EXPECT_EQ(qo_ctl_render_text(R"({"a":"x"})", kColoured), "{\n\t\033[34m\"a\"\033[0m: \033[32m\"x\"\033[0m\n}\n");
}

TEST(Rendering, ATextThatIsNoJsonBecomesAJsonString) {
    EXPECT_EQ(qo_ctl_render_text("NODE DELETED: /a\"b", kLines), "\"NODE DELETED: /a\\\"b\"\n");
    EXPECT_EQ(qo_ctl_render_text("sync:5:hello", kLines), "\"sync:5:hello\"\n");
    EXPECT_EQ(json_is_valid(qo_ctl_render_text("\xff", kLines).c_str()), 1);
}

TEST(Rendering, TheDeepestTextThatCanBeReadIsWritten) {
    const std::string text = std::string(JSON_MAX_PARSE_DEPTH, '[') + std::string(JSON_MAX_PARSE_DEPTH, ']');
    EXPECT_EQ(without_colours(qo_ctl_render_text(text, kColoured)), qo_ctl_render_text(text, kFormatted));
}

TEST(Rendering, WhatATerminalWouldObeyIsEscapedForIt) {
    const std::string text = "{\"a\x7f\":\"\xC2\x9B\x32J\xC2\x80 \xC3\xA9\xC2\xB5\\u001b\"}";
    EXPECT_EQ(qo_ctl_render_text(text, kFormatted),
              "{\n\t\"a\\u007f\": \"\\u009b2J\\u0080 \xC3\xA9\xC2\xB5\\u001B\"\n}\n");
    EXPECT_EQ(without_colours(qo_ctl_render_text(text, kColoured)), qo_ctl_render_text(text, kFormatted));
    EXPECT_TRUE(json_equal(qo_json_parse(qo_ctl_render_text(text, kFormatted)).get(), qo_json_parse(text).get()));
    EXPECT_EQ(qo_ctl_render_text(text, kLines), "{\"a\\u007f\":\"\\u009b2J\\u0080 \xC3\xA9\xC2\xB5\\u001B\"}\n")
        << "what is piped ends on a terminal often enough";
}

TEST(Rendering, WhatTurnsTheDirectionOfWritingIsEscaped) {
    const std::string text =
        "[\"\xD8\x9C \xE2\x80\x8E\xE2\x80\x8F \xE2\x80\xAA\xE2\x80\xAE \xE2\x81\xA6\xE2\x81\xA9\"]";
    const std::string escaped = R"("\u061c \u200e\u200f \u202a\u202e \u2066\u2069")";
    EXPECT_EQ(qo_ctl_render_text(text, kLines), "[" + escaped + "]\n");
    EXPECT_EQ(qo_ctl_render_text(text, kFormatted), "[\n\t" + escaped + "\n]\n");
    EXPECT_TRUE(json_equal(qo_json_parse(qo_ctl_render_text(text, kLines)).get(), qo_json_parse(text).get()));
}

TEST(Writing, AClosedReaderIsToldByErrno) {
    signal(SIGPIPE, SIG_IGN);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_TRUE(qo_ctl_write(ends[1], "hello"));
    close(ends[0]);
    EXPECT_FALSE(qo_ctl_write(ends[1], "hello"));
    EXPECT_EQ(errno, EPIPE);
    close(ends[1]);
}

TEST(Counting, OneOfAThingHasNoPluralS) {
    EXPECT_EQ(qo_ctl_count(1, "request"), "1 request");
    EXPECT_EQ(qo_ctl_count(0, "request"), "0 requests");
    EXPECT_EQ(qo_ctl_count(2, "request"), "2 requests");
}

}  // namespace
