// Deleting nodes, and clearing them to their defaults.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "qo_store_fixture.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char kDefaults[] =
    R"({)"
    R"("system":{"name":"x","config":{"writeAccess":"openAll","temp":35.0,"mode":"auto"}},)"
    R"("zones":[{"id":0,"t":0},{"id":1,"t":1},{"id":2,"t":2,"sub":{"y":1}},{"id":3,"t":3},{"id":4,"t":4}],)"
    R"("scalars":[10,20,[30]])"
    R"(})";

const QoLogLine kDeleteFailed = error_line("Delete failed");
const QoLogLine kPathIncorrect = error_line("Delete path incorrect");

QoLogLine no_default(const std::string& pointer) {
    return {LOG_ERR, "Clear: Failed to read node(" + pointer + ") from default tree."};
}

class DeleteTest : public QoStoreTest {
protected:
    DeleteTest() { load(kDefaults); }

    void expect_refused(const std::string& pointer, const std::vector<QoLogLine>& lines) {
        const std::string before = tree();
        EXPECT_EQ(remove(pointer), -1) << pointer;
        EXPECT_EQ(said_, lines) << pointer;
        EXPECT_EQ(tree(), before) << pointer;
    }
};

// ---- delete ----

using DeleteNode = DeleteTest;

TEST_F(DeleteNode, RemovesAMemberWithEverythingBelowIt) {
    EXPECT_EQ(remove("/system/config"), 0);
    EXPECT_THAT(said_, IsEmpty());
    EXPECT_EQ(read("/system"), R"({"system":{"name":"x"}})");
}

TEST_F(DeleteNode, RemovesALeaf) {
    EXPECT_EQ(remove("/system/config/temp"), 0);
    EXPECT_EQ(read("/system/config"), R"({"system":{"config":{"writeAccess":"openAll","mode":"auto"}}})");
}

TEST_F(DeleteNode, RemovesAWholeArray) {
    EXPECT_EQ(remove("/zones"), 0);
    EXPECT_EQ(read("/zones"), "");
}

TEST_F(DeleteNode, OfTheRootIsRefused) {
    expect_refused("/", {debug_line("Root path or dangling / or back to back slashes //"),
                         error_line("Cannot delete the entire tree")});
}

TEST_F(DeleteNode, OfAPointerWithoutItsSlashIsRefused) {
    expect_refused("system", {error_line("Incorrect JSON pointer, ptr should start with /"), error_line("Null node")});
}

TEST_F(DeleteNode, OfAnUnknownNameFails) {
    expect_refused("/nothing", {kPathIncorrect, kDeleteFailed});
    expect_refused("/system/config/nothing", {kPathIncorrect, kDeleteFailed});
}

TEST_F(DeleteNode, BelowALeafFails) { expect_refused("/system/name/x", {kPathIncorrect, kDeleteFailed}); }

TEST_F(DeleteNode, RemovesTheFirstMemberOfAName) {
    load(R"({"a":1,"a":2})");
    EXPECT_EQ(remove("/a"), 0);
    EXPECT_EQ(tree(), R"({"a":2})");
}

