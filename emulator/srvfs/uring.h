// The least of io_uring that the FUSE ring needs, straight on the system calls: one ring owned by one
// thread, 128-byte submission entries, submit-and-wait and a walk over the completions.
#ifndef SRVFS_URING_H
#define SRVFS_URING_H

#include <linux/io_uring.h>

#include <cstddef>
#include <cstdint>

namespace srvfs {
namespace detail {

class Uring {
public:
    Uring() = default;
    ~Uring();
    Uring(const Uring&) = delete;
    Uring& operator=(const Uring&) = delete;

    // 0, or -errno when the kernel refuses the ring (flags: IORING_SETUP_*).
    int Init(unsigned entries, unsigned flags);
    // Gives the ring back: the kernel cancels what is still pending on it. Idempotent.
    void Close();
    // Registers the ring's own descriptor, and `fd` as fixed file 0, so that neither is looked up
    // again on every entry into the kernel. True when fd is registered (IOSQE_FIXED_FILE, index 0).
    bool RegisterDescriptors(int fd);
    // A zeroed entry of the full 128 bytes, or null when the submission ring is full.
    io_uring_sqe* NextSqe();
    // Hands the prepared entries to the kernel and waits for at least `waitFor` completions.
    // Returns what io_uring_enter returns (-errno on failure).
    int SubmitAndWait(unsigned waitFor);
    // Calls fn(const io_uring_cqe&) for each completion that has arrived, then releases them.
    template <class Fn>
    unsigned Reap(Fn fn);

private:
    const io_uring_cqe* CqeAt(unsigned head) const;
    unsigned CqTail() const;
    void SetCqHead(unsigned head);

    int fd_ = -1;
    void* rings_ = nullptr;
    size_t ringsSize_ = 0;
    void* sqes_ = nullptr;
    size_t sqesSize_ = 0;
    io_uring_params params_{};
    unsigned sqTail_ = 0;  // ours until SubmitAndWait publishes it
    unsigned toSubmit_ = 0;
    int enterFd_ = -1;  // the ring's descriptor, or its registered index
    unsigned enterFlags_ = 0;
};

template <class Fn>
unsigned Uring::Reap(Fn fn) {
    unsigned* head = reinterpret_cast<unsigned*>(static_cast<char*>(rings_) + params_.cq_off.head);
    unsigned seen = *head;
    unsigned tail = CqTail();
    unsigned count = 0;
    for (; seen != tail; ++seen, ++count) {
        fn(*CqeAt(seen));
    }
    SetCqHead(seen);
    return count;
}

}  // namespace detail
}  // namespace srvfs

#endif
