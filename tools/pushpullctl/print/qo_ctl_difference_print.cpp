// Differences as lines and as a patch.
#include "qo_ctl_difference_print.h"

#include "qo_ctl_harmless.h"
#include "qo_pushpull_json.h"

namespace {

constexpr size_t kLongestValue = 120;  // characters of a value in a line
constexpr char kGreen[] = "\033[32m";
constexpr char kRed[] = "\033[31m";
constexpr char kYellow[] = "\033[33m";
constexpr char kPlain[] = "\033[0m";

std::string value_text(const JSONNODE* node) {
    std::string text = qo_json_write(node);
    if (text.size() > kLongestValue) text = text.substr(0, kLongestValue) + "...";
    return text;
}

std::string line_of(const QoCtlDifference& difference, QoCtlStyle style) {
    const bool added = difference.before == nullptr;
    const bool removed = difference.after == nullptr;
    const char* color = added ? kGreen : removed ? kRed : kYellow;
    std::string text = added ? "+ " : removed ? "- " : "~ ";
    text += qo_ctl_pointer(difference.path) + ": ";
    if (!added) text += value_text(difference.before);
    if (!added && !removed) text += " -> ";
    if (!removed) text += value_text(difference.after);
    text = qo_ctl_harmless(text);
    return (style.coloured ? color + text + kPlain : text) + "\n";
}

QoJsonNode operation_of(const QoCtlDifference& difference) {
    QoJsonNode operation(json_new(JSON_NODE));
    qo_ctl_add_text(operation.get(), "op",
                    difference.before == nullptr  ? "add"
                    : difference.after == nullptr ? "remove"
                                                  : "replace");
    qo_ctl_add_text(operation.get(), "path", qo_ctl_json_pointer(difference.path));
    if (difference.after != nullptr) {
        QoJsonNode value(json_duplicate(difference.after));
        json_set_name(value.get(), "value");
        qo_json_push_back(operation.get(), std::move(value));
    }
    return operation;
}

}  // namespace

std::string qo_ctl_difference_lines(const std::vector<QoCtlDifference>& differences, QoCtlStyle style) {
    std::string text;
    for (const QoCtlDifference& difference : differences) text += line_of(difference, style);
    return text;
}

std::string qo_ctl_json_patch(const std::vector<QoCtlDifference>& differences) {
    const QoJsonNode patch(json_new(JSON_ARRAY));
    for (const QoCtlDifference& difference : differences) qo_json_push_back(patch.get(), operation_of(difference));
    return qo_ctl_render(patch.get(), QoCtlStyle{});
}