TEST_F(DeleteNode, WithoutADataTreeFails) {
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
    EXPECT_EQ(remove("/system"), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Null node"), kDeleteFailed));
}

TEST_F(DeleteNode, ArmsTheSaveTimer) {
    log_.clear();
    store_->DeleteNode("/system/name", false);
    EXPECT_THAT(log_.lines(), Contains(QoLogLine{LOG_INFO, kTimerCreated}));
}

TEST_F(DeleteNode, ThatFailsArmsNoTimer) {
    log_.clear();
    store_->DeleteNode("/nothing", false);
    EXPECT_THAT(log_.lines(), Not(Contains(QoLogLine{LOG_INFO, kTimerCreated})));
}

// ---- array elements ----

using DeleteElement = DeleteTest;

TEST_F(DeleteElement, InTheMiddleLeavesAPlaceholder) {
    EXPECT_EQ(remove("/zones/2"), 0);
    EXPECT_EQ(read("/zones"), R"({"zones":[{"id":0,"t":0},{"id":1,"t":1},{"id":2},{"id":3,"t":3},{"id":4,"t":4}]})");
}

TEST_F(DeleteElement, AtTheEndRemovesIt) {
    EXPECT_EQ(remove("/zones/4"), 0);
    EXPECT_EQ(read("/zones"),
              R"({"zones":[{"id":0,"t":0},{"id":1,"t":1},{"id":2,"t":2,"sub":{"y":1}},{"id":3,"t":3}]})");
}

TEST_F(DeleteElement, APathMayContinueInIt) {
    EXPECT_EQ(remove("/zones/2/sub/y"), 0);
    EXPECT_EQ(remove("/zones/2/t"), 0);
    EXPECT_EQ(read("/zones/2"), R"({"zones":[{"id":2,"sub":{}}]})");
    expect_refused("/zones/2/nothing", {kPathIncorrect, kDeleteFailed});
}

TEST_F(DeleteElement, AScalarThatIsNotTheLastLeavesAPlaceholderObject) {
    EXPECT_EQ(remove("/scalars/0"), 0);
    EXPECT_EQ(read("/scalars"), R"({"scalars":[{"id":0},20,[30]]})");
    EXPECT_EQ(remove("/scalars/2"), 0);
    EXPECT_EQ(remove("/scalars/1"), 0);
    EXPECT_EQ(read("/scalars"), R"({"scalars":[{"id":0}]})");
}

TEST_F(DeleteElement, AnArrayThatIsNotTheLastLeavesAPlaceholderObject) {
    load(R"({"a":[[1,2],3]})");
    EXPECT_EQ(remove("/a/0"), 0);
    EXPECT_EQ(tree(), R"({"a":[{"id":0},3]})");
}

TEST_F(DeleteElement, TheOnlyOneLeavesAnEmptyArray) {
    load(R"({"a":[{"id":0}]})");
    EXPECT_EQ(remove("/a/0"), 0);
    EXPECT_EQ(tree(), R"({"a":[]})");
}

TEST_F(DeleteElement, BeyondTheLastOrNegativeFails) {
    expect_refused("/zones/5", {kPathIncorrect, kDeleteFailed});
    expect_refused("/zones/-1", {kPathIncorrect, kDeleteFailed});
}

TEST_F(DeleteElement, APositionThatIsNoNumberFails) {
    const auto exception = error_line("Exception stol");
    expect_refused("/zones/x", {exception, kPathIncorrect, kDeleteFailed});
    expect_refused("/zones/99999999999999999999", {exception, kPathIncorrect, kDeleteFailed});
}

TEST_F(DeleteElement, APositionIsReadLikeThatOfARead) {
    EXPECT_EQ(remove("/zones/ +4th"), 0);
    EXPECT_EQ(read("/zones/4"), "");
}

// ---- clear ----

using ClearNode = DeleteTest;

TEST_F(ClearNode, PutsTheDefaultBack) {
    ASSERT_EQ(publish(R"({"system":{"config":{"temp":1,"fresh":true}}})"), 0);
    EXPECT_EQ(clear("/system/config"), 0);
    EXPECT_THAT(said_, IsEmpty());
    EXPECT_EQ(read("/system"),
              R"({"system":{"name":"x","config":{"writeAccess":"openAll","temp":35.0,"mode":"auto"}}})");
}

TEST_F(ClearNode, PutsALeafBackBehindTheOthers) {
    EXPECT_EQ(clear("/system/config/temp"), 0);
    EXPECT_EQ(read("/system/config"), R"({"system":{"config":{"writeAccess":"openAll","mode":"auto","temp":35.0}}})");
}

TEST_F(ClearNode, PutsDefaultMetadataBack) {
    EXPECT_EQ(clear("/system/config/writeAccess"), 0);
    EXPECT_EQ(read("/system/config/writeAccess"), R"({"system":{"config":{"writeAccess":"openAll"}}})");
}

TEST_F(ClearNode, MetadataAreProtectedAgainAfterwards) {
    EXPECT_EQ(clear("/system/config"), 0);
    EXPECT_EQ(publish(R"({"system":{"config":{"writeAccess":"internal","doNotPersist":true}}})"), 0);
    EXPECT_EQ(read("/system/config"), R"({"system":{"config":{"writeAccess":"openAll","temp":35.0,"mode":"auto"}}})");
}

TEST_F(ClearNode, PutsAWholeArrayBack) {
    ASSERT_EQ(publish(R"({"zones":[{"id":1,"t":9},{"id":7}]})"), 0);
    EXPECT_EQ(clear("/zones"), 0);
    EXPECT_EQ(read("/zones/1"), R"({"zones":[{"id":1,"t":1}]})");
    EXPECT_EQ(read("/zones/5"), "");
}

TEST_F(ClearNode, PutsAnElementBackAtItsPlace) {
    ASSERT_EQ(publish(R"({"zones":[{"id":2,"t":9,"fresh":1},{"id":4,"t":9}]})"), 0);
    EXPECT_EQ(clear("/zones/2"), 0);
    EXPECT_EQ(clear("/zones/4"), 0);
    EXPECT_EQ(read("/zones/2"), R"({"zones":[{"id":2,"t":2,"sub":{"y":1}}]})");
    EXPECT_EQ(read("/zones/4"), R"({"zones":[{"id":4,"t":4}]})");
}

TEST_F(ClearNode, ThatTheDefaultTreeLacksIsDeleted) {
    ASSERT_EQ(publish(R"({"system":{"fresh":{"x":1}}})"), 0);
    EXPECT_EQ(clear("/system/fresh"), 0);
    EXPECT_THAT(said_, ElementsAre(error_line("Read path incorrect"), error_line("Read path incorrect"),
                                   no_default("/system/fresh")));
    EXPECT_EQ(read("/system/fresh"), "");
}

TEST_F(ClearNode, ThatTheDataTreeLacksFailsAndRestoresNothing) {
    ASSERT_EQ(remove("/system/name"), 0);
    EXPECT_EQ(clear("/system/name"), -1);
    EXPECT_THAT(said_, ElementsAre(kPathIncorrect, kDeleteFailed));
    EXPECT_EQ(read("/system/name"), "");
}

TEST_F(ClearNode, ThatNeitherTreeHasFails) {
    EXPECT_EQ(clear("/nothing"), -1);
    EXPECT_THAT(said_,
                ElementsAre(error_line("Read path incorrect"), no_default("/nothing"), kPathIncorrect, kDeleteFailed));
}

TEST_F(ClearNode, OfTheRootIsRefused) {
    EXPECT_EQ(clear("/"), -1);
    EXPECT_THAT(said_, Contains(error_line("Cannot delete the entire tree")));
    EXPECT_EQ(tree(), kDefaults);
}

// The part of an element that a read gives has no "id", so it cannot be merged back.
TEST_F(ClearNode, OfAPartOfAnElementDeletesItAndFailsToRestore) {
    EXPECT_EQ(clear("/zones/2/t"), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("id indicating array index not found in source array element"),
                                   error_line("Restoring the node after deletion has failed!")));
    EXPECT_EQ(read("/zones/2"), R"({"zones":[{"id":2,"sub":{"y":1}}]})");
}

