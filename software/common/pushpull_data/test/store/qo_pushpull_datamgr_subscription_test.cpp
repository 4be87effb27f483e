// The subscription tree: who is entered where, and whom a publish concerns.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "qo_pushpull_files.h"
#include "qo_store_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kDefaults[] =
    R"({)"
    R"("system":{"name":"x","config":{"name":"y"},"status":{"state":"idle","list":[]}},)"
    R"("zones":[{"id":0,"sub":{"y":1},"inner":[{"id":0,"deep":{}}]},{"id":1,"other":{},"sub":{"z":{}}}],)"
    R"("cmpID":{"x":{"y":1}})"
    R"(})";
constexpr char kShadow[] = R"({"system":{"config":{},"status":{"list":{}}},)"
                           R"("zones":{"sub":{},"inner":{"deep":{}},"other":{},"sub":{"z":{}}},)"
                           R"("cmpID":{"x":{}}})";

class SubscriptionTest : public QoStoreTest {
protected:
    SubscriptionTest() { load(kDefaults); }
};

// ---- the shadow ----

using SubscriptionTree = SubscriptionTest;

TEST_F(SubscriptionTree, ShadowsEveryObjectAndArrayOfTheDefaultTree) { EXPECT_EQ(subscription_tree(), kShadow); }

TEST_F(SubscriptionTree, IsNotExtendedByPublishes) {
    ASSERT_EQ(publish(R"({"fresh":{"x":{}},"system":{"config":{"sub":{"x":1}}}})"), 0);
    EXPECT_EQ(subscription_tree(), kShadow);
    EXPECT_EQ(subscribe(5, "/fresh"), -1);
}

TEST_F(SubscriptionTree, WithoutADefaultTreeFails) {
    log_.clear();
    EXPECT_EQ(store_->CreateSubscriptionTree(nullptr), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_CRIT, "PushPull:*@#: Error in creating subscription tree"}));
}

TEST_F(SubscriptionTree, OfNullsIsRefused) {
    const QoJsonNode node(json_new(JSON_NODE));
    log_.clear();
    EXPECT_EQ(store_->GenerateShadowTree(nullptr, node.get()), -1);
    EXPECT_EQ(store_->GenerateShadowTree(node.get(), nullptr), -1);
    const auto line = error_line("Cannot generate shadow tree withoutsource and/or destination tree");
    EXPECT_THAT(log_.lines(), ElementsAre(line, line));
}

TEST_F(SubscriptionTree, ANodeThatTakesNoChildrenCannotBecomeAShadow) {
    const QoJsonNode value(json_new(JSON_NUMBER));
    const QoJsonNode source = qo_json_parse(R"({"a":{"b":1}})");
    log_.clear();
    EXPECT_EQ(store_->GenerateShadowTree(value.get(), source.get()), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("json_new/json_duplicate failed")));
}

TEST_F(SubscriptionTree, OfTheBuiltInTreeBearsItsTopLevelNodes) {
    scratch_.write(QO_DEFAULTS_FILE, "no defaults");
    load_built_in();
    for (const char* pointer : {"/", "/system/config", "/rgw/status", "/siblings/sibling", "/devices/device/features"})
        EXPECT_EQ(subscribe(5, pointer), 0) << pointer;
}

// ---- subscribing ----

const QoLogLine kSubscriptionFailed = warning_line("Subscription failed");
const QoLogLine kAlreadySubscribed = warning_line("Component already subscribed");

using AddSubscriber = SubscriptionTest;

TEST_F(AddSubscriber, HangsAnEntryOnTheNode) {
    EXPECT_EQ(subscribe(5, "/system/config"), 0);
    EXPECT_EQ(subscribe(7, "/system/config", true), 0);
    EXPECT_THAT(said_, IsEmpty());
    EXPECT_THAT(subscription_tree(), ::testing::HasSubstr(R"("config":{"cmpID":5,"notifyOnChangeOnly":7})"));
}

TEST_F(AddSubscriber, TwiceLeavesOneEntry) {
    EXPECT_EQ(subscribe(5, "/system"), 0);
    const std::string once = subscription_tree();
    EXPECT_EQ(subscribe(5, "/system"), 0);
    EXPECT_THAT(said_, ElementsAre(kAlreadySubscribed));
    EXPECT_EQ(subscription_tree(), once);
}

