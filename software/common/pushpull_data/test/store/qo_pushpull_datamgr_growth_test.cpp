// The data tree grows to a limit and not beyond, whatever components publish for ten years.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "qo_pushpull_files.h"
#include "qo_pushpull_tree_weight.h"
#include "qo_store_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::SizeIs;

constexpr int64_t kLimit = 20000;  // bytes

QoLogLine full(const std::string& name) {
    return error_line("Data tree exceeded max size 20000 bytes - " + name + ". Tree NOT updated!");
}

class GrowthTest : public QoStoreTest {
protected:
    static constexpr char kDefaults[] =
        R"({"open":{"writeAccess":"openAll"},"zones":[{"id":0,"writeAccess":"openAll"}],"value":"12345"})";

    void SetUp() override { load_with_limit(kDefaults); }

    void load_with_limit(const std::string& defaults) {
        scratch_.write(QO_DEFAULTS_FILE, defaults);
        store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()}, QoSaveTimings{}, kLimit);
        ASSERT_EQ(store_->Init(nullptr), 0);
        log_.clear();
    }

    /// Adds members until one is refused. @return how many were taken.
    int fill(const std::string& value = R"({"inner":[{"id":0},{"id":1,"text":"some"}],"number":123})") {
        int taken = 0;
        while (publish(R"({"open":{"member)" + std::to_string(1000 + taken) + "\":" + value + "}}") == 0) ++taken;
        return taken;
    }
    void empty(int members) {
        for (int member = 0; member < members; ++member)
            ASSERT_EQ(remove("/open/member" + std::to_string(1000 + member)), 0);
    }
    int64_t weight() { return qo_tree_weight(qo_json_parse(tree()).get()); }
};

TEST_F(GrowthTest, EndsWithAClearRefusalAndTheTreeAsItWas) {
    EXPECT_GT(fill(), 10);
    EXPECT_LE(weight(), kLimit);
    const std::string before = tree();
    EXPECT_EQ(publish(R"({"open":{"more":")" + std::string(1000, 'x') + R"("},"value":"1"})"), -1);
    EXPECT_THAT(said_, ElementsAre(full("more")));
    EXPECT_EQ(tree(), before);
}

TEST_F(GrowthTest, LeavesValuesFreeToChangeInAFullTree) {
    fill();
    fill("1");
    EXPECT_EQ(publish(R"({"value":"54321"})"), 0);
    EXPECT_EQ(publish(R"({"value":7})"), 0);
    EXPECT_EQ(publish(R"({"value":-123456789.0125})"), 0);
    EXPECT_EQ(publish(R"({"value":"12345"})"), 0);
    EXPECT_EQ(publish(R"({"value":")" + std::string(200, 'x') + "\"}"), -1);
    EXPECT_THAT(said_, ElementsAre(full("value")));
    EXPECT_EQ(read("/value"), R"({"value":"12345"})");
}

TEST_F(GrowthTest, IsGivenBackByDeletesToTheLastByte) {
    const int taken = fill();
    for (int round = 0; round < 3; ++round) {
        empty(taken);
        EXPECT_EQ(tree(), kDefaults);
        EXPECT_EQ(fill(), taken);
    }
}

TEST_F(GrowthTest, IsCountedForArrayElementsAndTheirPlaceholders) {
    const int taken = fill();
    empty(taken);
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(publish(R"({"zones":[{"id":9,"text":"element"}]})"), 0);
        ASSERT_EQ(remove("/zones/4"), 0);
        for (int position = 9; position > 0; --position) ASSERT_EQ(remove("/zones/" + std::to_string(position)), 0);
        ASSERT_EQ(tree(), kDefaults);
    }
    EXPECT_EQ(publish(R"({"zones":[{"id":500}]})"), -1);
    EXPECT_THAT(said_, ElementsAre(full("zones")));
    EXPECT_LE(weight(), kLimit);
}

TEST_F(GrowthTest, IsCountedForChangesOfKindAndForWhatARefusedPublishDroppedAgain) {
    const int taken = fill();
    empty(taken);
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(publish(R"({"open":{"kind":"a long text that becomes an object"}})"), 0);
        ASSERT_EQ(publish(R"({"open":{"kind":{"a":1}}})"), 0);
        ASSERT_EQ(publish(R"({"open":{"broken":{"some":"text","list":[{"no":"id"}]}}})"), -1);
        ASSERT_EQ(remove("/open/kind"), 0);
        ASSERT_EQ(tree(), kDefaults);
    }
    EXPECT_EQ(fill(), taken);
}

TEST_F(GrowthTest, IsCountedForWhatClearPutsBack) {
    const int taken = fill();
    empty(taken);
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(publish(R"({"open":{"more":"to be cleared"}})"), 0);
        ASSERT_EQ(clear("/open"), 0);
    }
    EXPECT_EQ(fill(), taken);
}

TEST_F(GrowthTest, DoesNotBindATreeThatIsLoaded) {
    load_with_limit(R"({"open":{"writeAccess":"openAll","large":")" + std::string(2 * kLimit, 'x') +
                    R"("},"value":1})");
    EXPECT_EQ(publish(R"({"open":{"more":1}})"), -1);
    EXPECT_EQ(publish(R"({"value":2,"open":{"large":"short"}})"), 0);
    EXPECT_EQ(publish(R"({"open":{"more":1}})"), 0);
}

TEST_F(GrowthTest, OfControlCharactersEndsBeforeTheFileIsLargerThanTheLimit) {
    std::string escapes;
    for (int i = 0; i < 100; ++i) escapes += "\\u0001";
    int taken = 0;
    while (publish(R"({"open":{"member)" + std::to_string(1000 + taken) + "\":\"" + escapes + "\"}}") == 0) ++taken;
    EXPECT_GT(taken, 10);
    ASSERT_EQ(store_->SaveDataTree(false), 0);
    EXPECT_LE(scratch_.read(QO_SAVED_TREE_FILE).size(), static_cast<size_t>(kLimit));
    empty(taken);
    EXPECT_EQ(tree(), kDefaults);
    EXPECT_EQ(publish(R"({"open":{"member":")" + escapes + R"("}})"), 0);
}

TEST_F(GrowthTest, OfAMillionNamesCannotUseUpTheMemory) {
    load(kDefaults);
    const std::string text(250000, 'x');
    int taken = 0;
    while (publish(R"({"open":{"n)" + std::to_string(taken) + "\":\"" + text + "\"}}") == 0) ASSERT_LT(++taken, 1000);
    EXPECT_EQ(taken, QO_MAX_TREE_BYTES / 250000);
    EXPECT_THAT(said_, SizeIs(1));
}

}  // namespace
