// Every function of the library accepts null where it takes a node, a text or an iterator.
#include <gtest/gtest.h>

#include "json_test_support.h"

TEST(JsonNull, CreatingFromNothing) {
    const Json unnamed(json_new_a(nullptr, nullptr));
    EXPECT_EQ(compact(unnamed), "\"\"");
    EXPECT_EQ(name_of(unnamed.get()), "");
    EXPECT_EQ(compact(Json(json_new_a("n", nullptr))), "\"\"");
    EXPECT_EQ(compact(Json(json_new_a_n(nullptr, 5, nullptr, 5))), "\"\"");
    EXPECT_EQ(compact(Json(json_new_i(nullptr, 3))), "3");
    EXPECT_EQ(compact(Json(json_new_b(nullptr, 1))), "true");
    EXPECT_EQ(json_parse(nullptr), nullptr);
    EXPECT_EQ(json_parse_n(nullptr, 0), nullptr);
    EXPECT_EQ(json_parse_n(nullptr, 5), nullptr);
    EXPECT_EQ(json_is_valid(nullptr), 0);
    EXPECT_EQ(json_is_valid_n(nullptr, 5), 0);
    EXPECT_EQ(json_duplicate(nullptr), nullptr);
    EXPECT_EQ(json_copy(nullptr), nullptr);
}

TEST(JsonNull, EscapingNothing) {
    char room[JSON_LONGEST_ESCAPE + JSON_ESCAPE_SPARE];
    EXPECT_EQ(json_escape_n(nullptr, 1, room), 0U);
    EXPECT_EQ(json_escape_n("a", 1, nullptr), 0U);
    EXPECT_EQ(json_is_text_n(nullptr, 0), 0);
}

