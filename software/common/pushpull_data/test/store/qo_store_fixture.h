/// A data tree store with files of its own in a scratch directory, and what it logged. Header only.
#ifndef QO_TEST_STORE_FIXTURE_H
#define QO_TEST_STORE_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "log_capture.h"
#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_files.h"
#include "qo_pushpull_json.h"
#include "qo_pushpull_stats.h"
#include "scratch_directory.h"

/// Lines of the store, whichever of its operations logged them.
inline QoLogLine error_line(const std::string& text) { return {LOG_ERR, "PushPull:*@#: " + text}; }
inline QoLogLine warning_line(const std::string& text) { return {LOG_WARNING, "PushPull:*@#: " + text}; }
inline QoLogLine debug_line(const std::string& text) { return {LOG_DEBUG, "PushPull:*@#: " + text}; }
inline QoLogLine info_line(const std::string& text) { return {LOG_INFO, "PushPull:*@#: " + text}; }
inline QoLogLine deny_line(int level, const std::string& text) { return {level, "PushPull DENY:*@#: " + text}; }

/// Every operation leaves what it logged in `said_`, LOG_INFO lines of the save timer excepted.
class QoStoreTest : public ::testing::Test {
protected:
    static constexpr char kTimerCreated[] = "PushPull:*@#: Timer to save the data tree created!";

    /// A store that starts from this default tree.
    void load(const std::string& defaults) {
        scratch_.write(QO_DEFAULTS_FILE, defaults);
        start();
    }
    /// A store that starts from the built-in default tree.
    void load_built_in() { start(); }

    void start() {
        store_ = std::make_unique<DataMgr>(QoStorePaths{scratch_.path(), scratch_.path()});
        ASSERT_EQ(store_->Init(nullptr), 0);
        log_.clear();
    }

    int publish(std::string_view text, eQO_COMPONENT_CLASS_ component_class = QO_INTERNAL) {
        const QoJsonNode node = qo_json_parse(text);
        EXPECT_TRUE(node) << text.substr(0, 200);
        log_.clear();
        const int result = store_->UpdateNode(node.get(), save_scheduled_, component_class);
        keep_log();
        return result;
    }

    /// The response as compact text; "" for a failed read.
    std::string read(const std::string& pointer) {
        const QoJsonNode response(json_new(JSON_NODE));
        log_.clear();
        const int result = store_->ReadNode(pointer, response.get(), false, array_size_);
        keep_log();
        compare_text(pointer, result == 0 ? qo_json_write_formatted(response.get()) : std::string());
        return result == 0 ? qo_json_write(response.get()) : std::string();
    }

    int remove(const std::string& pointer) { return delete_node(pointer, false); }
    int clear(const std::string& pointer) { return delete_node(pointer, true); }

    int subscribe(int comp_id, const std::string& pointer, bool notify_on_change_only = false) {
        log_.clear();
        const int result = store_->AddSubscriber(static_cast<eQO_CMP_IDs_>(comp_id), pointer, notify_on_change_only);
        keep_log();
        return result;
    }

    int unsubscribe(int comp_id, const std::string& pointer) {
        log_.clear();
        const int result = store_->RemoveSubscriber(static_cast<eQO_CMP_IDs_>(comp_id), pointer);
        keep_log();
        return result;
    }

    /// Who is told of a publish, as the compact text of the list.
    std::string subscribers_of(std::string_view published) {
        const QoJsonNode node = qo_json_parse(published);
        const QoJsonNode list(json_new(JSON_NODE));
        log_.clear();
        EXPECT_EQ(store_->GetSubscribers(node.get(), list.get()), 0);
        keep_log();
        compare_subscribers(node.get(), list.get());
        return qo_json_write(list.get());
    }

    /// The whole data tree, and the whole subscription tree, as compact text.
    std::string tree() {
        log_.clear();
        store_->PrintDataTree();
        return last_logged_json();
    }
    std::string subscription_tree() {
        log_.clear();
        store_->PrintSubscriptionTree();
        return last_logged_json();
    }

    void keep_log() {
        said_ = log_.lines();
        std::erase_if(said_, [](const QoLogLine& line) { return line.text == kTimerCreated; });
    }

    QoScratchDirectory scratch_;
    QoLogCapture log_;
    std::unique_ptr<DataMgr> store_;
    std::vector<QoLogLine> said_;
    bool save_scheduled_ = false;
    long array_size_ = -7;  // as no operation sets it

private:
    /// What is written straight from the tree, if it is, is what a read gives.
    void compare_text(const std::string& pointer, const std::string& read) {
        std::string straight;
        if (store_->AppendNodeText(pointer, straight)) EXPECT_EQ(straight, read) << pointer;
    }

    /// Those whom a publish is found to concern are those of the list.
    void compare_subscribers(JSONNODE* published, JSONNODE* list) {
        EXPECT_EQ(store_->UpdateModifiedNodeState(published), 0);
        std::span<const QoSubscriber> subscribers;
        EXPECT_EQ(store_->SubscribersOfPublish(subscribers), 0);
        std::vector<QoSubscriber> listed;
        for (const JSONNODE* entry : QoJsonChildren(list)) {
            const auto comp_id = static_cast<eQO_CMP_IDs_>(json_as_int(entry));
            listed.push_back({comp_id, qo_json_name(entry) == "notifyOnChangeOnly"});
        }
        EXPECT_TRUE(std::equal(subscribers.begin(), subscribers.end(), listed.begin(), listed.end()))
            << qo_json_write(published);
    }

    int delete_node(const std::string& pointer, bool restore_default) {
        log_.clear();
        const int result = store_->DeleteNode(pointer, restore_default);
        keep_log();
        return result;
    }

    std::string last_logged_json() {
        const auto lines = log_.lines();
        return lines.empty() ? std::string() : qo_json_write(qo_json_parse(lines.back().text).get());
    }
};

#endif
