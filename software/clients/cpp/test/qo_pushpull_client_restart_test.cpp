// A component on QoPushpullClient over the restarts, resets and absences of the real service.
#include <signal.h>

#include "isolation.h"
#include "qo_pushpull_client_fixture.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;

/// A component that shows the status, and counts.
class Restarts : public ServiceProcess {
protected:
    void SetUp() override {
        ServiceProcess::SetUp();
        if (IsSkipped()) return;
        QoPushpullClientSettings settings = client_settings();
        settings.answer_timeout = milliseconds(300);
        client_.emplace(settings);
        client_->subscribe(
            kStatus, [this](const std::string& text) { texts_.push_back(text); });
        client_->on_joined([this] { ++joined_; });
        client_->on_lost([this] { ++lost_; });
    }
    void TearDown() override {
        client_.reset();
        ServiceProcess::TearDown();
    }

    void start_and_join() {
        ASSERT_TRUE(service().start_and_wait());
        ASSERT_EQ(client_->open(), 0);
        ASSERT_TRUE(client_->wait_until_joined(kQoPatience));
    }
    void kill_service() {
        service().send_signal(SIGKILL);
        ASSERT_TRUE(service().wait_for_end());
    }
    testing::AssertionResult joins_again() {
        const int before = joined_;
        return dispatch_until(*client_, [this, before] { return joined_ > before; });
    }
    /// Told of what another component publishes now.
    void expect_subscribed() {
        Component publisher(service(), QO_CMPID_ALERTS, {4, 4096});
        ASSERT_TRUE(dispatch_until(*client_, [this] { return client_->joined(); }));
        ASSERT_TRUE(client_->wait_until_handled(kQoPatience));
        texts_.clear();
        ASSERT_EQ(publisher.api().publish(publisher.id(), temperature(71)), 0);
        publisher.fence();
        EXPECT_TRUE(dispatch_until(*client_, [this] { return !texts_.empty(); }));
        EXPECT_THAT(texts_, ElementsAre(temperature(71)));
    }

    std::optional<QoPushpullClient> client_;
    std::vector<std::string> texts_;
    int joined_ = 0;
    int lost_ = 0;
};

TEST_F(Restarts, ComponentJoinsAgainAfterTheServiceWasKilledAndStartedAnew) {
    start_and_join();
    kill_service();
    ASSERT_TRUE(dispatch_until(*client_, [this] { return lost_ >= 1; }));
    EXPECT_FALSE(client_->joined());
    EXPECT_FALSE(client_->publish(temperature(70)));
    EXPECT_EQ(client_->get(kStatus).outcome, QoPushpullOutcome::not_joined);
    ASSERT_TRUE(service().start_and_wait());
    ASSERT_TRUE(joins_again());
    expect_subscribed();
}

TEST_F(Restarts, AKillThatNobodyNoticedBeforeTheNewServiceCameIsFoundByALook) {
    start_and_join();
    kill_service();
    ASSERT_TRUE(service().start_and_wait());
    ASSERT_TRUE(joins_again());
    EXPECT_GE(lost_, 1);
    expect_subscribed();
}

TEST_F(Restarts, ServiceThatEndsByARequestTellsItself) {
    start_and_join();
    ASSERT_TRUE(client_->request([](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.exit_request(id, "true"); }));
    ASSERT_TRUE(service().wait_for_end());
    ASSERT_TRUE(dispatch_until(*client_, [this] { return lost_ >= 1; }));
    ASSERT_TRUE(service().start_and_wait());
    ASSERT_TRUE(joins_again());
    expect_subscribed();
}

TEST_F(Restarts, ResetThatTheComponentAskedForItself) {
    start_and_join();
    ASSERT_TRUE(client_->request([](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.init_request(id, "true"); }));
    ASSERT_TRUE(joins_again());
    EXPECT_GE(lost_, 1);
    expect_subscribed();
}

TEST_F(Restarts, ResetThatAnotherAskedForIsFoundByALook) {
    start_and_join();
    {
        Component other(service(), QO_CMPID_HVAC_SYSCON_SUB, {4, 4096});
        ASSERT_EQ(other.api().init_request(other.id(), "true"), 0);
        EXPECT_EQ(other.next_message(), "pushpull init success");
    }
    ASSERT_TRUE(joins_again());
    EXPECT_GE(lost_, 1);
    expect_subscribed();
}

