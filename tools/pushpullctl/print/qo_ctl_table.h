/// Rows of cells as an aligned table. Pure function; any thread.
#ifndef QO_CTL_TABLE_H
#define QO_CTL_TABLE_H

#include <cstddef>
#include <set>
#include <string>
#include <vector>

using QoCtlCells = std::vector<std::string>;

/// All rows have as many cells as the first. Two blanks stand between the columns, none behind the last.
/// @param to_the_right the columns whose cells stand to the right
std::string qo_ctl_table(const std::vector<QoCtlCells>& rows, const std::set<size_t>& to_the_right = {});

#endif
