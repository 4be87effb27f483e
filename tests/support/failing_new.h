/// Shortage of memory on demand: one operator new of this thread throws. For programs that have failing_new.cpp among
/// their sources, which replaces operator new for the whole program and its libraries. malloc() is left alone.
#ifndef QO_TEST_FAILING_NEW_H
#define QO_TEST_FAILING_NEW_H

#include <cstddef>

/// From here to the end of the object the calling thread's operator new number `number`, counted from 0, throws
/// std::bad_alloc, and no other. One object at a time.
class QoFailingNew {
public:
    explicit QoFailingNew(size_t number);
    ~QoFailingNew();
    QoFailingNew(const QoFailingNew&) = delete;
    QoFailingNew& operator=(const QoFailingNew&) = delete;

    /// Whether one has failed, also after the end of the last object.
    static bool has_failed();
};

#endif
