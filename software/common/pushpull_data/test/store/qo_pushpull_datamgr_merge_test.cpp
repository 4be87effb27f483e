// What a publish makes of the data tree.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "qo_store_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kCannotReplace[] = "Array and object cannot replace each other - a. Node NOT updated!";

/// Merges of one text into another, by the rules of a component that is allowed everything here.
class MergeTest : public QoStoreTest {
protected:
    MergeTest() { store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()}); }

    /// What the destination is after the merge; `result_` and `said_` tell how it went.
    std::string merge(std::string_view destination, std::string_view source, bool update_leaves = true,
                      eQO_COMPONENT_CLASS_ component_class = QO_INTERNAL,
                      eQO_PUBLISH_AUTHORITY_ authority = QO_ALLOW_PUBLISH_THIS_NODE) {
        const QoJsonNode into = qo_json_parse(destination);
        const QoJsonNode from = qo_json_parse(source);
        const std::string before = qo_json_write(from.get());
        log_.clear();
        result_ = store_->TreeMerge(into.get(), from.get(), update_leaves, component_class, authority);
        keep_log();
        EXPECT_EQ(qo_json_write(from.get()), before) << "the source belongs to the caller";
        return qo_json_write(into.get());
    }

    int result_ = 77;
};

// ---- members ----

using TreeMerge = MergeTest;

