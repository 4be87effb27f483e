// What a snapshot keeps of a tree, and that it is written like the tree.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "json_test_support.h"
#include "qo_pushpull_json.h"

namespace {

using Choose = std::function<JSON_TAKE(const JSONNODE*)>;

JSON_TAKE everything(const JSONNODE*) { return JSON_TAKE_CHOSEN; }

std::string written(const QoJsonSnapshot& snapshot) {
    std::string text;
    EXPECT_TRUE(snapshot.write_formatted_to([&text](std::string_view piece) {
        text += piece;
        return true;
    }));
    return text;
}

std::string snapshot_text(const JSONNODE* node, const Choose& choose = everything) {
    return written(QoJsonSnapshot(node, choose));
}

/// What the snapshot of one text holds is the other.
void expect_taken(const std::string& tree, const Choose& choose, const std::string& taken) {
    EXPECT_EQ(snapshot_text(parse(tree).get(), choose), formatted(parse(taken).get())) << tree;
}

/// Nested at random, with texts and names of all kinds and lengths.
Json random_tree(std::mt19937& random, int levels) {
    const auto below = [&random](size_t end) { return std::uniform_int_distribution<size_t>(0, end - 1)(random); };
    const size_t lengths[] = {0, 1, 14, 15, 16, 17, 100, 254, 255, 256, 300, 70000};
    const auto text = [&] {
        const char characters[] = {'a', '"', '\\', '\n', '\x01'};
        return std::string(lengths[below(levels == 0 ? std::size(lengths) : 7)],
                           characters[below(std::size(characters))]);
    };
    Json node;
    switch (below(levels > 0 ? 6 : 4)) {
        case 0:
            node.reset(json_new(JSON_NULL));
            break;
        case 1:
            node.reset(json_new_b(nullptr, static_cast<int>(below(2))));
            break;
        case 2:
            node.reset(json_new_i(nullptr, static_cast<int64_t>(random()) - 2000000000));
            break;
        case 3: {
            const std::string value = text();
            node.reset(json_new_a_n("", 0, value.data(), value.size()));
            break;
        }
        default:
            node.reset(json_new(below(2) == 0 ? JSON_ARRAY : JSON_NODE));
            for (size_t count = below(8); count > 0; --count) {
                Json child = random_tree(random, levels - 1);
                const std::string name = text();
                json_set_name_n(child.get(), name.data(), name.size());
                json_push_back(node.get(), child.release());
            }
    }
    return node;
}

}  // namespace

TEST(JsonSnapshot, IsWrittenLikeTheTree) {
    for (const char* text :
         {"{}", "[]", "null", "true", "false", "-1.50e3", R"("a\u0000\"")", R"({"a":{},"b":[],"c":[[],{}]})",
          R"({"a":1,"a":[true,false,null,{"":""}],"long name of more than fifteen bytes":"long text of more"})"}) {
        const Json node = parse(text);
        EXPECT_EQ(snapshot_text(node.get()), formatted(node.get())) << text;
        EXPECT_EQ(QoJsonSnapshot(node.get(), everything).type(), json_type(node.get())) << text;
    }
}

TEST(JsonSnapshot, OfAnyTreeIsWrittenLikeIt) {
    std::mt19937 random;
    for (int i = 0; i < 300; ++i) {
        const Json tree = random_tree(random, 5);
        ASSERT_EQ(snapshot_text(tree.get()), formatted(tree.get())) << "tree " << i;
    }
}

TEST(JsonSnapshot, KeepsWhatTheTreeWas) {
    Json tree = parse(R"({"a":"a text of more than fifteen bytes","b":[1,2]})");
    const std::string before = formatted(tree.get());
    const QoJsonSnapshot snapshot(tree.get(), everything);
    json_set_n(json_find(tree.get(), "a"), parse("5").get());
    json_delete(json_find(tree.get(), "b"));
    tree.reset();
    EXPECT_EQ(written(snapshot), before);
    EXPECT_EQ(written(snapshot), before) << "again";
}

