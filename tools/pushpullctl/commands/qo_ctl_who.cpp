// who: which processes read the message queues.
#include "qo_ctl_commands.h"
#include "qo_ctl_components.h"
#include "qo_ctl_harmless.h"
#include "qo_ctl_log_source.h"
#include "qo_ctl_moment.h"
#include "qo_ctl_queue_look.h"
#include "qo_ctl_service_queue.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_table.h"
#include "qo_ctl_traffic.h"

namespace {

constexpr std::chrono::milliseconds kPatience{1000};  // for one look at a pipe
constexpr size_t kProcessColumn = 2;
constexpr size_t kFillColumn = 5;

std::string fill(const QoCtlQueue& queue) {
    return std::to_string(queue.messages) + "/" + std::to_string(queue.max_messages);
}

QoCtlCells row_of(const QoCtlQueue& queue, const QoCtlProcess* reader) {
    QoCtlCells row = {qo_ctl_shown(queue.name), qo_ctl_component_shown(queue)};
    if (reader == nullptr) {
        row.insert(row.end(), {"-", "-", "nobody seen", fill(queue), "-"});
        return row;
    }
    row.insert(row.end(),
               {std::to_string(reader->id), qo_ctl_shown(reader->program),
                std::string(qo_ctl_process_state(reader->state)), fill(queue), qo_ctl_second_text(reader->started)});
    return row;
}

void add_subscriptions(JSONNODE* object, const QoCtlTraffic::Subscriptions& subscriptions) {
    JSONNODE* const array = qo_json_append_named(object, JSON_ARRAY, "subscriptions");
    for (const auto& [pointer, changes_only] : subscriptions) {
        JSONNODE* const subscription = qo_json_append_named(array, JSON_NODE, "");
        json_push_back(subscription, json_new_a("pointer", qo_ctl_harmless(pointer).c_str()));
        json_push_back(subscription, json_new_b("changes", changes_only ? 1 : 0));
    }
}

std::string json_of(const QoCtlQueue& queue, const QoCtlProcess* reader, const QoCtlTraffic& traffic) {
    const QoJsonNode node(json_new(JSON_NODE));
    json_push_back(node.get(), json_new_a("queue", qo_ctl_shown(queue.name).c_str()));
    qo_ctl_add_component(node.get(), queue);
    json_push_back(node.get(), json_new_i("messages", queue.messages));
    json_push_back(node.get(), json_new_i("max_messages", queue.max_messages));
    if (reader != nullptr) qo_ctl_add_process(node.get(), *reader);
    if (const auto mine = traffic.subscriptions().find(queue.component); mine != traffic.subscriptions().end())
        add_subscriptions(node.get(), mine->second);
    return qo_ctl_render(node.get(), QoCtlStyle{});
}

/// Calls `take(queue, reader)` for every reader of every queue, with null for a queue that has none.
template <typename Take>
void for_each_reader(const std::vector<QoCtlQueue>& queues, Take take) {
    for (const QoCtlQueue& queue : queues) {
        for (const QoCtlProcess& reader : queue.readers) take(queue, &reader);
        if (queue.readers.empty()) take(queue, nullptr);
    }
}

std::string lines_of(const std::vector<QoCtlQueue>& queues, const QoCtlTraffic& traffic) {
    std::string text;
    for_each_reader(
        queues, [&](const QoCtlQueue& queue, const QoCtlProcess* reader) { text += json_of(queue, reader, traffic); });
    return text;
}

/// "DISPLAY follows /system/status, /devices (changes)", a line for each component.
std::string followed(const QoCtlTraffic& traffic) {
    std::string text;
    for (const auto& [component, subscriptions] : traffic.subscriptions()) {
        std::string pointers;
        for (const auto& [pointer, changes_only] : subscriptions)
            pointers += (pointers.empty() ? "" : ", ") + pointer + (changes_only ? " (changes)" : "");
        if (!pointers.empty()) text += qo_ctl_component_name(component) + " follows " + pointers + "\n";
    }
    return text.empty() ? "" : "\n" + qo_ctl_harmless(text, "\n");
}

std::string table_of(const std::vector<QoCtlQueue>& queues, const QoCtlTraffic& traffic) {
    std::vector<QoCtlCells> rows = {{"QUEUE", "COMPONENT", "PROCESS", "PROGRAM", "STATE", "FILL", "SINCE (UTC)"}};
    for_each_reader(
        queues, [&](const QoCtlQueue& queue, const QoCtlProcess* reader) { rows.push_back(row_of(queue, reader)); });
    return qo_ctl_table(rows, {kProcessColumn, kFillColumn}) + followed(traffic);
}

/// All of a log, as far as it tells of registrations and subscriptions.
bool read_log(const std::string& file, QoCtlTraffic& traffic) {
    const std::unique_ptr<QoCtlLogSource> source = qo_ctl_open_log(file, QoCtlLogEnd::is_all);
    if (!source) return false;
    std::deque<QoCtlLogLine> lines;
    while (source->read(lines, kPatience) != QoCtlLogSource::State::ended || !lines.empty())
        for (; !lines.empty(); lines.pop_front()) traffic.add(lines.front());
    traffic.finish();
    return true;
}

class Who : public QoCtlCommand {
public:
    Help help() const override {
        return {"who", "Show which processes read the message queues",
                "Needs no running service: looks for the queues among the open files of all processes, for which it\n"
                "has to be root or the user that they run as. Tells each reader's state (running, stopped,\n"
                "uninterruptible, zombie) and since when it runs. A queue that nobody empties, of a component that\n"
                "is registered, restarts the device once it has been full for 120 seconds. With --log it also\n"
                "tells whose the queues are and what components subscribed to, as far as the log says so.\n\n"
                "Example:\n  sudo pushpullctl who\n  sudo pushpullctl who --log /var/log/syslog"};
    }
    void declare(QoCtlCommandLine& line) override {
        line.text("--log", log_, "FILE",
                  "a syslog file of the service, for components and subscriptions; - is standard input");
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;

private:
    std::string log_;
};

QoCtlStatus Who::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    signals.release();
    QoCtlTraffic traffic([](const QoCtlHandled&) {});
    if (!log_.empty() && !read_log(log_, traffic)) return QoCtlStatus::failed;
    QoCtlQueueLook look = qo_ctl_look_at_queues(qo_ctl_service_queue_name(common.instance));
    for (QoCtlQueue& queue : look.queues)
        if (queue.component == QO_CMPID_RESERVED) queue.component = traffic.component_of(queue.name);
    qo_ctl_say_what_is_closed(look.closed);
    const QoCtlStyle style = qo_ctl_stdout_style(common);
    const std::string text = style.formatted ? table_of(look.queues, traffic) : lines_of(look.queues, traffic);
    return qo_ctl_print(text, QoCtlStatus::answered);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_who() { return std::make_unique<Who>(); }
