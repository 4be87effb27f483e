// Preloaded into a service under test: fails the calls that the plan in the shared page picks (fault_plan.h). Allocates
// nothing, takes no lock and calls nothing that it replaces, so that it also serves inside malloc(). What the C library
// calls inside itself does not come by here: fopen() is seen, but not the open() in it.
#include <dlfcn.h>
#include <errno.h>
#include <execinfo.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

// Of these only what is not replaced below.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <utility>

#include "fault_plan.h"

namespace {

QoFaultPlan* plan = nullptr;
// Taking a stack may allocate.
__attribute__((tls_model("initial-exec"))) thread_local bool inside = false;

/// The function that this library stands in front of.
template <typename Function>
class Next;
template <typename Result, typename... Arguments>
class Next<Result(Arguments...)> {
public:
    explicit constexpr Next(const char* name) : name_(name) {}
    Result operator()(Arguments... arguments) {
        auto* function = function_.load(std::memory_order_acquire);
        if (function == nullptr) {
            function = reinterpret_cast<Result (*)(Arguments...)>(dlsym(RTLD_NEXT, name_));
            function_.store(function, std::memory_order_release);
        }
        return function(arguments...);
    }

private:
    const char* name_;
    std::atomic<Result (*)(Arguments...)> function_ = nullptr;
};

/// Where a call goes to: paths, or a descriptor whose path is looked up when a rule wants to know it.
class Place {
public:
    Place() = default;
    Place(const char* path, const char* second = nullptr) : path_(path), second_(second) {}
    Place(int descriptor) : descriptor_(descriptor) {}
    Place(FILE* stream) : descriptor_(stream == nullptr ? -1 : fileno(stream)) {}

    bool has(const char* text) {
        look_up();
        return (path_ != nullptr && strstr(path_, text) != nullptr) ||
               (second_ != nullptr && strstr(second_, text) != nullptr);
    }
    const char* path() {
        look_up();
        return path_ == nullptr ? "" : path_;
    }

private:
    void look_up() {
        if (path_ != nullptr || descriptor_ < 0) return;
        char link[40] = "/proc/self/fd/";
        char digits[12];
        size_t count = 0;
        for (int rest = descriptor_; count == 0 || rest > 0; rest /= 10)
            digits[count++] = static_cast<char>('0' + rest % 10);
        char* end = link + strlen(link);
        while (count > 0) *end++ = digits[--count];
        const int before = errno;
        const long length = syscall(SYS_readlinkat, AT_FDCWD, link, text_, sizeof text_ - 1);
        errno = before;
        text_[length > 0 ? length : 0] = '\0';
        path_ = text_;
    }

    const char* path_ = nullptr;
    const char* second_ = nullptr;
    int descriptor_ = -1;
    char text_[256] = {};
};

struct Decision {
    enum class Act { kMake, kFail, kShort, kLie, kHasten } act = Act::kMake;
    int error = 0;
    uint32_t milliseconds = 0;

    bool fails() const { return act == Act::kFail; }
    bool lies() const { return act == Act::kLie; }
    size_t size(size_t asked) const { return act == Act::kShort && asked > 1 ? asked / 2 : asked; }
};

int usual_error(QoFaultCall call) {
    switch (call) {
        case kQoAllocate:
        case kQoMap:
            return ENOMEM;
        case kQoWrite:
        case kQoTruncate:
            return ENOSPC;
        case kQoThread:
            return EAGAIN;
        default:
            return EIO;
    }
}

void copy_text(char* to, size_t size, const char* from) {
    size_t length = 0;
    for (; length + 1 < size && from[length] != '\0'; ++length) to[length] = from[length];
    to[length] = '\0';
}

// "FILE+0xOFFSET"
void describe(char* text, size_t size, void* address) {
    Dl_info file{};
    if (dladdr(address, &file) == 0) return;
    copy_text(text, size - 12, file.dli_fname);
    char* end = text + strlen(text);
    *end++ = '+';
    *end++ = '0';
    *end++ = 'x';
    const auto offset = static_cast<size_t>(static_cast<char*>(address) - static_cast<char*>(file.dli_fbase));
    for (int digit = 7; digit >= 0; --digit) *end++ = "0123456789abcdef"[offset >> (4 * digit) & 15];
    *end = '\0';
}

void record_stack(QoFaultRule& rule) {
    constexpr int kOwn = 3;  // this function, record() and decide()
    constexpr int kWanted = sizeof rule.stack / sizeof *rule.stack;
    void* callers[kOwn + kWanted];
    inside = true;
    rule.depth = backtrace(callers, kOwn + kWanted) - kOwn;
    for (int i = 0; i < rule.depth; ++i) describe(rule.stack[i], sizeof *rule.stack, callers[kOwn + i]);
    inside = false;
}

void record(QoFaultRule& rule, QoFaultCall call, const char* function, Place& place) {
    rule.kind = call;
    copy_text(rule.function, sizeof rule.function, function);
    copy_text(rule.place, sizeof rule.place, place.path());
    if (plan->wants_stack != 0) record_stack(rule);
    ++rule.hits;
}

bool matches(const QoFaultRule& rule, QoFaultCall call, Place& place) {
    if ((rule.calls & call) == 0) return false;
    if (rule.threads != QoFaultThreads::kAny &&
        (rule.threads == QoFaultThreads::kMain) != (syscall(SYS_gettid) == syscall(SYS_getpid)))
        return false;
    return rule.path[0] == '\0' || place.has(rule.path);
}

void wait(uint32_t milliseconds) {
    timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) continue;
}

