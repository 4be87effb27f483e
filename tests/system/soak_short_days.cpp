// Preloaded into the service by tests/system/soak: a day of the calendar passes every five seconds, so that files that
// are rotated daily are rotated. Clocks and deadlines stay as they are.
#include <dlfcn.h>
#include <time.h>

namespace {

constexpr time_t kDay = 86400;      // seconds
constexpr time_t kDayInTheRun = 5;  // seconds

}  // namespace

extern "C" tm* gmtime_r(const time_t* moment, tm* broken_down) noexcept {
    using Function = tm* (*)(const time_t*, tm*);
    static const auto original = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "gmtime_r"));
    timespec running{};
    clock_gettime(CLOCK_MONOTONIC, &running);
    const time_t shifted = *moment + running.tv_sec / kDayInTheRun * kDay;
    return original(&shifted, broken_down);
}
