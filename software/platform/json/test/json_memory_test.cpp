// A shortage of memory at every point of a change: the change is done or not begun, and the tree is whole.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <string>

#include "failing_new.h"
#include "qo_json.h"

namespace {

struct Delete {
    void operator()(JSONNODE* node) const { json_delete(node); }
};
using Node = std::unique_ptr<JSONNODE, Delete>;

std::string text_of(const JSONNODE* node) {
    char* text = json_write(node);
    std::string copy(text);
    json_free(text);
    return copy;
}

/// So many members that they are found by an index, two of them with the same name.
Node large_object() {
    Node object(json_new(JSON_NODE));
    for (int number = 0; number < 40; ++number)
        json_push_back(object.get(), json_new_i(("member number " + std::to_string(number % 39)).c_str(), number));
    return object;
}

/// Does `change` to an object whose index exists, with each of its allocations failing once. What is expected of the
/// tree in between is what it was before or what it is after the change.
void fail_each(const std::function<void(JSONNODE*)>& change) {
    const Node unchanged = large_object();
    const Node changed = large_object();
    json_find(changed.get(), "x");
    change(changed.get());
    const std::string before = text_of(unchanged.get());
    const std::string after = text_of(changed.get());
    bool failed = true;
    for (size_t number = 0; failed; ++number) {
        const Node object = large_object();
        json_find(object.get(), "x");
        try {
            const QoFailingNew short_of_memory(number);
            change(object.get());
        } catch (const std::bad_alloc&) {
        }
        failed = QoFailingNew::has_failed();
        const std::string now = text_of(object.get());
        ASSERT_TRUE(now == before || now == after) << "allocation " << number << ": " << now;
        // Whatever became of the index, it finds what is there.
        for (JSONNODE** child = json_begin(object.get()); child != json_end(object.get()); ++child) {
            const std::string name = json_name_view(*child, nullptr);
            JSONNODE* found = json_find(object.get(), name.c_str());
            ASSERT_NE(found, nullptr) << name;
            ASSERT_STREQ(json_name_view(found, nullptr), name.c_str());
        }
        ASSERT_EQ(json_find(object.get(), "no such member"), nullptr);
    }
}

}  // namespace

TEST(ShortOfMemory, AppendedOrStillTheCallers) {
    fail_each([](JSONNODE* object) {
        Node child(json_new_a("a new member with a long name", "a text that is long enough"));
        if (json_push_back(object, child.get()) != 0) static_cast<void>(child.release());
    });
}

TEST(ShortOfMemory, AppendedNamesakeOrStillTheCallers) {
    fail_each([](JSONNODE* object) {
        Node child(json_new_i("member number 3", 7));
        if (json_push_back(object, child.get()) != 0) static_cast<void>(child.release());
    });
}

TEST(ShortOfMemory, InsertedOrStillTheCallers) {
    fail_each([](JSONNODE* object) {
        Node child(json_new_b("member number 5", 1));
        if (json_insert(object, json_begin(object) + 2, child.get()) != nullptr) static_cast<void>(child.release());
    });
}

TEST(ShortOfMemory, AllCopiesInsertedOrNone) {
    const Node source = large_object();
    fail_each([&source](JSONNODE* object) {
        json_insert_multi(object, json_begin(object) + 3, json_begin(source.get()), json_end(source.get()));
    });
}

TEST(ShortOfMemory, RenamedOrNot) {
    fail_each([](JSONNODE* object) { json_set_name(json_at(object, 4), "a new name that is long enough"); });
}

TEST(ShortOfMemory, RenamedToANamesakeOrNot) {
    fail_each([](JSONNODE* object) { json_set_name(json_at(object, 30), "member number 4"); });
}

TEST(ShortOfMemory, SetOrNot) {
    const Node source = large_object();
    fail_each([&source](JSONNODE* object) { json_set_n(json_at(object, 4), source.get()); });
}

TEST(ShortOfMemory, TakenOutAndDeletedInAnyCase) {
    fail_each([](JSONNODE* object) { json_delete(json_find(object, "member number 0")); });
}

TEST(ShortOfMemory, ErasedByAConditionOrNot) {
    fail_each([](JSONNODE* object) {
        json_erase_if(
            object, [](const JSONNODE* child, void*) { return json_as_int(child) % 2 == 0 ? 1 : 0; }, nullptr);
    });
}

TEST(ShortOfMemory, SearchedWithoutAnIndex) {
    const Node object = large_object();
    ASSERT_EQ(json_find(object.get(), "the first search"), nullptr);
    const QoFailingNew short_of_memory(0);
    EXPECT_EQ(json_as_int(json_find(object.get(), "member number 38")), 38);
    EXPECT_TRUE(QoFailingNew::has_failed());
}
