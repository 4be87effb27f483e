// Messages that no honest component sends. Whatever arrives, the service goes on: it answers others in bounded time,
// its tree is what it was, and it needs no more memory than before.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string.h>
#include <syslog.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <iostream>
#include <map>

#include "component.h"
#include "service_process.h"

namespace {

using testing::HasSubstr;

constexpr int32_t kWitness = QO_CMPID_DEMO;
constexpr int32_t kAttacker = QO_CMPID_TESTPUBLISHER;
constexpr size_t kLargestText = 262143;  // bytes, without the NUL
constexpr size_t kPayload = 260000;      // bytes; the rest is for the envelope

#ifdef QO_SANITIZED
constexpr bool kMeasuresMemory = false;  // sanitizers keep what was freed
#else
constexpr bool kMeasuresMemory = true;
#endif
constexpr std::chrono::seconds kPatience{180};         // for an answer; longer is called a hang
constexpr size_t kGrowthKib = size_t{48} * 1024;       // what the allocator may keep for the largest message
constexpr size_t kLargestTreeKib = size_t{64} * 1024;  // what publishes may let the tree grow to
constexpr size_t kGrowthPerRepeatKib = 1024;           // on average; less than one message

using Texts = std::vector<std::string>;

std::string repeated(const std::string& piece, size_t bytes) {
    std::string text;
    text.reserve(bytes);
    while (text.size() + piece.size() <= bytes) text += piece;
    return text;
}

std::string escaped(const std::string& text) {
    std::string result;
    for (const char character : text) {
        if (character == '"' || character == '\\') result += '\\';
        result += character;
    }
    return result;
}

// A request whose buffer is written as it is, so that it may be anything.
std::string raw_request(const std::string& function, const std::string& raw_buffer, const std::string& more = "") {
    return R"({"function":")" + function + R"(","arg":{"comp_id":)" + std::to_string(kAttacker) + R"(,"buffer":")" +
           raw_buffer + "\"" + more + "}}";
}

std::string request(const std::string& function, const std::string& buffer, const std::string& more = "") {
    return raw_request(function, escaped(buffer), more);
}

std::string nested(const std::string& open, const std::string& inside, const std::string& close, size_t levels) {
    std::string text;
    for (size_t level = 0; level < levels; ++level) text += open;
    text += inside;
    for (size_t level = 0; level < levels; ++level) text += close;
    return text;
}

class Hostile : public RunningService {
protected:
    void SetUp() override {
        RunningService::SetUp();
        if (IsSkipped()) return;
        witness_.emplace(service(), kWitness, Component::Queue{8, 2048});
        // Two answers and its queue is full.
        attacker_.emplace(service(), kAttacker, Component::Queue{2, 4096});
        tree_ = witness_->active_tree();
        ASSERT_THAT(tree_, HasSubstr("centerButton"));
    }
    void TearDown() override {
        attacker_.reset();
        witness_.reset();
        RunningService::TearDown();
    }

    // Another component's question is answered. A request that names nothing repeats the one before it, so
    // there may be other answers first.
    void expect_answer() {
        const auto asked = std::chrono::steady_clock::now();
        const std::string tag = "alive " + std::to_string(++questions_);
        ASSERT_EQ(witness_->api().get(witness_->id(), "/version", tag, false), 0);
        std::string answer;
        while (!HasFailure() && !answer.starts_with("sender_id:" + tag)) answer = witness_->next_message(kPatience);
        EXPECT_THAT(answer, HasSubstr("schemaVersion"));
        const auto waited = std::chrono::steady_clock::now() - asked;
        longest_ = std::max(longest_, std::chrono::duration_cast<std::chrono::milliseconds>(waited));
    }

    // Sends them, several times over, and looks after each round.
    void attack(const Texts& messages, int rounds = 4) {
        send(messages);
        const size_t first = service().resident_kib();
        for (int round = 1; round < rounds; ++round) send(messages);
        const size_t last = service().resident_kib();
        std::cout << "longest answer " << longest_.count() << " ms, " << last << " KiB resident, " << before_kib_
                  << " before\n";
        if (kMeasuresMemory) {
            EXPECT_LT(last, before_kib_ + kGrowthKib);
            EXPECT_LT(last, first + static_cast<size_t>(rounds) * kGrowthPerRepeatKib);
        }
    }

    void send(const Texts& messages) {
        if (before_kib_ == 0) before_kib_ = service().resident_kib();
        for (const std::string& message : messages) {
            ASSERT_LE(message.size(), kLargestText + 1);
            ASSERT_TRUE(service().post_bytes(message.size() > kLargestText ? message : message + '\0'));
            expect_answer();
            attacker_->drain();
            if (HasFailure() || !service().running()) FAIL() << "after " << message.substr(0, 300);
        }
    }

