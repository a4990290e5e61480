#include "worker_pool.h"

#include <system_error>

namespace vks_host {

WorkerPool::~WorkerPool() {
    Stop();
}

int WorkerPool::Start(int threads) {
    for (int i = 0; i < threads; ++i) {
        try {
            threads_.emplace_back(&WorkerPool::Loop, this);
        } catch (const std::system_error&) {
            break;
        }
    }
    return threads_.empty() ? -1 : 0;
}

bool WorkerPool::Submit(JobFn fn, void* arg) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) {
            return false;
        }
        queue_.push_back({fn, arg});
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

void WorkerPool::Loop() {
    for (;;) {
        Job job{};
        {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
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
