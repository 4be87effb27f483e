// From a request to its handler: the table of request kinds.
#include <syslog.h>

#include <algorithm>
#include <iterator>

#include "qo_pushpull.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_process_api.h"
#include "qo_pushpull_stats.h"
#include "qo_utilities_time.h"

// ---- what a request kind counts ----

namespace {

void count_register(QoPushPullStats& stats, double) {
    stats.set_header_flag();
    stats.inc_registers();
}

void count_subscription(QoPushPullStats& stats, double) { stats.inc_subscriptions(); }

void count_publish(QoPushPullStats& stats, double started_at) {
    stats.inc_publishes();
    stats.inc_publish_time(qo_pushpull_get_timestamp() - started_at);
}

void count_get(QoPushPullStats& stats, double started_at) {
    stats.inc_gets();
    stats.inc_read_time(qo_pushpull_get_timestamp() - started_at);
}

void count_save(QoPushPullStats& stats, double) { stats.inc_saves(); }

void count_clear(QoPushPullStats& stats, double) { stats.inc_clears(); }

void count_unregister(QoPushPullStats& stats, double) { stats.inc_unregisters(); }

// ---- how its failure is logged ----

void report_register(long result) { syslog(LOG_ERR, "Component Registration failed = %ld", result); }

void report_subscribe(long result) { syslog(LOG_WARNING, "Component subscription failed = %ld", result); }

void report_unsubscribe(long result) { syslog(LOG_WARNING, "Comp unsubscription failed= %ld", result); }

void report_publish(long result) { syslog(LOG_ERR, "Component data publish failed = %ld", result); }

void report_get(long result) { syslog(LOG_ERR, "Component get data failed = %ld", result); }

void report_save(long result) { syslog(LOG_ERR, "component save request failed = %ld", result); }

void report_save_debug(long result) { syslog(LOG_ERR, "component save debug request failed = %ld", result); }

void report_delete(long result) { syslog(LOG_ERR, "component delete request failed = %ld", result); }

void report_clear(long result) { syslog(LOG_ERR, "component clear request failed = %ld", result); }

void report_unregister(long result) { syslog(LOG_ERR, "component unregister request failed=%ld", result); }

void report_init(long result) { syslog(LOG_ERR, "Component comp_init data failed = %ld", result); }

void report_exit(long result) { syslog(LOG_ERR, "Component comp_exit data failed = %ld", result); }

void report_sync(long result) { syslog(LOG_ERR, "Component comp_sync failed = %ld", result); }

}  // namespace

// ---- the table ----

struct PushPullData::RequestRow {
    const char* function;
    int (PushPullData::*handle)(const QoProcessApi&);
    void (*count)(QoPushPullStats&, double started_at);  // null: counts nothing
    void (*report)(long result);
    bool only_if_true;  // ignored unless the buffer is exactly QO_REQUEST_CONFIRMATION
    bool ends_loop;
};

const PushPullData::RequestRow PushPullData::kRequests[] = {
    {QO_REQUEST_REGISTER, &PushPullData::on_register, count_register, report_register, false, false},
    {QO_REQUEST_SUBSCRIBE, &PushPullData::on_subscribe, count_subscription, report_subscribe, false, false},
    {QO_REQUEST_UNSUBSCRIBE, &PushPullData::on_unsubscribe, nullptr, report_unsubscribe, false, false},
    {QO_REQUEST_PUBLISH, &PushPullData::on_publish, count_publish, report_publish, false, false},
    {QO_REQUEST_GET, &PushPullData::on_get, count_get, report_get, false, false},
    {QO_REQUEST_SAVE, &PushPullData::on_save, count_save, report_save, false, false},
    {QO_REQUEST_SAVE_DEBUG, &PushPullData::on_save_debug, nullptr, report_save_debug, false, false},
    {QO_REQUEST_DELETE, &PushPullData::on_delete, nullptr, report_delete, false, false},
    {QO_REQUEST_CLEAR, &PushPullData::on_clear, count_clear, report_clear, false, false},
    {QO_REQUEST_UNREGISTER, &PushPullData::on_unregister, count_unregister, report_unregister, false, false},
    {QO_REQUEST_INIT, &PushPullData::on_init, nullptr, report_init, true, false},
    {QO_REQUEST_EXIT, &PushPullData::on_exit, nullptr, report_exit, true, true},
    {QO_REQUEST_SYNC, &PushPullData::on_sync, nullptr, report_sync, false, false},
};

const PushPullData::RequestRow* PushPullData::find_request(const std::string& function) {
    const RequestRow* row = std::find_if(std::begin(kRequests), std::end(kRequests),
                                         [&function](const RequestRow& entry) { return function == entry.function; });
    return row == std::end(kRequests) ? nullptr : row;
}

std::optional<int> PushPullData::dispatch(const QoProcessApi& request, double started_at) {
    const RequestRow* row = find_request(request.getfunction());
    if (row == nullptr) return std::nullopt;
    if (row->only_if_true && request.getBuff() != QO_REQUEST_CONFIRMATION) return std::nullopt;
    const int result = (this->*row->handle)(request);
    if (pushpull_stats && row->count != nullptr) row->count(*pushpull_stats, started_at);
    if (result != 0) row->report(result);
    return row->ends_loop ? std::optional<int>(result) : std::nullopt;
}

// ---- from the request to its handler ----

int PushPullData::on_register(const QoProcessApi& request) {
    mq_attr attributes{};
    attributes.mq_flags = request.getque_flags();
    attributes.mq_maxmsg = request.getque_maxmsg();
    attributes.mq_msgsize = request.getque_msgsize();
    attributes.mq_curmsgs = request.getque_curmsgs();
    const bool usable = qo_queue_attributes_count(attributes.mq_maxmsg, attributes.mq_msgsize);
    return comp_register(request.getcomp_id(), request.getBuff(), usable ? &attributes : nullptr);
}

int PushPullData::on_subscribe(const QoProcessApi& request) {
    return comp_subscribe(request.getcomp_id(), request.getBuff(), request.get_notify_on_change_only());
}

int PushPullData::on_unsubscribe(const QoProcessApi& request) {
    return comp_unsubscribe(request.getcomp_id(), request.getBuff());
}

int PushPullData::on_publish(const QoProcessApi& request) {
    return comp_publish(request.getcomp_id(), request.getBuff());
}

int PushPullData::on_get(const QoProcessApi& request) {
    return comp_get(request.getcomp_id(), request.getBuff(), false, request.getsenderId(), request.get_pack_and_send());
}

int PushPullData::on_save(const QoProcessApi& request) { return comp_save(request.getcomp_id()); }

int PushPullData::on_save_debug(const QoProcessApi& request) { return comp_save_debug(request.getcomp_id()); }

int PushPullData::on_delete(const QoProcessApi& request) {
    return comp_delete(request.getcomp_id(), request.getBuff(), false);
}

int PushPullData::on_clear(const QoProcessApi& request) {
    return comp_delete(request.getcomp_id(), request.getBuff(), true);
}

int PushPullData::on_unregister(const QoProcessApi& request) { return comp_unregister(request.getcomp_id()); }

int PushPullData::on_init(const QoProcessApi& request) { return comp_init(request.getcomp_id()); }

int PushPullData::on_exit(const QoProcessApi& request) { return comp_exit(request.getcomp_id()); }

int PushPullData::on_sync(const QoProcessApi& request) {
    return comp_sync(request.getcomp_id(), request.getdstcomp_id(), request.getBuff());
}
