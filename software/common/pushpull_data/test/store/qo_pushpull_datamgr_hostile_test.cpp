// Messages made to end, hang or fill up the service. A test here fails by its time limit when one of them
// costs time out of proportion to its size.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

#include <functional>
#include <string>

#include "qo_store_fixture.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr size_t kLargestMessage = 262143;  // bytes of text
// What is in proportion takes a small part of this, also under the sanitizers; what is not, many times it.
constexpr double kCpuLimit = 3.0;  // seconds

double cpu_seconds_of(const std::function<void()>& action) {
    timespec before{};
    timespec after{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &before);
    action();
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &after);
    return static_cast<double>(after.tv_sec - before.tv_sec) +
           static_cast<double>(after.tv_nsec - before.tv_nsec) / 1e9;
}

/// "[item,item,...]" or "{item,item,...}" as long as one message can be, from items that `make` numbers.
std::string fill_message(const std::string& head, const std::string& tail,
                         const std::function<std::string(int)>& make) {
    std::string text = head;
    for (int i = 0;; ++i) {
        const std::string item = (i == 0 ? "" : ",") + make(i);
        if (text.size() + item.size() + tail.size() > kLargestMessage) return text + tail;
        text += item;
    }
}

std::string repeated(const std::string& text, int count) {
    std::string result;
    result.reserve(text.size() * static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) result += text;
    return result;
}

QoLogLine beyond_placeholders(const std::string& index, const std::string& highest) {
    return error_line("Array id " + index + " exceeded max items " + highest + ". Tree NOT updated!");
}

QoLogLine more_refused(int nodes) {
    return deny_line(LOG_INFO, "Component not authorized to publish " + std::to_string(nodes) + " more nodes");
}

class HostileTest : public QoStoreTest {
protected:
    static constexpr char kDefaults[] =
        R"({"open":{"writeAccess":"openAll"},"zones":[{"id":0,"writeAccess":"openAll","sub":{"x":1}}],"s":{"t":{}}})";

    HostileTest() { load(kDefaults); }

    size_t elements_of(const std::string& array) {
        const QoJsonNode response(json_new(JSON_NODE));
        EXPECT_EQ(store_->ReadNode(array, response.get(), true, array_size_), 0);
        return static_cast<size_t>(array_size_);
    }
};

// ---- placeholders ----

using HostileArrayId = HostileTest;

TEST_F(HostileArrayId, OfTwoBillionIsRefused) {
    EXPECT_EQ(publish(R"({"zones":[{"id":2000000000}]})"), -1);
    EXPECT_THAT(said_, ElementsAre(beyond_placeholders("2000000000", "65537")));
    EXPECT_EQ(tree(), kDefaults);
}

TEST_F(HostileArrayId, MayNeedExactly65536Placeholders) {
    EXPECT_EQ(publish(R"({"open":{"a":[{"id":65537}]}})"), -1);
    EXPECT_THAT(said_, ElementsAre(beyond_placeholders("65537", "65536")));
    EXPECT_EQ(publish(R"({"open":{"a":[{"id":65536}]}})"), 0);
    EXPECT_EQ(elements_of("/open/a"), 65537U);
}

TEST_F(HostileArrayId, EveryIdHasItsOwnLimit) {
    EXPECT_EQ(publish(R"({"open":{"a":[{"id":40000}],"b":[{"id":40000}]}})"), 0);
    EXPECT_THAT(said_, IsEmpty());
    EXPECT_EQ(elements_of("/open/a"), 40001U);
    EXPECT_EQ(elements_of("/open/b"), 40001U);
    EXPECT_EQ(publish(R"({"open":{"c":[{"id":60000},{"id":125537}]}})"), 0);
    EXPECT_EQ(publish(R"({"open":{"c":[{"id":191075}]}})"), -1);
    EXPECT_THAT(said_, ElementsAre(beyond_placeholders("191075", "191074")));
}

