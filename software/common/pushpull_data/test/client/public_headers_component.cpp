/// The least component: built against the installed library only, with nothing of this source tree.
#include <qo_pushpull_api.h>
#include <stdio.h>

namespace {

/// The one call of the library that takes a point in time.
bool waits_until_the_deadline() {
    constexpr long kWait = 20000000;  // nanoseconds
    constexpr long kSecond = 1000000000;
    timespec begin{};
    clock_gettime(CLOCK_MONOTONIC, &begin);
    timespec deadline = begin;
    deadline.tv_nsec += kWait;
    if (deadline.tv_nsec >= kSecond) {
        deadline.tv_nsec -= kSecond;
        ++deadline.tv_sec;
    }
    QoPushpullSignal<int> signal;
    const bool timed_out = !signal.timedwait(deadline, [](int) { return false; });
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    const bool reached =
        end.tv_sec > deadline.tv_sec || (end.tv_sec == deadline.tv_sec && end.tv_nsec >= deadline.tv_nsec);
    return timed_out && reached;
}

}  // namespace

int main() {
    QoPushpullApi api;
    const std::string request = api.build_json_post_msg(QO_CMPID_DEMO, "/version", "get");
    const bool as_expected = request.find("\"function\": \"get\"") != std::string::npos &&
                             api.check_delete_authority(QO_CMPID_DEMO) == -1 && api.terminate() == 0;
    if (!as_expected) puts(request.c_str());
    const bool waited = waits_until_the_deadline();
    if (!waited) puts("the wait did not end at its deadline");
    return as_expected && waited ? 0 : 1;
}
