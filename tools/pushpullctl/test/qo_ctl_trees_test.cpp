// Differences, what was not taken, fragments and broken texts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qo_ctl_difference_print.h"
#include "qo_ctl_fragment.h"
#include "qo_ctl_likeness.h"
#include "qo_ctl_rules.h"
#include "qo_ctl_sizes.h"
#include "qo_ctl_syntax.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string patch_of(const char* before, const char* after) {
    const QoJsonNode a = qo_json_parse(before);
    const QoJsonNode b = qo_json_parse(after);
    return qo_ctl_json_patch(qo_ctl_differences(a.get(), b.get()));
}

TEST(Differences, OfEqualTreesAreNone) {
    for (const char* text : {"{}", "[]", "1", R"({"a":[{"b":null}],"c":"x"})"}) EXPECT_EQ(patch_of(text, text), "[]\n");
    EXPECT_EQ(patch_of(R"({"a":1,"b":2})", R"({"b":2,"a":1})"), "[]\n") << "the order of members does not count";
    EXPECT_EQ(patch_of(R"({"a":1,"a":2})", R"({"a":1})"), "[]\n") << "only the first of a name is ever found";
    EXPECT_EQ(patch_of(R"({"a":1.0})", R"({"a":1})"), "[]\n");
}

TEST(Differences, AreAPatchThatCanBeAppliedInItsOrder) {
    EXPECT_EQ(patch_of(R"({"a":1})", R"({"b":2})"),
              R"([{"op":"remove","path":"/a"},{"op":"add","path":"/b","value":2}])"
              "\n");
    EXPECT_EQ(patch_of(R"([1,2,3])", R"([5])"),
              R"([{"op":"replace","path":"/0","value":5},{"op":"remove","path":"/2"},{"op":"remove","path":"/1"}])"
              "\n");
    EXPECT_EQ(patch_of(R"([])", R"([{"a":1},2])"),
              R"([{"op":"add","path":"/0","value":{"a":1}},{"op":"add","path":"/1","value":2}])"
              "\n");
    EXPECT_EQ(patch_of(R"({"a":{}})", R"({"a":[]})"), R"([{"op":"replace","path":"/a","value":[]}])"
                                                      "\n");
    EXPECT_EQ(patch_of("1", "2"), R"([{"op":"replace","path":"","value":2}])"
                                  "\n");
    EXPECT_EQ(patch_of(R"({"a/b":{"~":1}})", R"({"a/b":{"~":2}})"), R"([{"op":"replace","path":"/a~1b/~0","value":2}])"
                                                                    "\n");
}

TEST(DifferenceLines, AreHarmlessAndNotTooLong) {
    const QoJsonNode a = qo_json_parse(R"({"a":1})");
    const QoJsonNode b = qo_json_parse("{\"a\":\"" + std::string(500, 'x') + "\",\"\\u001b[2J\":2}");
    const std::string lines = qo_ctl_difference_lines(qo_ctl_differences(a.get(), b.get()), QoCtlStyle{});
    EXPECT_THAT(lines, HasSubstr("~ /a: 1 -> \"xxx"));
    EXPECT_LT(lines.size(), 300U);
    EXPECT_THAT(lines, HasSubstr("+ /\\u001b[2J: 2\n"));
}

// ---- what was not taken ----

std::vector<std::string> not_taken(const char* published, const char* tree) {
    const QoJsonNode object = qo_json_parse(published);
    const QoJsonNode whole = qo_json_parse(tree);
    std::vector<std::string> pointers;
    for (const QoCtlDifference& difference : qo_ctl_not_taken(object.get(), whole.get()))
        pointers.push_back(qo_ctl_pointer(difference.path));
    return pointers;
}