TEST_F(HostileArrayId, OfNestedArraysIsCountedForEachOfThem) {
    EXPECT_EQ(publish(R"({"open":{"a":[{"id":60000,"b":[{"id":60000}]}]}})"), 0);
    EXPECT_EQ(elements_of("/open/a"), 60001U);
    EXPECT_EQ(elements_of("/open/a/60000/b"), 60001U);
}

// Each is within its limit; all together are not within the tree's.
TEST_F(HostileArrayId, OfHundredsOfArraysEndsAtTheTreesLimit) {
    const std::string text =
        fill_message(R"({"open":{)", "}}", [](int i) { return "\"a" + std::to_string(i) + R"(":[{"id":65536}])"; });
    EXPECT_EQ(publish(text), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Data tree exceeded max size 67108864 bytes - a3. Tree NOT "
                                              "updated!")));
    EXPECT_EQ(elements_of("/open/a2"), 65537U);
    EXPECT_EQ(read("/open/a3"), "");
    EXPECT_EQ(publish(fill_message(R"({"open":{"one":[)", "]}}",
                                   [](int i) { return "{\"id\":" + std::to_string(65536 * (i + 1)) + "}"; })),
              -1);
}

// An element that stands where its "id" does not say, as one that names its id twice, needs placeholders when it is
// packed; the packed answer of many such arrays is bounded like the tree.
TEST_F(HostileArrayId, OfElementsThatStandElsewhereIsBoundedInPackedAnswersToo) {
    const std::string text = fill_message(
        R"({"open":{)", "}}", [](int i) { return "\"a" + std::to_string(i) + R"(":[{"id":0,"id":65536}])"; });
    ASSERT_EQ(publish(text), 0);
    const QoJsonNode response(json_new(JSON_NODE));
    const QoJsonNode packed(json_new(JSON_NODE));
    ASSERT_EQ(store_->ReadNode("/open", response.get(), false, array_size_), 0);
    log_.clear();
    EXPECT_EQ(store_->PackMultipleGetResponse(packed.get(), response.get(), QO_INTERNAL), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Data tree exceeded max size 67108864 bytes "
                                                     "- a4. Tree NOT updated!")));
}

TEST_F(HostileArrayId, EveryPublishHasItsOwnLimit) {
    EXPECT_EQ(publish(R"({"open":{"a":[{"id":60000}]}})"), 0);
    EXPECT_EQ(publish(R"({"open":{"b":[{"id":60000}]}})"), 0);
    EXPECT_EQ(publish(R"({"open":{"a":[{"id":120000}]}})"), 0);
    EXPECT_EQ(elements_of("/open/a"), 120001U);
}

TEST_F(HostileArrayId, ElementsInTheirPlacesNeedNoPlaceholders) {
    ASSERT_EQ(publish(R"({"open":{"a":[{"id":65536}]}})"), 0);
    const std::string text =
        fill_message(R"({"open":{"a":[)", "]}}", [](int i) { return "{\"id\":" + std::to_string(65537 + i) + "}"; });
    EXPECT_EQ(publish(text), 0);
    EXPECT_GT(elements_of("/open/a"), 80000U);
}

TEST_F(HostileArrayId, ARefusedElementNeedsNone) {
    load(R"({"closed":[{"id":0}]})");
    EXPECT_EQ(publish(R"({"closed":[{"id":2000000000}]})", QO_REMOTE_CLIENT), 0);
    EXPECT_THAT(said_, SizeIs(2));
}

TEST_F(HostileArrayId, InTheDefaultTreeFallsBackToIt) {
    const QoJsonNode defaults = qo_json_parse(R"({"zones":[{"id":2000000000}]})");
    log_.clear();
    EXPECT_EQ(store_->MergeToDataTree(defaults.get()), 0);
    EXPECT_THAT(log_.lines(), Contains(beyond_placeholders("2000000000", "65537")));
}

