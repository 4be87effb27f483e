/// Finds the members of a large object by name.
#ifndef QO_JSON_INDEX_H
#define QO_JSON_INDEX_H

#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "json_hash.h"
#include "qo_json.h"

namespace qo_json {

/// Knows every child of one object by its name, namesakes in their order. Refers to the children and their names
/// without owning them: a child is removed before its name changes or it leaves the object.
class NameIndex {
public:
    /// Children from which on an object is worth an index: a shorter list is scanned as fast.
    static constexpr size_t kWorthwhileSize = 16;

    explicit NameIndex(const std::vector<JSONNODE*>& children);

    /// The first child of that name, null when there is none.
    JSONNODE* find(std::string_view name) const;
    /// Adds a child that stands behind all others.
    void append(JSONNODE* child);
    /// Adds a child that stands anywhere in `children`. Looks for its place only when it has namesakes.
    void add(JSONNODE* child, const std::vector<JSONNODE*>& children);
    void remove(const JSONNODE* child);
    /// Whether a name occurs more than once. May be true for a while after that has ended.
    bool has_namesakes() const { return has_namesakes_; }

private:
    struct Namesakes {
        JSONNODE* first;
        std::vector<JSONNODE*> others;  // in the order of the children, nearly always empty
    };
    // The key is the name inside the first of the namesakes.
    using Map = std::unordered_map<std::string_view, Namesakes, NameHash>;

    void change_first(Map::iterator entry, JSONNODE* first);

    Map map_;
    bool has_namesakes_ = false;
};

}  // namespace qo_json

#endif