TEST(NotTaken, IsWhatTheTreeDoesNotHave) {
    EXPECT_THAT(not_taken(R"({"a":{"b":1}})", R"({"a":{"b":1,"c":2},"d":3})"), IsEmpty());
    EXPECT_THAT(not_taken(R"({"a":{"b":1,"c":2}})", R"({"a":{"b":2}})"), ElementsAre("/a/b", "/a/c"));
    EXPECT_THAT(not_taken(R"({"a":5})", R"({"a":{"b":1}})"), ElementsAre("/a"));
    EXPECT_THAT(not_taken(R"({"a":{"b":1}})", R"({"a":[1]})"), ElementsAre("/a"));
}

TEST(NotTaken, FindsElementsByTheirId) {
    EXPECT_THAT(not_taken(R"([{"id":1,"x":2}])", R"([{"id":0},{"id":1,"x":2}])"), IsEmpty());
    EXPECT_THAT(not_taken(R"([{"id":1,"x":3},{"x":1},{"id":-1}])", R"([{"id":0},{"id":1,"x":2}])"),
                ElementsAre("/1/x", "/?", "/?"));
    EXPECT_THAT(not_taken(R"([{"id":2}])", R"([{"id":0}])"), ElementsAre("/2"));
}

TEST(NotTaken, AnEmptyContainerAsksForNothing) {
    EXPECT_THAT(not_taken(R"({"a":{},"b":[]})", R"({"a":{"x":1},"b":[{"id":0}]})"), IsEmpty());
    EXPECT_THAT(not_taken(R"({"a":{}})", R"({"a":1})"), ElementsAre("/a"));
}

// ---- fragments ----

std::string fragment(const QoCtlPath& path, const std::vector<bool>& is_position, const char* value) {
    return qo_json_write(qo_ctl_fragment(path, is_position, qo_json_parse(value)).get());
}

TEST(Fragment, HoldsTheValueAtItsPath) {
    EXPECT_EQ(fragment({"a"}, {false}, "1"), R"({"a":1})");
    EXPECT_EQ(fragment({"a", "0", "b"}, {false, false, false}, "null"), R"({"a":{"0":{"b":null}}})");
}

TEST(Fragment, TellsPositionsByIds) {
    EXPECT_EQ(fragment({"a", "4", "b"}, {false, true, false}, "1"), R"({"a":[{"b":1,"id":4}]})");
    EXPECT_EQ(fragment({"a", "4"}, {false, true}, R"({"id":4,"x":1})"), R"({"a":[{"id":4,"x":1}]})");
    EXPECT_TRUE(qo_ctl_may_be_position("0"));
    for (const char* no : {"", "-1", "1x", "1234567890", "+1"}) EXPECT_FALSE(qo_ctl_may_be_position(no)) << no;
}

// ---- sizes ----

TEST(Sizes, AreThoseOfTheTexts) {
    const QoJsonNode tree = qo_json_parse(R"({"a":[1,{"b\n":"x"}],"c":{},"d":{"e":null}})");
    std::vector<std::string> lines;
    for (const QoCtlSize& size : qo_ctl_sizes(tree.get()))
        lines.push_back(size.pointer + " " + std::to_string(size.bytes) + " " + std::to_string(size.children));
    EXPECT_THAT(lines, ElementsAre("/ " + std::to_string(qo_json_write(tree.get()).size()) + " 3", "/a 15 2",
                                   "/a/1 11 1", "/d 10 1"));
}

// ---- rules ----

QoCtlRules rules_at(const QoJsonNode& tree, const QoCtlPath& path) { return qo_ctl_rules(tree.get(), path); }