TEST(JsonSnapshot, LacksWhatIsLeftOut) {
    const auto without_x = [](const JSONNODE* node) {
        return json_find(node, "x") == nullptr ? JSON_TAKE_CHOSEN : JSON_TAKE_NOTHING;
    };
    expect_taken(R"({"a":{"x":1},"b":{"c":{"x":1},"d":2},"e":[{"x":1},3]})", without_x, R"({"b":{"d":2},"e":[3]})");
    expect_taken(R"({"a":{"x":1}})", without_x, "{}");
}

TEST(JsonSnapshot, AsksNeitherForTheRootNorForNodesWithoutChildren) {
    std::vector<std::string> asked;
    const auto note = [&asked](const JSONNODE* node) {
        asked.push_back(name_of(node));
        return JSON_TAKE_CHOSEN;
    };
    const Json tree = parse(R"({"a":1,"b":{},"c":[],"d":{"e":{"f":1}},"g":[[1]]})");
    json_set_name(tree.get(), "root");
    snapshot_text(tree.get(), note);
    EXPECT_EQ(asked, (std::vector<std::string>{"d", "e", "g", ""}));
}

TEST(JsonSnapshot, TakesAllChildrenOfANodeAndAsksForTheirs) {
    const auto arrays_whole = [](const JSONNODE* node) {
        return json_type(node) == JSON_ARRAY ? JSON_TAKE_CHILDREN : JSON_TAKE_NOTHING;
    };
    expect_taken(R"({"o":{"a":1},"l":[{"b":{"c":1},"d":2},[[3]],4]})", arrays_whole, R"({"l":[{"d":2},[[3]],4]})");
}

TEST(JsonSnapshot, WithoutAChooserHasAll) {
    const Json tree = parse(R"({"a":{"b":[1]}})");
    JSONSNAPSHOT* snapshot = json_snapshot_new(tree.get(), nullptr, nullptr);
    std::string text;
    const auto append = [](const char* bytes, size_t length, void* context) {
        static_cast<std::string*>(context)->append(bytes, length);
        return 1;
    };
    EXPECT_EQ(json_snapshot_write_formatted_to(snapshot, append, &text), 1);
    EXPECT_EQ(text, formatted(tree.get()));
    json_snapshot_delete(snapshot);
}

TEST(JsonSnapshot, IsNotWrittenFurtherThanTheWriterWants) {
    const Json tree = parse("[\"" + std::string(100000, 'x') + "\"]");
    int calls = 0;
    EXPECT_FALSE(
        QoJsonSnapshot(tree.get(), everything).write_formatted_to([&calls](std::string_view) { return ++calls < 2; }));
    EXPECT_EQ(calls, 2);
}

TEST(JsonSnapshot, OfADeepTreeNeedsNoRecursion) {
    const Json tree(json_new(JSON_ARRAY));
    JSONNODE* innermost = tree.get();
    for (int level = 0; level < 200000; ++level) {
        JSONNODE* child = json_new(JSON_ARRAY);
        json_push_back(innermost, child);
        innermost = child;
    }
    EXPECT_EQ(snapshot_text(tree.get()), formatted(tree.get()));
}

TEST(JsonScan, FindsEveryMemberOfAName) {
    const Json tree = parse(R"({"a":1,"b":2,"a":3,"a long name beyond fifteen":4})");
    EXPECT_EQ(json_scan_n(tree.get(), 0, "a", 1), 0U);
    EXPECT_EQ(json_scan_n(tree.get(), 1, "a", 1), 2U);
    EXPECT_EQ(json_scan_n(tree.get(), 3, "a", 1), 4U);
    EXPECT_EQ(json_scan_n(tree.get(), 99, "a", 1), 4U);
    EXPECT_EQ(json_scan_n(tree.get(), 0, "a long name beyond fifteen", 26), 3U);
    EXPECT_EQ(json_scan_n(tree.get(), 0, "c", 1), 4U);
    EXPECT_EQ(json_scan_n(parse("7").get(), 0, "c", 1), 0U);
}
