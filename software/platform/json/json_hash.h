/// Keyed hash of member names.
#ifndef QO_JSON_HASH_H
#define QO_JSON_HASH_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qo_json {

struct HashKey {
    uint64_t low;
    uint64_t high;
};

/// SipHash-2-4 of `bytes`.
uint64_t siphash(const HashKey& key, std::string_view bytes);

/// Hashes with a key drawn once per process: whoever writes a message cannot choose names that collide.
struct NameHash {
    size_t operator()(std::string_view name) const;
};

}  // namespace qo_json

#endif
