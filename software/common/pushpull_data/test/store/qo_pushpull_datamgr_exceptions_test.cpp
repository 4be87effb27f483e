// A shortage of memory at every point of every change of the store: its trees stay well-formed, the room that publishes
// have left is known exactly, and no lock or flag stays behind.
#include "failing_new.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_tree_weight.h"
#include "qo_store_fixture.h"

namespace {

constexpr int64_t kMaxBytes = 40000;

constexpr char kDefaults[] = R"({
    "system": {"writeAccess": "local", "config": {"writeAccess": "openAll", "name": "a name that is long enough"}},
    "devices": [{"id": 0, "maxItems": 50}, {"id": 1, "temp": 20}],
    "large": {"m 0":1,"m 1":1,"m 2":1,"m 3":1,"m 4":1,"m 5":1,"m 6":1,"m 7":1,"m 8":1,"m 9":1,"m 10":1,"m 11":1,
              "m 12":1,"m 13":1,"m 14":1,"m 15":1,"m 16":1,"m 17":1}
})";

class StoreShortOfMemory : public QoStoreTest {
protected:
    void SetUp() override {
        scratch_.write(QO_DEFAULTS_FILE, kDefaults);
        store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()}, QoSaveTimings{}, kMaxBytes);
        ASSERT_EQ(store_->Init(nullptr), 0);
    }

    /// What publishes may add is what the limit leaves of the tree that is there.
    void expect_exact_room(size_t number) {
        const QoJsonNode now = qo_json_parse(tree());
        ASSERT_TRUE(now) << "at " << number;
        const int64_t room = kMaxBytes - qo_tree_weight(now.get());
        const auto fill = [&](int64_t bytes) {
            const std::string value(static_cast<size_t>(bytes - kQoNodeBytes), 'x');
            return publish("{\"fill\":\"" + value + "\"}");
        };
        EXPECT_EQ(fill(room + 1), -1) << "at " << number;
        EXPECT_EQ(fill(room), 0) << "at " << number;
        EXPECT_EQ(remove("/fill"), 0);
    }

    /// Fails each operator new of `act` once, one after the other.
    void fail_each(const std::function<void()>& prepare, const std::function<void()>& act) {
        size_t number = 0;
        for (bool failed = true; failed && !HasFailure(); ++number) {
            prepare();
            try {
                const QoFailingNew short_of_memory(number);
                act();
            } catch (const std::bad_alloc&) {
            }
            failed = QoFailingNew::has_failed();
            expect_exact_room(number);
            // With a flag left behind, metadata could be changed.
            publish(R"({"system":{"writeAccess":"openAll","config":{"writeAccess":"internal"}}})");
            EXPECT_EQ(read("/system/writeAccess"), R"({"system":{"writeAccess":"local"}})") << "at " << number;
        }
        EXPECT_GT(number, 5U);
    }

    int update(const char* text) {
        const QoJsonNode node = qo_json_parse(text);
        return store_->UpdateNode(node.get(), save_scheduled_, QO_INTERNAL);
    }
};

}  // namespace

TEST_F(StoreShortOfMemory, APublishLeavesTheRoomExact) {
    fail_each([this] { SetUp(); },
              [this] {
                  update(R"({"system":{"config":{"name":"another name that is long enough","new":{"a":{"b":[{"id":3,)"
                         R"("text":"a text that is long enough"}]}}}},"devices":[{"id":9,"x":"y"},{"id":1,"temp":[]}],)"
                         R"("large":{"m 3":{"a member that is long":"x"},"m 18":2,"m 19":3}})");
              });
}

TEST_F(StoreShortOfMemory, ADeleteLeavesTheRoomExact) {
    fail_each(
        [this] {
            SetUp();
            publish(R"({"devices":[{"id":2,"x":"a text that is long enough"},{"id":3}]})");
        },
        [this] {
            store_->DeleteNode("/devices/2", false);
            store_->DeleteNode("/large/m 3", false);
        });
}

TEST_F(StoreShortOfMemory, AClearLeavesTheRoomExactAndNoMetadataOpen) {
    fail_each(
        [this] {
            SetUp();
            publish(R"({"system":{"config":{"name":"another name that is long enough","more":{"a":"b"}}}})");
        },
        [this] { store_->DeleteNode("/system/config", true); });
}

TEST_F(StoreShortOfMemory, SubscriptionsStayWellFormed) {
    fail_each([this] { SetUp(); },
              [this] {
                  const std::string pointer = "/system/config";
                  store_->AddSubscriber(QO_CMPID_DEMO, pointer, false);
                  store_->AddSubscriber(QO_CMPID_ALERTS, pointer, true);
                  store_->RemoveSubscriber(QO_CMPID_DEMO, "/");
              });
    EXPECT_EQ(subscribe(QO_CMPID_TESTPUBLISHER, "/system/config"), 0);
    EXPECT_EQ(subscribers_of(R"({"system":{"config":{"name":"x"}}})"),
              R"({"notifyOnChangeOnly":1073741835,"cmpID":1073741853})");
}
