// The dispatch table, with the service's handlers and its statistics replaced by recorders.
#include "log_capture.h"
#include "qo_pushpull.h"
#include "qo_pushpull_process_api.h"
#include "qo_pushpull_stats.h"
#include "qo_utilities_time.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

std::vector<std::string> calls;  // handlers and counters, in order
std::vector<double> durations;   // seconds, as they were counted
int next_result = 0;             // of the next handler

int record(const std::string& call) {
    calls.push_back(call);
    return next_result;
}

std::string number(eQO_CMP_IDs_ comp_id) { return " " + std::to_string(comp_id); }

}  // namespace

// ---- recorders ----

PushPullData::PushPullData(bool statistics, QoMonotonicClock clock)
    : mq_pushpull_queue_hndl(0), rgw_restart_state(false), clock_(clock) {
    if (statistics) pushpull_stats = std::make_shared<QoPushPullStats>();
}
PushPullData::~PushPullData() = default;

int PushPullData::comp_register(eQO_CMP_IDs_ comp_id, std::string queue_name, const mq_attr* attributes) {
    std::string text = "comp_register" + number(comp_id) + " " + queue_name;
    if (attributes == nullptr) return record(text + " null");
    for (const long value :
         {attributes->mq_flags, attributes->mq_maxmsg, attributes->mq_msgsize, attributes->mq_curmsgs})
        text += " " + std::to_string(value);
    return record(text);
}
int PushPullData::comp_subscribe(eQO_CMP_IDs_ comp_id, const std::string& pointers, bool notify_on_change_only) {
    return record("comp_subscribe" + number(comp_id) + " " + pointers + (notify_on_change_only ? " changes" : " all"));
}
int PushPullData::comp_unsubscribe(eQO_CMP_IDs_ comp_id, const std::string& pointers) {
    return record("comp_unsubscribe" + number(comp_id) + " " + pointers);
}
int PushPullData::comp_publish(eQO_CMP_IDs_ comp_id, const std::string& json) {
    return record("comp_publish" + number(comp_id) + " " + json);
}
int PushPullData::comp_get(eQO_CMP_IDs_ comp_id, const std::string& pointers, bool internal,
                           const std::string& sender_id, bool pack_and_send) {
    return record("comp_get" + number(comp_id) + " " + pointers + (internal ? " internal " : " external ") + sender_id +
                  (pack_and_send ? " pack" : " single"));
}
int PushPullData::comp_save(eQO_CMP_IDs_ comp_id) { return record("comp_save" + number(comp_id)); }
int PushPullData::comp_save_debug(eQO_CMP_IDs_ comp_id) { return record("comp_save_debug" + number(comp_id)); }
int PushPullData::comp_delete(eQO_CMP_IDs_ comp_id, const std::string& pointer, bool clear) {
    return record("comp_delete" + number(comp_id) + " " + pointer + (clear ? " clear" : " delete"));
}
int PushPullData::comp_unregister(eQO_CMP_IDs_ comp_id) { return record("comp_unregister" + number(comp_id)); }
int PushPullData::comp_init(eQO_CMP_IDs_ comp_id) { return record("comp_init" + number(comp_id)); }
int PushPullData::comp_exit(eQO_CMP_IDs_ comp_id) { return record("comp_exit" + number(comp_id)); }
int PushPullData::comp_sync(eQO_CMP_IDs_ comp_id, eQO_CMP_IDs_ destination, const std::string& buffer) {
    return record("comp_sync" + number(comp_id) + number(destination) + " " + buffer);
}

QoPushPullStats::QoPushPullStats(QoStatsSettings)
    : _logHeader(false),
      _numPublish(0),
      _numGets(0),
      _numSaves(0),
      _numSubscriptions(0),
      _numClears(0),
      _numRegisters(0),
      _numUnRegisters(0),
      _numPublishTotal(0),
      _numGetsTotal(0),
      _numSavesTotal(0),
      _numClearsTotal(0),
      _timer_id(nullptr),
      _interval_time(0),
      _startTime(0),
      _activeTime(0),
      _publishTime(0),
      _readTime(0) {}
