// One descriptor for messages, for times and for wake-ups.
#include "qo_pushpull_waker.h"

#include <stdint.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

bool QoPushpullWaker::open() {
    all_ = QoDescriptor(epoll_create1(EPOLL_CLOEXEC));
    woken_ = QoDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    clock_ = QoDescriptor(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    return all_ && woken_ && clock_ && add(woken_.get()) && add(clock_.get());
}

bool QoPushpullWaker::watch(int queue) { return add(queue); }

bool QoPushpullWaker::add(int descriptor) const {
    epoll_event readable{};
    readable.events = EPOLLIN;
    return epoll_ctl(all_.get(), EPOLL_CTL_ADD, descriptor, &readable) == 0;
}

// Fails only when it is readable already.
void QoPushpullWaker::wake() const noexcept {
    const QoKeptErrno kept;
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(woken_.get(), &one, sizeof one);
}

// Reads fail when there is nothing to take back.
void QoPushpullWaker::settle() const {
    uint64_t count = 0;
    for (const QoDescriptor* source : {&woken_, &clock_})
        [[maybe_unused]] const ssize_t length = read(source->get(), &count, sizeof count);
}

void QoPushpullWaker::set_due(std::chrono::steady_clock::time_point time) const {
    const auto since_boot = std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since_boot);
    itimerspec once{};
    once.it_value.tv_sec = static_cast<time_t>(seconds.count());
    // Zero would switch the clock off.
    once.it_value.tv_nsec = std::max(1L, static_cast<long>((since_boot - seconds).count()));
    timerfd_settime(clock_.get(), TFD_TIMER_ABSTIME, &once, nullptr);
}