TEST_F(TreeMerge, NullNodesAreRefused) {
    const QoJsonNode node(json_new(JSON_NODE));
    EXPECT_EQ(store_->TreeMerge(nullptr, node.get(), true, QO_INTERNAL, QO_ALLOW_PUBLISH_THIS_NODE), -1);
    EXPECT_EQ(store_->TreeMerge(node.get(), nullptr, true, QO_INTERNAL, QO_ALLOW_PUBLISH_THIS_NODE), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node"), error_line("Null node")));
}

TEST_F(TreeMerge, ValuesAreReplacedAndNewMembersAppendedInTheirOrder) {
    EXPECT_EQ(merge(R"({"b":1,"a":{"x":true}})", R"({"new":{"n":[],"m":null},"a":{"y":"t","x":false},"b":35.0})"),
              R"({"b":35.0,"a":{"x":false,"y":"t"},"new":{"n":[],"m":null}})");
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(TreeMerge, AValueMayChangeItsType) {
    EXPECT_EQ(merge(R"({"a":1,"b":"x"})", R"({"a":"one","b":null})"), R"({"a":"one","b":null})");
}

TEST_F(TreeMerge, AValueMayBeMergedIntoAValue) {
    EXPECT_EQ(merge("1", R"("one")"), R"("one")");
    EXPECT_EQ(merge("1", R"("one")", false), "1");
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(merge("1", R"("one")", true, QO_REMOTE_CLIENT, QO_NO_PUBLISH_THIS_NODE), "1");
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(said_, ElementsAre(deny_line(LOG_INFO, "Component not authorized to update this node value - ")));
}

TEST_F(TreeMerge, AnArrayMayBeMergedIntoAnArray) {
    EXPECT_EQ(merge(R"([{"id":0,"a":1}])", R"([{"id":1},{"id":0,"a":2}])"), R"([{"id":0,"a":2},{"id":1}])");
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(TreeMerge, AnEmptyObjectAndAnEmptyArrayAddNothing) {
    EXPECT_EQ(merge(R"({"a":1})", "{}"), R"({"a":1})");
    EXPECT_EQ(result_, 0);
    EXPECT_EQ(merge(R"({"a":1})", "[]"), R"({"a":1})");
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(TreeMerge, AScalarOntoAnExistingObjectMemberIsSkipped) {
    EXPECT_EQ(merge(R"({"a":{"b":1},"c":[{"id":0}]})", R"({"a":5,"c":"x"})"), R"({"a":{"b":1},"c":[{"id":0}]})");
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(TreeMerge, AnEmptyContainerOntoOneWithChildrenIsSkipped) {
    EXPECT_EQ(merge(R"({"a":{"b":1},"c":[{"id":0}]})", R"({"a":{},"c":[]})"), R"({"a":{"b":1},"c":[{"id":0}]})");
    EXPECT_EQ(merge(R"({"a":{"b":1},"c":[{"id":0}]})", R"({"a":[],"c":{}})"), R"({"a":{"b":1},"c":[{"id":0}]})");
    EXPECT_EQ(result_, 0);
}

TEST_F(TreeMerge, AnEmptyContainerCountsAsALeaf) {
    EXPECT_EQ(merge(R"({"a":{},"b":[],"c":5,"d":5})", R"({"a":1,"b":{},"c":[],"d":{}})"),
              R"({"a":1,"b":{},"c":[],"d":{}})");
    EXPECT_EQ(result_, 0);
}

TEST_F(TreeMerge, WithoutUpdatingLeavesEveryValueIsKept) {
    EXPECT_EQ(merge(R"({"a":1,"b":{},"c":{"x":1}})", R"({"a":2,"b":5,"c":{"x":2,"y":2},"d":2})", false),
              R"({"a":1,"b":{},"c":{"x":1,"y":2},"d":2})");
}

TEST_F(TreeMerge, TheFirstMemberOfANameTakesTheValueAndTheLastPublishedWins) {
    EXPECT_EQ(merge(R"({"a":1,"a":2})", R"({"a":3,"a":4})"), R"({"a":4,"a":2})");
    EXPECT_EQ(merge("{}", R"({"a":{"x":1},"a":{"x":2,"y":3}})"), R"({"a":{"x":2,"y":3}})");
}

TEST_F(TreeMerge, NamesAndValuesMayHoldNulBytes) {
    EXPECT_EQ(merge(R"({"a\u0000b":1,"a":2})", R"({"a\u0000b":"x\u0000y","a\u0000c":{"":3}})"),
              R"({"a\u0000b":"x\u0000y","a":2,"a\u0000c":{"":3}})");
}

TEST_F(TreeMerge, ReturnsTheFirstFaultAndKeepsWhatWasMergedBefore) {
    EXPECT_EQ(merge(R"({"a":1,"b":1})", R"({"a":2,"zones":[{"temp":1}],"b":2})"), R"({"a":2,"b":1})");
    EXPECT_EQ(result_, -1);
}

TEST_F(TreeMerge, ANumberKeepsEveryDigit) {
    const std::string source = R"({"a":0.)" + std::string(10000, '2') + "}";
    EXPECT_TRUE(merge(R"({"a":1})", source) == source);
}

// ---- kinds ----

using MergeOfKinds = MergeTest;

TEST_F(MergeOfKinds, ALeafThatIsGivenMembersBecomesAnObjectFirst) {
    EXPECT_EQ(merge(R"({"a":5})", R"({"a":{"b":1}})"), R"({"a":{"b":1}})");
    EXPECT_EQ(merge(R"({"a":"text"})", R"({"a":{"b":{"c":1}}})"), R"({"a":{"b":{"c":1}}})");
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(MergeOfKinds, ALeafThatIsGivenElementsBecomesAnArrayFirst) {
    EXPECT_EQ(merge(R"({"a":true})", R"({"a":[{"id":1,"x":5}]})"), R"({"a":[{"id":0},{"id":1,"x":5}]})");
    EXPECT_EQ(result_, 0);
}

TEST_F(MergeOfKinds, AnEmptyContainerTakesThePublishedKind) {
    EXPECT_EQ(merge(R"({"a":[]})", R"({"a":{"b":1}})"), R"({"a":{"b":1}})");
    EXPECT_EQ(merge(R"({"a":{}})", R"({"a":[{"id":0}]})"), R"({"a":[{"id":0}]})");
    EXPECT_EQ(result_, 0);
}

TEST_F(MergeOfKinds, AnObjectOntoANonEmptyArrayFailsAndLeavesItUntouched) {
    EXPECT_EQ(merge(R"({"a":[{"id":0}],"z":1})", R"({"a":{"b":1},"z":2})"), R"({"a":[{"id":0}],"z":1})");
    EXPECT_EQ(result_, -1);
    EXPECT_THAT(said_, ElementsAre(error_line(kCannotReplace)));
}

TEST_F(MergeOfKinds, AnArrayOntoANonEmptyObjectFailsAndLeavesItUntouched) {
    EXPECT_EQ(merge(R"({"a":{"b":1}})", R"({"a":[{"id":0}]})"), R"({"a":{"b":1}})");
    EXPECT_EQ(result_, -1);
    EXPECT_THAT(said_, ElementsAre(error_line(kCannotReplace)));
}

TEST_F(MergeOfKinds, TheDefaultTreeKeepsASavedContainerOfAnotherKindAndGoesOn) {
    EXPECT_EQ(merge(R"({"a":{"b":1}})", R"({"a":[{"id":0}],"z":2})", false), R"({"a":{"b":1},"z":2})");
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(said_, ElementsAre(error_line(kCannotReplace)));
}

TEST_F(MergeOfKinds, TheDefaultTreeKeepsASavedLeafWhereItHasAContainer) {
    EXPECT_EQ(merge(R"({"a":5,"b":[],"c":[1,2]})", R"({"a":{"x":1},"b":{"x":1},"c":[{"id":0,"x":1}],"d":1})", false),
              R"({"a":5,"b":[],"c":[1,2],"d":1})");
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(MergeOfKinds, AnArrayPublishedAtTheRootFails) {
    for (const char* root : {R"({"a":1})", "{}"}) {
        EXPECT_EQ(merge(root, R"([{"id":0}])"), root);
        EXPECT_EQ(result_, -1);
        EXPECT_THAT(said_, ElementsAre(error_line("An array cannot be merged into an object. Tree NOT updated!")));
    }
}

TEST_F(MergeOfKinds, AScalarPublishedAtTheRootMergesNothing) {
    for (const char* scalar : {"5", "\"x\"", "true", "null"}) {
        EXPECT_EQ(merge(R"({"a":1})", scalar), R"({"a":1})");
        EXPECT_EQ(result_, 0);
        EXPECT_EQ(merge("{}", scalar), "{}");
        EXPECT_EQ(result_, 0);
        EXPECT_THAT(said_, IsEmpty());
    }
}

TEST_F(MergeOfKinds, AScalarElementThatIsGivenMembersBecomesAnObject) {
    EXPECT_EQ(merge(R"({"a":[10,20]})", R"({"a":[{"id":1,"x":5}]})"), R"({"a":[10,{"id":1,"x":5}]})");
    EXPECT_EQ(result_, 0);
}

TEST_F(MergeOfKinds, AnElementThatIsANonEmptyArrayKeepsItsKind) {
    EXPECT_EQ(merge(R"({"a":[[1]]})", R"({"a":[{"id":0,"x":5}]})"), R"({"a":[[1]]})");
    EXPECT_EQ(result_, -1);
}

// ---- arrays ----

using MergeOfArrays = MergeTest;

TEST_F(MergeOfArrays, AnElementWithIdFiveIntoAnEmptyArrayStandsBehindFivePlaceholders) {
    EXPECT_EQ(merge(R"({"zones":[]})", R"({"zones":[{"id":5,"t":1}]})"),
              R"({"zones":[{"id":0},{"id":1},{"id":2},{"id":3},{"id":4},{"id":5,"t":1}]})");
    EXPECT_EQ(result_, 0);
}

TEST_F(MergeOfArrays, AnElementIsMergedIntoTheOneAtItsId) {
    EXPECT_EQ(merge(R"({"zones":[{"id":0},{"id":1,"t":1,"u":2}]})", R"({"zones":[{"id":1,"t":5}]})"),
              R"({"zones":[{"id":0},{"id":1,"t":5,"u":2}]})");
}

TEST_F(MergeOfArrays, AnObjectFillsAPlaceholder) {
    EXPECT_EQ(merge(R"({"zones":[{"id":0},{"id":1}]})", R"({"zones":[{"id":1,"t":{"x":5}}]})"),
              R"({"zones":[{"id":0},{"id":1,"t":{"x":5}}]})");
}

TEST_F(MergeOfArrays, ElementsMayComeInAnyOrder) {
    EXPECT_EQ(merge("{}", R"({"zones":[{"id":2,"t":2},{"id":0,"t":0}]})"),
              R"({"zones":[{"id":0,"t":0},{"id":1},{"id":2,"t":2}]})");
}

TEST_F(MergeOfArrays, AnElementWithoutIdFailsThePublish) {
    EXPECT_EQ(merge(R"({"zones":[{"id":0}]})", R"({"zones":[{"t":1}]})"), R"({"zones":[{"id":0}]})");
    EXPECT_EQ(result_, -1);
    EXPECT_THAT(said_, ElementsAre(error_line("id indicating array index not found in source array element")));
}

TEST_F(MergeOfArrays, ScalarAndArrayElementsHaveNoId) {
    for (const char* source : {R"({"zones":[5]})", R"({"zones":["id"]})", R"({"zones":[[{"id":0}]]})",
                               R"({"zones":[null]})", R"({"zones":[{}]})"}) {
        EXPECT_EQ(merge(R"({"zones":[{"id":0}]})", source), R"({"zones":[{"id":0}]})");
        EXPECT_EQ(result_, -1) << source;
        EXPECT_THAT(said_, ElementsAre(error_line("id indicating array index not found in source array element")));
    }
}

TEST_F(MergeOfArrays, AnIdThatIsNegativeNoNumberOrBeyond32BitsIsInvalid) {
    for (const char* id : {"-1", "-2147483649", "2147483648", "1e300", "\"1\"", "true", "null", "{}", "[1]"}) {
        const std::string source = R"({"zones":[{"id":)" + std::string(id) + "}]}";
        EXPECT_EQ(merge(R"({"zones":[{"id":0}]})", source), R"({"zones":[{"id":0}]})");
        EXPECT_EQ(result_, -1) << id;
        EXPECT_THAT(said_, ElementsAre(error_line("Invalid id in array element")));
    }
}

TEST_F(MergeOfArrays, AFractionInAnIdIsCutTowardZero) {
    EXPECT_EQ(merge("{}", R"({"zones":[{"id":-0.9},{"id":1.99},{"id":20e-1}]})"),
              R"({"zones":[{"id":-0.9},{"id":1.99},{"id":20e-1}]})");
    EXPECT_EQ(result_, 0);
}

TEST_F(MergeOfArrays, MaxItemsIsInclusive) {
    EXPECT_EQ(merge(R"({"zones":[{"id":0,"maxItems":3}]})", R"({"zones":[{"id":3}]})"),
              R"({"zones":[{"id":0,"maxItems":3},{"id":1},{"id":2},{"id":3}]})");
    EXPECT_EQ(result_, 0);
}

TEST_F(MergeOfArrays, AnIdAboveMaxItemsIsRefused) {
    EXPECT_EQ(merge(R"({"zones":[{"id":0,"maxItems":3}]})", R"({"zones":[{"id":4}]})"),
              R"({"zones":[{"id":0,"maxItems":3}]})");
    EXPECT_EQ(result_, -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Array id 4 exceeded max items 3. Tree NOT updated!")));
}

TEST_F(MergeOfArrays, MaxItemsOfAnotherElementDoesNotCount) {
    merge(R"({"zones":[{"id":0},{"id":1,"maxItems":1}]})", R"({"zones":[{"id":4}]})");
    EXPECT_EQ(result_, 0);
}

TEST_F(MergeOfArrays, AMaxItemsThatThisPublishRaisesHoldsForItsLaterElements) {
    EXPECT_EQ(merge(R"({"zones":[{"id":0,"maxItems":1},{"id":1}]})",
                    R"({"zones":[{"id":1},{"id":0,"maxItems":2},{"id":2},{"id":0,"maxItems":1},{"id":2,"t":5}]})"),
              R"({"zones":[{"id":0,"maxItems":1},{"id":1},{"id":2}]})");
    EXPECT_EQ(result_, -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Array id 2 exceeded max items 1. Tree NOT updated!")));
}

TEST_F(MergeOfArrays, AMaxItemsThatThisPublishMakesAContainerIsZeroForItsLaterElements) {
    merge(R"({"zones":[{"id":0,"maxItems":5}]})",
          R"({"zones":[{"id":2},{"id":0,"maxItems":{"x":1}},{"id":0,"t":5},{"id":1,"t":5}]})");
    EXPECT_EQ(result_, -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Array id 1 exceeded max items 0. Tree NOT updated!")));
}

TEST_F(MergeOfArrays, ANestedArrayOfANewElementIsBuiltByTheSameRules) {
    EXPECT_EQ(merge("{}", R"({"a":[{"id":1,"b":[{"id":1,"writeAccess":"openAll"}],"doNotPersist":true}]})"),
              R"({"a":[{"id":0},{"id":1,"b":[{"id":0},{"id":1}]}]})");
}

TEST_F(MergeOfArrays, AFaultInANewElementAddsNeitherItNorPlaceholders) {
    EXPECT_EQ(merge(R"({"a":[]})", R"({"a":[{"id":7,"b":[{"id":-1}]}]})"), R"({"a":[]})");
    EXPECT_EQ(result_, -1);
}

// ---- metadata ----

using MergeOfMetadata = MergeTest;

TEST_F(MergeOfMetadata, ClientsCannotAddIt) {
    EXPECT_EQ(merge(R"({"a":{"x":1}})",
                    R"({"writeAccess":"openAll","a":{"doNotPersist":true},"b":{"writeAccess":"openAll"}})", true,
                    QO_REMOTE_CLIENT, QO_ALLOW_PUBLISH_THIS_NODE_AND_BELOW),
              R"({"a":{"x":1},"b":{}})");
    EXPECT_EQ(result_, 0);
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(MergeOfMetadata, ItIsNeverChanged) {
    for (const char* value : {R"("openAll")", "{}", "[]", R"({"x":1})", R"([{"id":0}])"}) {
        const std::string source = R"({"writeAccess":)" + std::string(value) + R"(,"doNotPersist":)" + value + "}";
        EXPECT_EQ(merge(R"({"writeAccess":"local","doNotPersist":true})", source),
                  R"({"writeAccess":"local","doNotPersist":true})");
        EXPECT_EQ(result_, 0);
        EXPECT_THAT(said_, IsEmpty());
    }
}

TEST_F(MergeOfMetadata, MaxItemsAndIdAreOrdinaryMembers) {
    EXPECT_EQ(merge("{}", R"({"a":{"maxItems":3,"id":7}})"), R"({"a":{"maxItems":3,"id":7}})");
}

// ---- UpdateLeafValue ----

using UpdateLeafValue = MergeTest;

TEST_F(UpdateLeafValue, NullsAreRefused) {
    const QoJsonNode leaf(json_new(JSON_NUMBER));
    EXPECT_EQ(store_->UpdateLeafValue(nullptr, leaf.get()), -1);
    EXPECT_EQ(store_->UpdateLeafValue(leaf.get(), nullptr), -1);
    const auto line = error_line("Destination/source leaf is NULL");
    EXPECT_THAT(log_.lines(), ElementsAre(line, line));
}

TEST_F(UpdateLeafValue, CopiesTypeAndValueAndKeepsTheName) {
    const QoJsonNode destination(json_new_i("kept", 1));
    const QoJsonNode source(json_new_a("other", "text"));
    EXPECT_EQ(store_->UpdateLeafValue(destination.get(), source.get()), 0);
    EXPECT_EQ(qo_json_name(destination.get()), "kept");
    EXPECT_EQ(qo_json_string(destination.get()), "text");
}

TEST_F(UpdateLeafValue, MetadataNamesChangeNothing) {
    for (const char* name : {"writeAccess", "doNotPersist"}) {
        const QoJsonNode destination(json_new_a(name, "local"));
        const QoJsonNode source(json_new_a(name, "openAll"));
        EXPECT_EQ(store_->UpdateLeafValue(destination.get(), source.get()), 0);
        EXPECT_EQ(qo_json_string(destination.get()), "local");
    }
}

// ---- UpdateNode ----

constexpr char kDefaults[] =
    R"({"system":{"config":{"name":"a","temp":35.0},"status":{"state":"idle"}},"zones":[{"id":0}]})";

using UpdateNode = QoStoreTest;

TEST_F(UpdateNode, MergesIntoTheDataTree) {
    load(kDefaults);
    EXPECT_EQ(publish(R"({"system":{"config":{"name":"b"}},"zones":[{"id":2,"t":1}]})"), 0);
    EXPECT_EQ(tree(), R"({"system":{"config":{"name":"b","temp":35.0},"status":{"state":"idle"}},)"
                      R"("zones":[{"id":0},{"id":1},{"id":2,"t":1}]})");
    EXPECT_TRUE(save_scheduled_);
}

TEST_F(UpdateNode, SchedulesASaveUnlessAllThatItTouchesIsMarkedAsTransient) {
    load(R"({"t":{"doNotPersist":true,"x":1},"kept":{"doNotPersist":false,"x":1},"plain":{"x":1}})");
    EXPECT_EQ(publish(R"({"t":{"x":2}})"), 0);
    EXPECT_FALSE(save_scheduled_);
    EXPECT_EQ(publish(R"({"kept":{"x":2}})"), 0);
    EXPECT_TRUE(save_scheduled_);
    EXPECT_EQ(publish(R"({"plain":{"x":2}})"), 0);
    EXPECT_TRUE(save_scheduled_);
}

TEST_F(UpdateNode, NullIsRefused) {
    load(kDefaults);
    EXPECT_EQ(store_->UpdateNode(nullptr, save_scheduled_, QO_INTERNAL), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
}

TEST_F(UpdateNode, WithoutADataTreeIsRefused) {
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
    EXPECT_EQ(publish("{}"), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Null node")));
}

TEST_F(UpdateNode, AFaultReturnsMinusOneAndSchedulesNoSave) {
    load(kDefaults);
    save_scheduled_ = true;
    EXPECT_EQ(publish(R"({"zones":[{"t":1}]})"), -1);
    EXPECT_FALSE(save_scheduled_);
}

TEST_F(UpdateNode, AScalarTextMergesNothing) {
    load(kDefaults);
    for (const char* text : {"5", "null", R"("text")", "false"}) {
        EXPECT_EQ(publish(text), 0);
        EXPECT_EQ(tree(), kDefaults);
    }
}

TEST_F(UpdateNode, AnArrayTextFailsAndChangesNothing) {
    load(kDefaults);
    EXPECT_EQ(publish(R"([{"id":0,"x":1}])"), -1);
    EXPECT_EQ(tree(), kDefaults);
    EXPECT_EQ(publish("[]"), 0);
    EXPECT_EQ(tree(), kDefaults);
}

TEST_F(UpdateNode, IntoAnEmptyTreeAddsMembers) {
    load("{}");
    EXPECT_EQ(publish(R"({"a":{"b":1}})"), 0);
    EXPECT_EQ(tree(), R"({"a":{"b":1}})");
}

// ---- change detection ----

/// Component 7 wants changes only; tells whether it would be told of a publish.
class ChangeOnlyTest : public QoStoreTest {
protected:
    ChangeOnlyTest() {
        load(kDefaults);
        subscribe(7, "/system/config", true);
    }
    bool is_told_of(std::string_view text) {
        EXPECT_EQ(publish(text), 0);
        return store_->PublishToAllSubscribers();
    }
};

using PublishToAllSubscribers = ChangeOnlyTest;

TEST_F(PublishToAllSubscribers, IsFalseForAPublishThatChangesNoValue) {
    EXPECT_FALSE(is_told_of(R"({"system":{"config":{"name":"a"}}})"));
}

TEST_F(PublishToAllSubscribers, IsTrueForAChangedValue) {
    EXPECT_TRUE(is_told_of(R"({"system":{"config":{"name":"b"}}})"));
}

TEST_F(PublishToAllSubscribers, NumbersAreComparedByTheirExactValue) {
    EXPECT_FALSE(is_told_of(R"({"system":{"config":{"temp":35}}})"));
    EXPECT_FALSE(is_told_of(R"({"system":{"config":{"temp":350e-1}}})"));
    EXPECT_TRUE(is_told_of(R"({"system":{"config":{"temp":35.00000000000000000000000001}}})"));
}

TEST_F(PublishToAllSubscribers, ANewMemberIsAChange) {
    EXPECT_TRUE(is_told_of(R"({"system":{"config":{"fresh":null}}})"));
    EXPECT_FALSE(is_told_of(R"({"system":{"config":{"fresh":null}}})"));
    EXPECT_TRUE(is_told_of(R"({"system":{"config":{"object":{}}}})"));
}

TEST_F(PublishToAllSubscribers, ANewArrayElementIsAChange) {
    EXPECT_TRUE(is_told_of(R"({"system":{"config":{}},"zones":[{"id":1}]})"));
    EXPECT_FALSE(is_told_of(R"({"system":{"config":{}},"zones":[{"id":1}]})"));
}

TEST_F(PublishToAllSubscribers, AValueThatBecomesAContainerIsAChange) {
    EXPECT_TRUE(is_told_of(R"({"system":{"config":{"name":{"x":1}}}})"));
    // Of this one only the kind is left.
    EXPECT_TRUE(is_told_of(R"({"system":{"config":{"temp":{"writeAccess":"openAll"}}}})"));
}

TEST_F(PublishToAllSubscribers, MetadataAreNoChange) {
    EXPECT_FALSE(is_told_of(R"({"system":{"config":{"writeAccess":"openAll"}}})"));
}

TEST_F(PublishToAllSubscribers, IsTrueWhenNobodyConcernedAsksForChangesOnly) {
    EXPECT_TRUE(is_told_of(R"({"system":{"status":{"state":"idle"}}})"));
}

TEST_F(PublishToAllSubscribers, EveryPublishStartsAfresh) {
    EXPECT_TRUE(is_told_of(R"({"system":{"config":{"name":"b"}}})"));
    EXPECT_FALSE(is_told_of(R"({"system":{"config":{"name":"b"}}})"));
}

TEST_F(PublishToAllSubscribers, AChangeBesideTheSubscriptionCountsWithinOnePublish) {
    EXPECT_TRUE(is_told_of(R"({"system":{"config":{"name":"a"},"status":{"state":"run"}}})"));
}

using UpdateModifiedNodeState = ChangeOnlyTest;

TEST_F(UpdateModifiedNodeState, NullFailsWithTheFlagsCleared) {
    EXPECT_FALSE(is_told_of(R"({"system":{"config":{"name":"a"}}})"));
    log_.clear();
    EXPECT_EQ(store_->UpdateModifiedNodeState(nullptr), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
    EXPECT_TRUE(store_->PublishToAllSubscribers());
}

// ---- MergeToDataTree ----

using MergeToDataTree = QoStoreTest;

TEST_F(MergeToDataTree, WithoutADefaultTreeFails) {
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
    EXPECT_EQ(store_->MergeToDataTree(nullptr), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{LOG_CRIT, "PushPull:*@#: No default tree provided!"}));
}

TEST_F(MergeToDataTree, WithoutASavedTreeCopiesTheDefaultTree) {
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
    const QoJsonNode defaults = qo_json_parse(kDefaults);
    EXPECT_EQ(store_->MergeToDataTree(defaults.get()), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(info_line("No saved configuration, using default tree as "
                                                    "data tree")));
    EXPECT_EQ(tree(), kDefaults);
}

TEST_F(MergeToDataTree, SavedValuesWinAndWhatOnlyTheDefaultHasIsAdded) {
    load(R"({"a":{"x":1},"zones":[{"id":0,"t":1}]})");
    const QoJsonNode defaults = qo_json_parse(
        R"({"a":{"x":9,"y":9,"writeAccess":"local"},"zones":[{"id":0,"t":9,"maxItems":4},{"id":1}],"b":{"doNotPersist":true}})");
    EXPECT_EQ(store_->MergeToDataTree(defaults.get()), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(info_line("Default and saved trees merged")));
    EXPECT_EQ(tree(), R"({"a":{"x":1,"y":9,"writeAccess":"local"},"zones":[{"id":0,"t":1,"maxItems":4},{"id":1}],)"
                      R"("b":{"doNotPersist":true}})");
}

TEST_F(MergeToDataTree, AMergeThatFailsLeavesACopyOfTheDefaultTree) {
    load(R"({"a":{"x":1}})");
    constexpr char kBroken[] = R"({"a":{"x":2},"zones":[{"t":1}]})";
    const QoJsonNode defaults = qo_json_parse(kBroken);
    EXPECT_EQ(store_->MergeToDataTree(defaults.get()), 0);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("id indicating array index not found in source array element"),
                                          QoLogLine{LOG_CRIT,
                                                    "PushPull:*@#: Default and saved trees merge failed. "
                                                    "Using default tree as data tree"}));
    EXPECT_EQ(tree(), kBroken);
}

TEST_F(MergeToDataTree, MetadataAreProtectedAgainAfterwards) {
    load(R"({"a":{"x":1}})");
    const QoJsonNode defaults = qo_json_parse(R"({"a":{"x":1,"writeAccess":"local"}})");
    ASSERT_EQ(store_->MergeToDataTree(defaults.get()), 0);
    EXPECT_EQ(publish(R"({"a":{"writeAccess":"openAll","doNotPersist":true}})"), 0);
    EXPECT_EQ(tree(), R"({"a":{"x":1,"writeAccess":"local"}})");
}

}  // namespace
