// Adds up the texts of a tree from the leaves on.
#include "qo_ctl_sizes.h"

#include <algorithm>

#include "qo_ctl_difference.h"
#include "qo_pushpull_json.h"

namespace {

class Sizes {
public:
    size_t measure(JSONNODE* node) {
        if (!qo_json_is_container(node) || json_empty(node) == 1) return qo_json_write(node).size();
        size_t bytes = 1 + json_size(node);  // two brackets, and a comma between two children
        size_t position = 0;
        for (JSONNODE* child : QoJsonChildren(node)) {
            const bool in_array = json_type(node) == JSON_ARRAY;
            const std::string_view name = qo_json_name(child);
            if (!in_array) bytes += json_written_length(name.data(), name.size()) + 3;  // quotes and colon
            path_.emplace_back(in_array ? std::to_string(position++) : std::string(name));
            bytes += measure(child);
            path_.pop_back();
        }
        sizes_.push_back({qo_ctl_pointer(path_), bytes, json_size(node)});
        return bytes;
    }
    std::vector<QoCtlSize> take() { return std::move(sizes_); }

private:
    QoCtlPath path_;
    std::vector<QoCtlSize> sizes_;
};

}  // namespace

std::vector<QoCtlSize> qo_ctl_sizes(JSONNODE* tree) {
    Sizes walk;
    walk.measure(tree);
    std::vector<QoCtlSize> sizes = walk.take();
    std::stable_sort(sizes.begin(), sizes.end(),
                     [](const QoCtlSize& a, const QoCtlSize& b) { return a.bytes > b.bytes; });
    return sizes;
}
