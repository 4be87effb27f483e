// What a save writes is, byte for byte, what a trimmed copy of the tree gives, with its CRC put in front.
#include <random>
#include <sstream>

#include "qo_pushpull_initializer.h"
#include "qo_pushpull_utilities.h"
#include "qo_store_fixture.h"

namespace {

/// The plain way to the text of a saved file: copy, trim, write, insert, write.
std::string saved_text_of(const JSONNODE* tree) {
    const QoJsonNode copy(json_duplicate(tree));
    Initializer("/nowhere/").TrimNonPersistentData(copy.get());
    std::ostringstream crc;
    crc << std::hex << CalcCrc32(qo_json_write_formatted(copy.get()));
    json_insert(copy.get(), json_begin(copy.get()), json_new_a("crc", crc.str().c_str()));
    return qo_json_write_formatted(copy.get());
}

/// Makes up trees full of markers, also where they do not count. The same ones in every run.
class TreeMaker {
public:
    std::string object(int levels) {
        std::string text = "{";
        for (size_t count = below(6); count > 0; --count)
            text += (text.size() > 1 ? "," : "") + ('"' + name() + "\":") + value(levels);
        return text + "}";
    }

private:
    size_t below(size_t end) { return std::uniform_int_distribution<size_t>(0, end - 1)(random_); }

    std::string name() {
        const char* names[] = {
            "a", "b", "id", "crc", "doNotPersist", "doNotPersist", "", "a name of more than 15 bytes"};
        return names[below(std::size(names))];
    }

    std::string array(int levels) {
        std::string text = "[";
        for (size_t count = below(4); count > 0; --count) text += (text.size() > 1 ? "," : "") + value(levels);
        return text + "]";
    }

    std::string value(int levels) {
        const char* scalars[] = {"true",
                                 "true",
                                 "false",
                                 "null",
                                 "1.50",
                                 "\"true\"",
                                 R"("\u0001 \" \\ \u20ac")",
                                 "\"a text of more than 15 bytes\""};
        const size_t kind = below(levels > 0 ? 4 : 2);
        if (kind == 2) return object(levels - 1);
        return kind == 3 ? array(levels - 1) : scalars[below(std::size(scalars))];
    }

    std::mt19937 random_;
};

class SavedText : public QoStoreTest {
protected:
    void expect_saved(const std::string& tree) {
        load(tree);
        ASSERT_EQ(store_->SaveDataTree(false), 0);
        EXPECT_EQ(scratch_.read(QO_SAVED_TREE_FILE), saved_text_of(qo_json_parse(tree).get())) << tree;
        std::filesystem::remove(scratch_.file(QO_SAVED_TREE_FILE));
    }
};

TEST_F(SavedText, IsThatOfATrimmedCopyWhateverTheTree) {
    TreeMaker maker;
    for (int i = 0; i < 400; ++i) expect_saved(maker.object(5));
}

TEST_F(SavedText, IsThatOfATrimmedCopyOfArraysInArrays) {
    for (const char* tree : {R"({"a":[[{"id":0},{"doNotPersist":true}]]})", R"({"a":[[[{"doNotPersist":true}],1]]})",
                             R"({"a":[{"b":[{"doNotPersist":true}],"c":1}]})", R"({"a":{"doNotPersist":true}})",
                             R"({"doNotPersist":true,"a":1})", R"({"a":[[]],"b":[{}]})"})
        expect_saved(tree);
}

TEST_F(SavedText, IsThatOfATrimmedCopyOfALargeTree) {
    std::string tree = R"({"devices":[)";
    for (int id = 0; tree.size() < 300000; ++id)
        tree += (id > 0 ? "," : "") + std::string(R"({"id":)") + std::to_string(id) +
                R"(,"status":{"doNotPersist":true,"t":1},"name":")" + std::string(static_cast<size_t>(id % 300), 'n') +
                "\"}";
    expect_saved(tree + "]}");
}

}  // namespace
