// Who may write which node.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "qo_pushpull_files.h"
#include "qo_store_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// ---- GetPublishAuthorityForThisNode ----

class AuthorityTest : public ::testing::Test {
protected:
    eQO_PUBLISH_AUTHORITY_ authority(std::string_view node, eQO_COMPONENT_CLASS_ component_class = QO_LOCAL_CLIENT) {
        return store_.GetPublishAuthorityForThisNode(qo_json_parse(node).get(), component_class);
    }

    QoLogCapture log_;
    DataMgr store_;
};

using Authority = std::tuple<const char*, eQO_PUBLISH_AUTHORITY_, eQO_PUBLISH_AUTHORITY_>;

class WriteAccess : public AuthorityTest, public ::testing::WithParamInterface<Authority> {};

TEST_P(WriteAccess, DecidesByTheClass) {
    const auto [value, local, remote] = GetParam();
    const std::string node = R"({"x":1,"writeAccess":)" + std::string(value) + "}";
    EXPECT_EQ(authority(node, QO_LOCAL_CLIENT), local);
    EXPECT_EQ(authority(node, QO_REMOTE_CLIENT), remote);
    EXPECT_EQ(authority(node, QO_INTERNAL), QO_ALLOW_PUBLISH_THIS_NODE);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    EveryValue, WriteAccess,
    ::testing::Values(Authority{R"("openAll")", QO_ALLOW_PUBLISH_THIS_NODE_AND_BELOW,
                                QO_ALLOW_PUBLISH_THIS_NODE_AND_BELOW},
                      Authority{R"("remote")", QO_ALLOW_PUBLISH_THIS_NODE, QO_ALLOW_PUBLISH_THIS_NODE},
                      Authority{R"("local")", QO_ALLOW_PUBLISH_THIS_NODE, QO_NO_PUBLISH_THIS_NODE},
                      Authority{R"("internal")", QO_NO_PUBLISH_THIS_NODE, QO_NO_PUBLISH_THIS_NODE},
                      Authority{R"("openall")", QO_NO_PUBLISH_THIS_NODE, QO_NO_PUBLISH_THIS_NODE},
                      Authority{R"("openAll\u0000")", QO_NO_PUBLISH_THIS_NODE, QO_NO_PUBLISH_THIS_NODE},
                      Authority{R"("")", QO_NO_PUBLISH_THIS_NODE, QO_NO_PUBLISH_THIS_NODE},
                      Authority{"true", QO_NO_PUBLISH_THIS_NODE, QO_NO_PUBLISH_THIS_NODE},
                      Authority{R"({"writeAccess":"openAll"})", QO_NO_PUBLISH_THIS_NODE, QO_NO_PUBLISH_THIS_NODE}));

using GetPublishAuthority = AuthorityTest;

