// Builds an object from the inside out.
#include "qo_ctl_fragment.h"

#include <charconv>
#include <utility>

namespace {

constexpr size_t kMostDigits = 9;

int64_t position_of(std::string_view segment) {
    int64_t position = 0;
    std::from_chars(segment.data(), segment.data() + segment.size(), position);
    return position;
}

}  // namespace

bool qo_ctl_may_be_position(std::string_view segment) {
    return !segment.empty() && segment.size() <= kMostDigits &&
           segment.find_first_not_of("0123456789") == std::string_view::npos;
}

QoJsonNode qo_ctl_fragment(const QoCtlPath& path, const std::vector<bool>& is_position, QoJsonNode value) {
    for (size_t i = path.size(); i-- > 0;) {
        QoJsonNode outer(json_new(is_position[i] ? JSON_ARRAY : JSON_NODE));
        // An element says itself where it stands; one that was given as a whole may say so already.
        if (is_position[i] && json_find(value.get(), "id") == nullptr)
            json_push_back(value.get(), json_new_i("id", position_of(path[i])));
        if (!is_position[i]) json_set_name_n(value.get(), path[i].data(), path[i].size());
        qo_json_push_back(outer.get(), std::move(value));
        value = std::move(outer);
    }
    return value;
}
