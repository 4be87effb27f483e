/// What the campaigns that break saves have in common: the service's files, trees that can be told apart, options.
#ifndef QO_TEST_SAVED_FILES_H
#define QO_TEST_SAVED_FILES_H

#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

inline constexpr char kQoDataDirectory[] = "/kivo/data/";
inline constexpr char kQoSavedFile[] = "/kivo/data/saved_tree.json";
inline constexpr char kQoBackUpFile[] = "/kivo/data/saved_tree.json.bak";

inline std::string qo_text_of(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

inline void qo_write_file(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

/// The same tree with another value in it: its CRC is wrong.
inline std::string qo_hand_edited(std::string text) {
    const std::string member = "\"schemaVersion\": \"";
    text.insert(text.find(member) + member.size(), "9");
    return text;
}

inline std::vector<std::string> qo_files_in_data_directory() {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(kQoDataDirectory))
        if (entry.is_regular_file()) names.push_back(entry.path().filename());
    return names;
}

/// Two places with one number, so that a mixture shows.
inline std::string qo_tree_number(int number) {
    const std::string text = std::to_string(number);
    return R"({"version":{"schemaVersion":")" + text + R"("},"system":{"config":{"name":"tree )" + text + R"("}}})";
}

/// Takes "NAME=NUMBER" into `value`. @return whether the word is that
inline bool qo_take_option(std::string_view word, std::string_view name, size_t& value) {
    if (!word.starts_with(name)) return false;
    word.remove_prefix(name.size());
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    return error == std::errc() && end == word.data() + word.size() && value > 0;
}

#endif
