// Asks for the top-level members of what was published, and for parts of those that no answer holds.
#include "qo_ctl_read_back.h"

#include <algorithm>

#include "qo_ctl_difference.h"
#include "qo_ctl_text.h"
#include "qo_pushpull_json.h"

namespace {

class Reader {
public:
    explicit Reader(QoCtlSession& session) : session_(session) {}

    QoCtlReadBack take() { return std::move(result_); }

    /// Looks at one published node, whose place is path_.
    void look_at(JSONNODE* published) {
        if (result_.status != QoCtlStatus::answered) return;
        if (!qo_ctl_is_reachable(path_)) {
            refuse(path_, "cannot be read back: its name holds a \"/\" or a \";\", or is empty");
            return;
        }
        const std::string pointer = qo_ctl_pointer(path_);
        const QoCtlExchange exchange = session_.ask(pointer, false);
        result_.status = exchange.status;
        if (exchange.status != QoCtlStatus::answered) return;
        if (exchange.answers.empty())
            look_below(published);
        else
            compare(published, pointer, exchange.answers.front());
    }

    /// Looks at the children of a published node one by one.
    void look_below(JSONNODE* published) {
        if (!qo_json_is_container(published) || json_empty(published) == 1) {
            refuse(path_, "cannot be read back: it is longer than a message");
            return;
        }
        for (JSONNODE* child : QoJsonChildren(published)) {
            const JSONNODE* id = json_type(published) == JSON_ARRAY ? json_find(child, "id") : nullptr;
            path_.emplace_back(id != nullptr ? qo_json_string(id) : qo_json_name(child));
            look_at(child);
            path_.pop_back();
        }
    }

private:
    void refuse(const QoCtlPath& path, std::string why) {
        result_.refusals.push_back({qo_ctl_pointer(path), std::move(why)});
    }

    void compare(JSONNODE* published, const std::string& pointer, const std::string& body) {
        const QoJsonNode answer = qo_json_parse(body);
        JSONNODE* found = qo_ctl_answer(pointer, body).kind == QoCtlAnswerKind::json
                              ? qo_ctl_addressed(answer.get(), pointer, nullptr)
                              : nullptr;
        for (const QoCtlDifference& difference : qo_ctl_not_taken(published, found)) {
            QoCtlPath path = path_;
            path.insert(path.end(), difference.path.begin(), difference.path.end());
            refuse(path, difference.after == nullptr ? "is not there" : "is " + qo_json_write(difference.after));
        }
    }

    QoCtlSession& session_;
    QoCtlPath path_;
    QoCtlReadBack result_;
};

}  // namespace

QoCtlReadBack qo_ctl_read_back(QoCtlSession& session, JSONNODE* published) {
    Reader reader(session);
    reader.look_below(published);
    return reader.take();
}
