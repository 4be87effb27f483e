// Which operation a line of the store names. The other tests compare such lines without it.
#include <errno.h>
#include <time.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <stdexcept>

#include "qo_pushpull_initializer.h"
#include "qo_pushpull_set_aside.h"
#include "qo_pushpull_utilities.h"
#include "qo_store_fixture.h"

using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAreArray;
using ::testing::EndsWith;
using ::testing::Field;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

namespace fs = std::filesystem;

namespace {

bool refuse_to_arm_timers = false;

}  // namespace

extern "C" {
int __real_timer_settime(timer_t timer, int flags, const itimerspec* time, itimerspec* former);

int __wrap_timer_settime(timer_t timer, int flags, const itimerspec* time, itimerspec* former) {
    const bool arms = time->it_value.tv_sec != 0 || time->it_value.tv_nsec != 0;
    if (!arms || !refuse_to_arm_timers) return __real_timer_settime(timer, flags, time, former);
    errno = EINVAL;
    return -1;
}
}

namespace {

constexpr auto kComponent = static_cast<eQO_CMP_IDs_>(1);
constexpr int64_t kMaxTreeBytes = 20000;

struct Operation {
    const char* name;
    void (*provoke)(DataMgr& store);
    /// The operation of each line; when empty, of each of any number of lines it is the name.
    std::vector<std::string> named = {};
};

void merge(DataMgr& store, std::string_view destination, std::string_view source,
           eQO_COMPONENT_CLASS_ component_class = QO_INTERNAL,
           eQO_PUBLISH_AUTHORITY_ authority = QO_ALLOW_PUBLISH_THIS_NODE) {
    const QoJsonNode into = qo_json_parse(destination);
    const QoJsonNode from = qo_json_parse(source);
    store.TreeMerge(into.get(), from.get(), true, component_class, authority);
}

void provoke_merge_lines(DataMgr& store) {
    constexpr std::string_view array = R"({"a":[{"id":0,"maxItems":1}]})";
    constexpr std::string_view boundless = R"({"a":[{"id":0}]})";
    store.TreeMerge(nullptr, nullptr, true, QO_INTERNAL, QO_ALLOW_PUBLISH_THIS_NODE);
    merge(store, R"({"a":1})", R"([{"id":0}])");
    merge(store, R"({"a":{"x":1}})", array);
    merge(store, array, R"({"a":[{"x":1}]})");
    merge(store, array, R"({"a":[{"id":-1}]})");
    merge(store, array, R"({"a":[{"id":5}]})");
    merge(store, boundless, R"({"a":[{"id":2000000000}]})");
    merge(store, boundless, R"({"a":[{"id":60000}]})");
    merge(store, boundless, R"({"a":[{"id":1}]})", QO_REMOTE_CLIENT, QO_NO_PUBLISH_THIS_NODE);
    merge(store, R"({"a":1})", R"({"a":2})", QO_REMOTE_CLIENT, QO_NO_PUBLISH_THIS_NODE);
    merge(store, R"({"a":1})", R"({"b":2})", QO_REMOTE_CLIENT, QO_NO_PUBLISH_THIS_NODE);
    const QoJsonNode large = qo_json_parse("{\"large\":\"" + std::string(kMaxTreeBytes, 'x') + "\"}");
    bool save_scheduled = false;
    store.UpdateNode(large.get(), save_scheduled, QO_INTERNAL);
}

void walk(DataMgr& store, std::string_view skeleton, std::string_view data, char response_type) {
    const QoJsonNode wanted = qo_json_parse(skeleton);
    const QoJsonNode tree = qo_json_parse(data);
    const QoJsonNode response(json_new(response_type));
    long array_size = 0;
    store.ValidateAndReadNode(wanted.get(), tree.get(), response.get(), false, array_size);
}

void provoke_read_lines(DataMgr& store) {
    walk(store, R"({"a":{"x":{}}})", R"({"a":[1]})", JSON_NODE);
    walk(store, R"({"a":{"b":{}}})", R"({"a":{"c":1}})", JSON_NODE);
    walk(store, R"({"a":{}})", R"({"a":1})", JSON_NUMBER);
    walk(store, R"({"a":{"b":{}}})", R"({"a":{"b":1}})", JSON_NUMBER);
    walk(store, R"({"a":{"0":{}}})", R"({"a":[1]})", JSON_NUMBER);
}

void provoke_delete_lines(DataMgr& store) {
    const QoJsonNode data = qo_json_parse(R"({"a":[1]})");
    for (const std::string_view skeleton : {R"({"b":{}})", R"({"a":{"x":{}}})", R"({"a":{"7":{}}})"})
        store.ValidateAndDeleteNode(qo_json_parse(skeleton).get(), data.get());
}

const Operation kOperations[] = {
    // ---- life and persistence ----
    {"CreateDefaultTree",
     [](DataMgr&) {
         Initializer defaults("/nowhere/");
         defaults.Init();
         defaults.Terminate();
     }},
    {"CreateDataTree", [](DataMgr& store) { store.CreateDataTree(); }},
    {"ParseJsonFile", [](DataMgr&) { const QoJsonNode none(ParseJsonFile("/proc/version")); }},
    {"DoesDataTreeCRCMatch", [](DataMgr& store) { store.DoesDataTreeCRCMatch(); }},
    {"SaveDataTree",
     [](DataMgr& store) {
         store.SaveDataTree(false);
         store.SaveDataTree(true);
     }},
    {"RenameAsBackUpFile", [](DataMgr& store) { store.RenameAsBackUpFile("/nowhere/file"); }},
    {"comp_init",
     [](DataMgr&) {
         const QoScratchDirectory scratch;
         fs::create_directories(scratch.file("tree.bad/not_empty"));
         qo_remove_set_aside(scratch.file("tree"));
     }},
    {"SaveActiveTreeForDebug",
     [](DataMgr& store) {
         store.DoesDataTreeCRCMatch();
         store.SaveActiveTreeForDebug();
     },
     {"DoesDataTreeCRCMatch", "DoesDataTreeCRCMatch", "SaveActiveTreeForDebug"}},
    {"CreateTimerToSaveTree", [](DataMgr& store) { store.CreateTimerToSaveTree(); }},
    {"TimerCallBack", [](DataMgr&) { DataMgr::TimerCallBack({.sival_ptr = nullptr}); }},
    {"CheckForSavingDataTree",
     [](DataMgr& store) {
         bool change = false;
         bool decided = false;
         store.CheckForSavingDataTree(nullptr, nullptr, change, decided);
     }},
    {"IsNodeNonPersistent",
     [](DataMgr& store) {
         bool marker = false;
         store.IsNodeNonPersistent(nullptr, marker);
         Initializer("/nowhere/").IsNodeNonPersistent(nullptr);
     }},
    {"TrimNonPersistentData", [](DataMgr&) { Initializer("/nowhere/").TrimNonPersistentData(nullptr); }},

    // ---- pointers ----
    {"JsonPtrToNode",
     [](DataMgr& store) {
         const QoJsonNode none(store.JsonPtrToNode("a"));
         const QoJsonNode root(store.JsonPtrToNode("/"));
     }},
    {"GetJsonArrayIndex",
     [](DataMgr& store) {
         unsigned index = 0;
         store.GetJsonArrayIndex(nullptr, index);
     }},
    {"JsonNodeToPtr", [](DataMgr& store) { EXPECT_THROW(store.JsonNodeToPtr(nullptr), std::logic_error); }},

    // ---- publish ----
    {"UpdateNode",
     [](DataMgr& store) {
         bool save_scheduled = false;
         store.UpdateNode(nullptr, save_scheduled, QO_INTERNAL);
     }},
    {"TreeMerge", provoke_merge_lines},
    {"UpdateLeafValue", [](DataMgr& store) { store.UpdateLeafValue(nullptr, nullptr); }},
    {"GetPublishAuthorityForThisNode",
     [](DataMgr& store) { store.GetPublishAuthorityForThisNode(nullptr, QO_REMOTE_CLIENT); }},
    {"UpdateModifiedNodeState", [](DataMgr& store) { store.UpdateModifiedNodeState(nullptr); }},
    {"MergeToDataTree", [](DataMgr& store) { store.MergeToDataTree(nullptr); }},

    // ---- read and delete ----
    {"ReadNode",
     [](DataMgr& store) {
         const QoJsonNode response(json_new(JSON_NODE));
         long array_size = 0;
         store.ReadNode("/missing", response.get(), false, array_size);
     },
     {"ValidateAndReadNode", "ReadNode"}},
    {"ValidateAndReadNode", provoke_read_lines},
    {"CopyNode", [](DataMgr& store) { store.CopyNode(nullptr, nullptr); }},
    {"DeleteNode",
     [](DataMgr& store) { store.DeleteNode("/missing", false); },
     {"ValidateAndDeleteNode", "DeleteNode"}},
    {"ValidateAndDeleteNode", provoke_delete_lines},

    // ---- subscriptions ----
    {"CreateSubscriptionTree", [](DataMgr& store) { store.CreateSubscriptionTree(nullptr); }},
    {"GenerateShadowTree", [](DataMgr& store) { store.GenerateShadowTree(nullptr, nullptr); }},
    {"AddSubscriber", [](DataMgr& store) { store.AddSubscriber(kComponent, "/missing", false); }},
    {"ValidateAndAddSubscription",
     [](DataMgr& store) { store.ValidateAndAddSubscription(nullptr, kComponent, false); }},
    {"CheckIfSubscriberExists", [](DataMgr& store) { store.CheckIfSubscriberExists(nullptr, kComponent); }},
    {"RemoveSubscriber", [](DataMgr& store) { store.RemoveSubscriber(kComponent, "/missing"); }},
    {"RemoveSubscriberInternal", [](DataMgr& store) { store.RemoveSubscriberInternal(kComponent, nullptr); }},
    {"GetSubscribers", [](DataMgr& store) { store.GetSubscribers(nullptr, nullptr); }},
    {"GetSubscribersInternal", [](DataMgr& store) { store.GetSubscribersInternal(nullptr, nullptr, nullptr); }},
    {"GetNodeSubscriber", [](DataMgr& store) { store.GetNodeSubscriber(nullptr, nullptr); }},
    {"TrimDuplicates", [](DataMgr& store) { store.TrimDuplicates(nullptr); }},
    {"GetSubscribersByJsonPtr", [](DataMgr& store) { store.GetSubscribersByJsonPtr("", nullptr); }},
};

class OperationNames : public ::testing::TestWithParam<Operation> {};

TEST_P(OperationNames, AreThoseOfTheLines) {
    const QoScratchDirectory scratch;
    DataMgr store({scratch.path(), scratch.path()}, {}, kMaxTreeBytes);
    ASSERT_EQ(store.Init(nullptr), 0);
    QoLogCapture log;
    GetParam().provoke(store);
    const std::vector<QoLogLine> lines = log.lines();
    std::vector<std::string> named;
    std::transform(lines.begin(), lines.end(), std::back_inserter(named),
                   [](const QoLogLine& line) { return line.operation; });
    EXPECT_THAT(lines, Each(Field(&QoLogLine::text, StartsWith("PushPull"))));
    if (GetParam().named.empty()) {
        EXPECT_THAT(named, Not(IsEmpty()));
        EXPECT_THAT(named, Each(GetParam().name));
    } else {
        EXPECT_THAT(named, ElementsAreArray(GetParam().named));
    }
}

INSTANTIATE_TEST_SUITE_P(Store, OperationNames, testing::ValuesIn(kOperations),
                         [](const testing::TestParamInfo<Operation>& parameter) { return parameter.param.name; });

// ---- lines of a save that a disk or a timer has to provoke ----

class OperationNamesOfASave : public ::testing::Test {
protected:
    ~OperationNamesOfASave() override { refuse_to_arm_timers = false; }

