/// The memory of the JSON reader and writer, which do not look whether they got it.
#ifndef QO_JSON_ALLOCATOR_H
#define QO_JSON_ALLOCATOR_H

#include <cstddef>
#include <cstdlib>
#include <new>

namespace qo_json {

/// realloc() that throws std::bad_alloc.
inline void* reallocate(void* bytes, size_t size) {
    void* grown = std::realloc(bytes, size);
    if (grown == nullptr) throw std::bad_alloc();
    return grown;
}

/// Names and shapes are RapidJSON's.
class Allocator {
public:
    static constexpr bool kNeedFree = true;
    void* Malloc(size_t size) { return size == 0 ? nullptr : reallocate(nullptr, size); }
    void* Realloc(void* bytes, size_t, size_t size) {
        if (size != 0) return reallocate(bytes, size);
        Free(bytes);
        return nullptr;
    }
    static void Free(void* bytes) { std::free(bytes); }
};

}  // namespace qo_json

#endif
