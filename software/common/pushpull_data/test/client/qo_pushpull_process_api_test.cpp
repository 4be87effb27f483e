// The text of a request: how it is written, and what is read of one that anybody may have written.
#include "qo_pushpull_process_api.h"

#include <mqueue.h>

#include <limits>
#include <random>

#include "log_capture.h"
#include "qo_json.h"
#include "qo_pushpull_api.h"
#include "request_tree_writer.h"

namespace {

int empty_list_countdown = 0;  // the json_children call, counted from 1, that yields one child without a node
JSONNODE* no_node = nullptr;

}  // namespace

// A list with a child that has no node does not exist in the JSON library; it is made up here.
extern "C" {
JSONNODE_ITERATOR __real_json_children(JSONNODE* node, size_t* count);

JSONNODE_ITERATOR __wrap_json_children(JSONNODE* node, size_t* count) {
    const bool is_empty_list = empty_list_countdown > 0 && --empty_list_countdown == 0;
    if (!is_empty_list) return __real_json_children(node, count);
    *count = 1;
    return &no_node;
}
}

namespace {

QoProcessApi parsed(const std::string& text) {
    QoProcessApi request;
    EXPECT_EQ(request.parseJSON(text), 0) << text;
    return request;
}

std::string arg_with(const std::string& members) { return R"({"function":"x","arg":{)" + members + "}}"; }

// ---- the text of each kind, byte for byte ----

struct BuiltRequest {
    const char* name;
    std::string text;
    std::string expected;
};

mq_attr attributes(long flags, long maxmsg, long msgsize, long curmsgs) {
    mq_attr result{};
    result.mq_flags = flags;
    result.mq_maxmsg = maxmsg;
    result.mq_msgsize = msgsize;
    result.mq_curmsgs = curmsgs;
    return result;
}

std::string plain(const std::string& function, const std::string& comp_id, const std::string& buffer,
                  const std::string& more = "") {
    return "{\n\t\"function\": \"" + function + "\",\n\t\"arg\": {\n\t\t\"comp_id\": " + comp_id +
           ",\n\t\t\"buffer\": \"" + buffer + "\"" + more + "\n\t}\n}";
}

std::vector<BuiltRequest> built_requests() {
    QoPushpullApi api;
    const mq_attr queue = attributes(2, 10, 8192, 3);
    const mq_attr no_size = attributes(2, 10, 0, 3);
    const mq_attr no_room = attributes(2, 0, 8192, 3);
    const mq_attr negative = attributes(2, -1, 8192, 3);
    const std::string register_with_queue =
        "{\n"
        "\t\"function\": \"register\",\n"
        "\t\"arg\": {\n"
        "\t\t\"comp_id\": 1073741852,\n"
        "\t\t\"buffer\": \"/demo\"\n"
        "\t},\n"
        "\t\"que\": {\n"
        "\t\t\"flags\": 2,\n"
        "\t\t\"maxmsg\": 10,\n"
        "\t\t\"msgsize\": 8192,\n"
        "\t\t\"curmsgs\": 3\n"
        "\t}\n"
        "}";
    const std::string all_members =
        "{\n"
        "\t\"function\": \"get\",\n"
        "\t\"arg\": {\n"
        "\t\t\"comp_id\": 1,\n"
        "\t\t\"dst_comp_id\": -2,\n"
        "\t\t\"buffer\": \"/a;/b\",\n"
        "\t\t\"notifyOnChangeOnly\": true,\n"
        "\t\t\"pack_and_send\": true,\n"
        "\t\t\"sender_id\": \"tag\"\n"
        "\t}\n"
        "}";
    return {
        {"RegisterWithQueue", api.build_json_post_msg(QO_CMPID_DEMO, "/demo", "register", &queue), register_with_queue},
        {"RegisterWithoutQueue", api.build_json_post_msg(QO_CMPID_DEMO, "/demo", "register"),
         plain("register", "1073741852", "/demo")},
        {"RegisterWithoutMessageSize", api.build_json_post_msg(QO_CMPID_DEMO, "/demo", "register", &no_size),
         plain("register", "1073741852", "/demo")},
        {"RegisterWithoutRoom", api.build_json_post_msg(QO_CMPID_DEMO, "/demo", "register", &no_room),
         plain("register", "1073741852", "/demo")},
        {"RegisterWithNegativeRoom", api.build_json_post_msg(QO_CMPID_DEMO, "/demo", "register", &negative),
         plain("register", "1073741852", "/demo")},
        {"Subscribe", api.build_json_post_msg(QO_CMPID_ALERTS, "/alerts", "subscribe"),
         plain("subscribe", "1073741835", "/alerts")},
        {"SubscribeToChanges", api.build_json_post_msg(QO_CMPID_ALERTS, "/alerts", "subscribe", nullptr, true),
         plain("subscribe", "1073741835", "/alerts", ",\n\t\t\"notifyOnChangeOnly\": true")},
        {"Unsubscribe", api.build_json_post_msg(QO_CMPID_ALERTS, "/alerts", "unsubscribe"),
         plain("unsubscribe", "1073741835", "/alerts")},
        {"Publish", api.build_json_post_msg(QO_CMPID_PUSHPULL, R"({"a":["\u00e4"],"b":"c\d"})", "publish"),
         plain("publish", "1100", R"({\"a\":[\"\\u00e4\"],\"b\":\"c\\d\"})")},
        {"Get", api.build_json_post_msg(QO_CMPID_DEMO, "/a", "get"), plain("get", "1073741852", "/a")},
        {"GetWithSenderId", api.build_json_post_msg(QO_CMPID_DEMO, "/a", "get", nullptr, false, "me"),
         plain("get", "1073741852", "/a", ",\n\t\t\"sender_id\": \"me\"")},
        {"GetPacked",
         api.build_json_post_msg(QO_CMPID_DEMO, "/a;/b", "get", nullptr, false, "", QO_CMPID_RESERVED, true),
         plain("get", "1073741852", "/a;/b", ",\n\t\t\"pack_and_send\": true")},
        {"Save", api.build_json_post_msg(QO_CMPID_DEMO, "", "save"), plain("save", "1073741852", "")},
        {"SaveDebug", api.build_json_post_msg(QO_CMPID_DEMO, "", "save_debug"), plain("save_debug", "1073741852", "")},
        {"Delete", api.build_json_post_msg(QO_CMPID_HVAC_SYSCON_SUB, "/a", "delete"),
         plain("delete", "1073741827", "/a")},
        {"Clear", api.build_json_post_msg(QO_CMPID_DEMO, "/a", "clear"), plain("clear", "1073741852", "/a")},
        {"Unregister", api.build_json_post_msg(QO_CMPID_DEMO, "", "unregister"), plain("unregister", "1073741852", "")},
        {"Init", api.build_json_post_msg(QO_CMPID_DEMO, "true", "init"), plain("init", "1073741852", "true")},
        {"Exit", api.build_json_post_msg(QO_CMPID_DEMO, "true", "exit"), plain("exit", "1073741852", "true")},
        {"Sync", api.build_json_post_msg(QO_CMPID_DEMO, "/a", "sync", nullptr, false, "", QO_CMPID_REMOTE_GATEWAY_DM),
         "{\n\t\"function\": \"sync\",\n\t\"arg\": {\n\t\t\"comp_id\": 1073741852,\n\t\t\"dst_comp_id\": 1302,\n"
         "\t\t\"buffer\": \"/a\"\n\t}\n}"},
        {"EveryMember",
         api.build_json_post_msg(static_cast<eQO_CMP_IDs_>(1), "/a;/b", "get", nullptr, true, "tag",
                                 static_cast<eQO_CMP_IDs_>(-2), true),
         all_members},
        {"NulByteInBuffer", api.build_json_post_msg(QO_CMPID_DEMO, std::string("a\0b", 3), "sync"),
         plain("sync", "1073741852", "a\\u0000b")},
        {"InvalidUtf8InBuffer", api.build_json_post_msg(QO_CMPID_DEMO, "\xff", "publish"), ""},
        {"InvalidUtf8InSenderId", api.build_json_post_msg(QO_CMPID_DEMO, "/a", "get", nullptr, false, "\xc3"), ""},
        {"InvalidUtf8InFunction", api.build_json_post_msg(QO_CMPID_DEMO, "/a", "\xed\xa0\x80"), ""},
    };
}

class RequestText : public testing::TestWithParam<BuiltRequest> {};

TEST_P(RequestText, IsByteForByte) { EXPECT_EQ(GetParam().text, GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(OfEveryKind, RequestText, testing::ValuesIn(built_requests()),
                         [](const testing::TestParamInfo<BuiltRequest>& row) { return std::string(row.param.name); });

TEST(RequestText, HasNoQueueWithAnAttributeBeyond32Bits) {
    if constexpr (sizeof(long) == sizeof(int32_t)) GTEST_SKIP() << "no queue attribute has more than 32 bits here";
    const mq_attr beyond = attributes(0, std::numeric_limits<long>::max(), 8192, 0);
    QoPushpullApi api;
    EXPECT_EQ(api.build_json_post_msg(QO_CMPID_DEMO, "/demo", "register", &beyond),
              plain("register", "1073741852", "/demo"));
}

TEST(RequestText, WithADestinationOfZeroIsNeverWritten) {
    QoProcessApi request;
    request.setdstcomp_id(QO_CMPID_RESERVED);
    request.toJSON();
    EXPECT_EQ(request.getJsonString().find("dst_comp_id"), std::string::npos);
}

TEST(RequestText, OfAFailedBuildReplacesTheOneBefore) {
    QoProcessApi request;
    request.toJSON();
    ASSERT_GT(request.getJsonStringSize(), 0U);
    request.setBuff("\xff");
    request.toJSON();
    EXPECT_EQ(request.getJsonString(), "");
    EXPECT_EQ(request.getJsonStringSize(), 0U);
}

TEST(RequestText, IsReadBackAsItWasBuilt) {
    QoProcessApi written;
    written.setfunction("get");
    written.setBuff(std::string("/a\0;/b\"\\\n\xc3\xa4", 11));
    written.setsenderId("tag");
    written.setcomp_id(QO_CMPID_DEMO);
    written.setdstcomp_id(QO_CMPID_REMOTE_GATEWAY_DM);
    written.setque_flags(1);
    written.setque_maxmsg(2);
    written.setque_msgsize(3);
    written.setque_curmsgs(4);
    written.set_notify_on_change_only(true);
    written.set_pack_and_send(true);
    written.toJSON();

    const QoProcessApi read = parsed(written.getJsonString());
    EXPECT_EQ(read.getfunction(), written.getfunction());
    EXPECT_EQ(read.getBuff(), written.getBuff());
    EXPECT_EQ(read.getsenderId(), written.getsenderId());
    EXPECT_EQ(read.getcomp_id(), QO_CMPID_DEMO);
    EXPECT_EQ(read.getdstcomp_id(), QO_CMPID_REMOTE_GATEWAY_DM);
    EXPECT_EQ(read.getque_flags(), 1);
    EXPECT_EQ(read.getque_maxmsg(), 2);
    EXPECT_EQ(read.getque_msgsize(), 3);
    EXPECT_EQ(read.getque_curmsgs(), 4);
    EXPECT_TRUE(read.get_notify_on_change_only());
    EXPECT_TRUE(read.get_pack_and_send());
}

// ---- the text written straight, and by way of a tree ----

/// Makes up requests. The same ones in every run.
class RequestMaker {
public:
    QoProcessApi next() {
        QoProcessApi request;
        request.setfunction(text());
        request.setBuff(text());
        if (chance(2)) request.setsenderId(text());
        request.setcomp_id(static_cast<eQO_CMP_IDs_>(number()));
        request.setdstcomp_id(static_cast<eQO_CMP_IDs_>(number()));
        request.setque_flags(number());
        request.setque_maxmsg(number());
        request.setque_msgsize(number());
        request.setque_curmsgs(number());
        request.set_notify_on_change_only(chance(2));
        request.set_pack_and_send(chance(2));
        return request;
    }

private:
    size_t below(size_t end) { return std::uniform_int_distribution<size_t>(0, end - 1)(random_); }
    bool chance(size_t one_in) { return below(one_in) == 0; }

    int32_t number() {
        const int32_t ends[] = {0, 1, -1, std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()};
        return chance(2) ? ends[below(std::size(ends))] : static_cast<int32_t>(random_());
    }

    /// Pieces of all kinds, so that those to be escaped and broken ones come to lie anywhere in blocks.
    std::string text() {
        const std::string pieces[] = {R"({"name":"value"})",
                                      "plain",
                                      "/",
                                      "\"",
                                      "\\",
                                      "\n\t\r\b\f",
                                      std::string(1, '\0'),
                                      "\x1f\x7f",
                                      "\xc3\xa4",
                                      "\xe2\x82\xac",
                                      "\xf0\x9f\x92\xa7",
                                      "\xed\x9f\xbf",
                                      std::string(200, 's'),
                                      std::string(40, '\x01')};
        const std::string broken[] = {"\xff", "\xc3", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xc0\x80"};
        std::string text;
        for (size_t count = below(chance(20) ? 400 : 12); count > 0; --count)
            text += chance(2000) ? broken[below(std::size(broken))] : pieces[below(std::size(pieces))];
        return text;
    }

    std::mt19937 random_;
};

TEST(RequestText, IsThatOfTheTreeWhateverTheRequestHolds) {
    RequestMaker maker;
    QoProcessApi reused;
    int refused = 0;
    for (int i = 0; i < 3000; ++i) {
        QoProcessApi request = maker.next();
        request.toJSON();
        ASSERT_EQ(request.getJsonString(), QoRequestTreeWriter::write(request)) << "request " << i;
        if (request.getJsonString().empty()) ++refused;
        // Written where a longer or shorter text was before.
        reused.setBuff(request.getBuff());
        reused.toJSON();
        ASSERT_EQ(reused.getJsonString(), QoRequestTreeWriter::write(reused)) << "request " << i;
    }
    EXPECT_GT(refused, 30);
    EXPECT_LT(refused, 1500);
}

TEST(RequestText, IsThatOfTheTreeWhereverABlockEnds) {
    for (size_t length = 0; length < 600; ++length)
        for (const char* last : {"", "\"", "\x01", "\xc3\xa4", "\xc3"}) {
            QoProcessApi request;
            request.setBuff(std::string(length, 'x') + last);
            request.toJSON();
            ASSERT_EQ(request.getJsonString(), QoRequestTreeWriter::write(request)) << length << last;
        }
}

// ---- parsing ----

TEST(Request, HoldsEmptyTextsZerosAndFalseFlagsAtFirst) {
    const QoProcessApi request;
    EXPECT_EQ(request.getfunction(), "");
    EXPECT_EQ(request.getBuff(), "");
    EXPECT_EQ(request.getsenderId(), "");
    EXPECT_EQ(request.getJsonString(), "");
    EXPECT_EQ(request.getJsonStringSize(), 0U);
    EXPECT_EQ(request.getcomp_id(), QO_CMPID_RESERVED);
    EXPECT_EQ(request.getdstcomp_id(), QO_CMPID_RESERVED);
    EXPECT_EQ(request.getque_flags(), 0);
    EXPECT_EQ(request.getque_maxmsg(), 0);
    EXPECT_EQ(request.getque_msgsize(), 0);
    EXPECT_EQ(request.getque_curmsgs(), 0);
    EXPECT_FALSE(request.get_notify_on_change_only());
    EXPECT_FALSE(request.get_pack_and_send());
}

TEST(RequestParsing, OfARegisterWithoutQueLeavesMaxmsgAndMsgsizeZero) {
    const QoProcessApi request = parsed(R"({"function":"register","arg":{"comp_id":1302,"buffer":"/rgw"}})");
    EXPECT_EQ(request.getfunction(), "register");
    EXPECT_EQ(request.getcomp_id(), QO_CMPID_REMOTE_GATEWAY_DM);
    EXPECT_EQ(request.getBuff(), "/rgw");
    EXPECT_EQ(request.getque_maxmsg(), 0);
    EXPECT_EQ(request.getque_msgsize(), 0);
}

TEST(RequestParsing, OfAHandWrittenDestinationOfZeroIsAccepted) {
    QoProcessApi request = parsed(arg_with(R"("dst_comp_id":1302)"));
    EXPECT_EQ(request.parseJSON(arg_with(R"("dst_comp_id":0)")), 0);
    EXPECT_EQ(request.getdstcomp_id(), QO_CMPID_RESERVED);
}

TEST(RequestParsing, OfAnExplicitFalseIsFalse) {
    QoProcessApi request = parsed(arg_with(R"("notifyOnChangeOnly":true,"pack_and_send":true)"));
    EXPECT_TRUE(request.get_notify_on_change_only());
    EXPECT_TRUE(request.get_pack_and_send());
    EXPECT_EQ(request.parseJSON(arg_with(R"("notifyOnChangeOnly":false,"pack_and_send":false)")), 0);
    EXPECT_FALSE(request.get_notify_on_change_only());
    EXPECT_FALSE(request.get_pack_and_send());
}

TEST(RequestParsing, OfAFlagThatIsNotTheBooleanTrueIsFalse) {
    for (const char* value : {"1", "\"true\"", "null", "[true]", "{\"a\":true}"})
        EXPECT_FALSE(parsed(arg_with(std::string(R"("pack_and_send":)") + value)).get_pack_and_send()) << value;
}

TEST(RequestParsing, CarriesEveryAbsentMemberOver) {
    QoProcessApi request =
        parsed(R"({"function":"sync","arg":{"comp_id":1302,"dst_comp_id":1303,"buffer":"b","notifyOnChangeOnly":true,)"
               R"("pack_and_send":true,"sender_id":"s"},"que":{"flags":1,"maxmsg":2,"msgsize":3,"curmsgs":4}})");
    for (const char* text : {"{}", R"({"arg":{},"que":{}})", R"({"unknown":1,"arg":{"unknown":2},"que":{"unknown":3}})",
                             R"({"arg":5,"que":"text"})", R"({"arg":[{"comp_id":9}],"que":[{"flags":9}]})",
                             R"([{"function":"x"}])", R"("function")", "5", "null"}) {
        ASSERT_EQ(request.parseJSON(text), 0) << text;
        EXPECT_EQ(request.getfunction(), "sync") << text;
        EXPECT_EQ(request.getcomp_id(), 1302) << text;
        EXPECT_EQ(request.getdstcomp_id(), 1303) << text;
        EXPECT_EQ(request.getBuff(), "b") << text;
        EXPECT_TRUE(request.get_notify_on_change_only()) << text;
        EXPECT_TRUE(request.get_pack_and_send()) << text;
        EXPECT_EQ(request.getsenderId(), "s") << text;
        EXPECT_EQ(request.getque_flags(), 1) << text;
        EXPECT_EQ(request.getque_maxmsg(), 2) << text;
        EXPECT_EQ(request.getque_msgsize(), 3) << text;
        EXPECT_EQ(request.getque_curmsgs(), 4) << text;
    }
}

TEST(RequestParsing, LetsTheLastOfADuplicatedMemberCount) {
    const QoProcessApi request =
        parsed(R"({"function":"a","arg":{"buffer":"1","buffer":"2"},"function":"b","arg":{"comp_id":7}})");
    EXPECT_EQ(request.getfunction(), "b");
    EXPECT_EQ(request.getBuff(), "2");
    EXPECT_EQ(request.getcomp_id(), 7);
}

TEST(RequestParsing, KeepsNulBytesInTexts) {
    const QoProcessApi request = parsed(arg_with(R"("buffer":"a\u0000b","sender_id":"\u0000")"));
    EXPECT_EQ(request.getBuff(), std::string("a\0b", 3));
    EXPECT_EQ(request.getsenderId(), std::string("\0", 1));
}

TEST(RequestParsing, TakesTheTextOfAScalarWhereATextIsDue) {
    EXPECT_EQ(parsed(arg_with(R"("buffer":true)")).getBuff(), "true");
    EXPECT_EQ(parsed(arg_with(R"("buffer":35.0)")).getBuff(), "35.0");
    EXPECT_EQ(parsed(arg_with(R"("buffer":{"a":1})")).getBuff(), "");
}

struct ParsedNumber {
    const char* literal;
    int32_t value;
};
class RequestNumber : public testing::TestWithParam<ParsedNumber> {};

TEST_P(RequestNumber, IsCutTowardZeroAndIsZeroBeyond32Bits) {
    const std::string literal = GetParam().literal;
    const QoProcessApi request = parsed(R"({"function":"x","arg":{"comp_id":)" + literal + R"(,"dst_comp_id":)" +
                                        literal + R"(},"que":{"flags":)" + literal + R"(,"maxmsg":)" + literal +
                                        R"(,"msgsize":)" + literal + R"(,"curmsgs":)" + literal + "}}");
    EXPECT_EQ(request.getcomp_id(), GetParam().value);
    EXPECT_EQ(request.getdstcomp_id(), GetParam().value);
    EXPECT_EQ(request.getque_flags(), GetParam().value);
    EXPECT_EQ(request.getque_maxmsg(), GetParam().value);
    EXPECT_EQ(request.getque_msgsize(), GetParam().value);
    EXPECT_EQ(request.getque_curmsgs(), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(OfEveryMember, RequestNumber,
                         testing::Values(ParsedNumber{"1073741852", 1073741852}, ParsedNumber{"-7", -7},
                                         ParsedNumber{"2147483647", 2147483647},
                                         ParsedNumber{"-2147483648", -2147483647 - 1}, ParsedNumber{"2147483648", 0},
                                         ParsedNumber{"-2147483649", 0}, ParsedNumber{"4294967297", 0},
                                         ParsedNumber{"99999999999999999999999999", 0}, ParsedNumber{"1e300", 0},
                                         ParsedNumber{"12.99", 12}, ParsedNumber{"-12.99", -12},
                                         ParsedNumber{"1e3", 1000}, ParsedNumber{"\"12\"", 0}, ParsedNumber{"true", 0},
                                         ParsedNumber{"null", 0}, ParsedNumber{"[12]", 0}, ParsedNumber{"{}", 0}));

// ---- failures ----

TEST(RequestParsing, OfInvalidJsonLogsTheTextAndTakesNothingOver) {
    QoProcessApi request = parsed(arg_with(R"("comp_id":7)"));
    for (const std::string text : {"", "{", "{\"function\":\"y\"", "{\"function\":\"y\"}x", "{'a':1}",
                                   "{\"arg\":{\"buffer\":\"\xff\"}}", R"({"arg":{"buffer":"\ud800"}})"}) {
        const QoLogCapture log;
        EXPECT_EQ(request.parseJSON(text), -1) << text;
        EXPECT_EQ(log.lines(), (std::vector<QoLogLine>{{LOG_DEBUG, "Invalid JSON Node , " + text}}));
        EXPECT_EQ(request.getfunction(), "x");
        EXPECT_EQ(request.getcomp_id(), 7);
    }
}

TEST(RequestParsing, OfHostileTextsFailsWithoutHarm) {
    QoProcessApi request;
    EXPECT_EQ(request.parseJSON(std::string(130000, '[')), -1);
    EXPECT_EQ(request.parseJSON(R"({"arg":)" + std::string(130000, '{')), -1);
    EXPECT_EQ(request.parseJSON(R"({"arg":{"comp_id":)" + std::string(10000, '9') + "}}"), -1);
    EXPECT_EQ(request.parseJSON(std::string(R"({"function":"x"})") + '\0'), -1);
    EXPECT_EQ(request.parseJSON(arg_with(R"("buffer":")" + std::string(260000, '/') + R"(")")), 0);
    EXPECT_EQ(request.getBuff(), std::string(260000, '/'));
}

struct ListWithoutNode {
    int which;  // of the lists that are walked: root, "arg", "que"
    const char* line;
};
class RequestList : public testing::TestWithParam<ListWithoutNode> {};

TEST_P(RequestList, WithAChildThatHasNoNodeFails) {
    const QoLogCapture log;
    QoProcessApi request;
    empty_list_countdown = GetParam().which;
    EXPECT_EQ(request.parseJSON(R"({"function":"x","arg":{"comp_id":7},"que":{"flags":1}})"), -1);
    EXPECT_EQ(log.lines(), (std::vector<QoLogLine>{{LOG_DEBUG, GetParam().line}}));
}

INSTANTIATE_TEST_SUITE_P(OnEachLevel, RequestList,
                         testing::Values(ListWithoutNode{1, "Invalid JSON JSONNODE_ITERATOR : i"},
                                         ListWithoutNode{2, "Invalid JSONNODE_ITERATOR : a"},
                                         ListWithoutNode{3, "Invalid JSONNODE_ITERATOR : que_iter"}));

// ---- the object ----

TEST(Request, CopyKeepsItsTextWhenTheOriginalIsWrittenAgain) {
    QoProcessApi request;
    request.toJSON();
    const QoProcessApi copy = request;
    const std::string text = copy.getJsonString();
    request.setBuff("other");
    request.toJSON();
    EXPECT_EQ(copy.getJsonString(), text);
    EXPECT_NE(request.getJsonString(), text);
}

TEST(Request, CopyKeepsItsValuesWhenTheOriginalChanges) {
    QoProcessApi request = parsed(arg_with(R"("buffer":"first","sender_id":"s")"));
    const QoProcessApi copy = request;
    ASSERT_EQ(request.parseJSON(R"({"function":"y","arg":{"buffer":"second","sender_id":"t"}})"), 0);
    EXPECT_EQ(copy.getfunction(), "x");
    EXPECT_EQ(copy.getBuff(), "first");
    EXPECT_EQ(copy.getsenderId(), "s");
}

}  // namespace