TEST(Rules, FollowTheWriteAccessAlongThePath) {
    const QoJsonNode tree = qo_json_parse(
        R"({"open":{"writeAccess":"openAll","x":{"y":1}},"local":{"writeAccess":"local","v":1,"in":{"v":1}},)"
        R"("remote":{"writeAccess":"remote","v":1},"shut":{"writeAccess":"internal","v":1},"none":{"v":1},)"
        R"("list":[{"id":0,"writeAccess":"remote","maxItems":3},{"id":1,"writeAccess":"internal","v":1}]})");
    const auto writers = [&tree](const QoCtlPath& path) { return rules_at(tree, path).may_write; };
    EXPECT_THAT(writers({"open", "x", "y"}), ElementsAre(true, true, true));
    EXPECT_THAT(writers({"local", "v"}), ElementsAre(true, true, false));
    EXPECT_THAT(writers({"local", "in", "v"}), ElementsAre(true, false, false));
    EXPECT_THAT(writers({"remote", "v"}), ElementsAre(true, true, true));
    EXPECT_THAT(writers({"shut", "v"}), ElementsAre(true, false, false));
    EXPECT_THAT(writers({"none", "v"}), ElementsAre(true, false, false));
    EXPECT_THAT(writers({"list", "1", "v"}), ElementsAre(true, true, true)) << "its first element speaks for an array";
    EXPECT_EQ(rules_at(tree, {"list"}).max_items, 3);
    EXPECT_EQ(rules_at(tree, {"list", "2"}).node, nullptr);
    EXPECT_EQ(rules_at(tree, {"list", "x"}).node, nullptr);
}

TEST(Rules, TellWhatIsNotSaved) {
    const QoJsonNode tree = qo_json_parse(
        R"({"a":{"doNotPersist":true,"b":{"c":1}},"d":{"doNotPersist":1},"e":[{"id":0},{"id":1,"doNotPersist":true}]})");
    EXPECT_FALSE(rules_at(tree, {"a", "b", "c"}).persists);
    EXPECT_TRUE(rules_at(tree, {"d"}).persists);
    EXPECT_FALSE(rules_at(tree, {"e", "0"}).persists);
    EXPECT_TRUE(rules_at(tree, {}).persists);
}

// ---- likeness ----

TEST(EditDistance, IsTheNumberOfEdits) {
    EXPECT_EQ(qo_ctl_edit_distance("", ""), 0U);
    EXPECT_EQ(qo_ctl_edit_distance("abc", ""), 3U);
    EXPECT_EQ(qo_ctl_edit_distance("name", "nmae"), 2U);
    EXPECT_EQ(qo_ctl_edit_distance("kitten", "sitting"), 3U);
}

TEST(Likeness, ComparesElementsWithTheModelsFirst) {
    const QoJsonNode tree = qo_json_parse(R"({"a":[{"id":0},{"id":1,"nmae":1}],"b":{"free":1}})");
    const QoJsonNode model = qo_json_parse(R"({"a":[{"id":0,"name":"x"}],"b":{}})");
    const std::vector<QoCtlUnlikeness> found = qo_ctl_unlikenesses(tree.get(), model.get());
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].pointer, "/a/1/nmae");
    EXPECT_THAT(found[0].text, HasSubstr("did you mean \"name\"?"));
}

// ---- broken texts ----

TEST(SyntaxFault, TellsLineColumnAndCause) {
    EXPECT_EQ(qo_ctl_syntax_fault("{}"), "");
    EXPECT_EQ(qo_ctl_syntax_fault(""), "line 1, column 1: The document is empty.");
    EXPECT_EQ(qo_ctl_syntax_fault("{\"a\":1}\nx"),
              "line 2, column 1: The document root must not be followed by other values.");
    EXPECT_THAT(qo_ctl_syntax_fault("[1,\n 2,\n }"), testing::StartsWith("line 3, column 2: "));
    EXPECT_THAT(qo_ctl_syntax_fault("\"\xff\""), HasSubstr("encoding"));
    EXPECT_EQ(qo_ctl_syntax_fault(std::string(513, '[') + std::string(513, ']')),
              "line 1, column 513: nested deeper than 512 levels");
    EXPECT_THAT(qo_ctl_syntax_fault(std::string(200000, '[')), HasSubstr("nested deeper"));
}

}  // namespace