TEST_F(AddSubscriber, InTheOtherModeAfterwardsLeavesTheFirstEntry) {
    EXPECT_EQ(subscribe(5, "/system", true), 0);
    const std::string once = subscription_tree();
    EXPECT_EQ(subscribe(5, "/system", false), 0);
    EXPECT_THAT(said_, ElementsAre(kAlreadySubscribed));
    EXPECT_EQ(subscription_tree(), once);
}

TEST_F(AddSubscriber, ToTheRootIsAWholeTreeSubscription) {
    EXPECT_EQ(subscribe(5, "/"), 0);
    EXPECT_EQ(subscribers_of("{}"), R"({"cmpID":5})");
    EXPECT_EQ(subscribers_of(R"({"nobody":{"knows":1}})"), R"({"cmpID":5})");
    EXPECT_EQ(subscribers_of("[]"), R"({"cmpID":5})");
    EXPECT_EQ(subscribers_of("5"), R"({"cmpID":5})");
}

TEST_F(AddSubscriber, ToAnArrayCoversAllItsElements) {
    EXPECT_EQ(subscribe(5, "/zones"), 0);
    EXPECT_EQ(subscribers_of(R"({"zones":[{"id":9,"x":1}]})"), R"({"cmpID":5})");
}

TEST_F(AddSubscriber, PastAnArrayPositionFails) {
    for (const char* pointer : {"/zones/0", "/zones/1/sub"}) {
        EXPECT_EQ(subscribe(5, pointer), -1);
        EXPECT_THAT(said_, ElementsAre(kSubscriptionFailed));
    }
    EXPECT_EQ(subscription_tree(), kShadow);
}

TEST_F(AddSubscriber, InsideTheElementsOfAnArrayWorks) {
    EXPECT_EQ(subscribe(5, "/zones/inner/deep"), 0);
    EXPECT_EQ(subscribers_of(R"({"zones":[{"id":3,"inner":[{"id":2,"deep":{"x":1}}]}]})"), R"({"cmpID":5})");
}

TEST_F(AddSubscriber, TakesTheFirstOfRepeatedShadows) {
    EXPECT_EQ(subscribe(5, "/zones/sub"), 0);
    EXPECT_EQ(subscribe(5, "/zones/sub/z"), -1);
}

TEST_F(AddSubscriber, ToALeafFails) {
    EXPECT_EQ(subscribe(5, "/system/name"), -1);
    EXPECT_THAT(said_, ElementsAre(kSubscriptionFailed));
}

TEST_F(AddSubscriber, WithoutALeadingSlashFails) {
    EXPECT_EQ(subscribe(5, "system"), -1);
    EXPECT_THAT(said_,
                ElementsAre(error_line("Incorrect JSON pointer, ptr should start with /"), error_line("Null node")));
}

TEST_F(AddSubscriber, BeforeInitFails) {
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
    EXPECT_EQ(subscribe(5, "/system"), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("No subscription tree"), kSubscriptionFailed));
}

