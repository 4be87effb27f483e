/// Finds whom a publish concerns without a look at what nobody has subscribed to.
#ifndef QO_PUSHPULL_SUBSCRIBER_INDEX_H
#define QO_PUSHPULL_SUBSCRIBER_INDEX_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "qo_component_ids.h"
#include "qo_json.h"

/// Who is to be told of a publish, and in which mode.
struct QoSubscriber {
    eQO_CMP_IDs_ comp_id;
    bool changes_only;
    friend bool operator==(const QoSubscriber&, const QoSubscriber&) = default;
};

/// Repeats the entries of a subscription tree, whose nodes it refers to: they have to live until clear(). One thread.
class QoSubscriberIndex {
public:
    /// The shadow nodes from the root of the subscription tree to the one that has the entry.
    using Path = std::vector<JSONNODE*>;

    void clear();
    /// Before an add() of one entry there, which then cannot fail. Throws std::bad_alloc, without effect on searches.
    void make_room(const Path& path);
    void add(const Path& path, QoSubscriber subscriber) noexcept;
    /// Removes the entries of a component from one shadow node.
    void remove(const JSONNODE* shadow, eQO_CMP_IDs_ comp_id) noexcept;
    /// Whether the shadow node or one below it has an entry.
    bool has_entries_in(const JSONNODE* shadow) const { return places_.contains(shadow); }

    /// Those whom a publish of that tree concerns, in the order in which they are met and each once per mode. The list
    /// lives until the next search. In time proportional to the parts of the published tree below which somebody
    /// subscribed.
    std::span<const QoSubscriber> find(JSONNODE* published, const JSONNODE* subscription_tree);
    /// What the last search found.
    std::span<const QoSubscriber> found() const { return found_; }

private:
    /// A shadow node that has entries, or has such below it.
    struct Place {
        std::vector<QoSubscriber> subscribers;  // its entries, in their order
        Path above;                             // from the root, without itself; set while there are entries
        size_t subscribed_below = 0;            // shadow nodes with entries
        uint64_t last_search = 0;               // that has collected the entries
    };

    void find_at(Place& place);
    void find_below(JSONNODE* published, const JSONNODE* shadow);
    void forget_if_empty(const JSONNODE* shadow) noexcept;

    std::unordered_map<const JSONNODE*, Place> places_;
    std::vector<QoSubscriber> found_;
    uint64_t searches_ = 0;
};

/// Whether a member of a shadow node is a subscriber's entry. A default tree may have objects of the names of entries,
/// whose shadows are objects: an entry is a number.
bool qo_is_subscriber_entry(const JSONNODE* member);

/// The shadow node of that name below `shadow`, or null. Shadow nodes are all older than the entries beside them, so
/// the first member of a name tells whether there is one.
JSONNODE* qo_find_shadow(const JSONNODE* shadow, std::string_view name);

#endif
