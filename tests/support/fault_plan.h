/// What a test and the preloaded fault injector share: a page of memory, mapped from a file by both. The test fills in
/// the rules and arms them; the injector counts the calls and fails those that a rule picks. See faults.h for the use.
#ifndef QO_TEST_FAULT_PLAN_H
#define QO_TEST_FAULT_PLAN_H

#include <atomic>
#include <cstdint>

/// Names the page for the injector. Without it the injector does nothing.
inline constexpr char kQoFaultPageVariable[] = "QO_FAULT_PAGE";

/// Groups of functions. Each also stands for its relatives with 64-bit offsets or a directory's descriptor.
enum QoFaultCall : uint32_t {
    kQoOpen = 1U << 0,        // open, creat, fopen
    kQoRead = 1U << 1,        // read, pread, readv, fread
    kQoWrite = 1U << 2,       // write, pwrite, writev, fwrite, fflush
    kQoSync = 1U << 3,        // fsync, fdatasync, syncfs
    kQoRename = 1U << 4,      // rename
    kQoLink = 1U << 5,        // link, symlink
    kQoUnlink = 1U << 6,      // unlink, remove, rmdir
    kQoMap = 1U << 7,         // mmap
    kQoTruncate = 1U << 8,    // truncate, ftruncate
    kQoMode = 1U << 9,        // chmod, fchmod, chown, fchown
    kQoClose = 1U << 10,      // close, fclose: closed, and the failure is reported
    kQoStat = 1U << 11,       // stat, lstat, fstat, statx, access
    kQoDirectory = 1U << 12,  // opendir, fdopendir, readdir, mkdir
    kQoLock = 1U << 13,       // flock
    kQoQueue = 1U << 14,      // mq_open, mq_send, mq_receive, both also timed, mq_getattr, mq_unlink
    kQoTimer = 1U << 15,      // timer_create, timer_settime, timer_gettime
    kQoThread = 1U << 16,     // pthread_create, which returns the error
    kQoSocket = 1U << 17,     // socket, connect, send, sendto, sendmsg
    kQoAllocate = 1U << 18,   // malloc, calloc, realloc, memalign; operator new through them. Not under a sanitizer.
    kQoSyncAll = 1U << 19,    // sync, which cannot fail: it is left out
};

enum class QoFaultAct : uint32_t {
    kFail,    // not made; the error is reported
    kShort,   // read, write: half of it, at least a byte. Others: made as they are.
    kLie,     // not made; success is reported, of a read the end of the file
    kSlow,    // made after `milliseconds`
    kHasten,  // timer_settime: with `milliseconds` instead of the times given. Others: made as they are.
};

inline constexpr uint64_t kQoAlways = UINT64_MAX;

enum class QoFaultThreads : uint32_t { kAny, kMain, kOthers };

/// One rule. `calls` is written last; what stands before it is not to be changed while the rule is in use.
struct QoFaultRule {
    QoFaultAct act = QoFaultAct::kFail;
    int32_t error = 0;          // errno; 0 for ENOMEM, ENOSPC or EIO as the function has it
    uint32_t milliseconds = 0;  // of kSlow and kHasten
    uint64_t first = 0;         // the matching calls that it picks, counted from 0 since the plan was armed
    uint64_t last = 0;          // kQoAlways for all from the first one on
    QoFaultThreads threads = QoFaultThreads::kAny;
    char path[128] = {};  // part of a path, or of that of a descriptor; empty matches everything

    std::atomic<uint32_t> calls;  // which functions: QoFaultCall, joined by |; 0 for a rule that is not in use
    std::atomic<uint64_t> seen;   // matching calls
    std::atomic<uint64_t> hits;   // those that were picked
    std::atomic<uint32_t> kind;   // QoFaultCall of the last one picked
    char function[32];            // its name
    char place[128];              // its path, if it has one
    int32_t depth;                // callers of it, where the plan wants them
    char stack[16][96];           // each as "FILE+0xOFFSET"
};

struct QoFaultPlan {
    std::atomic<uint32_t> armed;     // 0: nothing is counted and nothing fails
    std::atomic<uint32_t> attached;  // process id of the process that has the injector
    uint32_t wants_stack;
    QoFaultRule rules[6];
};

#endif
