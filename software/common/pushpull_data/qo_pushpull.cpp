// The life of the service object: start-up and the loop that receives requests.
#include "qo_pushpull.h"

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "qo_pushpull_api.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_exception_text.h"
#include "qo_pushpull_initializer.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_process_api.h"
#include "qo_pushpull_queue_claim.h"
#include "qo_pushpull_queue_monitor.h"
#include "qo_pushpull_receive_buffer.h"
#include "qo_pushpull_request_wait.h"
#include "qo_pushpull_stats.h"
#include "qo_pushpull_systemd.h"
#include "qo_pushpull_watchdog.h"
#include "qo_resource_mgr.h"
#include "qo_utilities_log_budget.h"

namespace {

constexpr std::chrono::seconds kReceivePause{1};  // after a failed receive

}  // namespace

// ---- life ----

PushPullData::PushPullData(bool statistics, QoMonotonicClock clock)
    : mq_pushpull_queue_hndl(0),
      rgw_restart_state(false),
      must_end_(false),
      queue_claim_(std::make_shared<QoServiceQueueClaim>()),
      watchdog_(std::make_shared<QoServiceWatchdog>()),
      request_wait_(std::make_shared<QoRequestWait>()),
      clock_(clock),
      published_document_(std::make_shared<QoJsonDocument>()) {
    syslog(LOG_INFO, "PushPullData Start");
    data_mgr = std::make_shared<DataMgr>();
    resource_mgr = std::make_shared<ResourceMgr>();
    if (statistics) {
        QoStatsSettings settings;
        settings.monotonic_clock = clock_;
        pushpull_stats = std::make_shared<QoPushPullStats>(std::move(settings));
        syslog(LOG_INFO, "QoPushPullStats: Started...");
    }
}

PushPullData::~PushPullData() { close_service_queue(); }

// What escapes a step of the start-up is mostly a shortage of memory, which may be over at the next attempt. A service
// that went on with half of what it needs would save that over the whole.
void PushPullData::init(std::string suffix) {
    try {
        start_up(suffix);
    } catch (...) {
        syslog(LOG_CRIT, "exception %s", qo_exception_text());
        end_with_failure();
    }
    if (must_end_) return;
    const int notified = qo_notify_systemd("READY=1", QO_SYSTEMD_PATIENCE);
    if (notified < 0) syslog(LOG_ERR, "PushPullData: systemd does not take READY=1, errno %d", -notified);
}

void PushPullData::start_up(const std::string& suffix) {
    pushpull_api = std::make_shared<QoPushpullApi>(suffix);
    // On the first start the queue does not exist yet; the API opens it again on its first use.
    [[maybe_unused]] const int32_t api_result = pushpull_api->init(suffix);
    rgw_restart_state = false;
    if (!open_service_queue(suffix)) return end_with_failure();
    // Any other failure of this step does not stop the start-up: without its saved tree the service still serves what
    // it has.
    if (data_mgr->Init(pushpull_stats) == QO_STORE_TRY_AGAIN) return end_with_failure();
    resource_mgr->init();
    if (pushpull_stats) pushpull_stats->init_stats_collection(resource_mgr);
}

void PushPullData::end_with_failure() { must_end_ = true; }

int PushPullData::exit_status() const { return must_end_ ? EXIT_FAILURE : EXIT_SUCCESS; }

void PushPullData::terminate() {
    data_mgr->Terminate();
    resource_mgr->terminate();
}

// False when the queue is not this service's to serve. One that cannot be opened is no reason to end.
bool PushPullData::open_service_queue(const std::string& suffix) {
    syslog(LOG_INFO, "PushPullData MessageQueue: open the queue %s", QO_SERVICE_QUEUE_NAME);
    const std::string name = QO_SERVICE_QUEUE_NAME + suffix;
    mq_attr attributes{};
    attributes.mq_maxmsg = QO_QUEUE_MAXMSG;
    attributes.mq_msgsize = QO_QUEUE_MSGSIZE;
    // Opening for service discards what waits in the queue, so it has to be ours first.
    const QoServiceQueueClaim::Result claimed = queue_claim_->take(name, attributes);
    if (claimed == QoServiceQueueClaim::Result::refused) return false;
    // The API holds the queue that was removed.
    if (claimed == QoServiceQueueClaim::Result::made_anew) pushpull_api->init(suffix);
    mq_pushpull_queue_hndl = pushpull_api->message_queue_create_and_error_handling(name.c_str(), O_RDWR | O_CREAT,
                                                                                   QO_QUEUE_MODE, &attributes);
    if (mq_pushpull_queue_hndl == -1) {
        syslog(LOG_CRIT, "PushPullData MessageQueue: %s Message queue failed to open", QO_SERVICE_QUEUE_NAME);
        return true;
    }
    syslog(LOG_DEBUG, "PushPullData MessageQueue: %s Message queue successfully opened", QO_SERVICE_QUEUE_NAME);
    resource_mgr->monitor().addQueue(name, QO_CMPID_PUSHPULL, mq_pushpull_queue_hndl);
    resource_mgr->monitor().superviseName(
        name, mq_pushpull_queue_hndl,
        [wait = request_wait_, queue = mq_pushpull_queue_hndl] { wait->interrupt(queue); });
    return true;
}

