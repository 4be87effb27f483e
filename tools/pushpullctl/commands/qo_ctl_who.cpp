// who: which processes read the message queues.
#include "qo_ctl_commands.h"
#include "qo_ctl_moment.h"
#include "qo_ctl_queue_look.h"
#include "qo_ctl_service_queue.h"
#include "qo_ctl_shared.h"
#include "qo_ctl_table.h"

namespace {

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

std::string json_of(const QoCtlQueue& queue, const QoCtlProcess* reader) {
    const QoJsonNode node(json_new(JSON_NODE));
    json_push_back(node.get(), json_new_a("queue", qo_ctl_shown(queue.name).c_str()));
    qo_ctl_add_component(node.get(), queue);
    json_push_back(node.get(), json_new_i("messages", queue.messages));
    json_push_back(node.get(), json_new_i("max_messages", queue.max_messages));
    if (reader != nullptr) qo_ctl_add_process(node.get(), *reader);
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

std::string render(const std::vector<QoCtlQueue>& queues, QoCtlStyle style) {
    if (!style.formatted) {
        std::string text;
        for_each_reader(queues,
                        [&](const QoCtlQueue& queue, const QoCtlProcess* reader) { text += json_of(queue, reader); });
        return text;
    }
    std::vector<QoCtlCells> rows = {{"QUEUE", "COMPONENT", "PROCESS", "PROGRAM", "STATE", "FILL", "SINCE (UTC)"}};
    for_each_reader(
        queues, [&](const QoCtlQueue& queue, const QoCtlProcess* reader) { rows.push_back(row_of(queue, reader)); });
    return qo_ctl_table(rows, {kProcessColumn, kFillColumn});
}

class Who : public QoCtlCommand {
public:
    Help help() const override {
        return {"who", "Show which processes read the message queues",
                "Needs no running service: looks for the queues among the open files of all processes, for which it\n"
                "has to be root or the user that they run as. Tells each reader's state (running, stopped,\n"
                "uninterruptible, zombie) and since when it runs. A queue that nobody empties, of a component that\n"
                "is registered, restarts the device once it has been full for 120 seconds.\n\n"
                "Example:\n  sudo pushpullctl who"};
    }
    QoCtlStatus run(const QoCtlCommon& common, QoCtlSignals& signals) override;
};

QoCtlStatus Who::run(const QoCtlCommon& common, QoCtlSignals& signals) {
    signals.release();
    const QoCtlQueueLook look = qo_ctl_look_at_queues(qo_ctl_service_queue_name(common.instance));
    qo_ctl_say_what_is_closed(look.closed);
    return qo_ctl_print(render(look.queues, qo_ctl_stdout_style(common)), QoCtlStatus::answered);
}

}  // namespace

std::unique_ptr<QoCtlCommand> qo_ctl_make_who() { return std::make_unique<Who>(); }