QoPushPullStats::~QoPushPullStats() = default;
void QoPushPullStats::inc_publishes() { calls.emplace_back("publishes"); }
void QoPushPullStats::inc_gets() { calls.emplace_back("gets"); }
void QoPushPullStats::inc_subscriptions() { calls.emplace_back("subscriptions"); }
void QoPushPullStats::inc_clears() { calls.emplace_back("clears"); }
void QoPushPullStats::inc_registers() { calls.emplace_back("registers"); }
void QoPushPullStats::inc_unregisters() { calls.emplace_back("unregisters"); }
void QoPushPullStats::set_header_flag() { calls.emplace_back("header flag"); }
void QoPushPullStats::inc_publish_time(double seconds) {
    calls.emplace_back("publish time");
    durations.push_back(seconds);
}
void QoPushPullStats::inc_read_time(double seconds) {
    calls.emplace_back("read time");
    durations.push_back(seconds);
}

// inc_saves is inline and cannot be replaced: what it counted is recorded here, behind the request.
void QoPushPullStats::save_stats_data() {
    if (_numSaves > 0) calls.emplace_back("saves");
    _numSaves = 0;
}
void PushPullData::terminate() {
    if (pushpull_stats) pushpull_stats->save_stats_data();
}
time_t qo_wall_clock() { return 0; }

// ---- the rows ----

