// Reading nodes, array elements and sizes, and joining several answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "qo_store_fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kDefaults[] =
    R"({)"
    R"("system":{"name":"x","config":{"temp":35.0,"mode":"auto","sub":{"a":null}},"empty":{},"none":[]},)"
    R"("zones":[{"id":0,"t":0},{"id":1,"t":1,"sub":{"y":true}},{"id":2},{"id":3},{"id":4}],)"
    R"("scalars":[10,"text",[7],null],)"
    R"("deep":{"list":[{"id":0,"inner":[{"id":0,"v":1},{"id":1,"v":2}]}]})"
    R"(})";

const QoLogLine kPathIncorrect = error_line("Read path incorrect");
const QoLogLine kReadFailed = error_line("Read failed");

class ReadTest : public QoStoreTest {
protected:
    ReadTest() { load(kDefaults); }
};

// ---- straight from the tree ----

using ReadText = ReadTest;

TEST_F(ReadText, IsThatOfARead) {
    for (const char* pointer :
         {"/system", "/system/config/temp", "/system/empty", "/system/none", "/zones", "/zones/1", "/zones/1/sub/y",
          "/zones/4/id", "/scalars/0", "/scalars/2", "/scalars/3", "/deep/list/0/inner/1/v", "/deep/list/0/inner/01"}) {
        std::string text = "before ";
        EXPECT_TRUE(store_->AppendNodeText(pointer, text)) << pointer;
        EXPECT_TRUE(text.starts_with("before {"));
        EXPECT_NE(read(pointer), "") << pointer;
    }
}

TEST_F(ReadText, LeavesWhatIsNotPlainToTheRead) {
    for (const char* pointer :
         {"", "/", "system", "//system", "/system/", "/system//config", "/nothing", "/system/config/temp/x",
          "/system/empty/x", "/zones/5", "/zones/+1", "/zones/ 1", "/zones/-1", "/zones/1x", "/zones/x",
          "/zones/18446744073709551617", "/scalars/2/0", "/system/none/0"}) {
        std::string text = "before";
        EXPECT_FALSE(store_->AppendNodeText(pointer, text)) << pointer;
        EXPECT_EQ(text, "before");
    }
}

TEST_F(ReadText, IsIndentedNoFurtherThanOtherTexts) {
    std::string text;
    std::string pointer;
    for (int level = 0; level < 40; ++level) {
        text += R"({"a":)";
        pointer += "/a";
    }
    ASSERT_EQ(publish(text + R"({"b":{"c":[{"id":0}]}})" + std::string(40, '}')), 0);
    EXPECT_NE(read(pointer), "");
    EXPECT_NE(read(pointer + "/b/c"), "");
    std::string straight;
    EXPECT_TRUE(store_->AppendNodeText(pointer, straight));
}

// ---- objects and leaves ----

using ReadNode = ReadTest;

