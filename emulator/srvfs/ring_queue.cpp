#include "ring_queue.h"

#include <errno.h>
#include <linux/fuse.h>
#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

#include "fuse_ring.h"

namespace srvfs {
namespace detail {
namespace {

const size_t kHeaderBytes = 4096;  // the header's page; the payload starts on the next
const unsigned kFirstEntries = 8;
const unsigned kLowWater = 2;  // fewer idle entries than this: add kGrowBy more
const unsigned kGrowBy = 8;
// A queue's ceiling, further requests wait in the kernel: an entry reserves about 1 MiB of address
// space, which a 32-bit process has little of.
const unsigned kMostEntries = sizeof(void*) >= 8 ? 512 : 64;
const unsigned kRingSize = 64;  // submission slots; completions get twice as many
const uint64_t kWakeTag = 1;    // user_data of the wake read; entries are pointers

// The queue whose thread is running: a reply given on it needs no wake-up.
thread_local RingQueue* tServing = nullptr;

}  // namespace

RingEntry::RingEntry(RingQueue* owner, size_t size) : queue(owner), payloadSize(size) {
    // Anonymous memory, touched only as far as requests use it.
    void* memory = mmap(nullptr, kHeaderBytes + size, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        return;
    }
    header = static_cast<ring_abi::RequestHeader*>(memory);
    payload = static_cast<char*>(memory) + kHeaderBytes;
    iov[0] = {header, sizeof(ring_abi::RequestHeader)};
    iov[1] = {payload, size};
}

RingEntry::~RingEntry() {
    if (header != nullptr) {
        munmap(header, kHeaderBytes + payloadSize);
    }
}

RingQueue::RingQueue(FuseRing& ring, unsigned qid) : ring_(ring), qid_(qid) {}

RingQueue::~RingQueue() {
    Stop();
    if (wakeFd_ >= 0) {
        close(wakeFd_);
    }
}

bool RingQueue::Prepare() {
    wakeFd_ = eventfd(0, EFD_CLOEXEC);
    if (wakeFd_ < 0) {
        perror("srvfs ring: eventfd");
        return false;
    }
    std::promise<bool> prepared;
    std::future<bool> result = prepared.get_future();
    thread_ = std::thread(&RingQueue::Run, this, &prepared);
    return result.get();
}

bool RingQueue::Start() {
    std::future<bool> result = started_.get_future();
    Go(true);
    return result.get();
}

void RingQueue::Go(bool go) {
    if (!goGiven_) {
        goGiven_ = true;
        go_.set_value(go);
    }
}

void RingQueue::Stop() {
    if (!thread_.joinable()) {
        return;
    }
    Go(false);  // a queue still waiting for the go ends without touching the kernel
    stop_ = true;
    Wake();
    thread_.join();
    // Closing the ring now, not with the queue, cancels the entries still waiting in the kernel:
    // requests it hands them from now on find no thread to run them, and only a closed ring lets
    // the connection's end fail them instead of leaving their callers waiting for good.
    uring_.Close();
}

void RingQueue::Commit(RingEntry* entry) {
    if (tServing == this) {
        local_.push_back(entry);
        return;
    }
    bool first;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        first = replied_.empty();
        replied_.push_back(entry);
    }
    if (first) {
        Wake();
    }
}

// Ends the thread's wait in the kernel: its read of the eventfd completes.
void RingQueue::Wake() {
    uint64_t one = 1;
    if (write(wakeFd_, &one, sizeof(one)) != sizeof(one)) {
        perror("srvfs ring: wake");
    }
}

void RingQueue::Pin() const {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(qid_, &cpus);
    // Without the pin (a narrower cpuset) the ring still works, only less locally.
    pthread_setaffinity_np(pthread_self(), sizeof(cpus), &cpus);
}

// The ring and its first entries, prepared but not submitted: the kernel takes entries only once
// INIT is answered, and the answer offers the ring only when every queue got this far.
bool RingQueue::Create() {
    // One thread submits, and completions run when it waits for them: no interrupts for task work.
    int res = uring_.Init(kRingSize, IORING_SETUP_SINGLE_ISSUER | IORING_SETUP_DEFER_TASKRUN);
    if (res != 0) {
        fprintf(stderr, "srvfs ring %u: io_uring: %s\n", qid_, strerror(-res));
        return false;
    }
    fixedDevice_ = uring_.RegisterDescriptors(ring_.DeviceFd());
    request_.resize(sizeof(fuse_in_header) + ring_abi::kOpInSize + ring_.PayloadSize());
    ArmWake();
    return AddEntries(kFirstEntries);
}

// The kernel takes (or refuses) a registration while it is being submitted, so once the submission
// returns and its refusals are reaped, the entries are in place.
bool RingQueue::Register() {
    int res = uring_.SubmitAndWait(0);
    if (res < 0) {
        fprintf(stderr, "srvfs ring %u: io_uring_enter: %s\n", qid_, strerror(-res));
        return false;
    }
    uring_.Reap([this](const io_uring_cqe& cqe) { Complete(cqe); });
    return !failed_;
}

void RingQueue::Run(std::promise<bool>* prepared) {
    tServing = this;
    Pin();
    bool ready = Create();
    prepared->set_value(ready);  // the promise is gone once Prepare() returns
    ready = ready && go_.get_future().get();
    if (ready) {
        ready = Register();
        started_.set_value(ready);
    }
    if (!ready) {
        uring_.Close();  // entries of a queue are refused alike: none stay behind without a thread
    }
    while (ready) {
        bool replied = SubmitCommits();
        if (stop_) {
            uring_.SubmitAndWait(0);
            break;
        }
        if (replied) {
            // Replies go out on their own, before the wait, as a server that writes its reply to
            // the device and then reads: the client a reply wakes runs at once, and its next
            // request (or the release it sends without waiting, and the open after it) is queued
            // before this thread waits. Committing and waiting in one call put the thread to sleep
            // after every reply, and a release then woke it on its own: a context switch more per
            // exchange, and slower, though with one call less per request.
            uring_.SubmitAndWait(0);
        }
        int res = uring_.SubmitAndWait(1);
        if (res < 0 && res != -EINTR && res != -EBUSY) {
            fprintf(stderr, "srvfs ring %u: io_uring_enter: %s\n", qid_, strerror(-res));
            break;
        }
        uring_.Reap([this](const io_uring_cqe& cqe) { Complete(cqe); });
        if (idle_ < kLowWater && !failed_ && entries_.size() < kMostEntries) {
            AddEntries(kGrowBy);
        }
    }
    tServing = nullptr;
}

io_uring_sqe* RingQueue::Sqe() {
    io_uring_sqe* sqe = uring_.NextSqe();
    while (sqe == nullptr) {
        uring_.SubmitAndWait(0);  // the ring is full of prepared entries: hand them over first
        sqe = uring_.NextSqe();
    }
    return sqe;
}

void RingQueue::PrepareCommand(io_uring_sqe* sqe, uint32_t command, RingEntry* entry) const {
    sqe->opcode = IORING_OP_URING_CMD;
    sqe->fd = fixedDevice_ ? 0 : ring_.DeviceFd();
    sqe->flags = fixedDevice_ ? IOSQE_FIXED_FILE : 0;
    sqe->cmd_op = command;
    sqe->user_data = reinterpret_cast<uintptr_t>(entry);
    auto* req = reinterpret_cast<ring_abi::CommandRequest*>(&sqe->addr3);
    req->commitId = entry->commitId;
    req->qid = static_cast<uint16_t>(qid_);
}

bool RingQueue::AddEntries(unsigned count) {
    for (unsigned i = 0; i < count; ++i) {
        auto entry = std::make_unique<RingEntry>(this, ring_.PayloadSize());
        if (!entry->Mapped()) {
            failed_ = true;
            return false;
        }
        io_uring_sqe* sqe = Sqe();
        PrepareCommand(sqe, ring_abi::kCmdRegister, entry.get());
        sqe->addr = reinterpret_cast<uintptr_t>(entry->iov);
        sqe->len = 2;
        entries_.push_back(std::move(entry));
        ++idle_;
    }
    return true;
}

void RingQueue::ArmWake() {
    io_uring_sqe* sqe = Sqe();
    sqe->opcode = IORING_OP_READ;
    sqe->fd = wakeFd_;
    sqe->addr = reinterpret_cast<uintptr_t>(&wakeValue_);
    sqe->len = sizeof(wakeValue_);
    sqe->user_data = kWakeTag;
}

bool RingQueue::SubmitCommits() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        local_.insert(local_.end(), replied_.begin(), replied_.end());
        replied_.clear();
    }
    for (RingEntry* entry : local_) {
        PrepareCommand(Sqe(), ring_abi::kCmdCommitAndFetch, entry);
        ++idle_;
    }
    bool any = !local_.empty();
    local_.clear();
    return any;
}

