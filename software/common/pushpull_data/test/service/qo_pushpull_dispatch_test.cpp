// The table of request kinds, on a service with components: what a request comes to, what is counted of it, and how its
// failure is logged.
#include "qo_pushpull_error_codes.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_process_api.h"
#include "qo_service_fixture.h"
#include "qo_statistics_rows.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr time_t kDay = 86400;  // seconds
constexpr char kVersion[] = "{\n\t\"version\": {\n\t\t\"schemaVersion\": \"1\"\n\t}\n}";
constexpr char kNewVersion[] = R"({"version":{"schemaVersion":"2"}})";
constexpr auto kUnregistered = QO_CMPID_ALERTS;

double monotonic_now = 0;      // seconds
time_t wall_now = 1767258000;  // 2026-01-01 09:00:00 UTC

}  // namespace

extern "C" {
time_t __wrap_time(time_t* result);

time_t __wrap_time(time_t* result) {
    if (result != nullptr) *result = wall_now;
    return wall_now;
}
}

namespace {

/// A service, and two components that have subscribed to "/version".
struct Served {
    explicit Served(PushPullData& object) : service(object) {
        for (QoTestComponent* component : {&requester, &other}) component->subscribe("/version");
    }

    bool is_registered(eQO_CMP_IDs_ comp_id) const { return service.comp_save_debug(comp_id) == 0; }

    PushPullData& service;
    QoTestComponent requester{service, QO_CMPID_DEMO, "/requester"};
    QoTestComponent other{service, QO_CMPID_SCHEDULER, "/other"};
};

const std::string kSavedTree = std::string(QO_DATA_DIRECTORY) + QO_SAVED_TREE_FILE;
const std::string kActiveTree = std::string(QO_DATA_DIRECTORY) + QO_ACTIVE_TREE_FILE;

/// The columns of what requests count.
using Counts = std::map<std::string, int>;

struct Row {
    std::string function;
    eQO_CMP_IDs_ sender;
    std::string buffer;
    void (*look)(Served& served);  // whether the handler did what the request asks for
    Counts counted;
    int level;
    std::string failure;  // without the result at its end
    int result;           // of a failure
    bool ends_loop = false;
};

const std::vector<Row> kRows = {
    {"register",
     kUnregistered,
     "/new",
     [](Served& served) {
         EXPECT_TRUE(served.is_registered(kUnregistered));
         const mq_attr attributes = QoScratchQueue("/new").attributes();
         EXPECT_EQ(attributes.mq_maxmsg, 2);
         EXPECT_EQ(attributes.mq_msgsize, 64);
     },
     {{"Registers", 1}},
     LOG_ERR,
     "Component Registration failed = ",
     QO_ERR_QUEUE_OPEN},
    {"subscribe",
     QO_CMPID_DEMO,
     "/usb",
     [](Served& served) {
         EXPECT_EQ(served.service.comp_publish(served.other.id, R"({"usb":{"state":"unmounted"}})"), 0);
         EXPECT_THAT(served.requester.texts(), IsEmpty()) << "only changes were asked for";
         EXPECT_EQ(served.service.comp_publish(served.other.id, R"({"usb":{"state":"mounted"}})"), 0);
         EXPECT_THAT(served.requester.texts(), ElementsAre(R"({"usb":{"state":"mounted"}})"));
     },
     {{"Subscriptions", 1}},
     LOG_WARNING,
     "Component subscription failed = ",
     -1},
    {"unsubscribe",
     QO_CMPID_DEMO,
     "/version",
     [](Served& served) {
         EXPECT_EQ(served.service.comp_publish(served.other.id, kNewVersion), 0);
         EXPECT_THAT(served.requester.texts(), IsEmpty());
     },
     {},
     LOG_WARNING,
     "Comp unsubscription failed= ",
     -1},
    {"publish",
     QO_CMPID_DEMO,
     kNewVersion,
     [](Served& served) {
         EXPECT_THAT(served.other.texts(), ElementsAre(kNewVersion));
         EXPECT_THAT(served.requester.texts(), IsEmpty()) << "it has published it";
     },
     {{"Publishes", 1}},
     LOG_ERR,
     "Component data publish failed = ",
     -1},
    {"get",
     QO_CMPID_DEMO,
     "/version;/devices/1",
     [](Served& served) {
         EXPECT_THAT(
             served.requester.texts(),
             ElementsAre(R"(sender_id:me;{"version":{"schemaVersion":"1"},"devices":[{"id":0},{"id":1,"temp":20}]})"));
         EXPECT_THAT(served.other.texts(), IsEmpty());
     },
     {{"Reads", 1}},
     LOG_ERR,
     "Component get data failed = ",
     -1},
    {"save",
     QO_CMPID_DEMO,
     "",
     [](Served&) { EXPECT_TRUE(std::filesystem::exists(kSavedTree)); },
     {{"Saves", 1}},
     LOG_ERR,
     "component save request failed = ",
     -1},
    {"save_debug",
     QO_CMPID_DEMO,
     "",
     [](Served&) { EXPECT_TRUE(std::filesystem::exists(kActiveTree)); },
     {},
     LOG_ERR,
     "component save debug request failed = ",
     -1},
    {"delete",
     QO_CMPID_DEMO,
     "/version",
     [](Served& served) {
         EXPECT_THAT(served.other.texts(), ElementsAre("NODE DELETED: /version"));
         EXPECT_THAT(served.requester.texts(), IsEmpty()) << "it has deleted it";
     },
     {},
     LOG_ERR,
     "component delete request failed = ",
     -1},
    {"clear",
     QO_CMPID_DEMO,
     "/version",
     [](Served& served) {
         EXPECT_THAT(served.other.texts(), ElementsAre(kVersion));
         EXPECT_THAT(served.requester.texts(), IsEmpty()) << "it has cleared it";
     },
     {{"Clears", 1}},
     LOG_ERR,
     "component clear request failed = ",
     -1},
    {"unregister",
     QO_CMPID_DEMO,
     "",
     [](Served& served) {
         EXPECT_FALSE(served.is_registered(served.requester.id));
         EXPECT_TRUE(served.is_registered(served.other.id));
     },
     {{"Unregisters", 1}},
     LOG_ERR,
     "component unregister request failed=",
     QO_ERR_NOT_REGISTERED},
    {"init",
     QO_CMPID_DEMO,
     "true",
     [](Served& served) {
         EXPECT_THAT(served.requester.texts(), ElementsAre("pushpull init success"));
         EXPECT_THAT(served.other.texts(), IsEmpty());
         EXPECT_FALSE(served.is_registered(served.other.id));
     },
     {},
     LOG_ERR,
     "Component comp_init data failed = ",
     -1},
    {"exit",
     QO_CMPID_DEMO,
     "true",
     [](Served& served) {
         EXPECT_THAT(served.requester.texts(), ElementsAre("pushpull exiting", "exit"));
         EXPECT_THAT(served.other.texts(), ElementsAre("exit"));
     },
     {},
     LOG_ERR,
     "Component comp_exit data failed = ",
     -1,
     true},
    {"sync",
     QO_CMPID_DEMO,
     "any text",
     [](Served& served) {
         EXPECT_THAT(served.other.texts(), ElementsAre("sync:1073741852:any text"));
         EXPECT_THAT(served.requester.texts(), IsEmpty());
     },
     {},
     LOG_ERR,
     "Component comp_sync failed = ",
     -1},
};

QoProcessApi request_of(const std::string& function, eQO_CMP_IDs_ sender, const std::string& buffer) {
    QoProcessApi request;
    request.setfunction(function);
    request.setcomp_id(sender);
    request.setdstcomp_id(QO_CMPID_SCHEDULER);
    request.setBuff(buffer);
    request.setsenderId("me");
    request.set_notify_on_change_only(true);
    request.set_pack_and_send(true);
    request.setque_maxmsg(2);
    request.setque_msgsize(64);
    return request;
}

class Dispatch : public QoServiceFixture {
protected:
    Dispatch() : QoServiceFixture(true, [] { return monotonic_now; }) {}