TEST_F(HostileArrayId, OfTenThousandDigits) {
    EXPECT_EQ(publish(R"({"open":{"a":[{"id":1.)" + std::string(10000, '9') + "}]}}"), 0);
    EXPECT_EQ(elements_of("/open/a"), 2U);
    EXPECT_EQ(publish(R"({"open":{"a":[{"id":1)" + std::string(300, '0') + "}]}}"), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Invalid id in array element")));
}

// ---- the same thing over and over in one message ----

using HostileRepetition = HostileTest;

TEST_F(HostileRepetition, ThousandsOfElementsCollectTheirSubscribersOnce) {
    const QoJsonNode shadow = qo_json_parse(R"({"zones":{"cmpID":1,"sub":{"cmpID":2,"notifyOnChangeOnly":3}}})");
    const QoJsonNode published = qo_json_parse(
        fill_message(R"({"zones":[)", "]}", [](int i) { return "{\"id\":" + std::to_string(i) + ",\"sub\":{}}"; }));
    const QoJsonNode list(json_new(JSON_NODE));
    EXPECT_EQ(store_->GetSubscribersInternal(published.get(), list.get(), shadow.get()), 0);
    EXPECT_EQ(qo_json_write(list.get()), R"({"cmpID":1,"cmpID":2,"notifyOnChangeOnly":3})");
}

TEST_F(HostileRepetition, ThousandsOfNamesakes) {
    ASSERT_EQ(subscribe(5, "/s/t", true), 0);
    const std::string text = fill_message(R"({)", "}", [](int) { return R"("s":{"t":{"x":1}})"; });
    EXPECT_LT(cpu_seconds_of([&] { EXPECT_EQ(publish(text), 0); }), kCpuLimit);
    EXPECT_EQ(read("/s"), R"({"s":{"t":{"x":1}}})");
    EXPECT_EQ(subscribers_of(text), R"({"notifyOnChangeOnly":5})");
}

TEST_F(HostileRepetition, ThousandsOfNamesakesOfALongArrayWithoutAnElementZero) {
    ASSERT_EQ(publish(R"({"zones":[{"id":65536}]})"), 0);
    ASSERT_EQ(remove("/zones/0/id"), 0);
    const std::string text = fill_message(
        "{", "}", [](int) { return R"("zones":[{"id":1}])"; });
    EXPECT_LT(cpu_seconds_of([&] { EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0); }), kCpuLimit);
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(HostileRepetition, ThousandsOfNamesakesOfALongArrayThatLoseAndRegainTheirElementZero) {
    // The only element with id 0 is the last one.
    ASSERT_EQ(publish(R"({"zones":[{"id":65536,"id":0}]})"), 0);
    ASSERT_EQ(remove("/zones/0/id"), 0);
    const std::string text = fill_message(
        "{", "}", [](int) { return R"("zones":[{"id":65536}],"zones":[{"id":65536,"id":0}])"; });
    EXPECT_LT(cpu_seconds_of([&] { EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0); }), kCpuLimit);
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(HostileRepetition, ThousandsOfNamesakesOfAnArrayWhoseIdsHaveThousandsOfDigits) {
    ASSERT_EQ(publish(R"({"zones":[{"id":1,"id":1.)" + std::string(200000, '9') + "}]}"), 0);
    const std::string text = fill_message(
        "{", "}", [](int) { return R"("zones":[{"id":0}])"; });
    EXPECT_LT(cpu_seconds_of([&] { EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0); }), kCpuLimit);
}

TEST_F(HostileRepetition, ThousandsOfElementsUnderAMaxItemsOfThousandsOfDigits) {
    ASSERT_EQ(publish(R"({"zones":[{"id":0,"maxItems":5.)" + std::string(200000, '9') + "}]}"), 0);
    const std::string text =
        fill_message(R"({"zones":[)", "]}", [](int i) { return "{\"id\":" + std::to_string(i % 6) + "}"; });
    EXPECT_LT(cpu_seconds_of([&] { EXPECT_EQ(publish(text), 0); }), kCpuLimit);
    EXPECT_EQ(publish(R"({"zones":[{"id":6}]})"), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Array id 6 exceeded max items 5. Tree NOT updated!")));
}

TEST_F(HostileRepetition, ThousandsOfNamesakesOfAnArrayUnderSuchAMaxItems) {
    ASSERT_EQ(publish(R"({"zones":[{"id":0,"maxItems":5.)" + std::string(200000, '9') + "}]}"), 0);
    const std::string text = fill_message(
        "{", "}", [](int) { return R"("zones":[{"id":1}])"; });
    EXPECT_LT(cpu_seconds_of([&] { EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0); }), kCpuLimit);
}

