// The kernel's FUSE-over-io_uring interface (FUSE protocol 7.42), which the system's kernel headers
// predate. The layouts are the kernel's; the asserts hold them to it.
#ifndef SRVFS_RING_ABI_H
#define SRVFS_RING_ABI_H

#include <cstddef>
#include <cstdint>

namespace srvfs {
namespace detail {
namespace ring_abi {

const uint32_t kCmdRegister = 1;        // hand an entry to the kernel and wait for a request
const uint32_t kCmdCommitAndFetch = 2;  // send the entry's reply and wait for the next request
// FUSE_OVER_IO_URING, bit 41 of the INIT flags: bit 9 of flags2.
const uint32_t kInitFlags2OverIoUring = 1u << 9;
const size_t kInOutSize = 128;
const size_t kOpInSize = 128;

struct EntryInOut {
    uint64_t flags;
    uint64_t commitId;   // the request's unique, echoed in the commit
    uint32_t payloadSz;  // bytes of the payload buffer in use, either way
    uint32_t padding;
    uint64_t reserved;
};

// iov[0] of an entry: the in (or out) header, the operation's own header, and the entry's state.
struct RequestHeader {
    char inOut[kInOutSize];
    char opIn[kOpInSize];
    EntryInOut entry;
};

// The command area of a 128-byte submission entry.
struct CommandRequest {
    uint64_t flags;
    uint64_t commitId;
    uint16_t qid;
    uint8_t padding[6];
};

static_assert(sizeof(EntryInOut) == 32, "fuse_uring_ent_in_out");
static_assert(offsetof(EntryInOut, payloadSz) == 16, "fuse_uring_ent_in_out.payload_sz");
static_assert(sizeof(RequestHeader) == 288, "fuse_uring_req_header");
static_assert(offsetof(RequestHeader, entry) == 256, "fuse_uring_req_header.ring_ent_in_out");
static_assert(sizeof(CommandRequest) == 24, "fuse_uring_cmd_req");
static_assert(offsetof(CommandRequest, qid) == 16, "fuse_uring_cmd_req.qid");

}  // namespace ring_abi
}  // namespace detail
}  // namespace srvfs

#endif
