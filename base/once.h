/* Work that is done once, by the thread that needs it first. */
#ifndef TAVRIK_BASE_ONCE_H
#define TAVRIK_BASE_ONCE_H

#include <atomic>
#include <mutex>

namespace tavrik::base {

/** Like std::once_flag and std::call_once, for work that may throw: with MinGW-w64's threads std::call_once waits for
 * ever once its work has thrown. */
class Once {
public:
    /** Calls `work` unless it has returned before; meanwhile other threads wait. When it throws, the next call calls it
     * again. */
    template <typename Work>
    void Call(Work work) {
        if (is_done_.load(std::memory_order_acquire))
            return;
        const std::scoped_lock lock(mutex_);
        if (is_done_.load(std::memory_order_relaxed))
            return;
        work();
        is_done_.store(true, std::memory_order_release);
    }

private:
    std::mutex mutex_;
    std::atomic<bool> is_done_ = false;
};

} // namespace tavrik::base

#endif