    void expect_unchanged_tree() { EXPECT_EQ(witness_->active_tree(), tree_); }

    std::optional<Component> witness_;
    std::optional<Component> attacker_;
    std::string tree_;
    size_t before_kib_ = 0;
    int questions_ = 0;
    std::chrono::milliseconds longest_{0};
};

// ---- messages that leave the tree as it is ----

struct Attack {
    std::string name;
    std::function<Texts()> messages;
    int rounds = 4;
};
void PrintTo(const Attack& attack, std::ostream* stream) { *stream << attack.name; }

class HostileMessage : public Hostile, public testing::WithParamInterface<Attack> {};

TEST_P(HostileMessage, LeavesServiceTreeAndMemoryAsTheyAre) {
    attack(GetParam().messages(), GetParam().rounds);
    expect_unchanged_tree();
}

// The same pointer in every kind of request that takes one.
Texts in_every_kind(const std::string& pointer) {
    Texts requests;
    for (const char* kind : {"get", "subscribe", "unsubscribe", "delete", "clear"})
        requests.push_back(request(kind, pointer));
    requests.push_back(request("get", pointer, R"(,"pack_and_send":true)"));
    requests.push_back(request("get", pointer, R"(,"sender_id":"s")"));
    requests.push_back(request("subscribe", pointer, R"(,"notifyOnChangeOnly":true)"));
    return requests;
}

// A list of pointers in every kind of request that takes one.
Texts in_list_kinds(const std::string& pointers) {
    return {request("get", pointers), request("get", pointers, R"(,"pack_and_send":true)"),
            request("subscribe", pointers), request("unsubscribe", pointers)};
}

Texts published(const Texts& texts) {
    Texts requests;
    for (const std::string& text : texts) requests.push_back(request("publish", text));
    return requests;
}

Texts published_ids(const Texts& ids) {
    Texts texts;
    for (const std::string& id : ids) {
        texts.push_back(R"({"error":[{"code":1,"id":)" + id + "}]}");
        texts.push_back(R"({"devices":[{"device":{},"id":)" + id + "}]}");
        texts.push_back(R"({"system":{"alarms":{"active":[{"id":)" + id + "}]}}}");
    }
    return published(texts);
}