TEST_F(HostileRepetition, ThousandsOfNewMembersAndThenTheSameAgain) {
    const std::string text =
        fill_message(R"({"open":{)", "}}", [](int i) { return "\"" + std::to_string(i) + "\":1"; });
    EXPECT_LT(cpu_seconds_of([&] {
                  EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0);
                  EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0);
              }),
              kCpuLimit);
}

// The system log takes a fraction of a millisecond for each line, so a hundred thousand of them would hold up the
// service for longer than the other components wait for it.
TEST_F(HostileRepetition, ThousandsOfRefusedMembersLogOnlyTheFirstThousandAndTheirNumber) {
    int members = 0;
    const std::string text = fill_message("{", "}", [&](int i) {
        members = i;  // the last one called for did not fit
        return "\"" + std::to_string(i) + "\":1";
    });
    for (int round = 0; round < 2; ++round) {  // every publish has its own limit
        EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0);
        ASSERT_THAT(said_, SizeIs(2001));
        EXPECT_EQ(said_[1999], deny_line(LOG_ERR, "No node with name - 999 - skipping this node"));
        EXPECT_EQ(said_.back(), more_refused(members - 1000));
    }
    EXPECT_EQ(tree(), kDefaults);
}

TEST_F(HostileRepetition, RefusedElementsAndValuesShareThatLimit) {
    load(R"({"closed":[{"id":0}],"v":1})");
    const std::string elements =
        fill_message(R"({"closed":[)", "]", [](int i) { return "{\"id\":" + std::to_string(i + 1) + "}"; });
    ASSERT_EQ(publish(elements + "}", QO_REMOTE_CLIENT), 0);
    ASSERT_THAT(said_, SizeIs(2001));
    EXPECT_EQ(said_[1999], deny_line(LOG_INFO, "Skipping this array index - 1000"));

    const std::string values = fill_message(R"({"closed":[{"id":1},{"id":2}],)", "}", [](int) { return R"("v":2)"; });
    ASSERT_EQ(publish(values, QO_REMOTE_CLIENT), 0);
    ASSERT_THAT(said_, SizeIs(2 * 2 + 998 + 1));
    EXPECT_EQ(said_[2 * 2 + 997], deny_line(LOG_INFO, "Component not authorized to update this node value - v"));
    EXPECT_EQ(tree(), R"({"closed":[{"id":0}],"v":1})");
}

TEST_F(HostileRepetition, AListOfManyDuplicatesIsTrimmedInLinearTime) {
    const QoJsonNode list(json_new(JSON_NODE));
    for (int i = 0; i < 200000; ++i) json_push_back(list.get(), json_new_i("cmpID", i % 100000));
    EXPECT_LT(cpu_seconds_of([&] { EXPECT_EQ(store_->TrimDuplicates(list.get()), 0); }), kCpuLimit);
    EXPECT_EQ(json_size(list.get()), 100000U);
    EXPECT_EQ(json_as_int(json_at(list.get(), 99999)), 99999);
}

// ---- depth ----

using HostileDepth = HostileTest;

TEST_F(HostileDepth, APointerOfAHundredThousandSegmentsEndsWhereTheTreeEnds) {
    const std::string pointer = "/s/t" + repeated("/t", 130000);
    EXPECT_LT(cpu_seconds_of([&] {
                  EXPECT_EQ(read(pointer), "");
                  EXPECT_THAT(said_, SizeIs(3));
                  EXPECT_EQ(remove(pointer), -1);
                  EXPECT_EQ(clear(pointer), -1);
                  EXPECT_EQ(subscribe(5, pointer), -1);
                  EXPECT_EQ(unsubscribe(5, pointer), -1);
                  const QoJsonNode list(json_new(JSON_NODE));
                  EXPECT_EQ(store_->GetSubscribersByJsonPtr(pointer, list.get()), 0);
              }),
              kCpuLimit);
    EXPECT_EQ(tree(), kDefaults);
}

