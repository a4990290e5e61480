// Threads that run the blocking handler phases, first come first served. The pool starts with a
// few threads and adds one whenever a job would otherwise wait, up to a bound; threads stay once
// started.
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

    // Starts minThreads threads and allows up to maxThreads. 0, or -1 when no thread could be started.
    int Start(int minThreads, int maxThreads);
    // Queues a job; false once Stop has begun.
    bool Submit(JobFn fn, void* arg);
    // Runs every job already queued, then joins the threads.
    void Stop();
    // Removes the queued jobs whose argument pick() accepts and adds their arguments to *taken; no
    // thread ever runs them.
    void TakeQueued(bool (*pick)(void* arg), std::vector<void*>* taken);
    // Threads running a job at this moment.
    size_t Busy();

private:
    struct Job {
        JobFn fn;
        void* arg;
    };
    void Loop();
    void Grow();  // with mutex_ held

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Job> queue_;
    std::vector<std::thread> threads_;
    size_t maxThreads_ = 0;
    size_t idle_ = 0;  // threads waiting for a job
    bool stopping_ = false;
};

}  // namespace vks_host

#endif
