/// The client library, counted.
#ifndef QO_BENCH_CLIENT_LIBRARY_H
#define QO_BENCH_CLIENT_LIBRARY_H

#include <cstddef>
#include <string>

#include "counter.h"

/// What one publish costs the component that calls it, until it is in the service's queue. There is no service.
/// Throws std::runtime_error when it cannot be counted.
/// @param size of the published text, in bytes
/// @param folder for callgrind's files, ending in "/"
QoCost qo_cost_of_client_publish(size_t size, const std::string& folder);

#endif
