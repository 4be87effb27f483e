/// The statistics file as tests read it. Header only.
#ifndef QO_TEST_STATISTICS_FILE_H
#define QO_TEST_STATISTICS_FILE_H

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

inline std::vector<std::string> qo_lines(const std::string& text) {
    std::vector<std::string> all;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) all.push_back(line);
    return all;
}

/// Without the blanks in front; what is empty is no field.
inline std::vector<std::string> qo_statistics_fields(const std::string& line) {
    std::vector<std::string> all;
    std::istringstream text(line);
    for (std::string field; std::getline(text, field, ',');) {
        if (field.starts_with(' ')) field.erase(0, 1);
        if (!field.empty()) all.push_back(field);
    }
    return all;
}

/// A row by column: "Publishes", "/pushpull(Total)". The header has to fit.
inline std::map<std::string, std::string> qo_statistics_row(const std::string& header, const std::string& line) {
    const std::vector<std::string> names = qo_statistics_fields(header);
    const std::vector<std::string> values = qo_statistics_fields(line);
    EXPECT_EQ(values.size(), names.size()) << line;
    std::map<std::string, std::string> row;
    for (size_t i = 0; i < std::min(values.size(), names.size()); ++i) row[names[i]] = values[i];
    return row;
}

/// The last row of a file.
inline std::map<std::string, std::string> qo_last_statistics_row(const std::string& file) {
    const std::vector<std::string> lines = qo_lines(file);
    if (lines.empty()) return {};
    return qo_statistics_row(lines.front(), lines.back());
}

#endif
