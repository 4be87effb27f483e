// The statistics as tables and as JSON.
#include <algorithm>
#include <cstdio>
#include <utility>

#include "qo_ctl_output.h"
#include "qo_ctl_statistics_print.h"
#include "qo_ctl_table.h"
#include "qo_pushpull_json.h"

namespace {

std::string fixed_point(double number, int digits) {
    char text[64];
    return std::string(text, static_cast<size_t>(std::snprintf(text, sizeof text, "%.*f", digits, number)));
}

/// The first column to the left, the others to the right.
std::string aligned(const std::vector<QoCtlCells>& rows) {
    std::set<size_t> numbers;
    for (size_t i = 1; i < rows.front().size(); ++i) numbers.insert(i);
    return qo_ctl_table(rows, numbers);
}

/// "12 /pushpull": the greatest depth of the interval, and where.
std::string deepest(const QoCtlStatisticsRow& row) {
    const auto queue = std::max_element(row.queues.begin(), row.queues.end(),
                                        [](const auto& a, const auto& b) { return a.max_depth < b.max_depth; });
    if (queue == row.queues.end() || queue->max_depth == 0) return "-";
    return std::to_string(queue->max_depth) + " " + qo_ctl_shown_name(queue->name, queue->certain);
}

QoCtlCells cells_of(const QoCtlStatisticsRow& row) {
    return {
        qo_ctl_time_text(row.time),        fixed_point(row.percent_active, 2),
        std::to_string(row.publishes),     fixed_point(row.publish_ms, 3),
        std::to_string(row.reads),         row.reads == 0 ? "0.000" : row.read_ms ? fixed_point(*row.read_ms, 3) : "?",
        std::to_string(row.saves),         std::to_string(row.clears),
        std::to_string(row.subscriptions), std::to_string(row.registers),
        std::to_string(row.unregisters),   deepest(row)};
}

size_t first_of_last(const std::vector<QoCtlStatisticsRow>& rows, size_t count) {
    return rows.size() - std::min(rows.size(), count);
}

void add(JSONNODE* node, const char* name, int64_t number) { json_push_back(node, json_new_i(name, number)); }

void add(JSONNODE* node, const char* name, double number) {
    QoJsonNode value = qo_json_parse(fixed_point(number, 6));
    json_set_name(value.get(), name);
    qo_json_push_back(node, std::move(value));
}

std::string json_of(const QoCtlStatisticsRow& row) {
    const QoJsonNode node(json_new(JSON_NODE));
    json_push_back(node.get(), json_new_a("time", qo_ctl_time_text(row.time).c_str()));
    add(node.get(), "percent_active", row.percent_active);
    add(node.get(), "total_publishes", row.total_publishes);
    add(node.get(), "publishes", row.publishes);
    add(node.get(), "publish_ms", row.publish_ms);
    add(node.get(), "total_reads", row.total_reads);
    add(node.get(), "reads", row.reads);
    add(node.get(), "read_ms_as_written", row.read_ms_as_written);
    if (row.read_ms) add(node.get(), "read_ms", *row.read_ms);
    add(node.get(), "total_saves", row.total_saves);
    add(node.get(), "saves", row.saves);
    add(node.get(), "total_clears", row.total_clears);
    add(node.get(), "clears", row.clears);
    add(node.get(), "subscriptions", row.subscriptions);
    add(node.get(), "registers", row.registers);
    add(node.get(), "unregisters", row.unregisters);
    JSONNODE* queues = qo_json_append_named(node.get(), JSON_ARRAY, "queues");
    for (const QoCtlQueueSample& queue : row.queues) {
        QoJsonNode element(json_new(JSON_NODE));
        json_push_back(element.get(), json_new_a("queue", qo_ctl_shown_name(queue.name, queue.certain).c_str()));
        add(element.get(), "messages", queue.messages);
        add(element.get(), "saves", queue.saves);
        add(element.get(), "max_depth", queue.max_depth);
        add(element.get(), "avg_depth", queue.avg_depth);
        qo_json_push_back(queues, std::move(element));
    }
    return qo_ctl_render(node.get(), QoCtlStyle{});
}

}  // namespace

std::string qo_ctl_statistics_table(const std::vector<QoCtlStatisticsRow>& rows, size_t count) {
    std::vector<QoCtlCells> table = {{"TIME (UTC)", "ACTIVE %", "PUBLISHES", "ms EACH", "READS", "ms EACH", "SAVES",
                                      "CLEARS", "SUBSCR.", "REG.", "UNREG.", "DEEPEST QUEUE"}};
    for (size_t i = first_of_last(rows, count); i < rows.size(); ++i) table.push_back(cells_of(rows[i]));
    return aligned(table);
}

std::string qo_ctl_queue_totals_table(const std::vector<QoCtlStatisticsRow>& rows) {
    const auto totals = qo_ctl_queue_totals(rows);
    std::vector<std::pair<std::string, QoCtlQueueTotal>> sorted(totals.begin(), totals.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.second.messages > b.second.messages; });
    std::vector<QoCtlCells> table = {{"QUEUE", "MESSAGES", "SAVES", "MAX DEPTH", "AVG DEPTH"}};
    for (const auto& [name, total] : sorted) {
        table.push_back({qo_ctl_shown_name(name, total.certain), std::to_string(total.messages),
                         std::to_string(total.saves), std::to_string(total.max_depth),
                         fixed_point(total.avg_depth, 2)});
    }
    return aligned(table);
}

std::string qo_ctl_statistics_json(const std::vector<QoCtlStatisticsRow>& rows, size_t count) {
    std::string text;
    for (size_t i = first_of_last(rows, count); i < rows.size(); ++i) text += json_of(rows[i]);
    return text;
}
