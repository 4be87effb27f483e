// Coming to the service and leaving it: who is there already, who is not, and what stays behind.
#include <signal.h>

#include "component.h"
#include "pushpullctl_run.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr Component::Queue kSmall{8, 4096};

// ---- no service ----

class PushpullctlAlone : public ServiceProcess {};

TEST_F(PushpullctlAlone, WithoutTheServicesQueueEveryCommandEndsWith3AtOnce) {
    const std::vector<std::vector<std::string>> commands = {
        {"get", "/a"}, {"publish", "{}"}, {"subscribe", "/a"},        {"delete", "/a"},  {"clear", "/a"},  {"save"},
        {"dump"},      {"tree"},          {"sync", "SCHEDULER", "x"}, {"init", "--yes"}, {"exit", "--yes"}};
    for (std::vector<std::string> command : commands) {
        command.insert(command.end(), {"--timeout", "3600"});
        const PushpullctlResult result = run_pushpullctl(command);
        EXPECT_EQ(result.status, 3) << command.front();
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.messages, HasSubstr("the service is not reachable: there is no queue /pushpull"));
    }
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

TEST_F(PushpullctlAlone, AQueueThatNobodyReadsEndsWith4AndTellsWhatWaitsThere) {
    service().make_queue();
    const PushpullctlResult result = run_pushpullctl({"get", "/version", "--timeout", "0.2"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.messages, HasSubstr("it does not read its queue /pushpull, where 2 requests of at most"));
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

TEST_F(PushpullctlAlone, AFullQueueIsNotWaitedForLongerThanTheTimeout) {
    service().make_queue();
    while (service().waiting_requests() < service().capacity()) ASSERT_TRUE(service().post("x"));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(run_pushpullctl({"get", "/version", "--timeout", "0.2"}).status, 4);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(9));  // the library would take ten
    EXPECT_EQ(service().waiting_requests(), service().capacity());
}

TEST_F(PushpullctlAlone, CtrlCEndsTheWaitForAFullQueue) {
    service().make_queue();
    while (service().waiting_requests() < service().capacity()) ASSERT_TRUE(service().post("x"));
    PushpullctlRun run({"get", "/version", "--timeout", "3600"});
    while (queues_of_clients().empty()) std::this_thread::yield();
    run.send_signal(SIGINT);
    EXPECT_EQ(run.wait(), 128 + SIGINT);
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

TEST_F(PushpullctlAlone, CtrlCEndsTheWaitForAnAnswer) {
    service().make_queue();
    PushpullctlRun run({"get", "/version", "--timeout", "3600"});
    while (service().waiting_requests() < 2) std::this_thread::yield();
    run.send_signal(SIGINT);
    EXPECT_EQ(run.wait(), 128 + SIGINT);
    EXPECT_EQ(run.output(), "");
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

TEST_F(PushpullctlAlone, AnInstanceIsReachedByItsSuffix) {
    service().make_queue("-two");
    ASSERT_TRUE(service().start_and_wait({"-m", "-two"}));
    EXPECT_EQ(run_pushpullctl({"get", "/version"}).status, 3);
    const PushpullctlResult result = run_pushpullctl({"get", "/version", "--instance", "-two"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, StartsWith(R"({"version":)"));
    EXPECT_THAT(queues_of_clients(), IsEmpty());
}

// ---- what stays behind ----

class PushpullctlSession : public RunningService {};

struct CommandCase {
    std::vector<std::string> words;
    int32_t identity;
};
void PrintTo(const CommandCase& command, std::ostream* stream) { *stream << command.words.front(); }

class PushpullctlCommand : public PushpullctlSession, public testing::WithParamInterface<CommandCase> {};

TEST_P(PushpullctlCommand, LeavesNoQueueAndNoRegistration) {
    const PushpullctlResult result = run_pushpullctl(GetParam().words);
    EXPECT_EQ(result.status, 0) << result.messages;
    EXPECT_THAT(queues_of_clients(), IsEmpty());
    EXPECT_TRUE(is_not_registered(service(), GetParam().identity));
}

using Words = std::vector<std::string>;
INSTANTIATE_TEST_SUITE_P(Each, PushpullctlCommand,
                         testing::Values(CommandCase{Words{"get", "/version"}, QO_CMPID_TESTPUBLISHER},
                                         CommandCase{Words{"publish", "{}"}, QO_CMPID_TESTPUBLISHER},
                                         CommandCase{Words{"delete", "/usb"}, QO_CMPID_HVAC_SYSCON_END},
                                         CommandCase{Words{"clear", "/usb"}, QO_CMPID_TESTPUBLISHER},
                                         CommandCase{Words{"save"}, QO_CMPID_TESTPUBLISHER},
                                         CommandCase{Words{"dump"}, QO_CMPID_TESTPUBLISHER},
                                         CommandCase{Words{"sync", "SCHEDULER", "x"}, QO_CMPID_TESTPUBLISHER},
                                         CommandCase{Words{"tree"}, QO_CMPID_TESTPUBLISHER},
                                         CommandCase{Words{"init", "--yes"}, QO_CMPID_TESTPUBLISHER}));

TEST_F(PushpullctlSession, AFailedCommandLeavesNothingEither) {
    EXPECT_EQ(run_pushpullctl({"get", "/nosuch"}).status, 1);
    EXPECT_THAT(queues_of_clients(), IsEmpty());
    EXPECT_TRUE(is_not_registered(service(), QO_CMPID_TESTPUBLISHER));
}

TEST_F(PushpullctlSession, AServiceThatIsStoppedIsLeftInTimeAndServesTheNext) {
    service().send_signal(SIGSTOP);
    EXPECT_EQ(run_pushpullctl({"get", "/version", "--timeout", "0.2"}).status, 4);
    service().send_signal(SIGCONT);
    // It has found the registration of the first one meanwhile, and its queue gone.
    const PushpullctlResult next = run_pushpullctl({"get", "/version"});
    EXPECT_EQ(next.status, 0) << next.messages;
    EXPECT_THAT(queues_of_clients(), IsEmpty());
    EXPECT_TRUE(is_not_registered(service(), QO_CMPID_TESTPUBLISHER));
}

// ---- another with the same identifier ----

TEST_F(PushpullctlSession, ALiveComponentKeepsItsRegistrationWhenItsIdentifierIsAskedFor) {
    Component scheduler(service(), QO_CMPID_SCHEDULER, kSmall);
    scheduler.fence();
    const PushpullctlResult result = run_pushpullctl({"get", "/version", "--as", "SCHEDULER", "--timeout", "0.3"});
    EXPECT_EQ(result.status, 4);
    EXPECT_EQ(result.output, "");
    EXPECT_THAT(result.messages, HasSubstr("another component is registered under this identifier"));
    EXPECT_THAT(queues_of_clients(), IsEmpty());
    // The one answer that went astray, and nothing that was asked for.
    EXPECT_THAT(scheduler.next_message(), StartsWith("sender_id:ctl-"));
    EXPECT_TRUE(scheduler.hears_nothing());
}

TEST_F(PushpullctlSession, WithoutAsTheNextIdentifierIsTaken) {
    Component tester(service(), QO_CMPID_TESTPUBLISHER, kSmall);
    tester.fence();
    const PushpullctlResult result = run_pushpullctl({"get", "/version", "--timeout", "0.3"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, StartsWith(R"({"version":)"));
    EXPECT_THAT(result.messages, HasSubstr("no answer to TESTPUBLISHER"));
    EXPECT_TRUE(is_not_registered(service(), QO_CMPID_BASE_SIMULATOR));
    EXPECT_THAT(tester.next_message(), StartsWith("sender_id:ctl-"));
    EXPECT_TRUE(tester.hears_nothing());
}

TEST_F(PushpullctlSession, TwoWithTheSameAsAreKeptApart) {
    PushpullctlRun first({"subscribe", "/logs", "--as", "DEMO", "--message-size", "4096"});
    ASSERT_TRUE(first.wait_for_messages("as DEMO\n"));
    const PushpullctlResult second = run_pushpullctl({"get", "/version", "--as", "DEMO", "--timeout", "0.2"});
    EXPECT_EQ(second.status, 1);
    EXPECT_THAT(second.messages, HasSubstr("another pushpullctl acts as DEMO"));
    EXPECT_EQ(run_pushpullctl({"publish", R"({"logs":{"mapper":"x"}})"}).status, 0);
    EXPECT_TRUE(first.wait_for_output("mapper"));
    first.send_signal(SIGINT);
    EXPECT_EQ(first.wait(), 0);
}

TEST_F(PushpullctlSession, OneWithTheSameAsWaitsForTheOtherToEnd) {
    PushpullctlRun first({"subscribe", "/logs", "--as", "DEMO", "--message-size", "4096", "--count", "1"});
    ASSERT_TRUE(first.wait_for_messages("as DEMO\n"));
    PushpullctlRun second({"get", "--value", "/version/schemaVersion", "--as", "DEMO", "--timeout", "60"});
    EXPECT_EQ(run_pushpullctl({"publish", R"({"logs":{"mapper":"x"}})"}).status, 0);
    EXPECT_EQ(first.wait(), 0);
    EXPECT_EQ(second.wait(), 0);
    EXPECT_EQ(second.output(), "0.0\n");
}

TEST_F(PushpullctlSession, FortyAtATimeAllGetTheirAnswers) {
    std::vector<std::unique_ptr<PushpullctlRun>> runs;
    for (int i = 0; i < 40; ++i) {
        runs.push_back(std::make_unique<PushpullctlRun>(
            std::vector<std::string>{"get", "--value", "/version/schemaVersion", "--timeout", "120"}));
    }
    for (const auto& run : runs) {
        EXPECT_EQ(run->wait(), 0);
        EXPECT_EQ(run->output(), "0.0\n");
        EXPECT_EQ(run->messages(), "");
    }
}

TEST_F(PushpullctlSession, TextsForOthersAreNotTakenForAnswers) {
    // What an earlier user of the identifier asked for arrives late, and somebody syncs.
    PushpullctlRun run({"subscribe", "/logs", "--count", "1", "--message-size", "4096"});
    ASSERT_TRUE(run.wait_for_messages("as TESTPUBLISHER\n"));
    const std::string id = std::to_string(int{QO_CMPID_TESTPUBLISHER});
    ASSERT_TRUE(service().post(R"({"function":"get","arg":{"comp_id":)" + id +
                               R"(,"buffer":"/version","sender_id":"somebody"}})"));
    ASSERT_TRUE(service().post(R"({"function":"sync","arg":{"comp_id":)" + id + R"(,"dst_comp_id":)" + id +
                               R"(,"buffer":"hello"}})"));
    EXPECT_EQ(run.wait(), 0);
    EXPECT_EQ(run.output(), "\"sync:" + id + ":hello\"\n");
}

}  // namespace