const Attack kAttacks[] = {
    {"RequestOf130000OpenBrackets", [] { return Texts{repeated("[", 130000)}; }},
    {"RequestOf262144OpenBracketsWithoutNul", [] { return Texts{std::string(262144, '[')}; }},
    {"RequestOf130000NestedBrackets", [] { return Texts{nested("[", "", "]", 130000)}; }},
    {"RequestOf40000NestedObjects", [] { return Texts{nested("{\"a\":", "1", "}", 37000)}; }},
    {"RequestNestedToTheLimitAndBeyond",
     [] {
         return Texts{R"({"arg":{"x":)" + nested("[", "", "]", 510) + "}}",
                      R"({"arg":{"x":)" + nested("[", "", "]", 511) + "}}"};
     }},
    {"PublishOf130000OpenBrackets", [] { return published({repeated("[", 130000)}); }},
    {"PublishOf130000NestedBrackets", [] { return published({nested("[", "", "]", 130000)}); }},
    {"PublishOf18000NestedObjects", [] { return published({nested("{\"a\":", "{}", "}", 18000)}); }},
    {"PublishBeyondTheDeepestLevel", [] { return published({nested("{\"usb\":", "{}", "}", 512)}); }},
    {"PublishOfNestedIds", [] { return published({nested("[{\"id\":", "0", "}]", 250)}); }},

    {"PointerOfOneSegmentOf260000Bytes", [] { return in_every_kind("/" + repeated("a", kPayload)); }},
    {"PointerOf130000Segments", [] { return in_every_kind(repeated("/a", kPayload)); }},
    {"PointerOfOnlySlashes", [] { return in_every_kind(repeated("/", kPayload)); }},
    {"PointerBelowTheTreeOf130000Segments", [] { return in_every_kind("/version" + repeated("/a", kPayload)); }},
    {"PointerOf52000SizeSegments", [] { return in_every_kind(repeated("/size", kPayload)); }},
    {"PointerOfNumbersAndSizes", [] { return in_every_kind(repeated("/1/size", kPayload)); }},
    {"PointerWithoutSlash", [] { return in_every_kind(repeated("a", kPayload)); }},
    {"PointersToArrayPositions",
     [] {
         Texts requests;
         for (const char* position : {"2000000000", "-1", "1.5x", "x", "9223372036854775808", "-9223372036854775809",
                                      "99999999999999999999999999", "+7", " 7", ""})
             for (const char* kind : {"get", "delete", "subscribe"})
                 requests.push_back(request(kind, std::string("/devices/") + position + "/device"));
         requests.push_back(request("get", "/devices/" + repeated("9", kPayload)));
         requests.push_back(request("delete", "/devices/" + repeated("0", kPayload) + "9"));
         return requests;
     }},
    {"PointerListOf130000Pieces", [] { return in_list_kinds(repeated("/;", kPayload)); }, 2},
    {"PointerListOf65000MissingNodes", [] { return in_list_kinds(repeated("/x/;", kPayload)); }, 2},
    {"PointersWithNulsAndEscapes",
     [] {
         Texts requests;
         for (const char* kind : {"get", "subscribe", "delete", "clear"}) {
             requests.push_back(raw_request(kind, R"(/usb\u0000x)"));
             requests.push_back(raw_request(kind, R"(\u0000)"));
             requests.push_back(raw_request(kind, R"(/usb/~1/~0/%s%n%n%n)"));
             requests.push_back(raw_request(kind, R"(/cmpID)"));
             requests.push_back(raw_request(kind, R"(/version/notifyOnChangeOnly)"));
         }
         return requests;
     }},

    {"IdsThatAreNoneOrTooLarge",
     [] {
         return published_ids({"2000000000", "-1", "\"x\"", "null", "true", "{}", "[]", "4294967296", "4294967301",
                               "2147483648", "-2147483649", "9223372036854775808", "1e300", "-1e300", "65600",
                               "1e10000"});
     }},
    {"PublishedNumbersThatNoDoubleHolds",
     [] {
         Texts texts;
         for (const std::string& number : Texts{repeated("9", 10000), "1e" + repeated("9", 10000), "-1e309", "1e400"})
             texts.push_back(R"({"version":{"number":)" + number + "}}");
         return published(texts);
     }},
    {"IdsOf10000Digits",
     [] {
         return published_ids({repeated("9", 10000), "-" + repeated("9", 10000)});
     }},
    {"ElementsThatAreNoObjects",
     [] {
         return published({R"({"devices":[1]})", R"({"devices":[[]]})", R"({"devices":[null,"x",true]})",
                           R"({"devices":[{}]})", R"({"devices":{"x":1}})", R"({"version":[{"id":0,"x":1}]})"});
     }},
    {"ScalarsAndArraysAtTheRoot",
     [] {
         return published({"5", "\"text\"", "null", "true", "[]", "[1,2]", "[[]]", "[{\"id\":0,\"usb\":1}]", "{}", "",
                           " ", "{},{}", "1 2"});
     }},
    {"ScalarsOntoContainers",
     [] {
         return published({R"({"usb":1})", R"({"system":"x"})", R"({"devices":null})", R"({"usb":{}})",
                           R"({"devices":{}})", R"({"usb":[]})"});
     }},
    {"MetadataFromAnyone",
     [] {
         return published({R"({"writeAccess":"openAll"})", R"({"doNotPersist":true})",
                           R"({"usb":{"writeAccess":"openAll","doNotPersist":true}})",
                           R"({"logs":{"writeAccess":"internal"}})"});
     }},

    {"LoneSurrogates",
     [] {
         return Texts{raw_request("publish", R"({\"version\":{\"x\":\"\ud800\"}})"),
                      raw_request("publish", R"({\"version\":{\"x\":\"\\ud800\"}})"),
                      raw_request("publish", R"({\"version\":{\"\\udc00\":1}})"),
                      raw_request("publish", R"({\"version\":{\"x\":\"\\ud800\\ud800\"}})"),
                      raw_request("get", R"(/\udfff)"),
                      raw_request("get", R"(/usb)", R"(,"sender_id":"\ud83d")")};
     }},
    {"InvalidUtf8",
     [] {
         Texts requests;
         for (const char* bytes : {"\xff", "\xfe\xff", "\xc0\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\x80", "\xc3",
                                   "\xe2\x82", "\xf0\x9f\x98"}) {
             requests.push_back(raw_request("get", "/usb", std::string(",\"sender_id\":\"") + bytes + "\""));
             requests.push_back(raw_request("get", std::string("/") + bytes));
             requests.push_back(raw_request("publish", std::string(R"({\"version\":{\"x\":\")") + bytes + R"(\"}})"));
             requests.push_back(std::string("{\"") + bytes + "\":1}");
             requests.push_back(bytes);
         }
         return requests;
     }},
    {"NulBytesAndControlCharacters",
     [] {
         std::string all;
         for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
         return Texts{std::string(1000, '\0'), all,
                      raw_request("get", all), raw_request("get", "/usb\n\t"),
                      request("publish", all), "\xef\xbb\xbf" + request("get", "/usb")};
     }},

    {"CompIdsBeyond32Bits",
     [] {
         Texts requests;
         for (const std::string& id :
              Texts{"4294967296", "5368709150", "-1", "2147483648", "-2147483649", "1e300", "1e-300", "true", "null",
                    "[]", "{}", "\"1102\"", "0.9", "99999999999999999999999999999999"})
             for (const char* kind : {"register", "publish", "get", "delete", "unregister", "save", "sync"})
                 requests.push_back(std::string(R"({"function":")") + kind + R"(","arg":{"comp_id":)" + id +
                                    R"(,"dst_comp_id":)" + id +
                                    R"(,"buffer":"{\"version\":{\"schemaVersion\":\"z\"}}"}})");
         // None of them may count as the next request's sender.
         requests.push_back(request("get", "/usb"));
         return requests;
     }},
    {"NumbersOf10000Digits",
     [] {
         Texts requests;
         for (const std::string& number :
              Texts{repeated("9", 10000), "-" + repeated("9", 10000), "0." + repeated("9", 10000),
                    "1e" + repeated("9", 10000), "1e-" + repeated("9", 10000), repeated("9", 100000), "1e5000", "-0",
                    "00", "1.", ".5", "+1", "0x10", "Infinity", "NaN"}) {
             requests.push_back(R"({"function":"get","arg":{"comp_id":)" + number + R"(,"buffer":"/usb"}})");
             requests.push_back(R"({"function":"register","arg":{"comp_id":1200,"buffer":"/x"},"que":{"maxmsg":)" +
                                number + R"(,"msgsize":)" + number + "}}");
         }
         requests.push_back(request("get", "/usb"));
         return requests;
     }},
    {"DuplicateMembers",
     [] {
         std::string many = R"({"function":"save_debug","arg":{"buffer":"/usb"},"arg":{)";
         many += repeated(R"("comp_id":1,)", 200000) + R"("comp_id":1}})";
         return Texts{many,
                      R"({"function":"publish","function":"get","arg":{"comp_id":1,"comp_id":)" +
                          std::to_string(kAttacker) + R"(,"buffer":"x","buffer":"/usb"}})",
                      request("publish", "{" + repeated(R"("usb":{},)", 100000) + R"("usb":{}})")};
     }},
    {"MembersOfOtherTypes",
     [] {
         return Texts{R"([])",
                      R"({"arg":[]})",
                      R"({"arg":{"arg":{"arg":1}}})",
                      R"({"arg":[{"comp_id":5}],"que":5})",
                      R"({"function":{"publish":1},"arg":"x","que":[1,2,3]})",
                      R"({"que":{"maxmsg":"x","msgsize":[]}})",
                      R"({"function":"get","arg":{"comp_id":1073741853,"buffer":{"a":[1]}}})",
                      R"({"function":"publish","arg":{"comp_id":1073741853,"buffer":17}})",
                      R"({"function":null,"arg":null,"que":null})",
                      R"("function")",
                      R"(17)",
                      R"(null)"};
     }},

    {"QueueNamesOfAllKinds",
     [] {
         Texts requests;
         int32_t id = 40000;
         for (const std::string& name :
              Texts{"", "/", "//", "/a/b", "/..", "/.", "x", "/" + repeated("q", 255), "/" + repeated("q", 256),
                    "/" + repeated("q", kPayload), "/%s%n%s%n", "/\xc3\xa9"})
             requests.push_back(R"({"function":"register","arg":{"comp_id":)" + std::to_string(++id) +
                                R"(,"buffer":")" + name +
                                R"("},"que":{"flags":0,"maxmsg":1,"msgsize":1,"curmsgs":0}})");
         return requests;
     }},
    {"QueueAttributesOfAllKinds",
     [] {
         Texts requests;
         int32_t id = 50000;
         for (const char* value : {"0", "-1", "2147483647", "-2147483648", "4294967297", "1e18", "1.9", "\"8\""}) {
             requests.push_back(R"({"function":"register","arg":{"comp_id":)" + std::to_string(++id) +
                                R"(,"buffer":"/nowhere"},"que":{"flags":)" + value + R"(,"maxmsg":)" + value +
                                R"(,"msgsize":)" + value + R"(,"curmsgs":)" + value + "}}");
             requests.push_back(R"({"function":"unregister","arg":{"comp_id":)" + std::to_string(id) + "}}");
         }
         return requests;
     }},
    {"SyncToEverySide",
     [] {
         return Texts{request("sync", repeated("s", kPayload), R"(,"dst_comp_id":1100)"),
                      request("sync", repeated("s", kPayload), R"(,"dst_comp_id":1073741853)"),
                      request("sync", "x", R"(,"dst_comp_id":0)"), request("sync", "x", R"(,"dst_comp_id":-5)")};
     }},
    {"SenderIdOf260000Bytes",
     [] {
         return Texts{request("get", "/usb", R"(,"sender_id":")" + repeated("s", kPayload - 100) + "\""),
                      request("get", "/usb;/usb;/usb",
                              R"(,"pack_and_send":true,"sender_id":")" + repeated(";", kPayload - 200) + "\"")};
     }},
    {"PackedPointerListOf52000Nodes",
     [] { return Texts{request("get", repeated("/usb;", kPayload), R"(,"pack_and_send":true)")}; }},
    {"FormatStrings",
     [] {
         const std::string formats = repeated("%s%n%p%x", 4000);
         return Texts{formats,
                      request(formats, formats),
                      request("get", "/" + formats),
                      request("publish", formats),
                      request("publish", "{\"" + formats + "\":"),
                      request("register", formats)};
     }},
};

