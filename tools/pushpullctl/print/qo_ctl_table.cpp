// Aligning cells.
#include "qo_ctl_table.h"

#include <algorithm>

#include "qo_ctl_padded.h"

std::string qo_ctl_table(const std::vector<QoCtlCells>& rows, const std::set<size_t>& to_the_right) {
    if (rows.empty()) return "";
    std::vector<size_t> widths(rows.front().size(), 0);
    for (const QoCtlCells& row : rows)
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
    std::string text;
    for (const QoCtlCells& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            const bool last = i + 1 == row.size();
            const bool right = to_the_right.count(i) != 0;
            text += qo_ctl_padded(row[i], last && !right ? 0 : widths[i], right) + (last ? "\n" : "  ");
        }
    }
    return text;
}