    void start() { store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()}); }
    /// A link to itself: there, and not to be read.
    void make_unreadable(const std::string& name) { fs::create_symlink(name, scratch_.file(name)); }
    /// Nothing can be renamed to this name.
    void occupy(const std::string& name) { fs::create_directories(scratch_.file(name + "/not_empty")); }

    void expect_named_by_save(const testing::Matcher<const std::string&>& text) {
        EXPECT_THAT(log_.lines(),
                    Contains(AllOf(Field(&QoLogLine::text, text), Field(&QoLogLine::operation, "SaveDataTree"))));
    }

    QoScratchDirectory scratch_;
    QoLogCapture log_;
    std::unique_ptr<DataMgr> store_;
};

TEST_F(OperationNamesOfASave, IsTheSaveForAFileThatCannotBeSetAside) {
    make_unreadable(QO_SAVED_TREE_FILE);
    occupy(std::string(QO_SAVED_TREE_FILE) + ".unread");
    start();
    ASSERT_EQ(store_->Init(nullptr), 0);
    EXPECT_EQ(store_->SaveDataTree(false), -1);
    expect_named_by_save(HasSubstr("Couldn't set aside file"));
}

TEST_F(OperationNamesOfASave, IsTheSaveForABackUpThatCannotBeSetAside) {
    const std::string back_up = std::string(QO_SAVED_TREE_FILE) + QO_BACKUP_EXTENSION;
    make_unreadable(back_up);
    occupy(back_up + ".unread");
    start();
    ASSERT_EQ(store_->Init(nullptr), 0);
    EXPECT_EQ(store_->SaveDataTree(false), 0);
    EXPECT_EQ(store_->SaveDataTree(false), 0);  // the first one had nothing to back up
    expect_named_by_save(HasSubstr("cannot be set aside"));
}

TEST_F(OperationNamesOfASave, IsTheSaveForARetryThatCannotBeArmed) {
    start();
    ASSERT_EQ(store_->Init(nullptr), 0);
    ASSERT_EQ(store_->CreateTimerToSaveTree(), 0);
    fs::remove_all(scratch_.path());
    refuse_to_arm_timers = true;
    EXPECT_EQ(store_->SaveDataTree(true), -1);
    expect_named_by_save(EndsWith("Cannot set time in the timer!"));
}

}  // namespace