INSTANTIATE_TEST_SUITE_P(All, HostileMessage, testing::ValuesIn(kAttacks),
                         [](const testing::TestParamInfo<Attack>& parameter) { return parameter.param.name; });

// ---- what one message may write to the log ----

/// Requests that give the service the same thing to say ten thousands of times, with the text of some of what it says.
struct Flood {
    std::string name;
    std::function<std::string()> message;
    std::vector<std::string> kinds;
};
void PrintTo(const Flood& flood, std::ostream* stream) { *stream << flood.name; }

class HostileFlood : public Hostile, public testing::WithParamInterface<Flood> {
protected:
    static constexpr long kLinesOfAKind = 1000;

    void SetUp() override {
        Hostile::SetUp();
        if (IsSkipped()) return;
        // No answer fits in this queue, so that none of them waits for room.
        attacker_.reset();
        attacker_.emplace(service(), kAttacker, Component::Queue{1, 4});
        ASSERT_TRUE(service().wait_until_idle());
        events().clear_log();
    }
};

TEST_P(HostileFlood, WritesAThousandLinesOfEachKindAndThenTheNumberOfTheOthers) {
    ASSERT_TRUE(service().post(GetParam().message()));
    expect_answer();
    std::map<std::pair<int, std::string>, long> lines;
    long numbers = 0;
    for (const QoLogLine& line : events().log()) {
        // The next request is the witness's.
        if (line.text.starts_with("PushPullData : mq_receive:") && line.text.find("alive") != std::string::npos) break;
        ++lines[{line.level, line.text}];
        const bool number = line.text.find(" more lines of this request: ") != std::string::npos;
        numbers += number ? 1 : 0;
    }
    long full = 0;
    for (const auto& [line, count] : lines) {
        EXPECT_LE(count, kLinesOfAKind) << line.second;
        full += count == kLinesOfAKind ? 1 : 0;
    }
    EXPECT_EQ(numbers, full);
    for (const std::string& kind : GetParam().kinds) {
        const auto tells = [&](const auto& entry) {
            return entry.first.second.ends_with(" more lines of this request: " + kind);
        };
        EXPECT_EQ(std::count_if(lines.begin(), lines.end(), tells), 1) << kind;
    }
    expect_unchanged_tree();
}

