// The search for the subscribers of a publish.
#include "qo_pushpull_subscriber_index.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "qo_pushpull_json.h"

bool qo_is_subscriber_entry(const JSONNODE* member) {
    if (json_type(member) != JSON_NUMBER) return false;
    const std::string_view name = qo_json_name(member);
    return name == "cmpID" || name == "notifyOnChangeOnly";
}

JSONNODE* qo_find_shadow(const JSONNODE* shadow, std::string_view name) {
    JSONNODE* found = qo_json_find(shadow, name);
    return found != nullptr && qo_is_subscriber_entry(found) ? nullptr : found;
}

// ---- entries ----

void QoSubscriberIndex::clear() { places_.clear(); }

void QoSubscriberIndex::make_room(const Path& path) {
    for (JSONNODE* shadow : path) places_.try_emplace(shadow);
    Place& place = places_.find(path.back())->second;
    place.subscribers.reserve(place.subscribers.size() + 1);
    if (place.subscribers.empty()) place.above.assign(path.begin(), path.end() - 1);
}

void QoSubscriberIndex::add(const Path& path, QoSubscriber subscriber) noexcept {
    Place& place = places_.find(path.back())->second;
    place.subscribers.push_back(subscriber);
    if (place.subscribers.size() > 1) return;
    for (const JSONNODE* above : place.above) ++places_.find(above)->second.subscribed_below;
}

void QoSubscriberIndex::remove(const JSONNODE* shadow, eQO_CMP_IDs_ comp_id) noexcept {
    const auto entry = places_.find(shadow);
    if (entry == places_.end()) return;
    Place& place = entry->second;
    const auto is_of = [comp_id](const QoSubscriber& subscriber) { return subscriber.comp_id == comp_id; };
    if (std::erase_if(place.subscribers, is_of) == 0 || !place.subscribers.empty()) return;
    const Path above = std::move(place.above);
    forget_if_empty(shadow);
    for (const JSONNODE* each : above) {
        --places_.find(each)->second.subscribed_below;
        forget_if_empty(each);
    }
}

void QoSubscriberIndex::forget_if_empty(const JSONNODE* shadow) noexcept {
    const auto entry = places_.find(shadow);
    if (entry->second.subscribers.empty() && entry->second.subscribed_below == 0) places_.erase(entry);
}

// ---- the search ----

std::span<const QoSubscriber> QoSubscriberIndex::find(JSONNODE* published, const JSONNODE* subscription_tree) {
    ++searches_;
    found_.clear();
    // Whole-tree subscribers hear of every publish.
    if (const auto root = places_.find(subscription_tree); root != places_.end()) {
        find_at(root->second);
        if (root->second.subscribed_below > 0) find_below(published, subscription_tree);
    }
    return found_;
}

// Recursive: as deep as the subscription tree. Only for shadow nodes with subscribed ones below them.
void QoSubscriberIndex::find_below(JSONNODE* published, const JSONNODE* shadow) {
    for (JSONNODE* member : QoJsonChildren(published)) {
        const JSONNODE* below = qo_find_shadow(shadow, qo_json_name(member));
        const auto entry = below == nullptr ? places_.end() : places_.find(below);
        if (entry == places_.end()) continue;
        find_at(entry->second);
        if (entry->second.subscribed_below == 0) continue;
        if (json_type(member) != JSON_ARRAY) {
            find_below(member, below);
            continue;
        }
        for (JSONNODE* element : QoJsonChildren(member)) find_below(element, below);
    }
}

void QoSubscriberIndex::find_at(Place& place) {
    if (std::exchange(place.last_search, searches_) == searches_) return;
    const bool are_first = found_.empty();
    for (const QoSubscriber& subscriber : place.subscribers)
        if (are_first || std::find(found_.begin(), found_.end(), subscriber) == found_.end())
            found_.push_back(subscriber);
}
