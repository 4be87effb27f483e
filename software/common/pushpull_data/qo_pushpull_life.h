/// Signs of life of a thread that somebody watches. Header only.
#ifndef QO_PUSHPULL_LIFE_H
#define QO_PUSHPULL_LIFE_H

/// Takes the signs of life of one thread.
class QoLifeReporter {
public:
    /// Leaves errno as it is.
    virtual void report() noexcept = 0;

protected:
    ~QoLifeReporter() = default;
};

/// Who takes those of the calling thread; null for a thread that nobody watches.
inline thread_local QoLifeReporter* qo_life_reporter = nullptr;

/// To be called on the road of a request after every wait and between the long steps of a piece of work, whichever
/// thread does it: the work of another thread says nothing about the watched one. Costs next to nothing and leaves
/// errno alone.
inline void qo_report_life() noexcept {
    if (qo_life_reporter != nullptr) qo_life_reporter->report();
}

#endif