TEST_F(GetPublishAuthority, InternalComponentsMayPublishAnywhere) {
    EXPECT_EQ(store_.GetPublishAuthorityForThisNode(nullptr, QO_INTERNAL), QO_ALLOW_PUBLISH_THIS_NODE);
    EXPECT_EQ(authority("{}", QO_INTERNAL), QO_ALLOW_PUBLISH_THIS_NODE);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(GetPublishAuthority, NullIsClosedToClients) {
    EXPECT_EQ(store_.GetPublishAuthorityForThisNode(nullptr, QO_LOCAL_CLIENT), QO_NO_PUBLISH_THIS_NODE);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
}

TEST_F(GetPublishAuthority, ANodeWithoutWriteAccessIsClosed) {
    for (const char* node : {"{}", "[]", "5", R"("openAll")", R"({"x":{"writeAccess":"openAll"}})"})
        EXPECT_EQ(authority(node), QO_NO_PUBLISH_THIS_NODE) << node;
}

TEST_F(GetPublishAuthority, TheFirstKnownValueDecides) {
    EXPECT_EQ(authority(R"({"writeAccess":"x","writeAccess":5,"writeAccess":"remote","writeAccess":"openAll"})"),
              QO_ALLOW_PUBLISH_THIS_NODE);
    EXPECT_EQ(authority(R"({"writeAccess":"internal","writeAccess":"openAll"})"), QO_NO_PUBLISH_THIS_NODE);
}

TEST_F(GetPublishAuthority, AnotherMemberWithAKnownValueDoesNotDecide) {
    EXPECT_EQ(authority(R"({"mode":"openAll","access":"remote"})"), QO_NO_PUBLISH_THIS_NODE);
    EXPECT_EQ(authority(R"({"mode":"openAll","writeAccess":"x"})"), QO_NO_PUBLISH_THIS_NODE);
    EXPECT_EQ(authority(R"({"mode":"openAll","writeAccess":"x","writeAccess":"remote"})"), QO_ALLOW_PUBLISH_THIS_NODE);
}

TEST_F(GetPublishAuthority, OfAnArrayIsThatOfItsElementWithIdZero) {
    EXPECT_EQ(authority(R"([{"id":0,"writeAccess":"remote"}])"), QO_ALLOW_PUBLISH_THIS_NODE);
    EXPECT_EQ(authority(R"([{"id":1,"writeAccess":"internal"},{"writeAccess":"x"},{"id":0,"writeAccess":"remote"}])"),
              QO_ALLOW_PUBLISH_THIS_NODE);
    EXPECT_EQ(authority(R"([{"id":0},{"id":0,"writeAccess":"openAll"}])"), QO_NO_PUBLISH_THIS_NODE);
}

TEST_F(GetPublishAuthority, OfAnArrayWithoutIdZeroIsClosed) {
    EXPECT_EQ(authority(R"([{"id":1,"writeAccess":"openAll"}])"), QO_NO_PUBLISH_THIS_NODE);
    EXPECT_EQ(authority(R"([{"writeAccess":"openAll"}])"), QO_NO_PUBLISH_THIS_NODE);
    EXPECT_EQ(authority(R"([{"id":"0","writeAccess":"openAll"}])"), QO_NO_PUBLISH_THIS_NODE);
    EXPECT_EQ(authority("[0,1]"), QO_NO_PUBLISH_THIS_NODE);
}

TEST_F(GetPublishAuthority, AManyMemberedObjectIsNotSearchedForANamesake) {
    std::string node = R"({"writeAccess":"remote")";
    for (int i = 0; i < 100; ++i) node += ",\"m" + std::to_string(i) + "\":0";
    EXPECT_EQ(authority(node + "}"), QO_ALLOW_PUBLISH_THIS_NODE);
}

// ---- what clients may publish ----

constexpr char kDefaults[] = R"({)"
                             R"("closed":{"x":1,"open":{"writeAccess":"openAll","x":1}},)"
                             R"("local":{"writeAccess":"local","x":1,"sub":{"y":1}},)"
                             R"("remote":{"writeAccess":"remote","x":1,"sub":{"y":1}},)"
                             R"("open":{"writeAccess":"openAll","x":1,"sub":{"writeAccess":"internal","y":1}},)"
                             R"("zones":[{"id":0,"writeAccess":"remote","t":1},{"id":1,"t":1,"sub":{"y":1}}],)"
                             R"("sealed":[{"id":0,"t":1}],)"
                             R"("wide":[{"id":0,"writeAccess":"openAll","maxItems":3}])"
                             R"(})";

const auto kNotThisValueOfX = deny_line(LOG_INFO, "Component not authorized to update this node value - x");

std::vector<QoLogLine> not_a_new_node(const std::string& name) {
    return {deny_line(LOG_ERR, "Component not authorized to publish new nodes"),
            deny_line(LOG_ERR, "No node with name - " + name + " - skipping this node")};
}

std::vector<QoLogLine> not_a_new_index(int index) {
    return {deny_line(LOG_INFO, "Component not authorized to publish new array index"),
            deny_line(LOG_INFO, "Skipping this array index - " + std::to_string(index))};
}

class ClientPublish : public QoStoreTest {
protected:
    ClientPublish() { load(kDefaults); }

    /// Publishes as a remote client and expects success; the tree member of that name afterwards.
    std::string after(std::string_view text, const std::string& member,
                      eQO_COMPONENT_CLASS_ component_class = QO_REMOTE_CLIENT) {
        EXPECT_EQ(publish(text, component_class), 0);
        const auto said = said_;
        std::string result = read("/" + member);
        said_ = said;
        return result;
    }
};

TEST_F(ClientPublish, OfARemoteClientIntoALocalObjectChangesNothingAndGetsZero) {
    EXPECT_EQ(after(R"({"local":{"x":2}})", "local"), R"({"local":{"writeAccess":"local","x":1,"sub":{"y":1}}})");
    EXPECT_THAT(said_, ElementsAre(kNotThisValueOfX));
}

TEST_F(ClientPublish, OfALocalClientIntoALocalObjectIsDone) {
    EXPECT_EQ(after(R"({"local":{"x":2}})", "local", QO_LOCAL_CLIENT),
              R"({"local":{"writeAccess":"local","x":2,"sub":{"y":1}}})");
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(ClientPublish, WithOpenAllMayAddMembersAtAnyDepth) {
    EXPECT_EQ(after(R"({"open":{"a":{"b":{"c":[{"id":1,"d":2}]}}}})", "open"),
              R"({"open":{"writeAccess":"openAll","x":1,"sub":{"writeAccess":"internal","y":1},)"
              R"("a":{"b":{"c":[{"id":0},{"id":1,"d":2}]}}}})");
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(ClientPublish, OpenAllHoldsForClosedNodesBelowIt) {
    EXPECT_EQ(after(R"({"open":{"sub":{"y":2}}})", "open"),
              R"({"open":{"writeAccess":"openAll","x":1,"sub":{"writeAccess":"internal","y":2}}})");
}

TEST_F(ClientPublish, OtherAuthorityIsNotInherited) {
    EXPECT_EQ(after(R"({"remote":{"x":2,"sub":{"y":2}}})", "remote"),
              R"({"remote":{"writeAccess":"remote","x":2,"sub":{"y":1}}})");
    EXPECT_THAT(said_, ElementsAre(deny_line(LOG_INFO, "Component not authorized to update this node value - y")));
}

TEST_F(ClientPublish, AnObjectWithoutWriteAccessIsClosedButNotWhatIsOpenBelowIt) {
    EXPECT_EQ(after(R"({"closed":{"x":2,"open":{"x":2}}})", "closed"),
              R"({"closed":{"x":1,"open":{"writeAccess":"openAll","x":2}}})");
    EXPECT_THAT(said_, ElementsAre(kNotThisValueOfX));
}

TEST_F(ClientPublish, ANewTopLevelNodeIsRefusedAndTheRestIsDone) {
    const std::string before = tree();
    EXPECT_EQ(publish(R"({"fresh":{"x":1},"remote":{"x":3}})", QO_REMOTE_CLIENT), 0);
    EXPECT_EQ(said_, not_a_new_node("fresh"));
    EXPECT_EQ(read("/remote/x"), R"({"remote":{"x":3}})");
    EXPECT_EQ(read("/fresh"), "");
}

TEST_F(ClientPublish, MetadataThatAreNewToAClosedNodeAreRefusedLikeAnyNode) {
    EXPECT_EQ(publish(R"({"closed":{"writeAccess":"openAll"}})", QO_REMOTE_CLIENT), 0);
    EXPECT_EQ(said_, not_a_new_node("writeAccess"));
}

TEST_F(ClientPublish, AddingWriteAccessAddsNothing) {
    EXPECT_EQ(publish(R"({"open":{"fresh":{"x":1}}})", QO_REMOTE_CLIENT), 0);
    EXPECT_EQ(after(R"({"open":{"fresh":{"writeAccess":"openAll","doNotPersist":true}}})", "open/fresh"),
              R"({"open":{"fresh":{"x":1}}})");
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(ClientPublish, ChangingWriteAccessIsSilentlyIgnored) {
    EXPECT_EQ(after(R"({"remote":{"writeAccess":"openAll"}})", "remote/writeAccess"),
              R"({"remote":{"writeAccess":"remote"}})");
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(ClientPublish, AnInternalComponentCannotChangeWriteAccessEither) {
    EXPECT_EQ(after(R"({"remote":{"writeAccess":"openAll"}})", "remote/writeAccess", QO_INTERNAL),
              R"({"remote":{"writeAccess":"remote"}})");
}

TEST_F(ClientPublish, AnExistingElementIsWrittenByTheAuthorityOfTheFirst) {
    EXPECT_EQ(after(R"({"zones":[{"id":1,"t":2,"sub":{"y":2}}]})", "zones/1"),
              R"({"zones":[{"id":1,"t":2,"sub":{"y":1}}]})");
    EXPECT_THAT(said_, ElementsAre(deny_line(LOG_INFO, "Component not authorized to update this node value - y")));
}

TEST_F(ClientPublish, ANewElementNeedsTheAuthorityOfTheArray) {
    EXPECT_EQ(after(R"({"zones":[{"id":3,"t":2}]})", "zones/3"), R"({"zones":[{"id":3,"t":2}]})");
    EXPECT_EQ(publish(R"({"sealed":[{"id":2,"t":2},{"id":0,"t":5}]})", QO_REMOTE_CLIENT), 0);
    auto expected = not_a_new_index(2);
    for (const char* name : {"id", "t"}) {
        expected.push_back(
            deny_line(LOG_INFO, std::string("Component not authorized to update this node value - ") + name));
    }
    EXPECT_EQ(said_, expected);
    EXPECT_EQ(read("/sealed"), R"({"sealed":[{"id":0,"t":1}]})");
}

// Who may add elements is asked anew wherever the publish names the array: it may have changed the ids meanwhile.
TEST_F(ClientPublish, AnArrayIsAskedForItsAuthorityEachTimeThatItOccurs) {
    EXPECT_EQ(after(R"({"zones":[{"id":0,"id":7}],"zones":[{"id":2,"t":2}]})", "zones/2"), "");
    EXPECT_EQ(publish(R"({"zones":[{"id":2,"t":2}],"zones":[{"id":0}],"zones":[{"id":2,"t":2}]})", QO_REMOTE_CLIENT),
              0);
    EXPECT_EQ(said_, not_a_new_index(2)) << "only the first time";
    EXPECT_EQ(read("/zones/2"), R"({"zones":[{"id":2,"t":2}]})");
}

TEST_F(ClientPublish, AnArrayThatLosesItsElementZeroToAnObjectIsClosedFromThenOn) {
    load(R"({"zones":[{"id":0,"writeAccess":"openAll","t":1}]})");
    EXPECT_EQ(publish(R"({"zones":[{"id":0,"id":{"x":1}}],"zones":[{"id":1}]})", QO_REMOTE_CLIENT), 0);
    EXPECT_EQ(said_, not_a_new_index(1));
}

TEST_F(ClientPublish, TheFirstElementAmongSeveralWithIdZeroDecides) {
    load(
        R"({"zones":[{"id":3,"writeAccess":"remote"},{"id":0,"writeAccess":"internal"},{"id":0,"writeAccess":"remote"}]})");
    EXPECT_EQ(publish(R"({"zones":[{"id":3}],"zones":[{"id":0}],"zones":[{"id":3}]})", QO_REMOTE_CLIENT), 0);
    EXPECT_EQ(said_, not_a_new_index(3)) << "the element that got id 0 meanwhile stands before the closed one";
    EXPECT_EQ(read("/zones/3"), R"({"zones":[{"id":3}]})");
}

TEST_F(ClientPublish, AnArrayThatWasEmptyIsJudgedByWhatThePublishPutIn) {
    load(R"({"open":{"writeAccess":"remote","list":[]}})");
    EXPECT_EQ(publish(R"({"open":{"list":[{"id":0}],"fresh":[{"id":2}],"fresh":[{"id":3}]}})", QO_REMOTE_CLIENT), 0);
    auto expected = not_a_new_index(0);
    const auto index = not_a_new_index(3);
    expected.insert(expected.end(), index.begin(), index.end());
    EXPECT_EQ(said_, expected);
}

TEST_F(ClientPublish, ANewArrayMayGoWhereNewMembersMay) {
    EXPECT_EQ(after(R"({"remote":{"list":[{"id":0,"t":2}]}})", "remote/list"),
              R"({"remote":{"list":[{"id":0,"t":2}]}})");
    // What a client adds bears no "writeAccess": only "openAll" above it lets it be written again.
    EXPECT_EQ(after(R"({"remote":{"list":[{"id":0,"t":3}]}})", "remote/list"),
              R"({"remote":{"list":[{"id":0,"t":2}]}})");
}

TEST_F(ClientPublish, MaxItemsHoldsForClientsToo) {
    EXPECT_EQ(publish(R"({"wide":[{"id":3}]})", QO_REMOTE_CLIENT), 0);
    EXPECT_EQ(publish(R"({"wide":[{"id":4}]})", QO_REMOTE_CLIENT), -1);
    EXPECT_THAT(said_, ElementsAre(error_line("Array id 4 exceeded max items 3. Tree NOT updated!")));
}

TEST_F(ClientPublish, AValueIsNotTurnedIntoAContainerWithoutAuthority) {
    EXPECT_EQ(after(R"({"remote":{"x":{"a":1}},"local":{"x":[{"id":0}]}})", "remote/x"), R"({"remote":{"x":1}})");
    auto expected = not_a_new_node("a");
    const auto index = not_a_new_index(0);
    expected.insert(expected.end(), index.begin(), index.end());
    EXPECT_EQ(said_, expected);
    EXPECT_EQ(read("/local/x"), R"({"local":{"x":1}})");
}

TEST_F(ClientPublish, AValueIsTurnedIntoAContainerBelowOpenAll) {
    EXPECT_EQ(after(R"({"open":{"x":{"a":1}}})", "open/x"), R"({"open":{"x":{"a":1}}})");
}

TEST_F(ClientPublish, ARefusedValueIsNoChange) {
    load(R"({"local":{"writeAccess":"local","x":1}})");
    subscribe(7, "/local", true);
    EXPECT_EQ(publish(R"({"local":{"x":2,"fresh":1}})", QO_REMOTE_CLIENT), 0);
    EXPECT_FALSE(store_->PublishToAllSubscribers());
}

TEST_F(ClientPublish, NamesAreLoggedUpToTheirFirstNulByte) {
    EXPECT_EQ(publish(R"({"fre\u0000sh%s%n":{"x":1}})", QO_REMOTE_CLIENT), 0);
    EXPECT_EQ(said_, not_a_new_node("fre"));
    EXPECT_EQ(publish(R"({"%s%n":1})", QO_REMOTE_CLIENT), 0);
    EXPECT_EQ(said_, not_a_new_node("%s%n"));
}

TEST_F(ClientPublish, TheBuiltInTreeKeepsARemoteClientOutOfStatusAndLetsItIntoConfig) {
    scratch_.write(QO_DEFAULTS_FILE, "no defaults");
    load_built_in();
    EXPECT_EQ(
        publish(R"({"system":{"status":{"systemTemperature":70},"config":{"language":"french"}}})", QO_REMOTE_CLIENT),
        0);
    EXPECT_THAT(said_, ElementsAre(deny_line(LOG_INFO,
                                             "Component not authorized to update this node "
                                             "value - systemTemperature")));
    EXPECT_EQ(read("/system/status/systemTemperature"), R"({"system":{"status":{"systemTemperature":77}}})");
    EXPECT_EQ(read("/system/config/language"), R"({"system":{"config":{"language":"french"}}})");
}

}  // namespace
