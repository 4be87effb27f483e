/// The service object on small real queues, and components with receive queues of their own. For ISOLATED tests.
/// Header only.
#ifndef QO_TEST_SERVICE_FIXTURE_H
#define QO_TEST_SERVICE_FIXTURE_H

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "log_capture.h"
#include "qo_pushpull.h"
#include "qo_pushpull_constants.h"
#include "qo_pushpull_files.h"
#include "qo_scratch_queue.h"
#include "shell_capture.h"

/// A component as the service sees it: a number and a receive queue.
class QoTestComponent {
public:
    QoTestComponent(PushPullData& service, eQO_CMP_IDs_ comp_id, const std::string& queue_name, long maxmsg = 6,
                    long msgsize = 1024)
        : service_(service), id(comp_id), queue_name_(queue_name), queue(queue_name, maxmsg, msgsize) {
        enter();
    }

    void enter() { EXPECT_EQ(service_.comp_register(id, queue_name_, nullptr), 0); }

    void subscribe(const std::string& pointer, bool changes_only = false) {
        EXPECT_EQ(service_.comp_subscribe(id, pointer, changes_only), 0);
    }

    /// Takes all messages out of the queue; each was sent with priority 1 and ends with its only NUL, left out here.
    std::vector<std::string> texts() {
        std::vector<std::string> all;
        while (const auto message = queue.take()) {
            EXPECT_EQ(message->priority, QO_MESSAGE_PRIORITY);
            EXPECT_EQ(message->bytes.find('\0'), message->bytes.length() - 1);
            all.push_back(message->bytes.substr(0, message->bytes.length() - 1));
        }
        return all;
    }

private:
    PushPullData& service_;

public:
    const eQO_CMP_IDs_ id;

private:
    const std::string queue_name_;

public:
    QoScratchQueue queue;
};

/// A service that has started on a small default tree.
class QoServiceFixture : public testing::Test {
protected:
    static constexpr char kDefaultTree[] = R"({
        "version": {"schemaVersion": "1"},
        "system": {"writeAccess": "local", "config": {"writeAccess": "local", "name": "x"}, "status": {"name": "y"},
                   "clock": {"writeAccess": "openAll", "offset": 0}, "time": {"writeAccess": "openAll", "currentTime": "t"}, "empty": []},
        "devices": [{"id": 0, "writeAccess": "openAll", "maxItems": 5}, {"id": 1, "temp": 20}, {"id": 2}],
        "labels": ["a", "b"],
        "usb": {"doNotPersist": true, "state": "unmounted"},
        "logs": {"sizer": {"text": "long"}}
    })";

    explicit QoServiceFixture(bool statistics = false, QoMonotonicClock clock = qo_pushpull_get_timestamp) {
        for (const auto& entry : std::filesystem::directory_iterator(QO_DATA_DIRECTORY))
            if (entry.is_regular_file()) std::filesystem::remove(entry);
        std::ofstream(std::filesystem::path(QO_DEFAULTS_DIRECTORY) / QO_DEFAULTS_FILE) << kDefaultTree;
        service_ = std::make_unique<PushPullData>(statistics, clock);
        service_->init("");
        log_.clear();
    }
    ~QoServiceFixture() override { end_service(); }

    /// For a test of a service of its own, which cannot have the queue before.
    void end_service() {
        if (service_) service_->terminate();
        service_.reset();
    }

    QoLogCapture log_;
    QoShellCapture shell_;
    const QoScratchQueue service_queue_{QO_SERVICE_QUEUE_NAME, 8, 8192};
    std::unique_ptr<PushPullData> service_;
};

#endif
