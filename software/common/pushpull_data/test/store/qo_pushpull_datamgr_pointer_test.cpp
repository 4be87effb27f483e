// Pointer texts to trees, and back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "qo_store_fixture.h"

namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

const QoLogLine kEmptySegment = debug_line("Root path or dangling / or back to back slashes //");
const QoLogLine kIncorrectPointer = error_line("Incorrect JSON pointer, ptr should start with /");

class PointerTest : public ::testing::Test {
protected:
    /// The skeleton as compact text, "null" for none.
    std::string skeleton(const std::string& pointer) {
        const QoJsonNode node(store_.JsonPtrToNode(pointer));
        return node ? qo_json_write(node.get()) : "null";
    }

    int array_index(const std::string& text) { return store_.GetJsonArrayIndex(qo_json_parse(text).get(), index_); }

    std::string pointer(const std::string& text) { return store_.JsonNodeToPtr(qo_json_parse(text).get()); }

    QoLogCapture log_;
    DataMgr store_;  // of no use but for its pointer operations: nothing is loaded
    unsigned index_ = 77;
};

// ---- JsonPtrToNode ----

using JsonPtrToNode = PointerTest;

TEST_F(JsonPtrToNode, EachSegmentIsAnObjectBelowTheOneBefore) {
    EXPECT_EQ(skeleton("/system/config/zones"), R"({"system":{"config":{"zones":{}}}})");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(JsonPtrToNode, TheRootHasNoName) {
    const QoJsonNode node(store_.JsonPtrToNode("/a"));
    EXPECT_EQ(qo_json_name(node.get()), "");
    EXPECT_EQ(json_type(node.get()), JSON_NODE);
}

TEST_F(JsonPtrToNode, WithoutALeadingSlashIsRefused) {
    EXPECT_EQ(skeleton("system/config"), "null");
    EXPECT_THAT(log_.lines(), ElementsAre(kIncorrectPointer));
}

TEST_F(JsonPtrToNode, TheEmptyTextIsRefused) {
    EXPECT_EQ(skeleton(""), "null");
    EXPECT_THAT(log_.lines(), ElementsAre(kIncorrectPointer));
}

TEST_F(JsonPtrToNode, ASlashAloneIsARootWithoutChildren) {
    EXPECT_EQ(skeleton("/"), "{}");
    EXPECT_THAT(log_.lines(), ElementsAre(kEmptySegment));
}

TEST_F(JsonPtrToNode, ADanglingSlashIsLoggedAndSkipped) {
    EXPECT_EQ(skeleton("/a/"), R"({"a":{}})");
    EXPECT_THAT(log_.lines(), ElementsAre(kEmptySegment));
}

TEST_F(JsonPtrToNode, BackToBackSlashesAreLoggedAndSkipped) {
    EXPECT_EQ(skeleton("/a//b"), R"({"a":{"b":{}}})");
    EXPECT_THAT(log_.lines(), ElementsAre(kEmptySegment));
}

TEST_F(JsonPtrToNode, EveryEmptySegmentIsLogged) {
    EXPECT_EQ(skeleton("/a//b/"), R"({"a":{"b":{}}})");
    EXPECT_THAT(log_.lines(), ElementsAre(kEmptySegment, kEmptySegment));
}

TEST_F(JsonPtrToNode, NoEscapesAreInterpreted) {
    EXPECT_EQ(skeleton("/a~1b/c~0d/%41"), R"({"a~1b":{"c~0d":{"%41":{}}}})");
}

TEST_F(JsonPtrToNode, DigitsAreAnOrdinaryName) { EXPECT_EQ(skeleton("/zones/7"), R"({"zones":{"7":{}}})"); }

TEST_F(JsonPtrToNode, RepeatedSegmentsNest) { EXPECT_EQ(skeleton("/a/a/a"), R"({"a":{"a":{"a":{}}}})"); }

TEST_F(JsonPtrToNode, ASegmentMayHoldANulByte) {
    const std::string text("/a\0b/c", 6);
    EXPECT_EQ(skeleton(text), R"({"a\u0000b":{"c":{}}})");
}

TEST_F(JsonPtrToNode, ASegmentThatIsNotUtf8MakesNoNode) {
    EXPECT_EQ(skeleton("/a/\xFF/b"), "null");
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("json_new failed")));
}

TEST_F(JsonPtrToNode, AHundredThousandSegmentsMakeASkeletonThatDeep) {
    std::string text;
    for (int i = 0; i < 131000; ++i) text += "/a";
    const QoJsonNode node(store_.JsonPtrToNode(text));
    size_t depth = 0;
    for (const JSONNODE* level = json_at(node.get(), 0); level != nullptr; level = json_at(level, 0)) ++depth;
    EXPECT_EQ(depth, 131000U);
    EXPECT_EQ(store_.JsonNodeToPtr(node.get()), text);
}

