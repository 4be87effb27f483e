// The index of a large object's members.
#include "json_index.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "json_node.h"

namespace qo_json {

NameIndex::NameIndex(const std::vector<JSONNODE*>& children) {
    map_.reserve(children.size());
    for (JSONNODE* child : children) append(child);
}

JSONNODE* NameIndex::find(std::string_view name) const {
    const auto entry = map_.find(name);
    return entry == map_.end() ? nullptr : entry->second.first;
}

void NameIndex::append(JSONNODE* child) {
    const auto [entry, is_new] = map_.try_emplace(child->name.view(), Namesakes{child, {}});
    if (is_new) return;
    entry->second.others.push_back(child);
    has_namesakes_ = true;
}

void NameIndex::add(JSONNODE* child, const std::vector<JSONNODE*>& children) {
    const auto [entry, is_new] = map_.try_emplace(child->name.view(), Namesakes{child, {}});
    if (is_new) return;
    has_namesakes_ = true;

    // Namesakes that stand before the child; only pointers are compared, as cheaply as the list itself is moved.
    auto& [first, others] = entry->second;
    size_t before = 0;
    for (const JSONNODE* other : children) {
        if (other == child || before > others.size()) break;
        if (other == (before == 0 ? first : others[before - 1])) ++before;
    }
    if (before > 0) {
        others.insert(others.begin() + static_cast<std::ptrdiff_t>(before - 1), child);
        return;
    }
    others.insert(others.begin(), first);
    change_first(entry, child);
}

void NameIndex::remove(const JSONNODE* child) {
    const auto entry = map_.find(child->name.view());
    if (entry == map_.end()) return;
    auto& [first, others] = entry->second;
    if (first != child) {
        // From the end, because a list that is emptied from its end is the longest there is.
        others.erase(std::next(std::find(others.rbegin(), others.rend(), child)).base());
    } else if (others.empty()) {
        map_.erase(entry);
    } else {
        JSONNODE* next = others.front();
        others.erase(others.begin());
        change_first(entry, next);
    }
}

void NameIndex::change_first(Map::iterator entry, JSONNODE* first) {
    auto handle = map_.extract(entry);
    handle.key() = first->name.view();
    handle.mapped().first = first;
    map_.insert(std::move(handle));
}

}  // namespace qo_json
