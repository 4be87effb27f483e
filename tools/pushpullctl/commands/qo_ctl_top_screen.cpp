// Laying out "top".
#include "qo_ctl_top_screen.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "qo_ctl_harmless.h"
#include "qo_ctl_output.h"
#include "qo_ctl_queue_look.h"
#include "qo_ctl_queue_table.h"
#include "qo_pushpull_json.h"

namespace {

constexpr size_t kMostRefusals = 5;  // lines

std::string one_decimal(double number) {
    char text[64];
    return std::string(text, static_cast<size_t>(std::snprintf(text, sizeof text, "%.1f", number)));
}

/// As many characters as fit; those of several bytes stay whole.
std::string cut(const std::string& line, size_t width) {
    size_t characters = 0;
    size_t end = 0;
    for (; end < line.size(); ++end)
        if ((static_cast<unsigned char>(line[end]) & 0xC0) != 0x80 && ++characters > width) break;
    return line.substr(0, end);
}

std::string first_lines(const std::string& text, size_t count) {
    size_t end = 0;
    for (size_t line = 0; line < count && end < text.size(); ++line) end = text.find('\n', end) + 1;
    return text.substr(0, end);
}

const QoCtlQueue* service_queue(const QoCtlTopView& view) {
    const auto queue = std::find_if(view.queues.begin(), view.queues.end(),
                                    [&](const QoCtlQueue& each) { return each.name == view.service; });
    return queue == view.queues.end() ? nullptr : &*queue;
}

std::string service_line(const QoCtlTopView& view) {
    const QoCtlQueue* queue = service_queue(view);
    if (queue == nullptr) return "service: its queue " + view.service + " is not there";
    std::string text = "service: " + qo_ctl_readers_shown(*queue);
    if (view.resident_kib) text += ", " + std::to_string(*view.resident_kib) + " KiB";
    return text;
}

std::string requests_line(const QoCtlTopView& view) {
    if (!view.has_log) return "requests: told with --log FILE";
    double all = 0;
    std::string kinds;
    for (const auto& [kind, rate] : view.requests) {
        all += rate;
        if (rate > 0) kinds += (kinds.empty() ? " (" : ", ") + kind + " " + one_decimal(rate);
    }
    return qo_ctl_harmless("requests: " + one_decimal(all) + "/s" + kinds + (kinds.empty() ? "" : ")"));
}

std::string slowest_line(const QoCtlTopView& view) {
    const QoCtlQueue* slowest = qo_ctl_slowest(view);
    if (slowest == nullptr) return "slowest: none is behind";
    const bool known = slowest->component != QO_CMPID_RESERVED;
    return "slowest: " + (known ? qo_ctl_component_shown(*slowest) : qo_ctl_shown(slowest->name)) + " " +
           std::to_string(slowest->messages) + "/" + std::to_string(slowest->max_messages) + ", " +
           qo_ctl_readers_shown(*slowest);
}

/// The last refusals, for as many lines as there are.
std::vector<std::string> refusal_lines(const QoCtlTopView& view) {
    std::vector<std::string> lines;
    if (view.refusals.empty()) return lines;
    lines.emplace_back("last refusals:");
    const size_t shown = std::min(view.refusals.size(), kMostRefusals);
    for (size_t i = view.refusals.size() - shown; i < view.refusals.size(); ++i)
        lines.push_back(" " + qo_ctl_harmless(view.refusals[i]));
    return lines;
}

}  // namespace

const QoCtlQueue* qo_ctl_slowest(const QoCtlTopView& view) {
    const QoCtlQueue* slowest = nullptr;
    const auto share = [](const QoCtlQueue& queue) {
        return std::pair(queue.full_for, static_cast<double>(queue.messages) / static_cast<double>(queue.max_messages));
    };
    for (const QoCtlQueue& queue : view.queues) {
        if (queue.name == view.service || queue.messages == 0) continue;
        if (slowest == nullptr || share(queue) > share(*slowest)) slowest = &queue;
    }
    return slowest;
}

std::string qo_ctl_top_screen(const QoCtlTopView& view, size_t width, size_t height, bool coloured) {
    const std::vector<std::string> refusals = refusal_lines(view);
    const std::vector<std::string> head = {service_line(view), requests_line(view), slowest_line(view), ""};
    constexpr size_t kOtherLines = 2;  // titles, and how many queues are left out
    const size_t taken = head.size() + kOtherLines;
    // The queues come first; the refusals have what they leave.
    std::vector<QoCtlQueue> queues = view.queues;
    const size_t left_out = qo_ctl_keep_fullest(queues, view.service, height > taken ? height - taken : 1);
    std::string text;
    const auto add = [&](const std::string& line) { text += cut(line, width) + "\n"; };
    for (const std::string& line : head) add(line);
    if (queues.empty()) add("no queues");
    text += qo_ctl_queue_table(queues, view.service, width, coloured);
    if (left_out > 0) add("and " + std::to_string(left_out) + " more that are less full");
    for (const std::string& line : refusals) add(line);
    return first_lines(text, height);
}

std::string qo_ctl_top_lines(const QoCtlTopView& view) {
    const QoJsonNode node(json_new(JSON_NODE));
    json_push_back(node.get(), json_new_a("service", qo_ctl_shown(view.service).c_str()));
    const QoCtlQueue* queue = service_queue(view);
    if (queue != nullptr && !queue->readers.empty()) qo_ctl_add_process(node.get(), queue->readers[0]);
    if (view.resident_kib)
        json_push_back(node.get(), json_new_i("resident_kib", static_cast<int64_t>(*view.resident_kib)));
    if (view.has_log) {
        JSONNODE* const requests = qo_json_append_named(node.get(), JSON_NODE, "requests_per_second");
        for (const auto& [kind, rate] : view.requests) {
            QoJsonNode number = qo_json_parse(one_decimal(rate));
            json_set_name(number.get(), qo_ctl_harmless(kind).c_str());
            qo_json_push_back(requests, std::move(number));
        }
        JSONNODE* const refusals = qo_json_append_named(node.get(), JSON_ARRAY, "refusals");
        for (const std::string& refusal : view.refusals)
            json_push_back(refusals, json_new_a("", qo_ctl_harmless(refusal).c_str()));
    }
    return qo_ctl_queue_lines(view.queues, view.service) + qo_ctl_render(node.get(), QoCtlStyle{});
}
