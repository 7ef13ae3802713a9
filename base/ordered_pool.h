/* Work in several threads whose results are delivered in the order of the jobs. */
#ifndef TAVRIK_BASE_ORDERED_POOL_H
#define TAVRIK_BASE_ORDERED_POOL_H

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace tavrik::base {

/** Works on jobs in parallel and delivers the results in the order in which the jobs were submitted. At most
 * kJobsPerThread jobs for each thread are under way, and kMostTaken that are being delivered, so memory is bounded.
 * Where results differ much in size, `weigh` tells each one's: while those that wait for their turn weigh more than
 * kMostWaiting, only the oldest job is begun.
 *
 * A thread takes several jobs at once where many wait, and hands over what is done at the latest kHandOver after it
 * began: with jobs of a few microseconds the threads would otherwise wait for each other most of the time.
 *
 * With one thread everything happens on the caller's. Otherwise the thread that completes the oldest result delivers it
 * and the completed ones after it. */
template <typename Job, typename Result>
class OrderedPool {
public:
    static constexpr std::size_t kJobsPerThread = 256;
    static constexpr std::size_t kMostWaiting = std::size_t{128} << 20; // bytes
    static constexpr std::size_t kMostTaken = 16;                       // jobs at once
    static constexpr std::size_t kMostHeld = std::size_t{1} << 20;      // bytes of results that are not yet handed over
    static constexpr std::chrono::microseconds kHandOver{200};

    using Work = std::function<Result(Job &job, unsigned thread)>;  // in any thread, `thread` below their number
    using Deliver = std::function<void(Result &result)>;            // in any thread, one call at a time
    using Weigh = std::function<std::size_t(const Result &result)>; // in bytes; in any thread

    OrderedPool(unsigned threads, Work work, Deliver deliver, Weigh weigh = nullptr)
        : work_(std::move(work)), deliver_(std::move(deliver)), weigh_(std::move(weigh)), most_threads_(threads),
          window_(threads * kJobsPerThread) {
        try {
            for (unsigned thread = 0; threads > 1 && thread < threads; ++thread)
                threads_.emplace_back([this, thread] { Run(thread); });
        } catch (const std::system_error &) {
            // The system grants no more threads; those that were created do the work.
        }
    }

    /** Drops the jobs that have not been started and waits for the others. */
    ~OrderedPool() { Stop(nullptr); }

    OrderedPool(const OrderedPool &) = delete;
    OrderedPool &operator=(const OrderedPool &) = delete;

    /** Waits until there is room and queues a job. Throws what work or delivery threw. */
    void Submit(Job job) {
        if (threads_.empty()) {
            Result result = work_(job, 0);
            deliver_(result);
            return;
        }
        std::unique_lock lock(mutex_);
        if (slots_.size() >= window_)
            // Wait for half of the room, so that the threads do not wake the caller for each job.
            room_.wait(lock, [this] { return slots_.size() <= window_ / 2 || failure_ != nullptr; });
        if (failure_ != nullptr)
            std::rethrow_exception(failure_);
        slots_.emplace_back(std::move(job));
        if (idle_ > 0)
            jobs_.notify_one();
    }

    /** Waits until every result has been delivered. Throws what work or delivery threw. */
    void Finish() {
        std::unique_lock lock(mutex_);
        room_.wait(lock, [this] { return (slots_.empty() && !delivering_) || failure_ != nullptr; });
        if (failure_ != nullptr)
            std::rethrow_exception(failure_);
    }

private:
    struct Slot {
        explicit Slot(Job taken) : job(std::move(taken)) {}

        Job job;
        std::optional<Result> result; // of the thread that has taken the job until it is done
        std::size_t weight = 0;       // of the result
        bool is_done = false;
    };

    using Clock = std::chrono::steady_clock;

    // The oldest job is always begun, so that the results that wait for it get their turn.
    bool MayBegin(std::size_t place) const { return place == 0 || waiting_ <= kMostWaiting; }

    // Half of a thread's share of the jobs that wait.
    std::vector<Slot *> Take() {
        const std::size_t share = (slots_.size() - next_) / (2 * most_threads_);
        const std::size_t count = waiting_ <= kMostWaiting ? std::clamp<std::size_t>(share, 1, kMostTaken) : 1;
        std::vector<Slot *> taken(count);
        for (Slot *&slot : taken)
            slot = &slots_[next_++]; // the address stays while others are added and removed
        return taken;
    }

    void Run(unsigned thread) {
        try {
            for (std::unique_lock lock(mutex_);;) {
                ++idle_;
                jobs_.wait(lock, [this] { return (next_ < slots_.size() && MayBegin(next_)) || stopped_; });
                --idle_;
                if (stopped_)
                    return;
                WorkOn(Take(), thread, lock);
            }
        } catch (...) {
            Stop(std::current_exception());
        }
    }

    void WorkOn(const std::vector<Slot *> &taken, unsigned thread, std::unique_lock<std::mutex> &lock) {
        std::size_t handed_over = 0;
        for (std::size_t done = 0; done < taken.size() && !stopped_;) {
            lock.unlock();
            const Clock::time_point begin = Clock::now();
            std::size_t held = 0;
            do {
                Slot &slot = *taken[done++];
                slot.result = work_(slot.job, thread);
                slot.weight = weigh_ ? weigh_(*slot.result) : 0;
                held += slot.weight;
            } while (done < taken.size() && held < kMostHeld && Clock::now() - begin < kHandOver);
            lock.lock();
            for (; handed_over < done; ++handed_over)
                taken[handed_over]->is_done = true;
            waiting_ += held;
            if (!delivering_)
                DeliverWhatIsReady(lock);
            if (done < taken.size())
                jobs_.wait(lock, [&] { return MayBegin(taken[done] == &slots_.front() ? 0 : 1) || stopped_; });
        }
    }

    void DeliverWhatIsReady(std::unique_lock<std::mutex> &lock) {
        delivering_ = true;
        std::vector<Result> ready;
        while (!slots_.empty() && slots_.front().is_done && !stopped_) {
            const bool was_full = waiting_ > kMostWaiting;
            std::size_t held = 0;
            do {
                ready.push_back(std::move(*slots_.front().result));
                held += slots_.front().weight;
                waiting_ -= slots_.front().weight;
                slots_.pop_front();
                --next_;
                if (slots_.size() == window_ / 2)
                    room_.notify_one();
            } while (ready.size() < kMostTaken && held < kMostHeld && !slots_.empty() && slots_.front().is_done);
            if (was_full)
                jobs_.notify_all();
            lock.unlock();
            for (Result &result : ready)
                deliver_(result);
            ready.clear();
            lock.lock();
        }
        delivering_ = false;
        if (slots_.empty())
            room_.notify_one();
    }

    // Called by a thread that failed and by the destructor, which then waits for all threads.
    void Stop(const std::exception_ptr &failure) {
        {
            const std::lock_guard lock(mutex_);
            stopped_ = true;
            if (failure_ == nullptr)
                failure_ = failure;
        }
        jobs_.notify_all();
        room_.notify_all();
        if (failure == nullptr)
            for (std::thread &thread : threads_)
                thread.join();
    }

    const Work work_;
    const Deliver deliver_;
    const Weigh weigh_;
    const std::size_t most_threads_;
    const std::size_t window_;

    std::mutex mutex_; // guards all below except threads_
    std::condition_variable jobs_;
    std::condition_variable room_;
    std::deque<Slot> slots_;  // jobs under way, oldest first; a deque keeps references valid
    std::size_t next_ = 0;    // the first of slots_ that has not been started
    std::size_t idle_ = 0;    // threads that wait for a job
    std::size_t waiting_ = 0; // the weight of the results in slots_
    bool delivering_ = false;
    bool stopped_ = false;
    std::exception_ptr failure_;
    std::vector<std::thread> threads_;
};

} // namespace tavrik::base

#endif