Decision decision_of(const QoFaultRule& rule, QoFaultCall call) {
    switch (rule.act) {
        case QoFaultAct::kFail:
            return {Decision::Act::kFail, rule.error != 0 ? rule.error : usual_error(call)};
        case QoFaultAct::kShort:
            return {Decision::Act::kShort, 0};
        case QoFaultAct::kLie:
            return {Decision::Act::kLie, 0};
        case QoFaultAct::kSlow:
            wait(rule.milliseconds);
            return {};
        case QoFaultAct::kHasten:
            return {Decision::Act::kHasten, 0, rule.milliseconds};
    }
    return {};
}

Decision decide(QoFaultCall call, const char* function, Place place) {
    Decision decision;
    if (plan == nullptr || inside || plan->armed == 0) return decision;
    const int before = errno;
    for (QoFaultRule& rule : plan->rules) {
        if (!matches(rule, call, place)) continue;
        const uint64_t number = rule.seen.fetch_add(1);
        const bool free = decision.act == Decision::Act::kMake || decision.act == Decision::Act::kHasten;
        if (number < rule.first || number > rule.last || !free) continue;
        record(rule, call, function, place);
        decision = decision_of(rule, call);
    }
    errno = decision.fails() ? decision.error : before;
    return decision;
}

// Commands that the service runs are not to be meant.
void leave_environment() {
    unsetenv("LD_PRELOAD");
    unsetenv(kQoFaultPageVariable);
}