TEST_F(AddSubscriber, NullSkeletonIsRefused) {
    log_.clear();
    EXPECT_EQ(store_->ValidateAndAddSubscription(nullptr, QO_CMPID_DEMO, false), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
}

TEST_F(AddSubscriber, ExistenceOfNullIsAnsweredWithTrue) {
    log_.clear();
    EXPECT_TRUE(store_->CheckIfSubscriberExists(nullptr, QO_CMPID_DEMO));
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
}

// ---- names of entries ----

using EntryNames = SubscriptionTest;

TEST_F(EntryNames, APointerSegmentNeverMatchesAnEntry) {
    ASSERT_EQ(subscribe(5, "/system"), 0);
    ASSERT_EQ(subscribe(6, "/system", true), 0);
    for (const char* pointer : {"/system/cmpID", "/system/notifyOnChangeOnly", "/notifyOnChangeOnly"}) {
        EXPECT_EQ(subscribe(7, pointer), -1) << pointer;
        EXPECT_EQ(unsubscribe(5, pointer), -1) << pointer;
    }
}

TEST_F(EntryNames, APublishedMemberNeverMatchesAnEntry) {
    ASSERT_EQ(subscribe(5, "/"), 0);
    ASSERT_EQ(subscribe(6, "/system"), 0);
    EXPECT_EQ(subscribers_of(R"({"system":{"cmpID":{"a":1},"notifyOnChangeOnly":[{"id":0}]}})"),
              R"({"cmpID":5,"cmpID":6})");
}

TEST_F(EntryNames, AnObjectOfTheDefaultTreeMayBearOne) {
    EXPECT_EQ(subscribe(5, "/cmpID"), 0);
    EXPECT_EQ(subscribe(6, "/cmpID/x", true), 0);
    ASSERT_EQ(subscribe(7, "/"), 0);
    EXPECT_EQ(subscribers_of(R"({"cmpID":{"x":{"y":2}}})"), R"({"cmpID":7,"cmpID":5,"notifyOnChangeOnly":6})");
    EXPECT_EQ(unsubscribe(5, "/cmpID"), 0);
    EXPECT_EQ(subscribers_of(R"({"cmpID":{"x":{"y":2}}})"), R"({"cmpID":7,"notifyOnChangeOnly":6})");
}

// ---- unsubscribing ----

using RemoveSubscriber = SubscriptionTest;

TEST_F(RemoveSubscriber, AlsoRemovesTheSubscriptionsBelow) {
    for (const char* pointer : {"/", "/system", "/system/config", "/system/status/list", "/zones"}) {
        ASSERT_EQ(subscribe(5, pointer), 0);
        ASSERT_EQ(subscribe(6, pointer, true), 0);
    }
    EXPECT_EQ(unsubscribe(5, "/system"), 0);
    EXPECT_THAT(said_, IsEmpty());
    EXPECT_EQ(subscribers_of(R"({"system":{"config":{},"status":{"list":[]}},"zones":[]})"),
              R"({"cmpID":5,"notifyOnChangeOnly":6})");
    EXPECT_EQ(subscribers_of(R"({"system":{"config":{},"status":{"list":[]}}})"),
              R"({"cmpID":5,"notifyOnChangeOnly":6})");
}

TEST_F(RemoveSubscriber, FromTheRootRemovesAllOfBothModes) {
    for (const char* pointer : {"/", "/system/config", "/zones/inner/deep"}) ASSERT_EQ(subscribe(5, pointer), 0);
    ASSERT_EQ(subscribe(5, "/zones", true), 0);
    EXPECT_EQ(unsubscribe(5, "/"), 0);
    EXPECT_EQ(subscription_tree(), kShadow);
}

TEST_F(RemoveSubscriber, WithoutASubscriptionSucceeds) {
    EXPECT_EQ(unsubscribe(5, "/system"), 0);
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(RemoveSubscriber, OfAnUnknownNodeFails) {
    EXPECT_EQ(unsubscribe(5, "/system/nothing/x"), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Unsubscribe node not found ")));
}

TEST_F(RemoveSubscriber, WithoutALeadingSlashFailsWithoutAMessageOfItsOwn) {
    EXPECT_EQ(unsubscribe(5, "system"), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Incorrect JSON pointer, ptr should start with /")));
}

TEST_F(RemoveSubscriber, BeforeInitFails) {
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
    EXPECT_EQ(unsubscribe(5, "/system"), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("No subscription tree")));
}

TEST_F(RemoveSubscriber, FromNullIsRefused) {
    log_.clear();
    EXPECT_EQ(store_->RemoveSubscriberInternal(QO_CMPID_DEMO, nullptr), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
}

// ---- collecting ----

using GetSubscribers = SubscriptionTest;

TEST_F(GetSubscribers, AreThoseAlongThePublishedPathsOnly) {
    for (const auto& [id, pointer] : {std::pair(1, "/"), std::pair(2, "/system"), std::pair(3, "/system/config"),
                                      std::pair(4, "/system/status"), std::pair(5, "/zones")})
        ASSERT_EQ(subscribe(id, pointer), 0);
    EXPECT_EQ(subscribers_of(R"({"system":{"config":{"name":"x"}}})"), R"({"cmpID":1,"cmpID":2,"cmpID":3})");
}

TEST_F(GetSubscribers, BelowWhatWasPublishedAreNotIncluded) {
    ASSERT_EQ(subscribe(3, "/system/config"), 0);
    EXPECT_EQ(subscribers_of(R"({"system":{"name":"x"}})"), "{}");
    EXPECT_EQ(subscribers_of(R"({"system":{}})"), "{}");
}

TEST_F(GetSubscribers, OfTheWholeTreeAreIncludedAlsoWhenItIsAnArray) {
    load(R"([{"id":0}])");
    ASSERT_EQ(subscribe(5, "/"), 0);
    EXPECT_EQ(subscribers_of(R"([{"id":0,"a":1}])"), R"({"cmpID":5})");
}

TEST_F(GetSubscribers, OfEveryPublishedElementAreIncluded) {
    ASSERT_EQ(subscribe(1, "/zones/sub"), 0);
    ASSERT_EQ(subscribe(2, "/zones/inner/deep"), 0);
    ASSERT_EQ(subscribe(3, "/zones/other"), 0);
    EXPECT_EQ(subscribers_of(R"({"zones":[{"id":0},{"sub":{}},5,{"inner":{"deep":1}}]})"), R"({"cmpID":1,"cmpID":2})");
}

TEST_F(GetSubscribers, OfALeafWhereAContainerIsAreIncluded) {
    ASSERT_EQ(subscribe(3, "/system/config"), 0);
    EXPECT_EQ(subscribers_of(R"({"system":{"config":5}})"), R"({"cmpID":3})");
}

TEST_F(GetSubscribers, AreListedOnceInTheOrderInWhichTheyAreMet) {
    ASSERT_EQ(subscribe(9, "/system/config"), 0);
    ASSERT_EQ(subscribe(2, "/system/status"), 0);
    ASSERT_EQ(subscribe(9, "/system/status"), 0);
    ASSERT_EQ(subscribe(2, "/zones"), 0);
    EXPECT_EQ(subscribers_of(R"({"system":{"config":{},"status":{}},"zones":[]})"), R"({"cmpID":9,"cmpID":2})");
}

TEST_F(GetSubscribers, AreListedOncePerMode) {
    ASSERT_EQ(subscribe(5, "/system", true), 0);
    ASSERT_EQ(subscribe(5, "/system/config"), 0);
    EXPECT_EQ(subscribers_of(R"({"system":{"config":{}}})"), R"({"notifyOnChangeOnly":5,"cmpID":5})");
}

TEST_F(GetSubscribers, OfNullsFail) {
    const QoJsonNode node(json_new(JSON_NODE));
    log_.clear();
    EXPECT_EQ(store_->GetSubscribers(nullptr, node.get()), -1);
    EXPECT_EQ(store_->GetSubscribers(node.get(), nullptr), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node"), error_line("Null node")));
}

TEST_F(GetSubscribers, WithoutASubscriptionTreeFail) {
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
    const QoJsonNode node(json_new(JSON_NODE));
    log_.clear();
    EXPECT_EQ(store_->GetSubscribers(node.get(), node.get()), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("node and/or subscriber_list and/or "
                                                     "subscription_node is NULL")));
}

TEST_F(GetSubscribers, TheWalkOfNullsFails) {
    const QoJsonNode node(json_new(JSON_NODE));
    log_.clear();
    EXPECT_EQ(store_->GetSubscribersInternal(nullptr, node.get(), node.get()), -1);
    EXPECT_EQ(store_->GetSubscribersInternal(node.get(), nullptr, node.get()), -1);
    EXPECT_EQ(store_->GetSubscribersInternal(node.get(), node.get(), nullptr), -1);
    const auto line = error_line("node and/or subscriber_list and/or subscription_node is NULL");
    EXPECT_THAT(log_.lines(), ElementsAre(line, line, line));
}

TEST_F(GetSubscribers, OfOneNodeAreCopiedInOrder) {
    const QoJsonNode shadow =
        qo_json_parse(R"({"cmpID":5,"child":{"cmpID":9},"notifyOnChangeOnly":7,"cmpID":{},"cmpID":5})");
    const QoJsonNode list(json_new(JSON_NODE));
    EXPECT_EQ(store_->GetNodeSubscriber(shadow.get(), list.get()), 0);
    EXPECT_EQ(qo_json_write(list.get()), R"({"cmpID":5,"notifyOnChangeOnly":7,"cmpID":5})");
}

TEST_F(GetSubscribers, ThatCannotBeListedFail) {
    const QoJsonNode shadow = qo_json_parse(R"({"cmpID":5})");
    const QoJsonNode list(json_new(JSON_NUMBER));
    log_.clear();
    EXPECT_EQ(store_->GetNodeSubscriber(shadow.get(), list.get()), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("json_new/json_duplicate failed")));
}

TEST_F(GetSubscribers, OfOneNodeThatIsNullOrWithoutAListFail) {
    const QoJsonNode node = qo_json_parse(R"({"cmpID":5})");
    log_.clear();
    EXPECT_EQ(store_->GetNodeSubscriber(nullptr, node.get()), -1);
    EXPECT_EQ(store_->GetNodeSubscriber(node.get(), nullptr), -1);
    const auto line = error_line("node and/or subscriber_list and/or subscription_node is NULL");
    EXPECT_THAT(log_.lines(), ElementsAre(line, line));
}

class GetSubscribersByJsonPtr : public SubscriptionTest {
protected:
    std::string subscribers_at(const std::string& pointer) {
        const QoJsonNode list(json_new(JSON_NODE));
        log_.clear();
        result_ = store_->GetSubscribersByJsonPtr(pointer, list.get());
        keep_log();
        return qo_json_write(list.get());
    }
    int result_ = 77;
};

TEST_F(GetSubscribersByJsonPtr, AreThoseOfAPublishOfThatNode) {
    ASSERT_EQ(subscribe(1, "/"), 0);
    ASSERT_EQ(subscribe(2, "/system"), 0);
    ASSERT_EQ(subscribe(3, "/system/config"), 0);
    EXPECT_EQ(subscribers_at("/system/config/name"), R"({"cmpID":1,"cmpID":2,"cmpID":3})");
    EXPECT_EQ(subscribers_at("/system"), R"({"cmpID":1,"cmpID":2})");
    EXPECT_EQ(subscribers_at("/"), R"({"cmpID":1})");
    EXPECT_EQ(result_, 0);
}

// The shadow knows no positions: what is subscribed inside the elements is not met behind one.
TEST_F(GetSubscribersByJsonPtr, AnArrayPositionEndsTheWalk) {
    ASSERT_EQ(subscribe(2, "/zones"), 0);
    ASSERT_EQ(subscribe(3, "/zones/inner"), 0);
    EXPECT_EQ(subscribers_at("/zones/0/inner"), R"({"cmpID":2})");
}

TEST_F(GetSubscribersByJsonPtr, OfAnEmptyPointerOrANullListFail) {
    subscribers_at("");
    EXPECT_EQ(result_, -1);
    const auto line = error_line("JSON pointer and/or subscriber_list is NULL");
    EXPECT_THAT(said_, ElementsAre(line));
    log_.clear();
    EXPECT_EQ(store_->GetSubscribersByJsonPtr("/system", nullptr), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(line));
}

TEST_F(GetSubscribersByJsonPtr, OfAPointerWithoutItsSlashFail) {
    subscribers_at("system");
    EXPECT_EQ(result_, -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Incorrect JSON pointer, ptr should start with /"),
                                   error_line("JSON pointer incorrect")));
}

// ---- duplicates ----

class TrimDuplicates : public SubscriptionTest {
protected:
    std::string trimmed(std::string_view text) {
        const QoJsonNode list = qo_json_parse(text);
        log_.clear();
        result_ = store_->TrimDuplicates(list.get());
        keep_log();
        return qo_json_write(list.get());
    }
    int result_ = 77;
};

TEST_F(TrimDuplicates, KeepsTheFirstOfEachNameAndNumber) {
    EXPECT_EQ(
        trimmed(R"({"cmpID":5,"cmpID":7,"notifyOnChangeOnly":5,"cmpID":5,"cmpID":8,"cmpID":7,"notifyOnChangeOnly":5})"),
        R"({"cmpID":5,"cmpID":7,"notifyOnChangeOnly":5,"cmpID":8})");
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(trimmed("{}"), "{}");
    EXPECT_EQ(result_, 0);
}

TEST_F(TrimDuplicates, ComparesAsFloatingPointNumbers) {
    EXPECT_EQ(trimmed(R"({"a":1,"a":1.0,"a":10e-1,"a":1.5,"a":0,"a":-0.0})"), R"({"a":1,"a":1.5,"a":0})");
}

TEST_F(TrimDuplicates, NullAndOtherTypesAreRefused) {
    log_.clear();
    EXPECT_EQ(store_->TrimDuplicates(nullptr), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
    trimmed("[1,1]");
    EXPECT_EQ(result_, -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Trim not supported on a non JSON_NODE node")));
}

TEST_F(TrimDuplicates, NamesakesWithChildrenAreRefused) {
    for (const char* list : {R"({"a":1,"a":{"b":1}})", R"({"a":[1],"a":1})", R"({"a":"x","a":{"b":1}})"}) {
        EXPECT_EQ(trimmed(list), list);
        EXPECT_EQ(result_, -1);
        EXPECT_THAT(said_, ElementsAre(error_line("Cannot detect duplicates on non leaf nodes")));
    }
}

TEST_F(TrimDuplicates, NamesakesThatAreNoNumbersAreRefused) {
    for (const char* list : {R"({"a":1,"a":"1"})", R"({"a":null,"a":1})", R"({"a":{},"a":{}})"}) {
        EXPECT_EQ(trimmed(list), list);
        EXPECT_EQ(result_, -1);
        EXPECT_THAT(said_, ElementsAre(error_line("Cannot detect duplicates on non number nodes")));
    }
}

TEST_F(TrimDuplicates, SingleMembersMayBeAnything) {
    constexpr char kList[] = R"({"a":{"b":1},"c":"x","d":null,"e":0})";
    EXPECT_EQ(trimmed(kList), kList);
    EXPECT_EQ(result_, 0);
}

// ---- both searches ----

using SubscriberSearch = SubscriptionTest;

TEST_F(SubscriberSearch, OfAStoreThatHasNotStartedIsRefused) {
    const DataMgr not_started;
    std::span<const QoSubscriber> subscribers;
    log_.clear();
    EXPECT_EQ(not_started.SubscribersOfPublish(subscribers), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("node and/or subscriber_list and/or subscription_node is NULL")));
}

// Every way of subscribing and unsubscribing in turn, and after each step every kind of publish: the fixture compares
// the two searches.
TEST_F(SubscriberSearch, FindsThoseOfTheList) {
    constexpr const char* kPointers[] = {"/",       "/system",    "/system/config",    "/system/status/list",
                                         "/zones",  "/zones/sub", "/zones/inner/deep", "/cmpID",
                                         "/cmpID/x"};
    constexpr const char* kPublished[] = {
        "{}",
        "[]",
        "5",
        R"({"system":1,"zones":{},"cmpID":7})",
        R"({"system":{"config":{"name":"z"},"status":{"list":[{"id":0}]}}})",
        R"({"zones":[{"id":0,"sub":{"y":2}},{"id":1,"sub":{},"inner":[{"id":0,"deep":{}}]},5,{}]})",
        R"({"cmpID":{"x":{"y":1}},"system":{"config":1},"notifyOnChangeOnly":5})",
        R"({"system":{"config":{}},"system":{"status":{}}})"};
    constexpr size_t kSteps = 400;
    for (size_t step = 0; step < kSteps; ++step) {
        const char* pointer = kPointers[step * 7 % std::size(kPointers)];
        const int comp_id = static_cast<int>(step * 5 % 11) + 1;
        if (step * 3 % 8 < 5)
            subscribe(comp_id, pointer, step % 3 == 0);
        else
            unsubscribe(comp_id, pointer);
        for (const char* published : kPublished) subscribers_of(published);
    }
}

}  // namespace
