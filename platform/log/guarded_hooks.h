// Callbacks that a host may replace while other threads call them. Calls run under the shared side of
// the lock, so once Set returns no call of the previous callbacks is still running; a callback must
// therefore not call Set itself.
#ifndef VKS_GUARDED_HOOKS_H
#define VKS_GUARDED_HOOKS_H

#include <mutex>
#include <shared_mutex>

template <typename Hooks>
class GuardedHooks {
public:
    void Set(const Hooks& hooks) {
        std::unique_lock<std::shared_mutex> lock(mutex_);
        hooks_ = hooks;
    }

    // Runs call(hooks) with the current callbacks held in place.
    template <typename Call>
    auto With(Call&& call) {
        std::shared_lock<std::shared_mutex> lock(mutex_);
        return call(static_cast<const Hooks&>(hooks_));
    }

    // The process-wide instance. Never destroyed: static destructors of other libraries may still
    // reach the callbacks at exit.
    static GuardedHooks& Instance() {
        static GuardedHooks* instance = new GuardedHooks;
        return *instance;
    }

private:
    std::shared_mutex mutex_;
    Hooks hooks_{};
};

#endif
