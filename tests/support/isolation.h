/// Whether this program runs where it may use the fixed queue names and paths of the system.
#ifndef QO_TEST_ISOLATION_H
#define QO_TEST_ISOLATION_H

#include <linux/magic.h>
#include <sys/vfs.h>

#include <string>

/// Empty in the namespaces that qo_isolated makes; else the reason to skip a test that needs them.
inline std::string qo_missing_isolation() {
    // The root through /proc: an emulator has one of its own.
    for (const char* path : {"/proc/self/root/", "/kivo", "/var/volatile"}) {
        struct statfs mounted = {};
        if (statfs(path, &mounted) != 0 || mounted.f_type != TMPFS_MAGIC) {
            return std::string(path) +
                   " is the machine's own: run this program with qo_isolated, where namespaces are allowed";
        }
    }
    return "";
}

#endif
