// A live store for a fuzzer, and the system log that takes its lines meanwhile.
#ifndef QO_FUZZ_STORE_H
#define QO_FUZZ_STORE_H

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "qo_pushpull_datamgr.h"
#include "qo_pushpull_json.h"

inline void qo_require(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

/// A store that starts from this default tree, and that never saves: its save timer is set to years.
std::unique_ptr<DataMgr> qo_fuzz_store(std::string_view defaults);

/// The whole data tree, and the whole subscription tree, as formatted text.
std::string qo_data_tree_text(DataMgr& store);
std::string qo_subscription_tree_text(DataMgr& store);

#endif
