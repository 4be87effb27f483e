/// The tree that the guest of the power-cut campaign saves, and what tells a whole one from a mixture.
#ifndef QO_TEST_POWER_CUT_TREE_H
#define QO_TEST_POWER_CUT_TREE_H

#include <cstddef>
#include <string>

/// Saves differ in size, so that they differ in the blocks they take.
inline std::string power_cut_name(long number) {
    constexpr long kLengths = 60000;  // bytes
    const size_t filling = static_cast<size_t>(number * 7919 % kLengths);
    return "tree " + std::to_string(number) + " " + std::string(filling, static_cast<char>('a' + number % 26));
}

/// One publish with the number in two places.
inline std::string power_cut_tree(long number) {
    return R"({"version":{"schemaVersion":")" + std::to_string(number) + R"("},"system":{"config":{"name":")" +
           power_cut_name(number) + R"("}}})";
}

/// Where the tree's number is found, in the answer to a get as well as in a file.
inline constexpr char kPowerCutNumber[] = "\"schemaVersion\": \"";

/// The number in a text; -1 when there is none.
inline long power_cut_number(const std::string& text) {
    const size_t found = text.find(kPowerCutNumber);
    if (found == std::string::npos) return -1;
    long number = 0;
    size_t digit = found + sizeof kPowerCutNumber - 1;
    if (text[digit] < '0' || text[digit] > '9') return -1;
    for (; text[digit] >= '0' && text[digit] <= '9'; ++digit) number = number * 10 + (text[digit] - '0');
    // The version of the default tree, "1.2", is no number of ours.
    return text[digit] == '"' ? number : -1;
}

/// What the guest writes to the last block of the disk, past the file system, when a save is done: it stands in the
/// log of writes exactly where the save was reported.
inline constexpr char kPowerCutMarker[] = "QO_POWER_CUT SAVED ";
inline constexpr size_t kPowerCutMarkerSize = 4096;  // bytes

#endif
