// Requests as the log has them, and what they are about.
#include "qo_ctl_request.h"

#include <gtest/gtest.h>

#include "qo_ctl_subject.h"
#include "qo_json.h"

namespace {

constexpr char kPublish[] =
    "{\n\t\"function\": \"publish\",\n\t\"arg\": {\n\t\t\"comp_id\": 1350,\n\t\t\"buffer\": "
    "\"{\\\"system\\\":{\\\"status\\\":{\\\"a\\\":1,\\\"name\\\":\\\"K\xc3\xa4se \\\\u0041\\\"}}}\"\n\t}\n}";

QoCtlRequest request(const std::string& kind, const std::string& buffer) {
    return {.whole = true, .kind = kind, .sender = static_cast<eQO_CMP_IDs_>(1350), .buffer = buffer};
}

TEST(Request, IsReadAsItWasSent) {
    const QoCtlRequest read = qo_ctl_read_request(kPublish);
    EXPECT_TRUE(read.whole);
    EXPECT_EQ(read.kind, "publish");
    EXPECT_EQ(read.sender, 1350);
    EXPECT_EQ(read.buffer, "{\"system\":{\"status\":{\"a\":1,\"name\":\"K\xc3\xa4se \\u0041\"}}}");
}

TEST(Request, IsReadWithItsLineFeedsEscaped) {
    std::string escaped;
    for (const char character : std::string(kPublish))
        escaped += character == '\n' ? "#012" : character == '\t' ? "#011" : std::string(1, character);
    const QoCtlRequest read = qo_ctl_read_request(escaped);
    EXPECT_TRUE(read.whole);
    EXPECT_EQ(read.buffer, qo_ctl_read_request(kPublish).buffer);
}

TEST(Request, CutAtAnyByteIsReadAsFarAsItGoes) {
    const std::string text = kPublish;
    const std::string buffer = qo_ctl_read_request(text).buffer;
    const size_t kind_known = text.find("publish\"") + 7;
    const size_t sender_known = text.find("1350,") + 5;
    for (size_t length = 0; length < text.size(); ++length) {
        const QoCtlRequest read = qo_ctl_read_request(text.substr(0, length));
        EXPECT_FALSE(read.whole) << length;
        EXPECT_EQ(read.buffer, buffer.substr(0, read.buffer.size())) << length;
        if (length > kind_known) EXPECT_EQ(read.kind, "publish") << length;
        if (length >= sender_known) EXPECT_EQ(read.sender, 1350) << length;
    }
    EXPECT_FALSE(qo_ctl_read_request(text.substr(0, text.size() - 4)).buffer.empty());
}

TEST(Request, OfAnythingElseIsEmpty) {
    for (const char* text : {"", "x", "[1,2", "\"", "{", "{\"", "{\"function\":7}", "]]]", "{}}", "7", "null",
                             R"({"arg":7})", R"({"arg":{"comp_id":"x","buffer":5}})"}) {
        const QoCtlRequest read = qo_ctl_read_request(text);
        EXPECT_EQ(read.sender, QO_CMPID_RESERVED) << text;
    }
}

TEST(ClosedJson, IsNothingWhereItIsNestedTooDeep) {
    EXPECT_EQ(qo_ctl_closed_json(std::string(100000, '[')), "");
    EXPECT_EQ(qo_ctl_closed_json(R"({"a":[1,{"b":"c)"), R"({"a":[1,{"b":"c"}]})");
    EXPECT_EQ(qo_ctl_closed_json(R"({"a":1,"b":tr)"), R"({"a":1})");
    EXPECT_EQ(qo_ctl_closed_json(R"({"a":"\u00)"), R"({"a":""})");
    EXPECT_EQ(qo_ctl_closed_json(R"({"a":"b\)"), R"({"a":"b"})");
    EXPECT_EQ(qo_ctl_closed_json("{\"a\":\"b\xc3"), R"({"a":"b"})");
    EXPECT_EQ(qo_ctl_closed_json("plain"), "");
}

TEST(Subject, OfAPublishIsTheWayToTheFirstNodeOfSeveralMembers) {
    EXPECT_EQ(qo_ctl_subject(request("publish", R"({"system":{"status":{"a":1,"b":2}}})")), "/system/status {a, b}");
    EXPECT_EQ(qo_ctl_subject(request("publish", R"({"system":{"status":{"a":1}}})")), "/system/status/a");
    EXPECT_EQ(qo_ctl_subject(request("publish", R"({"a":1,"b":2,"c":3,"d":4,"e":5})")), "/ {a, b, c, d, ...}");
    EXPECT_EQ(qo_ctl_subject(request("publish", R"({"devices":[{"id":3,"device":{"x":1}}]})")), "/devices/3/device/x");
    EXPECT_EQ(qo_ctl_subject(request("publish", R"({"devices":[{"id":3},{"id":4}]})")), "/devices {3, 4}");
    EXPECT_EQ(qo_ctl_subject(request("publish", "{}")), "/ {}");
    EXPECT_EQ(qo_ctl_subject(request("publish", R"({"system":{"status":{"a":1,"b":"cu)")), "/system/status {a, b}");
    EXPECT_EQ(qo_ctl_subject(request("publish", "no JSON")), "no JSON");
}

TEST(Subject, OfOthersIsTheirTextAndNoLongText) {
    EXPECT_EQ(qo_ctl_subject(request("get", "/a;/b")), "/a;/b");
    EXPECT_EQ(qo_ctl_subject(request("register", "/display")), "/display");
    EXPECT_EQ(qo_ctl_subject(request("get", std::string(1000, 'x'))), std::string(120, 'x') + "...");
    const std::string shortened = qo_ctl_subject(request("sync", std::string(119, 'x') + "\xc3\xa4"));
    EXPECT_EQ(shortened, std::string(119, 'x') + "...") << "no half character";
}

TEST(Concerns, NodesAboveAndBelow) {
    const QoCtlRequest publish = request("publish", R"({"system":{"status":{"a":1}},"devices":[{"id":3,"x":1}]})");
    for (const char* pointer : {"/", "/system", "/system/status", "/system/status/a", "/devices/3", "/devices/3/x"})
        EXPECT_TRUE(qo_ctl_concerns(publish, pointer)) << pointer;
    for (const char* pointer : {"/system/config", "/sys", "/devices/0", "/devices/3/y"})
        EXPECT_FALSE(qo_ctl_concerns(publish, pointer)) << pointer;
    EXPECT_TRUE(qo_ctl_concerns(publish, "/system/status/a/below")) << "a value stands there now";
    const QoCtlRequest get = request("get", "/usb;/system/status");
    EXPECT_TRUE(qo_ctl_concerns(get, "/system"));
    EXPECT_TRUE(qo_ctl_concerns(get, "/system/status/a"));
    EXPECT_FALSE(qo_ctl_concerns(get, "/system/config"));
    EXPECT_FALSE(qo_ctl_concerns(request("register", "/system"), "/system")) << "that is a queue";
    EXPECT_FALSE(qo_ctl_concerns(request("publish", ""), "/system"));
}

}  // namespace
