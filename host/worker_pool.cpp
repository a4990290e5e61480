#include "worker_pool.h"

#include <pthread.h>
#include <sched.h>

#include <system_error>

namespace vks_host {

WorkerPool::~WorkerPool() {
    Stop();
}

int WorkerPool::Start(int minThreads, int maxThreads) {
    std::lock_guard<std::mutex> lock(mutex_);
    maxThreads_ = static_cast<size_t>(maxThreads > minThreads ? maxThreads : minThreads);
    for (int i = 0; i < minThreads; ++i) {
        Grow();
    }
    return threads_.empty() ? -1 : 0;
}

void WorkerPool::Grow() {
    try {
        threads_.emplace_back(&WorkerPool::Loop, this);
    } catch (const std::system_error&) {
        // Out of threads: the jobs wait for the ones there are.
    }
}

bool WorkerPool::Submit(JobFn fn, void* arg) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) {
            return false;
        }
        queue_.push_back({fn, arg});
        if (queue_.size() > idle_ && threads_.size() < maxThreads_) {
            Grow();
        }
    }
    wake_.notify_one();
    return true;
}

void WorkerPool::Stop() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (std::thread& t : threads_) {
        t.join();
    }
    threads_.clear();
}

void WorkerPool::TakeQueued(bool (*pick)(void* arg), std::vector<void*>* taken) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (auto it = queue_.begin(); it != queue_.end();) {
        if (pick(it->arg)) {
            taken->push_back(it->arg);
            it = queue_.erase(it);
        } else {
            ++it;
        }
    }
}

size_t WorkerPool::Busy() {
    std::lock_guard<std::mutex> lock(mutex_);
    return threads_.size() - idle_;
}

namespace {

// Workers run the blocking phases: throughput work, a round trip to a service after another. As
// batch threads they never preempt on wake-up, neither the event loop nor the service that just
// answered them: each runs on until it waits, and a request costs fewer context switches. The
// loop thread keeps the normal policy and with it the latency of every answer.
void BecomeBatchThread() {
    sched_param param{};
    pthread_setschedparam(pthread_self(), SCHED_BATCH, &param);  // a hint: without it all still works
}

}  // namespace

void WorkerPool::Loop() {
    BecomeBatchThread();
    for (;;) {
        Job job{};
        {
            std::unique_lock<std::mutex> lock(mutex_);
            ++idle_;
            wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
            --idle_;
            if (queue_.empty()) {
                return;  // stopping, and nothing left to run
            }
            job = queue_.front();
            queue_.pop_front();
        }
        job.fn(job.arg);
    }
}

}  // namespace vks_host