TEST_F(ClearNode, WhosePlaceIsOfAnotherKindNowFailsToRestore) {
    ASSERT_EQ(remove("/zones"), 0);
    ASSERT_EQ(publish(R"({"zones":{"2":1,"3":1}})"), 0);
    EXPECT_EQ(clear("/zones/2"), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Array and object cannot replace each other - zones. "
                                              "Node NOT updated!"),
                                   error_line("Restoring the node after deletion has failed!")));
    EXPECT_EQ(read("/zones"), R"({"zones":{"3":1}})");
}

TEST_F(ClearNode, ArmsTheSaveTimer) {
    log_.clear();
    store_->DeleteNode("/system/name", true);
    EXPECT_THAT(log_.lines(), Contains(QoLogLine{LOG_INFO, kTimerCreated}));
}

// ---- the walk ----

using ValidateAndDeleteNode = DeleteTest;

TEST_F(ValidateAndDeleteNode, NullsAreRefused) {
    const QoJsonNode node = qo_json_parse(R"({"a":{}})");
    EXPECT_EQ(store_->ValidateAndDeleteNode(nullptr, node.get()), -1);
    EXPECT_EQ(store_->ValidateAndDeleteNode(node.get(), nullptr), -1);
    const auto line = error_line("Null node");
    EXPECT_THAT(log_.lines(), ElementsAre(line, line));
}

TEST_F(ValidateAndDeleteNode, ASkeletonWithoutChildrenDeletesNothing) {
    const QoJsonNode skeleton(json_new(JSON_NODE));
    const QoJsonNode data = qo_json_parse(R"({"a":1})");
    EXPECT_EQ(store_->ValidateAndDeleteNode(skeleton.get(), data.get()), 0);
    EXPECT_EQ(qo_json_write(data.get()), R"({"a":1})");
}

}  // namespace
