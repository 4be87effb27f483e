// Which publishes ask for a save.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "qo_store_fixture.h"

namespace {

using ::testing::ElementsAre;

class SaveDecision : public QoStoreTest {
protected:
    struct Decision {
        int result = 0;
        bool persistent_change = false;
        bool decided = false;
        bool operator==(const Decision&) const = default;
    };
    static constexpr Decision kUndecided{0, false, false};
    static constexpr Decision kTransient{0, false, true};
    static constexpr Decision kPersistent{0, true, true};

    Decision decide(const std::string& data, const std::string& published) {
        const QoJsonNode data_node = qo_json_parse(data);
        const QoJsonNode published_node = qo_json_parse(published);
        Decision decision;
        DataMgr store(QoStorePaths{scratch_.path(), scratch_.path()});
        decision.result = store.CheckForSavingDataTree(data_node.get(), published_node.get(),
                                                       decision.persistent_change, decision.decided);
        return decision;
    }
};

TEST_F(SaveDecision, WithoutAMarkerOnThePathNothingIsDecided) {
    EXPECT_EQ(decide(R"({"a":{"b":1},"t":{"doNotPersist":true}})", R"({"a":{"b":2}})"), kUndecided);
    EXPECT_EQ(decide(R"({"a":1})", R"({"a":2})"), kUndecided);
    EXPECT_EQ(decide("{}", R"({"a":{"b":2}})"), kUndecided);
    EXPECT_EQ(decide(R"({"a":1})", "{}"), kUndecided);
    EXPECT_EQ(decide(R"({"a":1})", "7"), kUndecided);
}

TEST_F(SaveDecision, AMarkerAnywhereOnThePathDecides) {
    EXPECT_EQ(decide(R"({"t":{"doNotPersist":true,"x":1}})", R"({"t":{"x":2}})"), kTransient);
    EXPECT_EQ(decide(R"({"t":{"doNotPersist":false,"x":1}})", R"({"t":{"x":2}})"), kPersistent);
    EXPECT_EQ(decide(R"({"a":{"b":{"doNotPersist":true,"x":{}}}})", R"({"a":{"b":{"x":{"y":1}}}})"), kTransient);
}

TEST_F(SaveDecision, OnlyTrueCountsAsTrue) {
    EXPECT_EQ(decide(R"({"t":{"doNotPersist":"true"}})", R"({"t":{"x":2}})"), kPersistent);
    EXPECT_EQ(decide(R"({"t":{"doNotPersist":1}})", R"({"t":{"x":2}})"), kPersistent);
    EXPECT_EQ(decide(R"({"t":{"doNotPersist":false,"doNotPersist":true}})", R"({"t":{"x":2}})"), kTransient);
}

TEST_F(SaveDecision, AnArrayDecidesByItsFirstElement) {
    EXPECT_EQ(decide(R"({"l":[{"id":0,"doNotPersist":true},{"id":1}]})", R"({"l":[{"id":1,"x":2}]})"), kTransient);
    EXPECT_EQ(decide(R"({"l":[{"id":0,"doNotPersist":false}]})", R"({"l":[{"id":0}]})"), kPersistent);
    EXPECT_EQ(decide(R"({"l":[{"id":0},{"id":1,"doNotPersist":true}]})", R"({"l":[{"id":1,"x":2}]})"), kUndecided);
    EXPECT_EQ(decide(R"({"l":[]})", R"({"l":[{"id":0}]})"), kUndecided);
}

TEST_F(SaveDecision, InsideAnArrayEveryPublishedElementIsLookedUpInTheFirst) {
    const std::string data = R"({"l":[{"id":0,"s":{"doNotPersist":true},"c":{"doNotPersist":false}},{"id":1}]})";
    EXPECT_EQ(decide(data, R"({"l":[{"id":1,"s":{"x":1}}]})"), kTransient);
    EXPECT_EQ(decide(data, R"({"l":[{"id":1,"c":{"x":1}}]})"), kPersistent);
    EXPECT_EQ(decide(data, R"({"l":[{"id":0,"s":{"x":1}},{"id":1,"c":{"x":1}}]})"), kPersistent);
    EXPECT_EQ(decide(data, R"({"l":[{"id":1},7]})"), kUndecided);
}

TEST_F(SaveDecision, PublishingAMarkerDecidesByThePublishedValue) {
    EXPECT_EQ(decide(R"({"t":{"a":1,"l":{}},"doNotPersist":true})", R"({"doNotPersist":false})"), kPersistent);
    EXPECT_EQ(decide(R"({"doNotPersist":true})", R"({"doNotPersist":true})"), kTransient);
}

TEST_F(SaveDecision, ATransientNodeEndsTheScanOfItsLevel) {
    const std::string data = R"({"t":{"doNotPersist":true},"p":{"x":1},"f":{"doNotPersist":false}})";
    EXPECT_EQ(decide(data, R"({"t":{"x":1},"p":{"x":2}})"), kTransient);
    EXPECT_EQ(decide(data, R"({"p":{"x":2},"t":{"x":1}})"), kTransient);
    EXPECT_EQ(decide(data, R"({"t":{"x":1},"f":{"x":2}})"), kTransient);
    EXPECT_EQ(decide(data, R"({"f":{"x":2},"t":{"x":1}})"), kPersistent);
}

TEST_F(SaveDecision, OnceAChangePersistsNothingElseIsLookedAt) {
    const QoJsonNode data = qo_json_parse(R"({"t":{"doNotPersist":true}})");
    const QoJsonNode published = qo_json_parse(R"({"t":{"x":1}})");
    bool persistent_change = true;
    bool decided = false;
    DataMgr store(QoStorePaths{scratch_.path(), scratch_.path()});
    EXPECT_EQ(store.CheckForSavingDataTree(data.get(), published.get(), persistent_change, decided), 0);
    EXPECT_TRUE(persistent_change);
    EXPECT_FALSE(decided);
}

TEST_F(SaveDecision, ANullNodeIsLogged) {
    const QoJsonNode node = qo_json_parse(R"({"a":1})");
    bool persistent_change = false;
    bool found = false;
    DataMgr store(QoStorePaths{scratch_.path(), scratch_.path()});
    EXPECT_EQ(store.CheckForSavingDataTree(nullptr, node.get(), persistent_change, found), -1);
    EXPECT_EQ(store.CheckForSavingDataTree(node.get(), nullptr, persistent_change, found), -1);
    EXPECT_FALSE(store.IsNodeNonPersistent(nullptr, found));
    EXPECT_FALSE(persistent_change || found);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node"), error_line("Null node"), error_line("Null node")));
}

TEST_F(SaveDecision, ANewArrayThatWasRefusedIsLookedForOnceAndOnceForEachElement) {
    EXPECT_EQ(decide(R"({"t":{"doNotPersist":true}})", R"({"gone":[{"id":0},{"id":1}],"t":{"x":1}})"), kTransient);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node"), error_line("Null node"), error_line("Null node")));
    log_.clear();
    EXPECT_EQ(decide("{}", R"({"gone":[]})"), kUndecided);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
    log_.clear();
    EXPECT_EQ(decide(R"({"l":[{"id":0}]})", R"({"l":[{"id":1,"gone":[{"id":0}]}]})"), kUndecided);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node"), error_line("Null node")));
}

TEST_F(SaveDecision, AClientsRefusedArrayIsLoggedAndSavedLikeAnyPublishWithoutAMarker) {
    load(R"({"t":{"doNotPersist":true,"x":1}})");
    EXPECT_EQ(publish(R"({"gone":[{"id":0}]})", QO_REMOTE_CLIENT), 0);
    EXPECT_THAT(said_, ElementsAre(deny_line(LOG_ERR, "Component not authorized to publish new nodes"),
                                   deny_line(LOG_ERR, "No node with name - gone - skipping this node"),
                                   error_line("Null node"), error_line("Null node")));
    EXPECT_TRUE(save_scheduled_);
}

TEST_F(SaveDecision, APublishThatTouchesOnlyTransientDataNeverCausesASave) {
    load(R"({"t":{"doNotPersist":true,"x":1},"p":{"x":1}})");
    EXPECT_EQ(publish(R"({"t":{"x":2}})"), 0);
    EXPECT_FALSE(save_scheduled_);
    EXPECT_FALSE(log_.contains(LOG_INFO, kTimerCreated));
    EXPECT_EQ(publish(R"({"p":{"x":2}})"), 0);
    EXPECT_TRUE(save_scheduled_);
    EXPECT_TRUE(log_.contains(LOG_INFO, kTimerCreated));
}

}  // namespace