const Flood kFloods[] = {
    {"GetOfMissingNodes",
     [] { return request("get", repeated("/x;", kPayload)); },
     {"PushPull:%s@%d: Read path incorrect", "PushPull:%s@%d: Read failed",
      "comp_get: ReadNode failed OR json_size is zero, node = %s", " comp_get : comp_notify Failed",
      "Send message from pushpull to \"%s\" queue : mq_send: failed:, ERR_CODE : %d, msg size = %d",
      "pushpull : normal GET"}},
    {"GetOfTheWholeTree",
     [] { return request("get", repeated("/;", kPayload)); },
     {"PushPull:%s@%d: Cannot read the entire tree",
      "PushPull:%s@%d: Root path or dangling / or back to back slashes //"}},
    {"GetWithoutSlash",
     [] { return request("get", repeated("x;", kPayload)); },
     {"PushPull:%s@%d: Incorrect JSON pointer, ptr should start with /"}},
    {"GetOfPositionsThatAreNone",
     [] { return request("get", repeated("/error/x;", kPayload)); },
     {"PushPull:%s@%d: Exception %s"}},
    {"GetOfSizesOfPositions",
     [] { return request("get", repeated("/a/1/size;", kPayload)); },
     {"PushPull:%s@%d:out =%d,Read path incorrect"}},
    {"PackedGet",
     [] { return request("get", repeated("/x;", kPayload), R"(,"pack_and_send":true)"); },
     {"pushpull : MessageQueue: GET : packing error", "comp_get : pack and send buff"}},
    {"SubscribeToMissingNodes",
     [] { return request("subscribe", repeated("/x;", kPayload)); },
     {"PushPull:%s@%d: Subscription failed",
      "comp_subscribe : Subscription Failed for \"%s\", comp_id = %d, ret_val = %ld, ERR_CODE = %d"}},
    {"SubscribeAgain",
     [] { return request("subscribe", repeated("/usb;", kPayload)); },
     {"PushPull:%s@%d: Component already subscribed", "comp_subscribe : Subscription Passed for \"%s\", comp_id = %d"}},
    {"UnsubscribeFromMissingNodes",
     [] { return request("unsubscribe", repeated("/x;", kPayload)); },
     {"PushPull:%s@%d: Unsubscribe node not found ",
      "comp_unsubscribe : Unsubscription Failed for \"%s\", comp_id = %d, ret_val = %ld, ERR_CODE = %d"}},
};