__attribute__((constructor)) void attach() {
    const char* path = getenv(kQoFaultPageVariable);
    if (path == nullptr) return;
    const int file = open(path, O_RDWR | O_CLOEXEC);
    if (file < 0) abort();
    void* page = mmap(nullptr, sizeof(QoFaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (page == MAP_FAILED) abort();
    syscall(SYS_close, file);
    void* stack[4];
    backtrace(stack, 4);  // loads what it needs now
    leave_environment();
    auto* attached = static_cast<QoFaultPlan*>(page);
    attached->attached = static_cast<uint32_t>(syscall(SYS_getpid));
    plan = attached;
}

}  // namespace

// Replaces the function `name`. The declarations of the headers are not met: the name is given to the assembler only.
#define QO_REPLACE(result, name, parameters)                                                            \
    namespace {                                                                                         \
    constinit Next<result parameters> next_##name(#name);                                               \
    }                                                                                                   \
    extern "C" __attribute__((visibility("default"))) result qo_fault_##name parameters __asm__(#name); \
    result qo_fault_##name parameters

// A function that is made or not.
#define QO_HOOK(result, name, parameters, arguments, call, place, failed) \
    QO_REPLACE(result, name, parameters) {                                \
        const Decision decision = decide(call, #name, place);             \
        if (decision.fails()) return failed;                              \
        if (decision.lies()) return {};                                   \
        return next_##name arguments;                                     \
    }

// A function for which a lie would leave the caller with nothing to hold: it is made.
#define QO_MAKING_HOOK(result, name, parameters, arguments, call, place, failed) \
    QO_REPLACE(result, name, parameters) {                                       \
        if (decide(call, #name, place).fails()) return failed;                   \
        return next_##name arguments;                                            \
    }

// A function that moves `size` bytes. `lie` is what it claims to have moved.
#define QO_MOVING_HOOK(name, parameters, arguments, call, place, lie) \
    QO_REPLACE(ssize_t, name, parameters) {                           \
        const Decision decision = decide(call, #name, place);         \
        if (decision.fails()) return -1;                              \
        if (decision.lies()) return static_cast<ssize_t>(lie);        \
        size = decision.size(size);                                   \
        return next_##name arguments;                                 \
    }

// ---- open ----

namespace {
// The mode is there only where a file may be made.
bool has_mode(int flags) { return (flags & (O_CREAT | O_TMPFILE)) != 0; }
}  // namespace

#define QO_OPEN(name)                                                                                            \
    namespace {                                                                                                  \
    constinit Next<int(const char*, int, unsigned)> next_##name(#name);                                          \
    }                                                                                                            \
    extern "C" __attribute__((visibility("default"))) int qo_fault_##name(const char*, int, ...) __asm__(#name); \
    int qo_fault_##name(const char* path, int flags, ...) {                                                      \
        va_list list;                                                                                            \
        va_start(list, flags);                                                                                   \
        const unsigned mode = has_mode(flags) ? va_arg(list, unsigned) : 0;                                      \
        va_end(list);                                                                                            \
        return decide(kQoOpen, #name, path).fails() ? -1 : next_##name(path, flags, mode);                       \
    }
QO_OPEN(open)
QO_OPEN(open64)

#define QO_OPENAT(name)                                                                                               \
    namespace {                                                                                                       \
    constinit Next<int(int, const char*, int, unsigned)> next_##name(#name);                                          \
    }                                                                                                                 \
    extern "C" __attribute__((visibility("default"))) int qo_fault_##name(int, const char*, int, ...) __asm__(#name); \
    int qo_fault_##name(int folder, const char* path, int flags, ...) {                                               \
        va_list list;                                                                                                 \
        va_start(list, flags);                                                                                        \
        const unsigned mode = has_mode(flags) ? va_arg(list, unsigned) : 0;                                           \
        va_end(list);                                                                                                 \
        return decide(kQoOpen, #name, path).fails() ? -1 : next_##name(folder, path, flags, mode);                    \
    }
QO_OPENAT(openat)
QO_OPENAT(openat64)

QO_MAKING_HOOK(int, __open_2, (const char* path, int flags), (path, flags), kQoOpen, path, -1)
QO_MAKING_HOOK(int, __open64_2, (const char* path, int flags), (path, flags), kQoOpen, path, -1)
QO_MAKING_HOOK(int, __openat_2, (int folder, const char* path, int flags), (folder, path, flags), kQoOpen, path, -1)
QO_MAKING_HOOK(int, __openat64_2, (int folder, const char* path, int flags), (folder, path, flags), kQoOpen, path, -1)
QO_MAKING_HOOK(int, creat, (const char* path, unsigned mode), (path, mode), kQoOpen, path, -1)
QO_MAKING_HOOK(int, creat64, (const char* path, unsigned mode), (path, mode), kQoOpen, path, -1)
QO_MAKING_HOOK(FILE*, fopen, (const char* path, const char* mode), (path, mode), kQoOpen, path, nullptr)
QO_MAKING_HOOK(FILE*, fopen64, (const char* path, const char* mode), (path, mode), kQoOpen, path, nullptr)

// ---- read and write ----

QO_MOVING_HOOK(read, (int file, void* to, size_t size), (file, to, size), kQoRead, file, 0)
QO_MOVING_HOOK(__read_chk, (int file, void* to, size_t size, size_t room), (file, to, size, room), kQoRead, file, 0)
QO_MOVING_HOOK(pread, (int file, void* to, size_t size, off_t at), (file, to, size, at), kQoRead, file, 0)
QO_MOVING_HOOK(pread64, (int file, void* to, size_t size, off64_t at), (file, to, size, at), kQoRead, file, 0)
QO_HOOK(ssize_t, readv, (int file, const void* parts, int count), (file, parts, count), kQoRead, file, -1)

QO_MOVING_HOOK(write, (int file, const void* from, size_t size), (file, from, size), kQoWrite, file, size)
QO_MOVING_HOOK(pwrite, (int file, const void* from, size_t size, off_t at), (file, from, size, at), kQoWrite, file,
               size)
QO_MOVING_HOOK(pwrite64, (int file, const void* from, size_t size, off64_t at), (file, from, size, at), kQoWrite, file,
               size)
QO_HOOK(ssize_t, writev, (int file, const void* parts, int count), (file, parts, count), kQoWrite, file, -1)

// A stream remembers that it failed.
namespace {
constexpr int kErrorSeen = 0x20;
}
QO_REPLACE(size_t, fread, (void* to, size_t unit, size_t count, FILE* stream)) {
    const Decision decision = decide(kQoRead, "fread", stream);
    if (decision.fails()) stream->_flags |= kErrorSeen;
    if (decision.fails() || decision.lies()) return 0;
    return next_fread(to, unit, decision.size(count), stream);
}
QO_REPLACE(size_t, fwrite, (const void* from, size_t unit, size_t count, FILE* stream)) {
    const Decision decision = decide(kQoWrite, "fwrite", stream);
    if (decision.fails()) stream->_flags |= kErrorSeen;
    if (decision.fails()) return 0;
    if (decision.lies()) return count;
    return next_fwrite(from, unit, decision.size(count), stream);
}
QO_HOOK(int, fflush, (FILE * stream), (stream), kQoWrite, stream, EOF)

// ---- what reaches the disk, and under which name ----

QO_HOOK(int, fsync, (int file), (file), kQoSync, file, -1)
QO_HOOK(int, fdatasync, (int file), (file), kQoSync, file, -1)
QO_HOOK(int, syncfs, (int file), (file), kQoSync, file, -1)
QO_REPLACE(void, sync, ()) {
    if (decide(kQoSyncAll, "sync", Place()).act == Decision::Act::kMake) next_sync();
}
QO_HOOK(int, rename, (const char* from, const char* to), (from, to), kQoRename, Place(from, to), -1)
QO_HOOK(int, renameat, (int folder, const char* from, int other, const char* to), (folder, from, other, to), kQoRename,
        Place(from, to), -1)
QO_HOOK(int, renameat2, (int folder, const char* from, int other, const char* to, unsigned flags),
        (folder, from, other, to, flags), kQoRename, Place(from, to), -1)
QO_HOOK(int, link, (const char* from, const char* to), (from, to), kQoLink, Place(from, to), -1)
QO_HOOK(int, linkat, (int folder, const char* from, int other, const char* to, int flags),
        (folder, from, other, to, flags), kQoLink, Place(from, to), -1)
QO_HOOK(int, symlink, (const char* from, const char* to), (from, to), kQoLink, Place(from, to), -1)
QO_HOOK(int, unlink, (const char* path), (path), kQoUnlink, path, -1)
QO_HOOK(int, unlinkat, (int folder, const char* path, int flags), (folder, path, flags), kQoUnlink, path, -1)
QO_HOOK(int, remove, (const char* path), (path), kQoUnlink, path, -1)
QO_HOOK(int, rmdir, (const char* path), (path), kQoUnlink, path, -1)
QO_HOOK(int, truncate, (const char* path, off_t size), (path, size), kQoTruncate, path, -1)
QO_HOOK(int, truncate64, (const char* path, off64_t size), (path, size), kQoTruncate, path, -1)
QO_HOOK(int, ftruncate, (int file, off_t size), (file, size), kQoTruncate, file, -1)
QO_HOOK(int, ftruncate64, (int file, off64_t size), (file, size), kQoTruncate, file, -1)
QO_HOOK(int, chmod, (const char* path, unsigned mode), (path, mode), kQoMode, path, -1)
QO_HOOK(int, fchmod, (int file, unsigned mode), (file, mode), kQoMode, file, -1)
QO_HOOK(int, chown, (const char* path, unsigned user, unsigned group), (path, user, group), kQoMode, path, -1)
QO_HOOK(int, fchown, (int file, unsigned user, unsigned group), (file, user, group), kQoMode, file, -1)
QO_HOOK(int, flock, (int file, int operation), (file, operation), kQoLock, file, -1)
QO_REPLACE(int, close, (int file)) {
    const bool fails = decide(kQoClose, "close", file).fails();
    const int error = errno;
    const int closed = next_close(file);
    if (!fails) return closed;
    errno = error;
    return -1;
}
QO_REPLACE(int, fclose, (FILE * stream)) {
    const bool fails = decide(kQoClose, "fclose", stream).fails();
    const int error = errno;
    const int closed = next_fclose(stream);
    if (!fails) return closed;
    errno = error;
    return EOF;
}

// ---- looking at files ----

QO_HOOK(int, stat, (const char* path, void* status), (path, status), kQoStat, path, -1)
QO_HOOK(int, stat64, (const char* path, void* status), (path, status), kQoStat, path, -1)
QO_HOOK(int, lstat, (const char* path, void* status), (path, status), kQoStat, path, -1)
QO_HOOK(int, lstat64, (const char* path, void* status), (path, status), kQoStat, path, -1)
QO_HOOK(int, fstat, (int file, void* status), (file, status), kQoStat, file, -1)
QO_HOOK(int, fstat64, (int file, void* status), (file, status), kQoStat, file, -1)
QO_HOOK(int, fstatat, (int folder, const char* path, void* status, int flags), (folder, path, status, flags), kQoStat,
        path, -1)
QO_HOOK(int, fstatat64, (int folder, const char* path, void* status, int flags), (folder, path, status, flags), kQoStat,
        path, -1)
QO_HOOK(int, __stat64_time64, (const char* path, void* status), (path, status), kQoStat, path, -1)
QO_HOOK(int, __lstat64_time64, (const char* path, void* status), (path, status), kQoStat, path, -1)
QO_HOOK(int, __fstat64_time64, (int file, void* status), (file, status), kQoStat, file, -1)
QO_HOOK(int, statx, (int folder, const char* path, int flags, unsigned mask, void* status),
        (folder, path, flags, mask, status), kQoStat, path, -1)
QO_HOOK(int, access, (const char* path, int mode), (path, mode), kQoStat, path, -1)
QO_HOOK(int, faccessat, (int folder, const char* path, int mode, int flags), (folder, path, mode, flags), kQoStat, path,
        -1)
QO_MAKING_HOOK(void*, opendir, (const char* path), (path), kQoDirectory, path, nullptr)
QO_MAKING_HOOK(void*, fdopendir, (int file), (file), kQoDirectory, file, nullptr)
QO_HOOK(void*, readdir, (void* folder), (folder), kQoDirectory, Place(), nullptr)
QO_HOOK(void*, readdir64, (void* folder), (folder), kQoDirectory, Place(), nullptr)
QO_HOOK(int, mkdir, (const char* path, unsigned mode), (path, mode), kQoDirectory, path, -1)

// ---- queues, timers, threads, sockets ----

namespace {
constinit Next<int(const char*, int, unsigned, void*)> next_mq_open("mq_open");
}
extern "C" __attribute__((visibility("default"))) int qo_fault_mq_open(const char*, int, ...) __asm__("mq_open");
int qo_fault_mq_open(const char* name, int flags, ...) {
    unsigned mode = 0;
    void* size = nullptr;
    if ((flags & O_CREAT) != 0) {
        va_list list;
        va_start(list, flags);
        mode = va_arg(list, unsigned);
        size = va_arg(list, void*);
        va_end(list);
    }
    return decide(kQoQueue, "mq_open", name).fails() ? -1 : next_mq_open(name, flags, mode, size);
}
QO_MAKING_HOOK(int, __mq_open_2, (const char* name, int flags), (name, flags), kQoQueue, name, -1)
QO_HOOK(int, mq_unlink, (const char* name), (name), kQoQueue, name, -1)
QO_MAKING_HOOK(int, mq_getattr, (int queue, void* size), (queue, size), kQoQueue, queue, -1)
QO_HOOK(int, mq_send, (int queue, const char* text, size_t size, unsigned priority), (queue, text, size, priority),
        kQoQueue, queue, -1)
QO_HOOK(int, mq_timedsend, (int queue, const char* text, size_t size, unsigned priority, const void* until),
        (queue, text, size, priority, until), kQoQueue, queue, -1)
QO_HOOK(int, __mq_timedsend_time64, (int queue, const char* text, size_t size, unsigned priority, const void* until),
        (queue, text, size, priority, until), kQoQueue, queue, -1)
QO_MAKING_HOOK(ssize_t, mq_receive, (int queue, char* text, size_t size, unsigned* priority),
               (queue, text, size, priority), kQoQueue, queue, -1)
QO_MAKING_HOOK(ssize_t, mq_timedreceive, (int queue, char* text, size_t size, unsigned* priority, const void* until),
               (queue, text, size, priority, until), kQoQueue, queue, -1)
QO_MAKING_HOOK(ssize_t, __mq_timedreceive_time64,
               (int queue, char* text, size_t size, unsigned* priority, const void* until),
               (queue, text, size, priority, until), kQoQueue, queue, -1)
QO_MAKING_HOOK(int, timer_create, (int clock, void* event, void* timer), (clock, event, timer), kQoTimer, Place(), -1)
QO_MAKING_HOOK(int, timer_gettime, (void* timer, void* time), (timer, time), kQoTimer, Place(), -1)
QO_MAKING_HOOK(int, __timer_gettime64, (void* timer, void* time), (timer, time), kQoTimer, Place(), -1)

namespace {

// As the kernel has it, and the C library of a 64-bit machine.
struct Time {
    int64_t seconds;
    int64_t nanoseconds;
};
struct TimerTime {
    Time interval;
    Time first;
};

Time hastened(const Time& time, uint32_t milliseconds) {
    if (time.seconds == 0 && time.nanoseconds == 0) return time;
    return {milliseconds / 1000, int64_t{milliseconds % 1000} * 1000000};
}

}  // namespace

#define QO_TIMER(name)                                                                              \
    QO_REPLACE(int, name, (void* timer, int flags, const TimerTime* time, void* former)) {          \
        const Decision decision = decide(kQoTimer, #name, Place());                                 \
        if (decision.fails()) return -1;                                                            \
        if (decision.lies()) return 0;                                                              \
        if (decision.act != Decision::Act::kHasten) return next_##name(timer, flags, time, former); \
        const TimerTime soon{hastened(time->interval, decision.milliseconds),                       \
                             hastened(time->first, decision.milliseconds)};                         \
        return next_##name(timer, flags, &soon, former);                                            \
    }
#if __SIZEOF_POINTER__ == 8
QO_TIMER(timer_settime)
#else
QO_TIMER(__timer_settime64)
#endif

QO_MAKING_HOOK(int, pthread_create, (void* thread, const void* attributes, void* (*run)(void*), void* argument),
               (thread, attributes, run, argument), kQoThread, Place(), errno)
QO_MAKING_HOOK(int, socket, (int domain, int type, int protocol), (domain, type, protocol), kQoSocket, Place(), -1)
QO_HOOK(int, connect, (int file, const void* address, unsigned size), (file, address, size), kQoSocket, file, -1)
QO_MOVING_HOOK(send, (int file, const void* from, size_t size, int flags), (file, from, size, flags), kQoSocket, file,
               size)
QO_MOVING_HOOK(sendto, (int file, const void* from, size_t size, int flags, const void* to, unsigned length),
               (file, from, size, flags, to, length), kQoSocket, file, size)
QO_HOOK(ssize_t, sendmsg, (int file, const void* message, int flags), (file, message, flags), kQoSocket, file, -1)

// ---- memory ----

QO_MAKING_HOOK(void*, mmap, (void* at, size_t size, int protection, int flags, int file, off_t offset),
               (at, size, protection, flags, file, offset), kQoMap, file, MAP_FAILED)
QO_MAKING_HOOK(void*, mmap64, (void* at, size_t size, int protection, int flags, int file, off64_t offset),
               (at, size, protection, flags, file, offset), kQoMap, file, MAP_FAILED)

// Looking up the next function allocates, so these know it by its other name. A sanitizer has an allocator of its own.
#ifdef QO_FAULTS_OF_ALLOCATIONS
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void* __libc_memalign(size_t, size_t);
}

#define QO_ALLOCATION(name, parameters, arguments, real)                                               \
    extern "C" __attribute__((visibility("default"))) void* qo_fault_##name parameters __asm__(#name); \
    void* qo_fault_##name parameters { return decide(kQoAllocate, #name, Place()).fails() ? nullptr : real arguments; }
QO_ALLOCATION(malloc, (size_t size), (size), __libc_malloc)
QO_ALLOCATION(calloc, (size_t count, size_t size), (count, size), __libc_calloc)
QO_ALLOCATION(realloc, (void* block, size_t size), (block, size), __libc_realloc)
QO_ALLOCATION(memalign, (size_t alignment, size_t size), (alignment, size), __libc_memalign)
QO_ALLOCATION(aligned_alloc, (size_t alignment, size_t size), (alignment, size), __libc_memalign)

extern "C" __attribute__((visibility("default"))) int qo_fault_posix_memalign(void**, size_t,
                                                                              size_t) __asm__("posix_memalign");
int qo_fault_posix_memalign(void** block, size_t alignment, size_t size) {
    void* made = decide(kQoAllocate, "posix_memalign", Place()).fails() ? nullptr : __libc_memalign(alignment, size);
    if (made == nullptr) return ENOMEM;
    *block = made;
    return 0;
}
#endif