TEST(JsonNull, ASnapshotOfNothing) {
    const auto take = [](const char*, size_t, void*) { return 1; };
    EXPECT_EQ(json_snapshot_new(nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(json_snapshot_type(nullptr), JSON_NULL);
    EXPECT_EQ(json_snapshot_write_formatted_to(nullptr, take, nullptr), 0);
    JSONSNAPSHOT* snapshot = json_snapshot_new(parse("{}").get(), nullptr, nullptr);
    EXPECT_EQ(json_snapshot_write_formatted_to(snapshot, nullptr, nullptr), 0);
    json_snapshot_delete(snapshot);
    json_snapshot_delete(nullptr);
}

TEST(JsonNull, ReleasingNothing) {
    json_delete(nullptr);
    json_clear(nullptr);
    json_free(nullptr);
}

TEST(JsonNull, ReadingNothing) {
    size_t length = 99;
    EXPECT_EQ(json_type(nullptr), JSON_NULL);
    EXPECT_EQ(json_name(nullptr), nullptr);
    EXPECT_STREQ(json_name_view(nullptr, &length), "");
    EXPECT_EQ(length, 0U);
    EXPECT_STREQ(json_name_view(nullptr, nullptr), "");
    EXPECT_EQ(json_size(nullptr), 0U);
    EXPECT_EQ(json_empty(nullptr), 1);
    EXPECT_EQ(json_begin(nullptr), json_end(nullptr));
    EXPECT_EQ(json_at(nullptr, 0), nullptr);
    EXPECT_EQ(json_as_int(nullptr), 0);
    EXPECT_EQ(json_as_float(nullptr), 0.0);
    EXPECT_EQ(json_as_bool(nullptr), 0);
    EXPECT_EQ(json_as_string(nullptr), nullptr);
    length = 99;
    EXPECT_STREQ(json_string_view(nullptr, &length), "");
    EXPECT_EQ(length, 0U);
    EXPECT_STREQ(json_string_view(nullptr, nullptr), "");
    EXPECT_EQ(json_equal(nullptr, nullptr), 1);
}

TEST(JsonNull, GetIntNeedsANumberAndAPlace) {
    int64_t value = 7;
    const Json number = parse("5");
    EXPECT_EQ(json_get_int(nullptr, &value), 0);
    EXPECT_EQ(json_get_int(number.get(), nullptr), 0);
    EXPECT_EQ(json_get_int(nullptr, nullptr), 0);
    EXPECT_EQ(value, 7);
}

TEST(JsonNull, SearchingNothing) {
    EXPECT_EQ(json_scan_n(nullptr, 0, "a", 1), 0U);
    EXPECT_EQ(json_scan_n(parse(R"({"a":1})").get(), 0, nullptr, 1), 1U);
    const Json object = parse(R"({"":1})");
    EXPECT_EQ(json_find(nullptr, "a"), nullptr);
    EXPECT_EQ(json_find(object.get(), nullptr), nullptr);
    EXPECT_EQ(json_find_n(nullptr, "a", 1), nullptr);
    EXPECT_EQ(json_find_n(object.get(), nullptr, 0), nullptr);
    EXPECT_EQ(json_pop_back(nullptr, "a"), nullptr);
    EXPECT_EQ(json_pop_back(object.get(), nullptr), nullptr);
    EXPECT_EQ(json_pop_back_at(nullptr, 0), nullptr);
    EXPECT_EQ(json_size(object.get()), 1U);
}

TEST(JsonNull, ChangingNothing) {
    const Json array = parse("[1]");
    const Json other = parse("[2]");
    const Json child = parse("3");
    JSONNODE_ITERATOR begin = json_begin(array.get());
    JSONNODE_ITERATOR first = json_begin(other.get());
    JSONNODE_ITERATOR last = json_end(other.get());
    EXPECT_EQ(json_push_back(nullptr, child.get()), 0);
    EXPECT_EQ(json_push_back(array.get(), nullptr), 0);
    EXPECT_EQ(json_push_back(nullptr, nullptr), 0);
    EXPECT_EQ(json_insert(nullptr, begin, child.get()), nullptr);
    EXPECT_EQ(json_insert(nullptr, json_begin(nullptr), child.get()), nullptr);
    EXPECT_EQ(json_insert(array.get(), nullptr, child.get()), nullptr);
    EXPECT_EQ(json_insert(array.get(), begin, nullptr), nullptr);
    EXPECT_EQ(json_insert_multi(nullptr, begin, first, last), nullptr);
    EXPECT_EQ(json_insert_multi(nullptr, json_begin(nullptr), first, last), nullptr);
    EXPECT_EQ(json_insert_multi(array.get(), nullptr, first, last), nullptr);
    EXPECT_EQ(json_insert_multi(array.get(), begin, nullptr, last), nullptr);
    EXPECT_EQ(json_insert_multi(array.get(), begin, first, nullptr), nullptr);
    EXPECT_EQ(json_erase(nullptr, begin), nullptr);
    EXPECT_EQ(json_erase(nullptr, json_begin(nullptr)), nullptr);
    EXPECT_EQ(json_erase(array.get(), nullptr), nullptr);
    EXPECT_EQ(json_erase_if(
                  nullptr, [](const JSONNODE*, void*) { return 1; }, nullptr),
              0U);
    EXPECT_EQ(json_erase_if(array.get(), nullptr, nullptr), 0U);
    json_set_name(nullptr, "a");
    json_set_name_n(nullptr, "a", 1);
    json_set_n(nullptr, child.get());
    json_set_n(array.get(), nullptr);
    json_set_n(nullptr, nullptr);
    EXPECT_EQ(compact(array), "[1]");
}

TEST(JsonNull, NullPositionsAreRefusedByEmptyContainersToo) {
    const Json empty = parse("[]");
    const Json other = parse("[2]");
    const Json child = parse("3");
    EXPECT_EQ(json_insert(empty.get(), nullptr, child.get()), nullptr);
    EXPECT_EQ(json_insert_multi(empty.get(), nullptr, json_begin(other.get()), json_end(other.get())), nullptr);
    EXPECT_EQ(json_erase(empty.get(), nullptr), nullptr);
    EXPECT_EQ(compact(empty), "[]");
}

TEST(JsonNull, WritingNothing) {
    size_t length = 99;
    EXPECT_EQ(json_write(nullptr), nullptr);
    EXPECT_EQ(json_write_formatted(nullptr), nullptr);
    EXPECT_EQ(json_write_n(nullptr, &length), nullptr);
    EXPECT_EQ(length, 0U);
    length = 99;
    EXPECT_EQ(json_write_formatted_n(nullptr, &length), nullptr);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(json_write_n(nullptr, nullptr), nullptr);
    const Json node = parse("[]");
    EXPECT_EQ(take(json_write_n(node.get(), nullptr)), "[]");
    EXPECT_EQ(take(json_write_formatted_n(node.get(), nullptr)), "[]");
}