    std::optional<int> dispatch(const QoProcessApi& request) { return service_->dispatch(request, monotonic_now); }

    /// What was counted since this was asked last, without what was not.
    Counts counted() const {
        Counts counts;
        const auto row = rows_.next();
        for (const char* column :
             {"Publishes", "Reads", "Saves", "Clears", "Subscriptions", "Registers", "Unregisters"})
            if (const int count = std::stoi(row.at(column)); count > 0) counts[column] = count;
        return counts;
    }

    const QoStatisticsRows rows_;
};

class DispatchRow : public Dispatch, public testing::WithParamInterface<Row> {
protected:
    QoProcessApi request() const { return request_of(GetParam().function, GetParam().sender, GetParam().buffer); }

    /// Of a component that is not registered.
    std::optional<int> dispatch_failing_request() {
        if (GetParam().function == "unregister") unregister_in_the_middle();
        log_.clear();
        QoProcessApi request = request_of(GetParam().function, kUnregistered, "true");
        request.setdstcomp_id(kUnregistered);
        return dispatch(request);
    }

    /// To unregister fails only when somebody else has done it meanwhile.
    void unregister_in_the_middle() {
        EXPECT_EQ(service_->comp_register(kUnregistered, "/leaving", nullptr), 0);
        log_.on_line([this](const QoLogLine& line) {
            if (line.text != "PushPull:*@#: Root path or dangling / or back to back slashes //") return;
            log_.on_line(nullptr);
            EXPECT_EQ(service_->comp_unregister(kUnregistered), 0);
        });
    }

