// Lines of recordings.
#include "qo_ctl_recording.h"

#include <gtest/gtest.h>

namespace {

constexpr QoCtlMoment kMoment = 1795352400123;  // 2026-11-22T13:00:00.123Z

std::string recorded(std::string_view text) {
    const std::string pointers[] = {"/usb", "/system/status"};
    return qo_ctl_recorded(kMoment, pointers, text, QoCtlStyle{});
}

TEST(Recording, HasTimePointerAndText) {
    EXPECT_EQ(
        recorded(R"({"system": {"status": {"a": 1.50}}})"),
        R"({"time":"2026-11-22T13:00:00.123Z","pointer":"/system/status","text":{"system":{"status":{"a":1.50}}}})"
        "\n");
}

TEST(Recording, OfADeletionHasItsPointerAndAString) {
    EXPECT_EQ(recorded("NODE DELETED: /usb/x"),
              R"({"time":"2026-11-22T13:00:00.123Z","pointer":"/usb","text":"NODE DELETED: /usb/x"})"
              "\n");
}

TEST(Recording, OfATextAboutNothingThatIsFollowedHasNoPointer) {
    EXPECT_EQ(recorded("sync:7:x"), R"({"time":"2026-11-22T13:00:00.123Z","text":"sync:7:x"})"
                                    "\n");
}

TEST(Recording, IsReadAsItIsWritten) {
    const auto entry = qo_ctl_read_recorded(recorded(R"({"system":{"status":{"text":1.50}}})"));
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->time, kMoment);
    EXPECT_EQ(entry->object, R"({"system":{"status":{"text":1.50}}})");
    EXPECT_EQ(qo_ctl_read_recorded(recorded("NODE DELETED: /usb"))->object, "");
    EXPECT_EQ(qo_ctl_read_recorded(recorded("[1]"))->object, "") << "an array is no publish";
}

TEST(Recording, AnyOtherLineIsNone) {
    for (const char* line : {"", "{}", "[]", "7", R"({"time":"2026-11-22T13:00:00.123Z"})", R"({"text":{}})",
                             R"({"time":"yesterday","text":{}})", R"({"time":7,"text":{}})",
                             R"({"time":"2026-11-22T13:00:00.123Z","text":{})"})
        EXPECT_FALSE(qo_ctl_read_recorded(line)) << line;
}

}  // namespace