namespace {

struct Row {
    std::string function;
    std::string handler_call;
    std::vector<std::string> counted;
    int level;
    std::string failure;  // without the result at its end
    bool ends_loop;
};

const std::vector<Row> kRows = {
    {"register",
     "comp_register 1073741852 true 1 2 3 4",
     {"header flag", "registers"},
     LOG_ERR,
     "Component Registration failed = ",
     false},
    {"subscribe",
     "comp_subscribe 1073741852 true changes",
     {"subscriptions"},
     LOG_WARNING,
     "Component subscription failed = ",
     false},
    {"unsubscribe", "comp_unsubscribe 1073741852 true", {}, LOG_WARNING, "Comp unsubscription failed= ", false},
    {"publish",
     "comp_publish 1073741852 true",
     {"publishes", "publish time"},
     LOG_ERR,
     "Component data publish failed = ",
     false},
    {"get",
     "comp_get 1073741852 true external me pack",
     {"gets", "read time"},
     LOG_ERR,
     "Component get data failed = ",
     false},
    {"save", "comp_save 1073741852", {"saves"}, LOG_ERR, "component save request failed = ", false},
    {"save_debug", "comp_save_debug 1073741852", {}, LOG_ERR, "component save debug request failed = ", false},
    {"delete", "comp_delete 1073741852 true delete", {}, LOG_ERR, "component delete request failed = ", false},
    {"clear", "comp_delete 1073741852 true clear", {"clears"}, LOG_ERR, "component clear request failed = ", false},
    {"unregister",
     "comp_unregister 1073741852",
     {"unregisters"},
     LOG_ERR,
     "component unregister request failed=",
     false},
    {"init", "comp_init 1073741852", {}, LOG_ERR, "Component comp_init data failed = ", false},
    {"exit", "comp_exit 1073741852", {}, LOG_ERR, "Component comp_exit data failed = ", true},
    {"sync", "comp_sync 1073741852 1352 true", {}, LOG_ERR, "Component comp_sync failed = ", false},
};

QoProcessApi request_of(const std::string& function, const std::string& buffer) {
    QoProcessApi request;
    request.setfunction(function);
    request.setcomp_id(QO_CMPID_DEMO);
    request.setdstcomp_id(QO_CMPID_SCHEDULER);
    request.setBuff(buffer);
    request.setsenderId("me");
    request.set_notify_on_change_only(true);
    request.set_pack_and_send(true);
    request.setque_flags(1);
    request.setque_maxmsg(2);
    request.setque_msgsize(3);
    request.setque_curmsgs(4);
    return request;
}

std::optional<int> dispatch(PushPullData& service, const QoProcessApi& request, double started_at = 0) {
    const std::optional<int> ended = service.dispatch(request, started_at);
    service.terminate();
    return ended;
}

void reset_recorders() {
    calls.clear();
    durations.clear();
    next_result = 0;
}

class Dispatch : public testing::Test {
protected:
    void SetUp() override { reset_recorders(); }
    QoLogCapture log_;
    PushPullData service_{true};
};

class DispatchRow : public testing::TestWithParam<Row> {
protected:
    void SetUp() override { reset_recorders(); }
    QoLogCapture log_;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(All, DispatchRow, testing::ValuesIn(kRows),
                         [](const auto& row) { return row.param.function; });

TEST_P(DispatchRow, CallsItsHandlerThenCountsAndIsSilentOnSuccess) {
    PushPullData service(true);
    const std::optional<int> ended = dispatch(service, request_of(GetParam().function, "true"));
    std::vector<std::string> expected{GetParam().handler_call};
    expected.insert(expected.end(), GetParam().counted.begin(), GetParam().counted.end());
    EXPECT_THAT(calls, ElementsAreArray(expected));
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_EQ(ended, GetParam().ends_loop ? std::optional<int>(0) : std::nullopt);
}

TEST_P(DispatchRow, FailureIsCountedAllTheSameAndLoggedWithItsResult) {
    PushPullData service(true);
    next_result = 50013;
    const std::optional<int> ended = dispatch(service, request_of(GetParam().function, "true"));
    EXPECT_EQ(calls.size(), 1 + GetParam().counted.size());
    EXPECT_THAT(log_.lines(), ElementsAre(QoLogLine{GetParam().level, GetParam().failure + "50013"}));
    EXPECT_EQ(ended, GetParam().ends_loop ? std::optional<int>(50013) : std::nullopt);
}

TEST_P(DispatchRow, CountsNothingWithoutStatistics) {
    PushPullData service(false);
    dispatch(service, request_of(GetParam().function, "true"));
    EXPECT_THAT(calls, ElementsAre(GetParam().handler_call));
}

TEST_P(DispatchRow, NeedsTheExactBufferTrueOnlyForInitAndExit) {
    PushPullData service(true);
    const bool only_if_true = GetParam().function == "init" || GetParam().function == "exit";
    for (const std::string buffer : {"false", "", "True", "true ", "1"}) {
        calls.clear();
        EXPECT_EQ(dispatch(service, request_of(GetParam().function, buffer)), std::nullopt);
        EXPECT_EQ(calls.empty(), only_if_true) << '"' << buffer << '"';
    }
    EXPECT_THAT(log_.lines(), IsEmpty());
}

// ---- beside the rows ----

TEST_F(Dispatch, UnknownKindsAreIgnoredSilently) {
    for (const std::string function : {"", "Register", "register ", "reboot", "savedebug"})
        EXPECT_EQ(dispatch(service_, request_of(function, "true")), std::nullopt);
    EXPECT_EQ(dispatch(service_, request_of(std::string("exit\0", 5), "true")), std::nullopt);
    EXPECT_THAT(calls, IsEmpty());
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(Dispatch, PublishAndGetTimesRunFromTheReceptionOfTheRequest) {
    const double now = qo_pushpull_get_timestamp();
    dispatch(service_, request_of("publish", "{}"), now - 2);
    dispatch(service_, request_of("get", "/a"), now - 3);
    ASSERT_EQ(durations.size(), 2U);
    EXPECT_NEAR(durations[0], 2, 0.5);
    EXPECT_NEAR(durations[1], 3, 0.5);
}

TEST_F(Dispatch, RegisterWithoutUsableQueueAttributesPassesNone) {
    QoProcessApi request = request_of("register", "/q");
    request.setque_maxmsg(0);
    dispatch(service_, request);
    request.setque_maxmsg(2);
    request.setque_msgsize(-1);
    dispatch(service_, request);
    EXPECT_THAT(calls, ElementsAre("comp_register 1073741852 /q null", "header flag", "registers",
                                   "comp_register 1073741852 /q null", "header flag", "registers"));
}
