/// Memory for one message. Header only.
#ifndef QO_PUSHPULL_RECEIVE_BUFFER_H
#define QO_PUSHPULL_RECEIVE_BUFFER_H

#include <sys/mman.h>

#include <cstddef>
#include <cstring>
#include <new>

/// Zeroed pages from the kernel, which takes none of them before they are written to: most messages are short.
class QoReceiveBuffer {
public:
    explicit QoReceiveBuffer(size_t size)
        : size_(size), start_(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        if (start_ == MAP_FAILED) throw std::bad_alloc();
    }
    ~QoReceiveBuffer() { munmap(start_, size_); }
    QoReceiveBuffer(const QoReceiveBuffer&) = delete;
    QoReceiveBuffer& operator=(const QoReceiveBuffer&) = delete;

    char* data() { return static_cast<char*>(start_); }
    /// Zeroes the buffer behind a message of so many bytes; the pages of a large one go back to the kernel.
    void clear(size_t used) {
        // The kernel zeroes as well, and is asked when there is enough to be gained.
        if (used < kWorthGivingBack || madvise(start_, size_, MADV_DONTNEED) != 0) memset(start_, 0, used);
    }

private:
    static constexpr size_t kWorthGivingBack = size_t{64} * 1024;  // bytes

    const size_t size_;
    void* const start_;
};

#endif
