/// What is asked of the service where its cost is counted.
#ifndef QO_BENCH_OPERATIONS_H
#define QO_BENCH_OPERATIONS_H

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "counted_service.h"

struct QoOperation {
    std::string name;
    int plays;  // that are counted, and as many before
    std::function<std::unique_ptr<QoScene>(QoCountedService&)> scene;
};

/// All operations that have a budget, but those of the client library.
const std::vector<QoOperation>& qo_operations();

/// Values of one kind to publish, '#' standing for a digit that differs from publish to publish.
std::string qo_with_turn(std::string text, int turn);

/// 186 bytes of measurements of the built-in tree.
std::string qo_small_body();
/// One string of the built-in tree, long enough that the body has this many bytes.
std::string qo_string_body(size_t size);
/// As many members of one object of the built-in tree as fit into this many bytes.
std::string qo_members_body(size_t size);

/// One component publishes, others are told.
class QoPublishing : public QoScene {
public:
    struct Subscribers {
        int count = 1;
        bool on_change_only = false;
        std::string pointer = "/system";
    };
    /// @param body with its '#'
    QoPublishing(QoCountedService& service, eQO_CMP_IDs_ publisher, std::string body, Subscribers subscribers);
    void play(int turn) override;

private:
    QoCountedService& service_;
    std::string body_;
    Component publisher_;
    std::vector<std::unique_ptr<Component>> subscribers_;
};

#endif
