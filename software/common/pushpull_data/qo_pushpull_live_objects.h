/// The objects that a timer may still call back. Deleting a timer does not recall a thread that it has started
/// already: that thread comes here first and finds out whether its object still lives.
#ifndef QO_PUSHPULL_LIVE_OBJECTS_H
#define QO_PUSHPULL_LIVE_OBJECTS_H

#include <cstddef>
#include <mutex>
#include <new>
#include <unordered_set>

/// One set for each class of objects. Any thread. Its lock is taken before any lock of the objects.
template <class Object>
class QoLiveObjects {
public:
    /// From here on the object may be called back, so it has to be complete.
    static void add(const Object* object) {
        const std::lock_guard lock(registry().mutex);
        registry().objects.insert(object);
    }
    /// Waits for an action that runs on the object.
    static void remove(const Object* object) {
        const std::lock_guard lock(registry().mutex);
        registry().objects.erase(object);
    }
    /// Runs the action if the object lives, and keeps it alive meanwhile.
    template <class Action>
    static void if_alive(const Object* object, Action action) {
        const std::lock_guard lock(registry().mutex);
        if (registry().objects.count(object) != 0) action();
    }

private:
    struct Registry {
        std::mutex mutex;
        std::unordered_set<const Object*> objects;
    };
    /// Never destroyed: a timer's thread may come after the end of main(). Not on the heap: when memory is short, the
    /// first to come may be the destructor of an object that was never added.
    static Registry& registry() {
        alignas(Registry) static std::byte storage[sizeof(Registry)];
        static auto* const registry = new (storage) Registry;
        return *registry;
    }
};

#endif