void RingQueue::Complete(const io_uring_cqe& cqe) {
    if (cqe.user_data == kWakeTag) {
        if (!stop_) {
            ArmWake();
        }
        return;
    }
    auto* entry = reinterpret_cast<RingEntry*>(static_cast<uintptr_t>(cqe.user_data));
    --idle_;
    if (cqe.res == 0) {
        Dispatch(entry);
        return;
    }
    // The entry is out of service: the connection ends (ENOTCONN, ECANCELED) or the kernel
    // refused it, which it says only once.
    if (!failed_ && cqe.res != -ENOTCONN && cqe.res != -ECANCELED && cqe.res != -ECONNABORTED) {
        fprintf(stderr, "srvfs ring %u: entry refused: %s\n", qid_, strerror(-cqe.res));
    }
    failed_ = true;
}

void RingQueue::Dispatch(RingEntry* entry) {
    const auto* in = reinterpret_cast<const fuse_in_header*>(entry->header->inOut);
    entry->commitId = entry->header->entry.commitId;
    size_t payload = entry->header->entry.payloadSz;
    size_t fixed = sizeof(fuse_in_header) + payload;
    if (in->len < fixed || in->len - fixed > ring_abi::kOpInSize || payload > entry->payloadSize) {
        Refuse(entry, in->unique, EIO);
        return;
    }
    size_t opIn = in->len - fixed;
    char* out = request_.data();
    memcpy(out, in, sizeof(fuse_in_header));
    memcpy(out + sizeof(fuse_in_header), entry->header->opIn, opIn);
    memcpy(out + sizeof(fuse_in_header) + opIn, entry->payload, payload);
    ring_.Track(in->unique, entry);  // before the handler: its reply may come from another thread
    fuse_buf buf;
    memset(&buf, 0, sizeof(buf));
    buf.mem = out;
    buf.size = in->len;
    fuse_session_process_buf(ring_.Session(), &buf);
}

void RingQueue::Refuse(RingEntry* entry, uint64_t unique, int error) {
    auto* out = reinterpret_cast<fuse_out_header*>(entry->header->inOut);
    out->len = sizeof(*out);
    out->error = -error;
    out->unique = unique;
    entry->header->entry.payloadSz = 0;
    Commit(entry);
}

}  // namespace detail
}  // namespace srvfs
