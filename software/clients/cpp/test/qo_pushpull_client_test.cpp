// A component on QoPushpullClient and the real service: coming, handlers, questions, the loop, and going.
#include <signal.h>

#include <thread>

#include "qo_pushpull_client_fixture.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

bool queue_exists(const std::string& name) {
    const mqd_t queue = mq_open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (queue != -1) mq_close(queue);
    return queue != -1;
}

class Client : public RunningService {};

// ---- coming and going ----

TEST_F(Client, IsRegisteredUntilItsEndAndLeavesNeitherQueueNorRegistration) {
    {
        QoPushpullClient client(client_settings());
        ASSERT_EQ(client.open(), 0);
        ASSERT_TRUE(client.wait_until_joined(kQoPatience));
        EXPECT_TRUE(queue_exists(kClientQueue));
    }
    EXPECT_FALSE(queue_exists(kClientQueue));
    // The identifier is free: another queue is taken for it, and not refused as a second one.
    Component successor(service(), QO_CMPID_DEMO);
    EXPECT_THAT(successor.get("/version"), HasSubstr("schemaVersion"));
}

TEST_F(Client, ThatEndsBeforeItsRegistrationWasConfirmedTakesItBackToo) {
    {
        QoPushpullClient client(client_settings());
        ASSERT_EQ(client.open(), 0);
    }
    Component successor(service(), QO_CMPID_DEMO);
    EXPECT_THAT(successor.get("/version"), HasSubstr("schemaVersion"));
}

TEST_F(Client, LeavesTheRegistrationOfAnotherQueueAlone) {
    Component first(service(), QO_CMPID_DEMO);
    ASSERT_THAT(first.get("/version"), HasSubstr("schemaVersion"));
    {
        QoPushpullClient second(client_settings());
        second.subscribe(kStatus, [](const std::string&) {});
        ASSERT_EQ(second.open(), 0);
        EXPECT_FALSE(second.wait_until_joined(milliseconds(300)));
    }
    // What the second one asked meanwhile was answered to the first: the service knows one queue for an identifier.
    first.fence();
    first.drain();
    // It is still registered, and was not subscribed to anything.
    Component publisher(service(), QO_CMPID_ALERTS);
    ASSERT_EQ(publisher.api().publish(publisher.id(), temperature(71)), 0);
    publisher.fence();
    EXPECT_TRUE(first.hears_nothing());
}

TEST_F(Client, OfTwoProcessesOnOneQueueOnlyTheFirstOpensIt) {
    QoPushpullClient first(client_settings());
    ASSERT_EQ(first.open(), 0);
    QoPushpullClient second(client_settings());
    EXPECT_EQ(second.open(), -1);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_TRUE(first.wait_until_joined(kQoPatience));
}

/// A queue of the client's name with a text in it, as a component that failed leaves it behind.
void leave_behind(long messages, long message_size) {
    mq_attr attributes{};
    attributes.mq_maxmsg = messages;
    attributes.mq_msgsize = message_size;
    const mqd_t queue = mq_open(kClientQueue, O_CREAT | O_RDWR | O_CLOEXEC, 0660, &attributes);
    ASSERT_NE(queue, -1);
    const std::string stale = temperature(1);
    ASSERT_EQ(mq_send(queue, stale.c_str(), stale.size() + 1, 1), 0);
    mq_close(queue);
}

TEST_F(Client, TakesOverTheQueueOfOneThatFailedWithoutWhatIsInIt) {
    leave_behind(client_settings().queue_messages, client_settings().message_size);
    std::vector<std::string> seen;
    QoPushpullClient client(client_settings());
    client.subscribe("/", [&seen](const std::string& text) { seen.push_back(text); });
    ASSERT_EQ(client.open(), 0);
    ASSERT_TRUE(client.wait_until_joined(kQoPatience));
    EXPECT_THAT(seen, IsEmpty());
}

TEST_F(Client, MakesAQueueOfAnotherSizeAnew) {
    leave_behind(3, 64);
    QoPushpullClient client(client_settings());
    ASSERT_EQ(client.open(), 0);
    ASSERT_TRUE(client.wait_until_joined(kQoPatience));
    EXPECT_GT(client.get(kStatus).text.size(), 64U);
}

TEST_F(Client, RefusesAQueueThatTheSystemDoesNotAllow) {
    QoPushpullClientSettings settings = client_settings();
    settings.queue_messages = 1 << 30;
    QoPushpullClient client(settings);
    EXPECT_EQ(client.open(), -1);
    EXPECT_NE(errno, 0);
}

// ---- handlers ----

class Subscriber : public Client {
protected:
    void SetUp() override {
        Client::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        publisher_.emplace(service(), QO_CMPID_ALERTS);
    }
    void TearDown() override {
        publisher_.reset();
        Client::TearDown();
    }