TEST_F(Restarts, ServiceThatStartsAfterTheComponent) {
    ASSERT_EQ(client_->open(), 0);
    EXPECT_FALSE(client_->wait_until_joined(milliseconds(50)));
    ASSERT_TRUE(service().start_and_wait());
    ASSERT_TRUE(joins_again());
    expect_subscribed();
}

TEST_F(Restarts, OwnQueueThatWasRemovedIsMadeAnewForTheNextService) {
    start_and_join();
    const int descriptor = client_->descriptor();
    kill_service();
    ASSERT_EQ(mq_unlink(kClientQueue), 0);
    ASSERT_TRUE(service().start_and_wait());
    ASSERT_TRUE(joins_again());
    EXPECT_EQ(client_->descriptor(), descriptor);
    expect_subscribed();
}

TEST_F(Restarts, ReadFirstReadsAgainAfterEachRestart) {
    std::vector<std::string> read;
    client_->subscribe("/system/config", [&read](const std::string& text) { read.push_back(text); }, {false, true});
    start_and_join();
    ASSERT_TRUE(dispatch_until(*client_, [&read] { return read.size() == 1; }));
    kill_service();
    ASSERT_TRUE(service().start_and_wait());
    ASSERT_TRUE(joins_again());
    ASSERT_TRUE(dispatch_until(*client_, [&read] { return read.size() == 2; }));
    EXPECT_THAT(read, testing::Each(HasSubstr("\"config\"")));
}

TEST_F(Restarts, ServiceThatAnswersItsLooksIsNotTakenForLost) {
    constexpr size_t kLooks = 5;
    ASSERT_TRUE(service().start_and_wait());
    QoPushpullClientSettings settings = client_settings();
    settings.id = QO_CMPID_ALERTS;
    settings.queue_name = "/patient";
    settings.look_interval = milliseconds(1);
    settings.answer_timeout = kQoPatience;
    int lost = 0;
    QoPushpullClient patient(settings);
    patient.on_lost([&lost] { ++lost; });
    ASSERT_EQ(patient.open(), 0);
    EXPECT_TRUE(dispatch_until(patient, [this] {
        const auto lines = events().log();
        return std::count_if(lines.begin(), lines.end(), [](const auto& line) {
                   return line.text.find("siblings") != std::string::npos;
               }) > static_cast<long>(kLooks);
    }));
    EXPECT_TRUE(patient.joined());
    EXPECT_EQ(lost, 0);
}

TEST(AbsentService, HasItsQueueHalfFilledByAttemptsAndNoMore) {
    if (const std::string reason = qo_missing_isolation(); !reason.empty()) GTEST_SKIP() << reason;
    constexpr int kMoreAttempts = 20;
    const QoScratchQueue queue("/pushpull", 8, 1024);
    QoPushpullClientSettings settings = client_settings();
    settings.retry = milliseconds(1);
    settings.answer_timeout = milliseconds(10);
    QoPushpullClient client(settings);
    ASSERT_EQ(client.open(), 0);
    // Each attempt registers and asks for an answer.
    ASSERT_TRUE(dispatch_until(client, [&queue] { return queue.count() == 4; }));
    for (int attempt = 0; attempt < kMoreAttempts; ++attempt) {
        pollfd due{client.descriptor(), POLLIN, 0};
        ASSERT_EQ(poll(&due, 1, -1), 1);
        client.dispatch();
    }
    EXPECT_EQ(queue.count(), 4);
}

TEST(ServiceQueue, ThatWasRemovedAndMadeAnewIsFound) {
    if (const std::string reason = qo_missing_isolation(); !reason.empty()) GTEST_SKIP() << reason;
    std::optional<QoServiceProcess> service(std::in_place);
    ASSERT_TRUE(service->start_and_wait());
    QoPushpullClient client(client_settings());
    ASSERT_EQ(client.open(), 0);
    ASSERT_TRUE(client.wait_until_joined(kQoPatience));
    service.reset();
    ASSERT_EQ(mq_unlink("/pushpull"), 0);
    // Lets go of the removed queue, whose memory the new one needs.
    ASSERT_TRUE(dispatch_until(client, [&client] { return !client.joined(); }));
    service.emplace();
    ASSERT_TRUE(service->start_and_wait());
    ASSERT_TRUE(dispatch_until(client, [&client] { return client.joined(); }));
    EXPECT_TRUE(client.get("/version", kQoPatience));
    EXPECT_EQ(service->stop(), 0);
}

}  // namespace