TEST_F(ReadNode, AnObjectIsCopiedWithThePathToIt) {
    EXPECT_EQ(read("/system/config"), R"({"system":{"config":{"temp":35.0,"mode":"auto","sub":{"a":null}}}})");
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(ReadNode, ALeafIsCopiedWithThePathToIt) {
    EXPECT_EQ(read("/system/config/temp"), R"({"system":{"config":{"temp":35.0}}})");
    EXPECT_EQ(read("/system/config/sub/a"), R"({"system":{"config":{"sub":{"a":null}}}})");
}

TEST_F(ReadNode, AnEmptyObjectAndAnEmptyArrayAreCopied) {
    EXPECT_EQ(read("/system/empty"), R"({"system":{"empty":{}}})");
    EXPECT_EQ(read("/system/none"), R"({"system":{"none":[]}})");
    EXPECT_THAT(said_, IsEmpty());
}

TEST_F(ReadNode, EmptySegmentsAreSkipped) { EXPECT_EQ(read("//system//name/"), R"({"system":{"name":"x"}})"); }

TEST_F(ReadNode, TheResponseIsACopy) {
    const QoJsonNode response(json_new(JSON_NODE));
    ASSERT_EQ(store_->ReadNode("/system/name", response.get(), false, array_size_), 0);
    ASSERT_EQ(publish(R"({"system":{"name":"y"}})"), 0);
    EXPECT_EQ(qo_json_write(response.get()), R"({"system":{"name":"x"}})");
}

TEST_F(ReadNode, ANullResponseIsRefused) {
    EXPECT_EQ(store_->ReadNode("/system", nullptr, false, array_size_), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
}

TEST_F(ReadNode, TheRootIsRefused) {
    EXPECT_EQ(read("/"), "");
    EXPECT_THAT(said_, ElementsAre(debug_line("Root path or dangling / or back to back slashes //"),
                                   error_line("Cannot read the entire tree"), kReadFailed));
}

TEST_F(ReadNode, APointerWithoutItsSlashIsRefused) {
    EXPECT_EQ(read("system"), "");
    EXPECT_THAT(said_, ElementsAre(error_line("Incorrect JSON pointer, ptr should start with /"),
                                   error_line("Cannot convert node to JSON ptr"), kReadFailed));
}

TEST_F(ReadNode, AnUnknownNameFails) {
    EXPECT_EQ(read("/nothing"), "");
    EXPECT_THAT(said_, ElementsAre(kPathIncorrect, kReadFailed));
}

TEST_F(ReadNode, AnUnknownNameFurtherDownFailsAtEveryLevel) {
    EXPECT_EQ(read("/system/config/nothing"), "");
    EXPECT_THAT(said_, ElementsAre(kPathIncorrect, kPathIncorrect, kPathIncorrect, kReadFailed));
}

TEST_F(ReadNode, APathThatContinuesBelowALeafFails) {
    EXPECT_EQ(read("/system/name/x"), "");
    EXPECT_THAT(said_, ElementsAre(kPathIncorrect, kPathIncorrect, kReadFailed));
    EXPECT_EQ(read("/system/empty/x"), "");
    EXPECT_THAT(said_, ElementsAre(kPathIncorrect, kPathIncorrect, kReadFailed));
}

TEST_F(ReadNode, AFailedReadLeavesTheResponseEmptied) {
    const QoJsonNode response = qo_json_parse(R"({"left":"over"})");
    EXPECT_EQ(store_->ReadNode("/system/config/nothing", response.get(), false, array_size_), -1);
    EXPECT_EQ(qo_json_write(response.get()), "{}");
}

TEST_F(ReadNode, WithoutADataTreeFails) {
    store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
    EXPECT_EQ(read("/system"), "");
    EXPECT_THAT(said_, ElementsAre(error_line("Null node"), kReadFailed));
}

TEST_F(ReadNode, TheFirstMemberOfANameIsRead) {
    load(R"({"a":{"x":1},"a":{"x":2}})");
    EXPECT_EQ(read("/a/x"), R"({"a":{"x":1}})");
}

// ---- arrays ----

using ReadArray = ReadTest;

TEST_F(ReadArray, TheWholeArrayIsCopied) {
    EXPECT_EQ(read("/scalars"), R"({"scalars":[10,"text",[7],null]})");
    EXPECT_EQ(array_size_, -7);
}

TEST_F(ReadArray, WithWantArraySizeGivesTheElementCount) {
    const QoJsonNode response(json_new(JSON_NODE));
    EXPECT_EQ(store_->ReadNode("/zones", response.get(), true, array_size_), 0);
    EXPECT_EQ(array_size_, 5);
    EXPECT_EQ(json_size(json_at(response.get(), 0)), 5U);
}

TEST_F(ReadArray, AnEmptyArrayHasSizeZero) {
    const QoJsonNode response(json_new(JSON_NODE));
    EXPECT_EQ(store_->ReadNode("/system/none", response.get(), true, array_size_), 0);
    EXPECT_EQ(array_size_, 0);
}

TEST_F(ReadArray, OnlyArraysHaveASize) {
    for (const char* pointer : {"/system", "/system/name", "/system/empty", "/zones/1", "/zones/1/t"}) {
        const QoJsonNode response(json_new(JSON_NODE));
        EXPECT_EQ(store_->ReadNode(pointer, response.get(), true, array_size_), 0);
        EXPECT_EQ(array_size_, -7) << pointer;
    }
}

using ReadArrayElement = ReadTest;

TEST_F(ReadArrayElement, TheResponseHoldsOnlyThatElement) {
    EXPECT_EQ(read("/zones/1"), R"({"zones":[{"id":1,"t":1,"sub":{"y":true}}]})");
}

TEST_F(ReadArrayElement, APathMayContinueInIt) {
    EXPECT_EQ(read("/zones/1/sub/y"), R"({"zones":[{"sub":{"y":true}}]})");
    EXPECT_EQ(read("/deep/list/0/inner/1/v"), R"({"deep":{"list":[{"inner":[{"v":2}]}]}})");
    EXPECT_EQ(read("/deep/list/0/inner"), R"({"deep":{"list":[{"inner":[{"id":0,"v":1},{"id":1,"v":2}]}]}})");
}

TEST_F(ReadArrayElement, BeyondTheLastFails) {
    EXPECT_EQ(read("/zones/7"), "");
    EXPECT_THAT(said_, ElementsAre(kPathIncorrect, kReadFailed));
    EXPECT_EQ(read("/zones/5"), "");
    EXPECT_EQ(read("/zones/4"), R"({"zones":[{"id":4}]})");
    EXPECT_EQ(read("/system/none/0"), "");
    EXPECT_THAT(said_, ElementsAre(kPathIncorrect, kPathIncorrect, kReadFailed));
}

TEST_F(ReadArrayElement, ANegativePositionFails) {
    EXPECT_EQ(read("/zones/-1"), "");
    EXPECT_THAT(said_, ElementsAre(kPathIncorrect, kReadFailed));
}

TEST_F(ReadArrayElement, BlanksASignAndTrailingTextAreAcceptedInAPosition) {
    for (const char* position : {"1", "+1", " 1", "\t 1", "01", "1x", "1.9", "-0x1"})
        EXPECT_NE(read(std::string("/zones/") + position), "") << position;
    EXPECT_EQ(read("/zones/1x"), read("/zones/1"));
    EXPECT_EQ(read(std::string("/zones/1\0"
                               "9",
                               10)),
              read("/zones/1"));
}

TEST_F(ReadArrayElement, ATextWithoutDigitsFails) {
    for (const char* position : {"x", "-", " ", "x1", "{}"}) {
        EXPECT_EQ(read(std::string("/zones/") + position), "");
        EXPECT_THAT(said_, ElementsAre(error_line("Exception stol"), kPathIncorrect, kReadFailed)) << position;
    }
}

TEST_F(ReadArrayElement, APositionBeyondTheRangeOfALongFails) {
    for (const std::string& position :
         {std::string("9223372036854775808"), std::string("-9223372036854775809"), std::string(100000, '9')}) {
        EXPECT_EQ(read("/zones/" + position), "");
        EXPECT_THAT(said_, ElementsAre(error_line("Exception stol"), kPathIncorrect, kReadFailed));
    }
    EXPECT_EQ(read("/zones/" + std::to_string(std::numeric_limits<long>::max())), "");
    EXPECT_THAT(said_, ElementsAre(kPathIncorrect, kReadFailed));
}

TEST_F(ReadArrayElement, AScalarElementIsCopiedWithItsValue) {
    EXPECT_EQ(read("/scalars/0"), R"({"scalars":[10]})");
    EXPECT_EQ(read("/scalars/1"), R"({"scalars":["text"]})");
    EXPECT_EQ(read("/scalars/3"), R"({"scalars":[null]})");
}

TEST_F(ReadArrayElement, AnElementThatIsAnArrayIsCopied) { EXPECT_EQ(read("/scalars/2"), R"({"scalars":[[7]]})"); }

TEST_F(ReadArrayElement, APathThatContinuesBelowAScalarElementFails) {
    EXPECT_EQ(read("/scalars/0/x"), "");
    EXPECT_THAT(said_, ElementsAre(kPathIncorrect, kPathIncorrect, kReadFailed));
}

TEST_F(ReadArrayElement, AnElementThatIsAnArrayHasNoAddressableElements) {
    EXPECT_EQ(read("/scalars/2/0"), "");
    EXPECT_THAT(said_, ElementsAre(kPathIncorrect, kPathIncorrect, kReadFailed));
}

// ---- the parts ----

using ValidateAndReadNode = ReadTest;

TEST_F(ValidateAndReadNode, NullsAreRefused) {
    const QoJsonNode node = qo_json_parse(R"({"a":{}})");
    const QoJsonNode response(json_new(JSON_NODE));
    EXPECT_EQ(store_->ValidateAndReadNode(nullptr, node.get(), response.get(), false, array_size_), -1);
    EXPECT_EQ(store_->ValidateAndReadNode(node.get(), nullptr, response.get(), false, array_size_), -1);
    const auto line = error_line("Null node");
    EXPECT_THAT(log_.lines(), ElementsAre(line, line));
}

TEST_F(ValidateAndReadNode, ASkeletonWithoutChildrenReadsNothing) {
    const QoJsonNode skeleton(json_new(JSON_NODE));
    const QoJsonNode data = qo_json_parse(R"({"a":1})");
    const QoJsonNode response(json_new(JSON_NODE));
    EXPECT_EQ(store_->ValidateAndReadNode(skeleton.get(), data.get(), response.get(), false, array_size_), 0);
    EXPECT_EQ(qo_json_write(response.get()), "{}");
}

TEST_F(ValidateAndReadNode, AResponseThatTakesNoChildrenFails) {
    const QoJsonNode skeleton = qo_json_parse(R"({"a":{}})");
    const QoJsonNode data = qo_json_parse(R"({"a":1})");
    const QoJsonNode response(json_new(JSON_NUMBER));
    EXPECT_EQ(store_->ValidateAndReadNode(skeleton.get(), data.get(), response.get(), false, array_size_), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("json_new/json_duplicate failed")));
}

TEST_F(ValidateAndReadNode, SuchAResponseFailsOnTheWayDownToo) {
    const QoJsonNode response(json_new(JSON_NUMBER));
    const QoJsonNode below = qo_json_parse(R"({"a":{"b":{}}})");
    const QoJsonNode object = qo_json_parse(R"({"a":{"b":1}})");
    EXPECT_EQ(store_->ValidateAndReadNode(below.get(), object.get(), response.get(), false, array_size_), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("json_new/json_duplicate failed")));
    const QoJsonNode position = qo_json_parse(R"({"a":{"0":{}}})");
    const QoJsonNode array = qo_json_parse(R"({"a":[1]})");
    log_.clear();
    EXPECT_EQ(store_->ValidateAndReadNode(position.get(), array.get(), response.get(), false, array_size_), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("json_new/json_duplicate failed")));
}