TEST_F(HostileDepth, APointerOfSlashesOnlyLogsALimitedNumberOfLines) {
    EXPECT_EQ(read(std::string(kLargestMessage, '/')), "");
    EXPECT_THAT(said_, SizeIs(18));
}

TEST_F(HostileDepth, ATreeAsDeepAsATextMayBeIsMergedReadAndDeleted) {
    const int levels = JSON_MAX_PARSE_DEPTH - 2;
    const std::string text = R"({"open":)" + repeated(R"({"d":)", levels) + "{}" + repeated("}", levels) + "}";
    EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0);
    EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0);
    const std::string pointer = "/open" + repeated("/d", levels);
    EXPECT_EQ(read(pointer), text);
    EXPECT_EQ(read(pointer + "/x"), "");
    EXPECT_THAT(said_, SizeIs(JSON_MAX_PARSE_DEPTH));
    EXPECT_EQ(remove(pointer), 0);
    EXPECT_EQ(read(pointer), "");
    EXPECT_EQ(remove("/open/d"), 0);
    EXPECT_EQ(tree(), kDefaults);
}

TEST_F(HostileDepth, ArraysAsDeepAsATextMayBeAreMergedAndRead) {
    const int levels = JSON_MAX_PARSE_DEPTH / 2 - 1;
    const std::string text =
        R"({"open":{"d":)" + repeated(R"([{"id":0,"d":)", levels - 1) + "[]" + repeated("}]", levels - 1) + "}}";
    EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0);
    EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0);
    EXPECT_EQ(read("/open/d"), text);
    EXPECT_EQ(subscribers_of(text), "{}");
}

TEST_F(HostileDepth, ADeepDefaultTreeIsShadowed) {
    const int levels = JSON_MAX_PARSE_DEPTH - 1;
    load(repeated(R"({"d":)", levels) + "{}" + repeated("}", levels));
    const std::string pointer = repeated("/d", levels);
    EXPECT_EQ(subscribe(5, pointer), 0);
    EXPECT_EQ(subscribers_of(repeated(R"({"d":)", levels) + "1" + repeated("}", levels)), R"({"cmpID":5})");
    EXPECT_EQ(unsubscribe(5, "/"), 0);
    EXPECT_EQ(subscribers_of(repeated(R"({"d":)", levels) + "1" + repeated("}", levels)), "{}");
}

// ---- texts that are no JSON ----

using HostileText = HostileTest;

TEST_F(HostileText, MakesNoTreeToPublish) {
    for (const std::string& text :
         {std::string(130000, '['), std::string(130000, '{'), std::string(R"({"a":"\ud800"})"),
          std::string(R"({"a":"\udc00\ud800"})"), std::string("{\"a\":\"\xFF\"}"), std::string("{\"a\":\"x\0y\"}", 11),
          std::string("{\"a\":1}x"), std::string()}) {
        const QoJsonNode node = qo_json_parse(text);
        EXPECT_FALSE(node);
        EXPECT_EQ(store_->UpdateNode(node.get(), save_scheduled_, QO_INTERNAL), -1);
    }
    EXPECT_EQ(tree(), kDefaults);
}

TEST_F(HostileText, MayNameItsMembersLikeAnything) {
    const std::string text =
        R"({"open":{"":{"":1},"id":{"x":1},"maxItems":[{"id":0}],"cmpID":5,"crc":"0","a\u0000b":"\u0000","/":2,"%n%s":3}})";
    EXPECT_EQ(publish(text, QO_REMOTE_CLIENT), 0);
    EXPECT_THAT(said_, IsEmpty());
    for (const char* pointer : {"/open/id/x", "/open/maxItems/0", "/open/cmpID", "/open/crc", "/open/%n%s"})
        EXPECT_NE(read(pointer), "") << pointer;
    EXPECT_EQ(read(std::string("/open/a\0b", 9)), R"({"open":{"a\u0000b":"\u0000"}})");
}

}  // namespace