void PushPullData::close_service_queue() {
    resource_mgr->monitor().forgetName();
    if (mq_pushpull_queue_hndl > 0) mq_close(mq_pushpull_queue_hndl);
    mq_pushpull_queue_hndl = 0;
}

// ---- main loop ----

namespace {

// What a request may omit and yet does not take over from the request before it.
void forget_optional_members(QoProcessApi& request) {
    request.setque_maxmsg(0);
    request.setque_msgsize(0);
    request.set_notify_on_change_only(false);
    request.setsenderId("");
    request.set_pack_and_send(false);
}

}  // namespace

int PushPullData::execute() {
    // The store has no loop of its own: the result is always -1.
    [[maybe_unused]] const int store_result = data_mgr->Execute();
    // One byte more than a message has: a message that was sent without its NUL ends there.
    QoReceiveBuffer buffer(static_cast<size_t>(QO_QUEUE_MSGSIZE) + 1);
    std::string text;
    QoProcessApi request;
    while (!must_end_) {
        const std::optional<ssize_t> message =
            request_wait_->receive(mq_pushpull_queue_hndl, buffer.data(), static_cast<size_t>(QO_QUEUE_MSGSIZE));
        if (!message) {
            leave_lost_queue();
            continue;
        }
        const ssize_t received = *message;
        const double started_at = clock_();
        if (pushpull_stats) resource_mgr->monitor().incQueueStats(mq_pushpull_queue_hndl);
        const std::optional<int> exit_result = handle_message(buffer.data(), received, text, request, started_at);
        if (exit_result) return *exit_result;
        buffer.clear(static_cast<size_t>(std::max<ssize_t>(received, 0)));
        text.clear();
        if (pushpull_stats) pushpull_stats->inc_active_time(clock_() - started_at);
    }
    return exit_status();
}

// Nobody can reach the service any more. The next one makes the queue anew.
void PushPullData::leave_lost_queue() {
    // A failure is logged; the end does not wait for a disk.
    [[maybe_unused]] const int saved = data_mgr->SaveDataTree(false);
    end_with_failure();
}

std::optional<int> PushPullData::handle_message(const char* message, ssize_t received, std::string& text,
                                                QoProcessApi& request, double started_at) {
    const QoLogBudget budget;
    if (received <= 0) {
        syslog(LOG_ERR, "parseJSON failed in pushpull recv retval= %d, precv_string->length() = %d , ERR_CODE = %d",
               static_cast<int>(received), static_cast<int>(text.length()), QO_ERR_QUEUE_RECEIVE);
        std::this_thread::sleep_for(kReceivePause);  // unlike sleep(), whatever signals come
        return std::nullopt;
    }
    // What escapes a request, mostly for want of memory, ends that request and no other.
    bool parsed = false;
    try {
        parsed = parse_message(message, received, text, request);
    } catch (...) {
        syslog(LOG_CRIT, "exception %s in a message of %d bytes", qo_exception_text(), static_cast<int>(received));
    }
    if (!parsed) return std::nullopt;
    try {
        return dispatch(request, started_at);
    } catch (...) {
        syslog(LOG_CRIT, "exception %s in request \"%s\" of component %d", qo_exception_text(),
               request.getfunction().c_str(), request.getcomp_id());
    }
    return std::nullopt;
}

bool PushPullData::parse_message(const char* message, ssize_t received, std::string& text, QoProcessApi& request) {
    text.assign(message, strnlen(message, static_cast<size_t>(received)));
    syslog(LOG_DEBUG, "PushPullData : mq_receive: retval: %d , msg: %s", static_cast<int>(received), text.c_str());
    forget_optional_members(request);
    const int parsed = request.parseJSON(text);
    if (parsed == -1) syslog(LOG_ERR, "parseJSON failed in pushpull recv= %ld", static_cast<long>(parsed));
    return parsed != -1;
}