INSTANTIATE_TEST_SUITE_P(All, HostileFlood, testing::ValuesIn(kFloods),
                         [](const testing::TestParamInfo<Flood>& parameter) { return parameter.param.name; });

TEST_F(Hostile, APackedGetWithALongSenderIdWritesAMebibyteOfItToTheLog) {
    const std::string sender(130000, 's');
    send({request("get", repeated("/x;", 120000), R"(,"pack_and_send":true,"sender_id":")" + sender + "\"")});
    const std::vector<QoLogLine> log = events().log();
    size_t bytes = 0;
    for (const QoLogLine& line : log) bytes += line.text.starts_with("comp_get : buff offset") ? line.text.size() : 0;
    EXPECT_LT(bytes, 2 * size_t{1024} * 1024);
    EXPECT_GT(bytes, size_t{1024} * 1024);
}

TEST_F(Hostile, APublishOfThousandsOfElementsWithoutAPlaceLogsAThousandOfThem) {
    const std::string elements = [] {
        std::string text;
        for (int id = 0; id < 9000; ++id) text += "{\"id\":" + std::to_string(id) + "},";
        text.pop_back();
        return text;
    }();
    // The decision to save looks for the array in the first element, which has none.
    send({request("publish", R"({"fresh":[{"id":1,"list":[)" + elements + "]}]}")});
    const std::vector<QoLogLine> log = events().log();
    const auto is_null = [](const QoLogLine& line) { return line.text.ends_with("@#: Null node"); };
    EXPECT_EQ(std::count_if(log.begin(), log.end(), is_null), 1000);
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "PushPull: 8001 more lines of this request: PushPull:%s@%d: Null node"));
}

// ---- messages that are taken, and what they may cost ----

TEST_F(Hostile, APublishAsDeepAsATextMayBeIsTakenSavedAndLoadedAgain) {
    constexpr size_t kLevels = 511;
    const std::string deepest = nested("{\"deep\":", "{}", "}", kLevels);
    const std::string pointer = repeated("/deep", strlen("/deep") * kLevels);
    send({request("publish", deepest), request("save", "")});
    ASSERT_EQ(witness_->api().publish(witness_->id(), R"({"deep":{"mark":"kept"}})"), 0);
    ASSERT_EQ(witness_->api().flush(witness_->id()), 0);
    expect_answer();
    attacker_.reset();
    witness_.reset();
    ASSERT_EQ(service().stop(), 0);
    ASSERT_TRUE(service().start_and_wait());

    Component reader(service(), kWitness, {2, 40000});
    EXPECT_THAT(reader.get("/deep/mark"), HasSubstr("kept"));
    EXPECT_THAT(reader.get(pointer), testing::Not(HasSubstr(":{}")));
    EXPECT_TRUE(events().wait_for_store_log(LOG_INFO, "Default and saved trees merged"));
}

TEST_F(Hostile, ANumberOf10000DigitsIsKeptToItsLastDigit) {
    const std::string number = "-123." + repeated("1234567890", 10000) + "e-7";
    Component reader(service(), QO_CMPID_SCHEDULER, {2, 12000});
    send({request("publish", R"({"rgw":{"number":)" + number + "}}")});
    EXPECT_THAT(reader.get("/rgw/number"), HasSubstr(number));
}

