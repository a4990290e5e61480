// A fixed set of threads that run the blocking handler phases, first come first served.
#ifndef VKS_HOST_WORKER_POOL_H
#define VKS_HOST_WORKER_POOL_H

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

namespace vks_host {

using JobFn = void (*)(void* arg);

class WorkerPool {
public:
    WorkerPool() = default;
    ~WorkerPool();
    WorkerPool(const WorkerPool&) = delete;
    WorkerPool& operator=(const WorkerPool&) = delete;

    // 0, or -1 when no thread could be started.
    int Start(int threads);
    // Queues a job; false once Stop has begun.
    bool Submit(JobFn fn, void* arg);
    // Runs every job already queued, then joins the threads.
    void Stop();

private:
    struct Job {
        JobFn fn;
        void* arg;
    };
    void Loop();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Job> queue_;
    std::vector<std::thread> threads_;
    bool stopping_ = false;
};

}  // namespace vks_host

#endif
