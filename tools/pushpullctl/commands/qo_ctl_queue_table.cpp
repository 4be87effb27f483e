// Fitting queues on a screen.
#include "qo_ctl_queue_table.h"

#include <algorithm>
#include <array>
#include <functional>

#include "qo_ctl_output.h"
#include "qo_ctl_padded.h"
#include "qo_ctl_queue_look.h"
#include "qo_pushpull_json.h"

namespace {

constexpr size_t kBarWidth = 20;  // characters
constexpr char kRed[] = "\033[31m";
constexpr char kBold[] = "\033[1m";
constexpr char kPlain[] = "\033[0m";

struct Column {
    const char* title;
    std::function<std::string(const QoCtlQueue&)> cell;
    bool to_the_right;
    size_t width = 0;
    bool shown = true;
};

std::string fill_bar(const QoCtlQueue& queue) { return qo_ctl_fill_bar(queue.messages, queue.max_messages, kBarWidth); }

std::string messages(const QoCtlQueue& queue) {
    return std::to_string(queue.messages) + "/" + std::to_string(queue.max_messages);
}

std::string message_size(const QoCtlQueue& queue) { return std::to_string(queue.message_size) + " bytes"; }

std::string full_for(const QoCtlQueue& queue) { return std::to_string(queue.full_for) + " s"; }

enum Place : size_t { kName, kBar, kMessages, kSize, kFullFor, kComponent, kReaders, kColumns };
using Columns = std::array<Column, kColumns>;

Columns columns_for(const std::vector<QoCtlQueue>& queues) {
    Columns columns = {{{"QUEUE", [](const QoCtlQueue& queue) { return qo_ctl_shown(queue.name); }, false},
                        {"FULL", fill_bar, false},
                        {"MESSAGES", messages, true},
                        {"OF SIZE", message_size, true},
                        {"FULL FOR", full_for, true},
                        {"COMPONENT", qo_ctl_component_shown, false},
                        {"READ BY", qo_ctl_readers_shown, false}}};
    columns[kFullFor].shown = !queues.empty() && queues[0].full_for >= 0;
    for (Column& column : columns) {
        column.width = std::string_view(column.title).size();
        for (const QoCtlQueue& queue : queues) column.width = std::max(column.width, column.cell(queue).size());
    }
    return columns;
}

size_t width_of(const Columns& columns) {
    size_t width = 0;
    for (const Column& column : columns) width += column.shown ? column.width + 2 : 0;
    return width - 2;  // none behind the last
}

void leave_out_what_does_not_fit(Columns& columns, size_t width) {
    for (const Place place : {kSize, kComponent, kBar, kFullFor})
        if (width_of(columns) > width) columns[place].shown = false;
}

template <typename Cell>
std::string line_of(const Columns& columns, size_t width, Cell cell) {
    std::string line;
    for (const Column& column : columns)
        if (column.shown)
            line += (line.empty() ? "" : "  ") + qo_ctl_padded(cell(column), column.width, column.to_the_right);
    line.resize(std::min(line.find_last_not_of(' ') + 1, width));
    return line;
}

}  // namespace

std::string qo_ctl_readers_shown(const QoCtlQueue& queue) {
    std::string text;
    for (const QoCtlProcess& reader : queue.readers) {
        text += (text.empty() ? "" : "; ") + std::string(qo_ctl_process_state(reader.state)) + ": " +
                qo_ctl_shown(reader.program) + " (" + std::to_string(reader.id) + ")";
    }
    return text.empty() ? "nobody seen" : text;
}

std::string qo_ctl_queue_table(const std::vector<QoCtlQueue>& queues, const std::string& service, size_t width,
                               bool coloured) {
    if (queues.empty()) return "";
    Columns columns = columns_for(queues);
    leave_out_what_does_not_fit(columns, width);
    std::string text = line_of(columns, width, [](const Column& column) { return std::string(column.title); }) + "\n";
    for (const QoCtlQueue& queue : queues) {
        const bool full = queue.messages >= queue.max_messages;
        const bool marked = coloured && (full || queue.name == service);
        text += marked ? (full ? kRed : kBold) : "";
        text += line_of(columns, width, [&queue](const Column& column) { return column.cell(queue); });
        text += marked ? kPlain : "";
        text += "\n";
    }
    return text;
}

std::string qo_ctl_queue_lines(const std::vector<QoCtlQueue>& queues, const std::string& service) {
    std::string text;
    for (const QoCtlQueue& queue : queues) {
        const QoJsonNode node(json_new(JSON_NODE));
        json_push_back(node.get(), json_new_a("queue", qo_ctl_shown(queue.name).c_str()));
        json_push_back(node.get(), json_new_i("messages", queue.messages));
        json_push_back(node.get(), json_new_i("max_messages", queue.max_messages));
        json_push_back(node.get(), json_new_i("message_size", queue.message_size));
        json_push_back(node.get(), json_new_b("service", queue.name == service ? 1 : 0));
        if (queue.full_for >= 0) json_push_back(node.get(), json_new_i("full_for", queue.full_for));
        qo_ctl_add_component(node.get(), queue);
        JSONNODE* const readers = qo_json_append_named(node.get(), JSON_ARRAY, "readers");
        for (const QoCtlProcess& reader : queue.readers)
            qo_ctl_add_process(qo_json_append_named(readers, JSON_NODE, ""), reader);
        text += qo_ctl_render(node.get(), QoCtlStyle{});
    }
    return text;
}