TEST_F(Hostile, ANulInsideAStringIsKept) {
    send({raw_request("publish", R"({\"version\":{\"nul\":\"a\\u0000b\"}})")});
    EXPECT_THAT(witness_->get("/version/nul"), HasSubstr(R"("a\u0000b")"));
}

TEST_F(Hostile, AFractionalIdIsCutTowardZero) {
    send({request("publish", R"({"error":[{"id":1.5,"code":7}]})")});
    EXPECT_EQ(witness_->get("/error/size"), "/error/size:2");
    EXPECT_THAT(witness_->get("/error/1/code"), HasSubstr("7"));
}

// Every array element that a message may add costs memory that the message did not bring: as much as the tree may have.
TEST_F(Hostile, ManyIds65536ApartInOneMessageAreRefusedBeforeTheyFillTheMemory) {
    std::string ids;
    for (size_t id = 65536; ids.size() < 100000; id += 65536) ids += "{\"id\":" + std::to_string(id) + "},";
    ids.pop_back();
    const size_t before = service().resident_kib();
    send({request("publish", R"({"error":[)" + ids + "]}")});
    if (kMeasuresMemory) EXPECT_LT(service().resident_kib(), before + kGrowthKib + kLargestTreeKib);
    EXPECT_TRUE(
        events().wait_for_store_log(LOG_ERR, "Data tree exceeded max size 67108864 bytes - error. Tree NOT updated!"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component data publish failed = -1"));
}

TEST_F(Hostile, OneHundredArraysOfTheLargestIdInOneMessageAreRefusedBeforeTheyFillTheMemory) {
    std::string arrays;
    for (int array = 0; array < 100; ++array) arrays += "\"a" + std::to_string(array) + "\":[{\"id\":65536}],";
    arrays.pop_back();
    const size_t before = service().resident_kib();
    send({request("publish", "{" + arrays + "}")});
    if (kMeasuresMemory) EXPECT_LT(service().resident_kib(), before + kGrowthKib + kLargestTreeKib);
    EXPECT_TRUE(
        events().wait_for_store_log(LOG_ERR, "Data tree exceeded max size 67108864 bytes - a3. Tree NOT updated!"));
}

TEST_F(Hostile, TwoArraysThatNeed40000PlaceholdersEachAreAcceptedInOneMessage) {
    send({request("publish", R"({"error":[{"id":40000}],"devices":[{"id":15}],"more":[{"id":40000}]})")});
    EXPECT_EQ(witness_->get("/error/size"), "/error/size:40001");
    EXPECT_EQ(witness_->get("/more/size"), "/more/size:40001");
}

TEST_F(Hostile, APublishTo128SubscribersBesideAnArrayOf100000ElementsCostsWhatItBrings) {
    Component all(service(), 2000, {130, 64});
    for (int32_t id = 2001; id < 2126; ++id)
        ASSERT_EQ(all.api().comp_register(static_cast<eQO_CMP_IDs_>(id), all.queue_name(), nullptr), 0);
    for (int32_t id = 2000; id < 2126; ++id)
        ASSERT_EQ(all.api().subscribe(static_cast<eQO_CMP_IDs_>(id), "/error", id % 2 == 0), 0);
    const auto processor_time_of_publishes_to = [&](int64_t element) {
        EXPECT_TRUE(service().wait_until_idle());
        const auto before = service().processor_time();
        constexpr int kPublishes = 20;
        for (int code = 10; code < 10 + kPublishes; ++code) {
            const std::string text =
                R"({"error":[{"id":)" + std::to_string(element) + R"(,"code":)" + std::to_string(code) + "}]}";
            EXPECT_TRUE(service().post(request("publish", text)));
            for (int32_t id = 2000; id < 2126 && !HasFailure(); ++id) EXPECT_EQ(all.next_message(), text);
        }
        return std::chrono::duration<double, std::milli>(service().processor_time() - before).count() / kPublishes;
    };
    const double small = processor_time_of_publishes_to(1);
    for (const char* element : {R"({"error":[{"id":60000}]})", R"({"error":[{"id":100000}]})"}) {
        send({request("publish", element)});
        all.drain();
    }
    ASSERT_EQ(witness_->get("/error/size"), "/error/size:100001");
    const double large = processor_time_of_publishes_to(99999);
    std::cout << "one publish to 126 subscribers: " << small << " ms, beside the large array " << large << " ms\n";
    // What cost time in proportion to the array, or to the array for each subscriber, would be far beyond.
    EXPECT_LT(large, small * 10);
    for (int32_t id = 2001; id < 2126; ++id) ASSERT_EQ(all.api().comp_unregister(static_cast<eQO_CMP_IDs_>(id)), 0);
}

TEST_F(Hostile, EverNewNamesFillTheTreeAndThenOthersValuesStillChange) {
    const std::string text(kPayload - 1000, 'x');
    constexpr int kMoreThanFits = 300;  // of 64 MiB
    for (int name = 0; name < kMoreThanFits; ++name)
        send({request("publish", "{\"n" + std::to_string(name) + "\":\"" + text + "\"}")});
    EXPECT_TRUE(
        events().wait_for_store_log(LOG_ERR, "Data tree exceeded max size 67108864 bytes - n299. Tree NOT updated!"));
    ASSERT_EQ(witness_->api().publish(witness_->id(), R"({"version":{"schemaVersion":"9.9"}})"), 0);
    EXPECT_THAT(witness_->get("/version/schemaVersion"), HasSubstr("9.9"));
}

TEST_F(Hostile, AnArrayOf100000ElementsIsAnsweredToNobodyWhoCannotTakeIt) {
    send({request("publish", R"({"error":[{"id":60000}]})"), request("publish", R"({"error":[{"id":100000}]})")});
    send({request("get", "/error"), request("get", "/error;/usb;/error", R"(,"pack_and_send":true)"),
          request("clear", "/error")});
    EXPECT_EQ(witness_->get("/error/size"), "/error/size:1");
}

TEST_F(Hostile, ARequesterThatNeverReadsItsQueueDelaysOthersOnlyForTheAnswersThatFindNoRoom) {
    for (int count = 0; count < 3; ++count) ASSERT_TRUE(service().post(request("get", "/usb")));
    expect_answer();
    const std::vector<QoLogLine> log = events().log();
    EXPECT_EQ(std::count(log.begin(), log.end(), QoLogLine{LOG_ERR, " comp_get : comp_notify Failed"}), 1);
}

TEST_F(Hostile, TenThousandRegistrationsLeaveNoDescriptorOpenAndNoMemoryInUse) {
    constexpr int kBatch = 100;
    const std::string arguments = R"(,"arg":{"comp_id":1352,"buffer":")";
    const auto register_and_forget = [&](int turns) {
        for (int turn = 0; turn < turns; ++turn) {
            ASSERT_TRUE(service().post(R"({"function":"register")" + arguments + witness_->queue_name() + "\"}}"));
            ASSERT_TRUE(service().post(R"({"function":"subscribe")" + arguments + R"(/;/usb;/devices"}})"));
            ASSERT_TRUE(service().post(R"({"function":"unregister")" + arguments + R"("}})"));
            if (turn % kBatch == 0) events().clear_log();
        }
        ASSERT_TRUE(service().wait_until_idle());
    };
    register_and_forget(kBatch);
    const size_t descriptors = service().open_descriptors();
    const size_t resident = service().resident_kib();
    register_and_forget(10000);
    EXPECT_EQ(service().open_descriptors(), descriptors);
    if (kMeasuresMemory) EXPECT_LT(service().resident_kib(), resident + 1024);
    expect_answer();
}

