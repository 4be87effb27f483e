/// What the service, the client library and pushpullctl have to agree on, each convention once. Header only, no state;
/// components do not see it.
#ifndef QO_PUSHPULL_CONVENTIONS_H
#define QO_PUSHPULL_CONVENTIONS_H

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

#include "qo_component_ids.h"

// ---- request kinds: the member "function" of a request ----
inline constexpr char QO_REQUEST_REGISTER[] = "register";
inline constexpr char QO_REQUEST_SUBSCRIBE[] = "subscribe";
inline constexpr char QO_REQUEST_UNSUBSCRIBE[] = "unsubscribe";
inline constexpr char QO_REQUEST_PUBLISH[] = "publish";
inline constexpr char QO_REQUEST_GET[] = "get";
inline constexpr char QO_REQUEST_SAVE[] = "save";
inline constexpr char QO_REQUEST_SAVE_DEBUG[] = "save_debug";
inline constexpr char QO_REQUEST_DELETE[] = "delete";
inline constexpr char QO_REQUEST_CLEAR[] = "clear";
inline constexpr char QO_REQUEST_UNREGISTER[] = "unregister";
inline constexpr char QO_REQUEST_INIT[] = "init";
inline constexpr char QO_REQUEST_EXIT[] = "exit";
inline constexpr char QO_REQUEST_SYNC[] = "sync";

inline constexpr char QO_REQUEST_CONFIRMATION[] = "true";  // the buffer without which "init" and "exit" are ignored

// ---- what the service sends of itself ----
inline constexpr char QO_INIT_ANSWER[] = "pushpull init success";
inline constexpr char QO_EXIT_ANSWER[] = "pushpull exiting";
inline constexpr char QO_EXIT_NOTICE[] = "exit";  // to every component, behind the answer

// ---- queues ----

/// Whether the attributes that came with a request are used for the component's queue.
/// @param maxmsg messages @param msgsize bytes
constexpr bool qo_queue_attributes_count(long maxmsg, long msgsize) { return maxmsg > 0 && msgsize > 0; }

// ---- component classes ----

struct QoComponentClassRange {
    eQO_CMP_IDs_ first;
    eQO_CMP_IDs_ last;
    eQO_COMPONENT_CLASS_ component_class;
};

// Deliberate: the gateways' own identifiers and the Wi-Fi gateway's connections are internal, the _END markers are
// clients: what components may write rests on it. Test: ComponentClass.FollowsTheIdentifier
inline constexpr QoComponentClassRange QO_CLIENT_RANGES[] = {
    {QO_CMPID_WEBSERVER_GATEWAY_C0, QO_CMPID_WEBSERVER_GATEWAY_END, QO_LOCAL_CLIENT},
    {QO_CMPID_WEBSERVER_GATEWAY_REMOTE_C0, QO_CMPID_WEBSERVER_GATEWAY_REMOTE_END, QO_LOCAL_CLIENT},
    {QO_CMPID_REMOTE_GATEWAY_DM, QO_CMPID_REMOTE_GATEWAY_RM, QO_REMOTE_CLIENT},
};

/// The class that decides what a component may write: that of its range, internal outside of all.
constexpr eQO_COMPONENT_CLASS_ qo_component_class(eQO_CMP_IDs_ comp_id) {
    const QoComponentClassRange* range = std::find_if(std::begin(QO_CLIENT_RANGES), std::end(QO_CLIENT_RANGES),
                                                      [comp_id](const QoComponentClassRange& clients) {
                                                          return comp_id >= clients.first && comp_id <= clients.last;
                                                      });
    return range == std::end(QO_CLIENT_RANGES) ? QO_INTERNAL : range->component_class;
}

// ---- statistics ----
inline constexpr std::string_view QO_STATS_UTC_TIME = "UTC Time";
inline constexpr std::string_view QO_STATS_PERCENT_ACTIVE = "Percent Active";
inline constexpr std::string_view QO_STATS_TOTAL_PUBLISHES = "Total Publishes";
inline constexpr std::string_view QO_STATS_PUBLISHES = "Publishes";
inline constexpr std::string_view QO_STATS_AVG_PUB_TIME = "Avg Pub Time";
inline constexpr std::string_view QO_STATS_TOTAL_READS = "Total Reads";
inline constexpr std::string_view QO_STATS_READS = "Reads";
inline constexpr std::string_view QO_STATS_AVG_READ_TIME = "Avg Read Time";
inline constexpr std::string_view QO_STATS_TOTAL_SAVES = "Total Saves";
inline constexpr std::string_view QO_STATS_SAVES = "Saves";
inline constexpr std::string_view QO_STATS_TOTAL_CLEARS = "Total Clears";
inline constexpr std::string_view QO_STATS_CLEARS = "Clears";
inline constexpr std::string_view QO_STATS_SUBSCRIPTIONS = "Subscriptions";
inline constexpr std::string_view QO_STATS_REGISTERS = "Registers";
inline constexpr std::string_view QO_STATS_UNREGISTERS = "Unregisters";

/// The columns with which every row begins, in their order.
inline constexpr std::string_view QO_STATS_COLUMNS[] = {
    QO_STATS_UTC_TIME,      QO_STATS_PERCENT_ACTIVE, QO_STATS_TOTAL_PUBLISHES, QO_STATS_PUBLISHES,
    QO_STATS_AVG_PUB_TIME,  QO_STATS_TOTAL_READS,    QO_STATS_READS,           QO_STATS_AVG_READ_TIME,
    QO_STATS_TOTAL_SAVES,   QO_STATS_SAVES,          QO_STATS_TOTAL_CLEARS,    QO_STATS_CLEARS,
    QO_STATS_SUBSCRIPTIONS, QO_STATS_REGISTERS,      QO_STATS_UNREGISTERS};

/// The columns of each queue behind them, in their order: what follows the queue's name.
inline constexpr std::string_view QO_STATS_QUEUE_COLUMNS[] = {"(Total)", "(Saves)", "(Max)", "(Avg)"};

// A day's log is archived as "<Unix time>_<its name>.gz" beside it.
inline constexpr int QO_ARCHIVE_TIME_DIGITS = 10;  // with zeros in front

/// What the names of a log's archives end with, behind the time. @param log_name without its folder
inline std::string qo_archive_ending(std::string_view log_name) { return "_" + std::string(log_name) + ".gz"; }

#endif