TEST_F(JsonPtrToNode, AFloodOfSlashesLogsOnlyTheFirstSixteen) {
    std::string text(260000, '/');
    text.push_back('a');
    EXPECT_EQ(skeleton(text), R"({"a":{}})");
    EXPECT_THAT(log_.lines(), SizeIs(16));
    EXPECT_THAT(log_.lines(), Each(kEmptySegment));
}

TEST_F(JsonPtrToNode, TheNextPointerLogsItsEmptySegmentsAgain) {
    skeleton(std::string(20, '/'));
    log_.clear();
    skeleton("/");
    EXPECT_THAT(log_.lines(), ElementsAre(kEmptySegment));
}

// ---- GetJsonArrayIndex ----

using GetJsonArrayIndex = PointerTest;

TEST_F(GetJsonArrayIndex, IsThePositionOfTheElementWithChildren) {
    EXPECT_EQ(array_index(R"([{}, {}, {"temp": 5}])"), 0);
    EXPECT_EQ(index_, 2U);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(GetJsonArrayIndex, ANonEmptyArraySelectsToo) {
    EXPECT_EQ(array_index("[1, [2], null]"), 0);
    EXPECT_EQ(index_, 1U);
}

TEST_F(GetJsonArrayIndex, TwoNonEmptyElementsFailWithTheFirstPositionWritten) {
    EXPECT_EQ(array_index(R"([{}, {"a":1}, {"b":2}, {"c":3}])"), -1);
    EXPECT_EQ(index_, 1U);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(GetJsonArrayIndex, OnlyEmptyElementsFail) {
    EXPECT_EQ(array_index(R"([{}, [], 5, "text"])"), -1);
    EXPECT_EQ(index_, 77U);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(GetJsonArrayIndex, NullFails) {
    EXPECT_EQ(store_.GetJsonArrayIndex(nullptr, index_), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
}

TEST_F(GetJsonArrayIndex, AnythingButAnArrayFails) {
    for (const char* text : {R"({"a":1})", "{}", "5", "null"}) {
        log_.clear();
        EXPECT_EQ(array_index(text), -1) << text;
        EXPECT_THAT(log_.lines(), ElementsAre(error_line("Cannot operate on a non JSON_ARRAY")));
    }
}

TEST_F(GetJsonArrayIndex, AnEmptyArrayFails) {
    EXPECT_EQ(array_index("[]"), -1);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Cannot operate on an empty array")));
}

// ---- JsonNodeToPtr ----

using JsonNodeToPtr = PointerTest;

TEST_F(JsonNodeToPtr, NamesThePathWithoutTheLeaf) {
    EXPECT_EQ(pointer(R"({"system":{"config":{"name":"x"}}})"), "/system/config");
}

TEST_F(JsonNodeToPtr, ASelectorArrayEndsItWithThePosition) {
    EXPECT_EQ(pointer(R"({"zones":[{}, {"temp": 5}]})"), "/zones/1");
    EXPECT_EQ(pointer(R"({"a":{"zones":[{}, {}, {"temp": {"deep":5}}]}})"), "/a/zones/2");
}

TEST_F(JsonNodeToPtr, ASingleLeafIsTheRoot) { EXPECT_EQ(pointer(R"({"a": 5})"), "/"); }

TEST_F(JsonNodeToPtr, AnEmptyObjectIsNamed) { EXPECT_EQ(pointer(R"({"a": {}})"), "/a"); }

TEST_F(JsonNodeToPtr, SeveralMembersGiveTheEmptyText) {
    EXPECT_EQ(pointer(R"({"a":1,"b":2})"), "");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(JsonNodeToPtr, SeveralMembersFurtherDownEndIt) { EXPECT_EQ(pointer(R"({"a":{"b":{"c":1,"d":2}}})"), "/a/b"); }

TEST_F(JsonNodeToPtr, AnEmptyTreeGivesTheEmptyText) { EXPECT_EQ(pointer("{}"), ""); }

TEST_F(JsonNodeToPtr, ASelectorFailureStopsAfterTheName) {
    EXPECT_EQ(pointer(R"({"zones":[{}, {}]})"), "/zones");
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(JsonNodeToPtr, AnEmptyArrayStopsAfterTheName) {
    EXPECT_EQ(pointer(R"({"zones":[]})"), "/zones");
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Cannot operate on an empty array")));
}

// Deliberate: null is the one input that raises instead of failing with a result.
TEST_F(JsonNodeToPtr, NullRaisesALogicError) {
    EXPECT_THROW(store_.JsonNodeToPtr(nullptr), std::logic_error);
    EXPECT_THAT(log_.lines(), ElementsAre(error_line("Null node")));
}

}  // namespace