// What the service sent to itself would count as a request that names nothing, and repeat the one before it.
TEST_F(Hostile, TheServicesOwnQueueIsNobodysReceiveQueue) {
    ASSERT_TRUE(service().post(R"({"function":"register","arg":{"comp_id":1352,"buffer":"/pushpull\u0000x"}})"));
    ASSERT_TRUE(service().post(R"({"function":"register","arg":{"comp_id":1352,"buffer":"/pushpull"}})"));
    ASSERT_TRUE(service().post(R"({"function":"subscribe","arg":{"comp_id":1352,"buffer":"/"}})"));
    ASSERT_TRUE(service().post(request("publish", R"({"usb":{}})")));
    ASSERT_TRUE(service().wait_until_idle());
    EXPECT_TRUE(events().wait_for_log(LOG_ERR,
                                      "comp_register fail: ncomp_id=1352 , pqueue_name = /pushpull , ret_val = 50001"));
    EXPECT_TRUE(events().wait_for_log(LOG_ERR, "Component Registration failed = 50001"));
    EXPECT_EQ(service().waiting_requests(), 0);
    expect_answer();
    ASSERT_EQ(witness_->api().exit_request(witness_->id(), "true"), 0);
    EXPECT_TRUE(service().wait_for_end());
}

}  // namespace
