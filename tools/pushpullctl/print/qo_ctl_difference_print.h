/// Differences as lines and as a patch. Pure functions; any thread.
#ifndef QO_CTL_DIFFERENCE_PRINT_H
#define QO_CTL_DIFFERENCE_PRINT_H

#include <string>
#include <vector>

#include "qo_ctl_difference.h"
#include "qo_ctl_output.h"

/// "+ /a/b: 5", "- /a/c: {...}", "~ /a/d: 1 -> 2", a line each, cut where a value is long.
std::string qo_ctl_difference_lines(const std::vector<QoCtlDifference>& differences, QoCtlStyle style);

/// A JSON Patch (RFC 6902) in one line.
std::string qo_ctl_json_patch(const std::vector<QoCtlDifference>& differences);

#endif