    QoPushpullClient::TextHandler into(std::vector<std::string>& texts) {
        return [&texts](const std::string& text) { texts.push_back(text); };
    }
    void join(QoPushpullClient& client) {
        ASSERT_EQ(client.open(), 0);
        ASSERT_TRUE(client.wait_until_joined(kQoPatience));
        ASSERT_TRUE(client.wait_until_handled(kQoPatience));
    }
    void publish(const std::string& text) { ASSERT_EQ(publisher_->api().publish(publisher_->id(), text), 0); }
    /// All that was published so far is handled by the client.
    void settle(QoPushpullClient& client) {
        publisher_->fence();
        ASSERT_TRUE(client.wait_until_handled(kQoPatience));
        client.dispatch();
    }

    std::optional<Component> publisher_;
};

TEST_F(Subscriber, EachHandlerGetsTheTextsThatReachItsPointer) {
    std::vector<std::string> status;
    std::vector<std::string> config;
    std::vector<std::string> system;
    QoPushpullClient client(client_settings());
    ASSERT_TRUE(client.subscribe(kStatus, into(status)));
    ASSERT_TRUE(client.subscribe("/system/config", into(config)));
    ASSERT_TRUE(client.subscribe("/system", into(system)));
    join(client);
    const std::string name = R"({"system":{"config":{"name":"hall"}}})";
    publish(temperature(71));
    publish(name);
    settle(client);
    EXPECT_THAT(status, ElementsAre(temperature(71)));
    EXPECT_THAT(config, ElementsAre(name));
    EXPECT_THAT(system, ElementsAre(temperature(71), name));
}

TEST_F(Subscriber, SubscriptionsMadeWhileRegisteredCountToo) {
    std::vector<std::string> status;
    QoPushpullClient client(client_settings());
    join(client);
    ASSERT_TRUE(client.subscribe(kStatus, into(status)));
    ASSERT_TRUE(client.wait_until_handled());
    publish(temperature(72));
    settle(client);
    EXPECT_THAT(status, ElementsAre(temperature(72)));
}

TEST_F(Subscriber, HearsNothingMoreOfWhatItUnsubscribed) {
    std::vector<std::string> system;
    std::vector<std::string> status;
    QoPushpullClient client(client_settings());
    client.subscribe("/system", into(system));
    client.subscribe(kStatus, into(status));
    join(client);
    client.unsubscribe("/system");
    ASSERT_TRUE(client.wait_until_handled());
    publish(temperature(73));
    settle(client);
    EXPECT_THAT(system, IsEmpty());
    // The service ends subscriptions below the node too; that was not asked for.
    EXPECT_THAT(status, ElementsAre(temperature(73)));
}

TEST_F(Subscriber, ChangesOnlyLeavesOutPublishesThatChangeNothing) {
    std::vector<std::string> status;
    QoPushpullClient client(client_settings());
    client.subscribe(kStatus, into(status), {true, false});
    join(client);
    publish(temperature(74));
    publish(temperature(74));
    publish(temperature(75));
    settle(client);
    EXPECT_THAT(status, ElementsAre(temperature(74), temperature(75)));
}

TEST_F(Subscriber, APointerHasOneModeAndNoList) {
    QoPushpullClient client(client_settings());
    EXPECT_TRUE(client.subscribe(kStatus, [](const std::string&) {}, {true, false}));
    EXPECT_FALSE(client.subscribe(kStatus, [](const std::string&) {}, {false, false}));
    EXPECT_FALSE(client.subscribe("/system;/fwm", [](const std::string&) {}));
    EXPECT_FALSE(client.subscribe("", [](const std::string&) {}));
}

TEST_F(Subscriber, ReadsTheNodeFirstWhenAskedTo) {
    publish(temperature(76));
    std::vector<std::string> status;
    QoPushpullClient client(client_settings());
    client.subscribe(kStatus, into(status), {false, true});
    join(client);
    settle(client);
    EXPECT_THAT(status, ElementsAre(HasSubstr("\"systemTemperature\": 76")));
}

TEST_F(Subscriber, IsToldOfDeletionsAndOfTextsFromOthers) {
    std::vector<std::string> deleted;
    std::vector<std::pair<int, std::string>> sent;
    QoPushpullClient client(client_settings());
    client.subscribe(
        "/system", [](const std::string&) {});
    client.on_deleted([&deleted](const std::string& pointer) { deleted.push_back(pointer); });
    client.on_sync([&sent](eQO_CMP_IDs_ sender, const std::string& text) { sent.emplace_back(sender, text); });
    join(client);
    Component controller(service(), QO_CMPID_HVAC_SYSCON_SUB, {4, 4096});
    ASSERT_EQ(controller.api().comp_sync(controller.id(), QO_CMPID_DEMO, "a:b;c"), 0);
    ASSERT_EQ(controller.api().delete_node(controller.id(), "/system/config"), 0);
    controller.fence();
    settle(client);
    EXPECT_THAT(deleted, ElementsAre("/system/config"));
    EXPECT_THAT(sent, ElementsAre(std::make_pair(int{QO_CMPID_HVAC_SYSCON_SUB}, std::string("a:b;c"))));
}