using CopyNode = ReadTest;

TEST_F(CopyNode, PutsCopiesInFrontOfWhatIsThere) {
    const QoJsonNode destination = qo_json_parse(R"({"x":1,"y":2})");
    const QoJsonNode source = qo_json_parse(R"({"a":{"b":[1]},"x":3})");
    EXPECT_EQ(store_->CopyNode(destination.get(), source.get()), 0);
    EXPECT_EQ(qo_json_write(destination.get()), R"({"a":{"b":[1]},"x":3,"x":1,"y":2})");
    EXPECT_EQ(qo_json_write(source.get()), R"({"a":{"b":[1]},"x":3})");
}

TEST_F(CopyNode, NullsAreRefused) {
    const QoJsonNode node(json_new(JSON_NODE));
    EXPECT_EQ(store_->CopyNode(nullptr, node.get()), -1);
    EXPECT_EQ(store_->CopyNode(node.get(), nullptr), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node"), error_line("Null node")));
}

// ---- joining responses ----

class PackMultipleGetResponse : public ReadTest {
protected:
    PackMultipleGetResponse() : combined_(json_new(JSON_NODE)) {}
    int pack(const std::string& pointer, eQO_COMPONENT_CLASS_ component_class = QO_REMOTE_CLIENT) {
        const QoJsonNode response = qo_json_parse(read(pointer));
        return store_->PackMultipleGetResponse(combined_.get(), response.get(), component_class);
    }
    std::string combined() { return qo_json_write(combined_.get()); }

    QoJsonNode combined_;
};

TEST_F(PackMultipleGetResponse, JoinsSharedPaths) {
    EXPECT_EQ(pack("/system/config/temp"), 0);
    EXPECT_EQ(pack("/system/name"), 0);
    EXPECT_EQ(pack("/system/config/mode"), 0);
    EXPECT_EQ(combined(), R"({"system":{"config":{"temp":35.0,"mode":"auto"},"name":"x"}})");
}

TEST_F(PackMultipleGetResponse, ElementsGoToTheirIdPositions) {
    EXPECT_EQ(pack("/zones/3"), 0);
    EXPECT_EQ(pack("/zones/1"), 0);
    EXPECT_EQ(combined(), R"({"zones":[{"id":0},{"id":1,"t":1,"sub":{"y":true}},{"id":2},{"id":3}]})");
}

TEST_F(PackMultipleGetResponse, LosesMetadata) {
    load(R"({"a":{"writeAccess":"internal","doNotPersist":true,"x":1}})");
    EXPECT_EQ(pack("/a"), 0);
    EXPECT_EQ(combined(), R"({"a":{"x":1}})");
}

TEST_F(PackMultipleGetResponse, APartOfAnElementHasNoIdAndIsNotJoined) {
    EXPECT_EQ(pack("/zones/1/t"), -1);
    EXPECT_EQ(pack("/scalars"), -1);
    EXPECT_EQ(combined(), "{}");
}

TEST_F(PackMultipleGetResponse, OfAFailedReadIsRefused) {
    log_.clear();
    EXPECT_EQ(store_->PackMultipleGetResponse(combined_.get(), nullptr, QO_REMOTE_CLIENT), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
}

TEST_F(PackMultipleGetResponse, EachResponseMayNeedAsManyPlaceholdersAsOneMergeAllows) {
    ASSERT_EQ(publish(R"({"a":[{"id":60000,"x":1}],"b":[]})"), 0);
    ASSERT_EQ(publish(R"({"b":[{"id":60000,"x":1}]})"), 0);
    EXPECT_EQ(pack("/a/60000"), 0);
    EXPECT_EQ(pack("/b/60000"), 0);
    EXPECT_EQ(json_size(qo_json_find(combined_.get(), "a")), 60001U);
    EXPECT_EQ(json_size(qo_json_find(combined_.get(), "b")), 60001U);
}

}  // namespace
