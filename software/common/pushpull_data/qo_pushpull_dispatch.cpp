// From a request to its handler: the table of request kinds.
#include <syslog.h>

#include <algorithm>
#include <iterator>

#include "qo_pushpull.h"
#include "qo_pushpull_conventions.h"
#include "qo_pushpull_process_api.h"
#include "qo_pushpull_stats.h"

namespace {

/// What is done for one kind of request.
struct RequestRow {
    const char* function;
    int (*handle)(PushPullData& service, const QoProcessApi& request);
    void (*report)(long result);                                      // logs a result other than 0
    void (*count)(QoPushPullStats& stats, double seconds) = nullptr;  // since the reception; null: counts nothing
    bool only_if_true = false;  // ignored unless the buffer is exactly QO_REQUEST_CONFIRMATION
    bool ends_loop = false;
};

int register_component(PushPullData& service, const QoProcessApi& request) {
    mq_attr attributes{};
    attributes.mq_flags = request.getque_flags();
    attributes.mq_maxmsg = request.getque_maxmsg();
    attributes.mq_msgsize = request.getque_msgsize();
    attributes.mq_curmsgs = request.getque_curmsgs();
    const bool usable = qo_queue_attributes_count(attributes.mq_maxmsg, attributes.mq_msgsize);
    return service.comp_register(request.getcomp_id(), request.getBuff(), usable ? &attributes : nullptr);
}

// In the order of comparison.
constexpr RequestRow kRequests[] = {
    {.function = QO_REQUEST_REGISTER,
     .handle = register_component,
     .report = [](long result) { syslog(LOG_ERR, "Component Registration failed = %ld", result); },
     .count =
         [](QoPushPullStats& stats, double) {
             stats.set_header_flag();
             stats.inc_registers();
         }},
    {.function = QO_REQUEST_SUBSCRIBE,
     .handle =
         [](PushPullData& service, const QoProcessApi& request) {
             return service.comp_subscribe(request.getcomp_id(), request.getBuff(),
                                           request.get_notify_on_change_only());
         },
     .report = [](long result) { syslog(LOG_WARNING, "Component subscription failed = %ld", result); },
     .count = [](QoPushPullStats& stats, double) { stats.inc_subscriptions(); }},
    {.function = QO_REQUEST_UNSUBSCRIBE,
     .handle =
         [](PushPullData& service, const QoProcessApi& request) {
             return service.comp_unsubscribe(request.getcomp_id(), request.getBuff());
         },
     .report = [](long result) { syslog(LOG_WARNING, "Comp unsubscription failed= %ld", result); }},
    {.function = QO_REQUEST_PUBLISH,
     .handle =
         [](PushPullData& service, const QoProcessApi& request) {
             return service.comp_publish(request.getcomp_id(), request.getBuff());
         },
     .report = [](long result) { syslog(LOG_ERR, "Component data publish failed = %ld", result); },
     .count =
         [](QoPushPullStats& stats, double seconds) {
             stats.inc_publishes();
             stats.inc_publish_time(seconds);
         }},
    {.function = QO_REQUEST_GET,
     .handle =
         [](PushPullData& service, const QoProcessApi& request) {
             return service.comp_get(request.getcomp_id(), request.getBuff(), false, request.getsenderId(),
                                     request.get_pack_and_send());
         },
     .report = [](long result) { syslog(LOG_ERR, "Component get data failed = %ld", result); },
     .count =
         [](QoPushPullStats& stats, double seconds) {
             stats.inc_gets();
             stats.inc_read_time(seconds);
         }},
    {.function = QO_REQUEST_SAVE,
     .handle = [](PushPullData& service,
                  const QoProcessApi& request) { return service.comp_save(request.getcomp_id()); },
     .report = [](long result) { syslog(LOG_ERR, "component save request failed = %ld", result); },
     .count = [](QoPushPullStats& stats, double) { stats.inc_saves(); }},
    {.function = QO_REQUEST_SAVE_DEBUG,
     .handle = [](PushPullData& service,
                  const QoProcessApi& request) { return service.comp_save_debug(request.getcomp_id()); },
     .report = [](long result) { syslog(LOG_ERR, "component save debug request failed = %ld", result); }},
    {.function = QO_REQUEST_DELETE,
     .handle =
         [](PushPullData& service, const QoProcessApi& request) {
             return service.comp_delete(request.getcomp_id(), request.getBuff(), false);
         },
     .report = [](long result) { syslog(LOG_ERR, "component delete request failed = %ld", result); }},
    {.function = QO_REQUEST_CLEAR,
     .handle =
         [](PushPullData& service, const QoProcessApi& request) {
             return service.comp_delete(request.getcomp_id(), request.getBuff(), true);
         },
     .report = [](long result) { syslog(LOG_ERR, "component clear request failed = %ld", result); },
     .count = [](QoPushPullStats& stats, double) { stats.inc_clears(); }},
    {.function = QO_REQUEST_UNREGISTER,
     .handle = [](PushPullData& service,
                  const QoProcessApi& request) { return service.comp_unregister(request.getcomp_id()); },
     .report = [](long result) { syslog(LOG_ERR, "component unregister request failed=%ld", result); },
     .count = [](QoPushPullStats& stats, double) { stats.inc_unregisters(); }},
    {.function = QO_REQUEST_INIT,
     .handle = [](PushPullData& service,
                  const QoProcessApi& request) { return service.comp_init(request.getcomp_id()); },
     .report = [](long result) { syslog(LOG_ERR, "Component comp_init data failed = %ld", result); },
     .only_if_true = true},
    {.function = QO_REQUEST_EXIT,
     .handle = [](PushPullData& service,
                  const QoProcessApi& request) { return service.comp_exit(request.getcomp_id()); },
     .report = [](long result) { syslog(LOG_ERR, "Component comp_exit data failed = %ld", result); },
     .only_if_true = true,
     .ends_loop = true},
    {.function = QO_REQUEST_SYNC,
     .handle =
         [](PushPullData& service, const QoProcessApi& request) {
             return service.comp_sync(request.getcomp_id(), request.getdstcomp_id(), request.getBuff());
         },
     .report = [](long result) { syslog(LOG_ERR, "Component comp_sync failed = %ld", result); }},
};

const RequestRow* find_request(const std::string& function) {
    const RequestRow* row = std::find_if(std::begin(kRequests), std::end(kRequests),
                                         [&function](const RequestRow& entry) { return function == entry.function; });
    return row == std::end(kRequests) ? nullptr : row;
}

}  // namespace

std::optional<int> PushPullData::dispatch(const QoProcessApi& request, double started_at) {
    const RequestRow* row = find_request(request.getfunction());
    if (row == nullptr) return std::nullopt;
    if (row->only_if_true && request.getBuff() != QO_REQUEST_CONFIRMATION) return std::nullopt;
    const int result = row->handle(*this, request);
    if (pushpull_stats && row->count != nullptr) row->count(*pushpull_stats, clock_() - started_at);
    if (result != 0) row->report(result);
    return row->ends_loop ? std::optional<int>(result) : std::nullopt;
}