TEST_F(Subscriber, AHandlerMayAskSubscribeAndUnsubscribe) {
    std::vector<std::string> answers;
    std::vector<std::string> later;
    QoPushpullClient client(client_settings());
    client.subscribe(kStatus, [&](const std::string&) {
        answers.push_back(client.get("/siblings/size").text);
        client.unsubscribe(kStatus);
        client.subscribe("/system/config", into(later));
    });
    join(client);
    publish(temperature(77));
    settle(client);
    ASSERT_TRUE(client.wait_until_handled());
    publish(temperature(78));
    publish(R"({"system":{"config":{"name":"cellar"}}})");
    settle(client);
    EXPECT_EQ(answers.size(), 1U);
    EXPECT_EQ(later.size(), 1U);
}

TEST_F(Subscriber, AnExceptionOfAHandlerCostsNoOtherText) {
    int calls = 0;
    QoPushpullClient client(client_settings());
    client.subscribe(kStatus, [&calls](const std::string&) {
        if (++calls == 1) throw std::runtime_error("the handler's own");
    });
    join(client);
    publish(temperature(79));
    publish(temperature(80));
    publisher_->fence();
    ASSERT_TRUE(client.get("/version"));  // both are out of the queue now
    EXPECT_THROW(client.dispatch(), std::runtime_error);
    pollfd work{client.descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&work, 1, 0), 1);
    client.dispatch();
    EXPECT_EQ(calls, 2);
}

// ---- questions ----

TEST_F(Subscriber, GetAnswersWithTheNodeTheSizeOrThatThereIsNone) {
    publish(temperature(81));
    publisher_->fence();
    QoPushpullClient client(client_settings());
    join(client);
    const QoPushpullAnswer node = client.get(kStatus);
    EXPECT_TRUE(node);
    EXPECT_THAT(node.text, HasSubstr("\"systemTemperature\": 81"));
    EXPECT_THAT(client.get("/siblings/size").text, testing::MatchesRegex("[0-9]+"));
    EXPECT_EQ(client.get("/no/such/node").outcome, QoPushpullOutcome::no_such_node);
    EXPECT_EQ(client.get("/system/size").outcome, QoPushpullOutcome::no_such_node);
    EXPECT_EQ(client.get("/system;/fwm").outcome, QoPushpullOutcome::not_sent);
}

TEST_F(Subscriber, WhatComesWhileAnAnswerIsWaitedForIsHandledLater) {
    std::vector<std::string> status;
    QoPushpullClient client(client_settings());
    client.subscribe(kStatus, into(status));
    join(client);
    publish(temperature(82));
    publish(temperature(83));
    publisher_->fence();
    ASSERT_TRUE(client.get("/version"));
    EXPECT_THAT(status, IsEmpty());
    // Out of the queue already, and yet a component's own loop is woken for them.
    pollfd work{client.descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&work, 1, 0), 1);
    client.dispatch();
    EXPECT_THAT(status, ElementsAre(temperature(82), temperature(83)));
}

TEST_F(Subscriber, WaitUntilHandledShowsThatAPublishWasDone) {
    QoPushpullClient client(client_settings());
    join(client);
    ASSERT_TRUE(client.publish(temperature(84)));
    ASSERT_TRUE(client.wait_until_handled());
    EXPECT_THAT(publisher_->get(kStatus), HasSubstr("\"systemTemperature\": 84"));
}

TEST_F(Subscriber, GetGivesUpWhenTheServiceStandsStill) {
    QoPushpullClient client(client_settings());
    join(client);
    service().send_signal(SIGSTOP);
    EXPECT_EQ(client.get(kStatus, milliseconds(50)).outcome, QoPushpullOutcome::no_answer);
    EXPECT_FALSE(client.wait_until_handled(milliseconds(0)));
    service().send_signal(SIGCONT);
    // The late answers are nobody's.
    EXPECT_TRUE(client.get("/version", kQoPatience));
}

TEST_F(Subscriber, OtherRequestsGoThroughRequest) {
    publish(R"({"system":{"config":{"name":"attic"}}})");
    QoPushpullClient client(client_settings());
    join(client);
    ASSERT_TRUE(client.request([](QoPushpullApi& api, eQO_CMP_IDs_ id) { return api.clear(id, "/system/config"); }));
    const QoPushpullAnswer config = client.get("/system/config");
    EXPECT_THAT(config.text, testing::Not(HasSubstr("attic")));
    EXPECT_FALSE(client.publish("\xff"));
}