    const QoScratchQueue leaving_{"/leaving", 1, 16};
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(All, DispatchRow, testing::ValuesIn(kRows),
                         [](const auto& row) { return row.param.function; });

TEST_P(DispatchRow, CallsItsHandlerThenCountsAndIsSilentOnSuccess) {
    Served served(*service_);
    const std::optional<int> ended = dispatch(request());
    EXPECT_EQ(ended, GetParam().ends_loop ? std::optional<int>(0) : std::nullopt);
    Counts expected = GetParam().counted;
    if (GetParam().function == "save") ++expected["Saves"];  // the store counts what it saves, too
    EXPECT_EQ(counted(), expected);
    EXPECT_THAT(log_.lines(), Not(Contains(Field(&QoLogLine::text, HasSubstr(GetParam().failure)))));
    GetParam().look(served);
}

TEST_P(DispatchRow, FailureIsCountedAllTheSameAndLoggedWithItsResult) {
    const std::optional<int> ended = dispatch_failing_request();
    EXPECT_EQ(ended, GetParam().ends_loop ? std::optional<int>(GetParam().result) : std::nullopt);
    ASSERT_FALSE(log_.lines().empty());
    EXPECT_EQ(log_.lines().back(),
              (QoLogLine{GetParam().level, GetParam().failure + std::to_string(GetParam().result)}));
    EXPECT_EQ(counted(), GetParam().counted);
}

TEST_P(DispatchRow, CountsNothingWithoutStatistics) {
    end_service();
    service_ = std::make_unique<PushPullData>(false);
    service_->init("");
    Served served(*service_);
    dispatch(request());
    EXPECT_THAT(rows_.next(), IsEmpty()) << "nobody writes a row";
    GetParam().look(served);
}

// Whatever a handler refuses, it logs.
TEST_P(DispatchRow, NeedsTheExactBufferTrueOnlyForInitAndExit) {
    const bool only_if_true = GetParam().function == "init" || GetParam().function == "exit";
    for (const std::string buffer : {"false", "", "True", "true ", "1"}) {
        QoProcessApi request = request_of(GetParam().function, kUnregistered, buffer);
        request.setdstcomp_id(kUnregistered);
        log_.clear();
        EXPECT_EQ(dispatch(request), std::nullopt);
        EXPECT_EQ(log_.lines().empty(), only_if_true) << '"' << buffer << '"';
    }
    if (only_if_true) EXPECT_THAT(counted(), IsEmpty());
}

// ---- beside the rows ----

TEST_F(Dispatch, UnknownKindsAreIgnoredSilently) {
    const Served served(*service_);
    log_.clear();
    for (const std::string function : {"", "Register", "register ", "reboot", "savedebug"})
        EXPECT_EQ(dispatch(request_of(function, QO_CMPID_DEMO, "true")), std::nullopt);
    EXPECT_EQ(dispatch(request_of(std::string("exit\0", 5), QO_CMPID_DEMO, "true")), std::nullopt);
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_THAT(counted(), IsEmpty());
}

TEST_F(Dispatch, PublishAndGetTimesRunFromTheReceptionOfTheRequest) {
    service_->dispatch(request_of("publish", QO_CMPID_DEMO, "{}"), monotonic_now - 2);
    service_->dispatch(request_of("get", QO_CMPID_DEMO, "/a"), monotonic_now - 3);
    const auto row = rows_.next();
    EXPECT_EQ(row.at("Avg Pub Time"), "2000.000000");
    EXPECT_EQ(row.at("Avg Read Time"), "3000.000000");
}

TEST_F(Dispatch, RegisterWithoutUsableQueueAttributesPassesNone) {
    const auto refusal = [this](long maxmsg, long msgsize) {
        QoProcessApi request = request_of("register", kUnregistered, "no slash");
        request.setque_maxmsg(static_cast<int32_t>(maxmsg));
        request.setque_msgsize(static_cast<int32_t>(msgsize));
        log_.clear();
        dispatch(request);
        return log_.lines_above_debug().front().text;
    };
    const std::string none = "(nil) size=64 , max=262144 , ERR_CODE:" + std::to_string(EINVAL);
    EXPECT_THAT(refusal(0, 64), HasSubstr(none));
    EXPECT_THAT(refusal(2, -1), HasSubstr(none));
    EXPECT_THAT(refusal(2, 64), AllOf(Not(HasSubstr("(nil)")), HasSubstr("size=2 , max=64 ")));
}

TEST_F(Dispatch, RegisterHasTheNextFileNameTheQueueToo) {
    rows_.next();
    EXPECT_THAT(rows_.file(), Not(HasSubstr("/new(Total)")));
    const QoScratchQueue queue("/new", 1, 16);
    dispatch(request_of("register", kUnregistered, "/new"));
    wall_now += kDay;
    EXPECT_EQ(rows_.next().at("/new(Total)"), "0");
}
