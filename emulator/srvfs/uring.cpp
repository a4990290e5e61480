#include "uring.h"

#include <errno.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace srvfs {
namespace detail {
namespace {

const size_t kSqeSize = 128;  // IORING_SETUP_SQE128: the FUSE commands need the long form

unsigned* At(void* base, unsigned offset) {
    return reinterpret_cast<unsigned*>(static_cast<char*>(base) + offset);
}

}  // namespace

Uring::~Uring() {
    Close();
}

void Uring::Close() {
    if (sqes_ != nullptr) {
        munmap(sqes_, sqesSize_);
        sqes_ = nullptr;
    }
    if (rings_ != nullptr) {
        munmap(rings_, ringsSize_);
        rings_ = nullptr;
    }
    if (fd_ >= 0) {
        close(fd_);
        fd_ = -1;
    }
}

bool Uring::RegisterDescriptors(int fd) {
    io_uring_rsrc_update update{};
    update.offset = ~0u;  // any free slot
    update.data = static_cast<uint64_t>(fd_);
    if (syscall(__NR_io_uring_register, fd_, IORING_REGISTER_RING_FDS, &update, 1) == 1) {
        enterFd_ = static_cast<int>(update.offset);
        enterFlags_ = IORING_ENTER_REGISTERED_RING;
    }
    return syscall(__NR_io_uring_register, fd_, IORING_REGISTER_FILES, &fd, 1) == 0;
}

int Uring::Init(unsigned entries, unsigned flags) {
    memset(&params_, 0, sizeof(params_));
    params_.flags = flags | IORING_SETUP_SQE128;
    int fd = static_cast<int>(syscall(__NR_io_uring_setup, entries, &params_));
    if (fd < 0) {
        return -errno;
    }
    fd_ = fd;
    enterFd_ = fd;
    if ((params_.features & IORING_FEAT_SINGLE_MMAP) == 0) {
        return -EOPNOTSUPP;  // kernels old enough to lack it have no FUSE ring either
    }
    ringsSize_ = std::max(params_.sq_off.array + params_.sq_entries * sizeof(unsigned),
                          params_.cq_off.cqes + params_.cq_entries * sizeof(io_uring_cqe));
    void* rings =
        mmap(nullptr, ringsSize_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd_, IORING_OFF_SQ_RING);
    if (rings == MAP_FAILED) {
        return -errno;
    }
    rings_ = rings;
    sqesSize_ = params_.sq_entries * kSqeSize;
    void* sqes =
        mmap(nullptr, sqesSize_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, fd_, IORING_OFF_SQES);
    if (sqes == MAP_FAILED) {
        return -errno;
    }
    sqes_ = sqes;
    // The submission array maps slot i to entry i for good: entries are used in ring order.
    unsigned* array = At(rings_, params_.sq_off.array);
    for (unsigned i = 0; i < params_.sq_entries; ++i) {
        array[i] = i;
    }
    sqTail_ = *At(rings_, params_.sq_off.tail);
    return 0;
}

io_uring_sqe* Uring::NextSqe() {
    unsigned head = __atomic_load_n(At(rings_, params_.sq_off.head), __ATOMIC_ACQUIRE);
    if (sqTail_ - head >= params_.sq_entries) {
        return nullptr;
    }
    unsigned mask = *At(rings_, params_.sq_off.ring_mask);
    auto* sqe = reinterpret_cast<io_uring_sqe*>(static_cast<char*>(sqes_) + (sqTail_ & mask) * kSqeSize);
    memset(sqe, 0, kSqeSize);
    ++sqTail_;
    ++toSubmit_;
    return sqe;
}

int Uring::SubmitAndWait(unsigned waitFor) {
    __atomic_store_n(At(rings_, params_.sq_off.tail), sqTail_, __ATOMIC_RELEASE);
    unsigned flags = enterFlags_ | (waitFor > 0 ? IORING_ENTER_GETEVENTS : 0);
    long res = syscall(__NR_io_uring_enter, enterFd_, toSubmit_, waitFor, flags, nullptr, 0);
    if (res < 0) {
        return -errno;
    }
    toSubmit_ -= std::min(toSubmit_, static_cast<unsigned>(res));
    return static_cast<int>(res);
}

const io_uring_cqe* Uring::CqeAt(unsigned head) const {
    unsigned mask = *At(rings_, params_.cq_off.ring_mask);
    auto* cqes = reinterpret_cast<const io_uring_cqe*>(static_cast<char*>(rings_) + params_.cq_off.cqes);
    return &cqes[head & mask];
}

unsigned Uring::CqTail() const {
    return __atomic_load_n(At(rings_, params_.cq_off.tail), __ATOMIC_ACQUIRE);
}

void Uring::SetCqHead(unsigned head) {
    __atomic_store_n(At(rings_, params_.cq_off.head), head, __ATOMIC_RELEASE);
}

}  // namespace detail
}  // namespace srvfs