// ---- hostile texts ----

TEST_F(Subscriber, GoesOnWhateverStandsInItsQueue) {
    QoPushpullClientSettings settings = client_settings();
    settings.queue_messages = 32;
    std::vector<std::string> everything;
    int joined = 0;
    QoPushpullClient client(settings);
    client.subscribe("/", into(everything));
    client.on_joined([&joined] { ++joined; });
    client.on_deleted([](const std::string&) {});
    client.on_sync([](eQO_CMP_IDs_, const std::string&) { FAIL() << "none of them is a sync"; });
    join(client);
    const mqd_t queue = mq_open(kClientQueue, O_WRONLY | O_CLOEXEC);
    const std::string nul_inside("{\"a\":\"\0\"}", 9);
    for (const std::string& text :
         {std::string(), std::string(1, '\0'), std::string("sender_id:"), std::string("sender_id:;"),
          std::string("sender_id:no end"), std::string("sender_id:1;{}"), "sender_id:" + std::string(4000, 'x') + ";",
          std::string("sync:"), std::string("sync:x:y"), std::string("sync:99999999999999:y"), std::string("sync:7"),
          std::string("NODE DELETED: "), std::string("{\"system\""), std::string(4096, '{'), std::string("\xff\xfe"),
          nul_inside}) {
        const timespec deadline{time(nullptr) + 10, 0};
        ASSERT_EQ(mq_timedsend(queue, text.data(), text.size(), 1, &deadline), 0) << text;
    }
    mq_close(queue);
    ASSERT_TRUE(client.wait_until_handled(kQoPatience));
    client.dispatch();
    EXPECT_TRUE(client.get("/version"));
    EXPECT_THAT(everything, testing::Contains(nul_inside));
    EXPECT_EQ(joined, 1);
}

TEST_F(Subscriber, AnAnswerThatWasNotAskedForIsNotTakenForOne) {
    QoPushpullClient client(client_settings());
    join(client);
    const mqd_t queue = mq_open(kClientQueue, O_WRONLY | O_CLOEXEC);
    const std::string forged = "sender_id:0-1;{\"version\":\"forged\"}";
    ASSERT_EQ(mq_send(queue, forged.c_str(), forged.size() + 1, 1), 0);
    mq_close(queue);
    EXPECT_THAT(client.get("/version").text, testing::Not(HasSubstr("forged")));
}

// ---- the loop ----

TEST_F(Subscriber, RunEndsByStopFromAnotherThreadAndFromAHandler) {
    QoPushpullClient client(client_settings());
    client.subscribe(kStatus, [&client](const std::string&) { client.stop(); });
    join(client);
    publish(temperature(85));
    client.run();
    std::thread stopper([&client] { client.stop(); });
    client.run();
    stopper.join();
    EXPECT_TRUE(client.joined());
}

TEST_F(Subscriber, HandlersCannotEnterTheLoopAgain) {
    int depth = 0;
    int deepest = 0;
    QoPushpullClient client(client_settings());
    client.subscribe(kStatus, [&](const std::string&) {
        deepest = std::max(deepest, ++depth);
        client.dispatch();
        client.run();
        --depth;
    });
    join(client);
    publish(temperature(86));
    publish(temperature(87));
    settle(client);
    EXPECT_EQ(deepest, 1);
}

// ---- with a JSON library ----

struct NumberJson {
    struct Value {
        int temperature;
    };
    static std::optional<Value> parse(const std::string& text) {
        const size_t at = text.find("\"systemTemperature\"");
        if (at == std::string::npos) return std::nullopt;
        return Value{std::stoi(text.substr(text.find(':', at) + 1))};
    }
    static std::string print(const Value& value) { return temperature(value.temperature); }
};

TEST_F(Subscriber, ValuesOfAJsonLibraryTakeThePlaceOfTexts) {
    std::vector<int> temperatures;
    QoPushpullClient client(client_settings());
    QoPushpullJsonClient<NumberJson> json(client);
    ASSERT_TRUE(
        json.subscribe(kStatus, [&](const NumberJson::Value& value) { temperatures.push_back(value.temperature); }));
    join(client);
    publish(temperature(88));
    publish(R"({"system":{"status":{"other":1}}})");
    settle(client);
    EXPECT_THAT(temperatures, ElementsAre(88));
    ASSERT_TRUE(json.publish({89}));
    EXPECT_EQ(json.get(kStatus, kQoPatience)->temperature, 89);
    EXPECT_FALSE(json.get("/version", kQoPatience));
}

}  // namespace
