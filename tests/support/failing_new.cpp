// The operator new that fails when a test asks for it.
#include "failing_new.h"

#include <cstdlib>
#include <new>

namespace {

constexpr size_t kNever = static_cast<size_t>(-1);

thread_local size_t calls_left = kNever;  // before the one that fails
thread_local bool failed = false;

void* allocate(size_t size) {
    if (calls_left != kNever && calls_left-- == 0) {
        failed = true;
        return nullptr;
    }
    return std::malloc(size == 0 ? 1 : size);
}

}  // namespace

QoFailingNew::QoFailingNew(size_t number) {
    failed = false;
    calls_left = number;
}

QoFailingNew::~QoFailingNew() { calls_left = kNever; }

bool QoFailingNew::has_failed() { return failed; }

void* operator new(size_t size) {
    if (void* memory = allocate(size); memory != nullptr) return memory;
    throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, size_t) noexcept { std::free(memory); }
