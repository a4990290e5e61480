#include "fuse_floor.h"

#include <fuse_lowlevel.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const fuse_ino_t kFileIno = 2;
const double kForever = 1e9;  // attributes and names never expire: no lookup after the first

void FillAttr(fuse_ino_t ino, struct stat* st) {
    memset(st, 0, sizeof(*st));
    st->st_ino = ino;
    st->st_mode = ino == FUSE_ROOT_ID ? (S_IFDIR | 0755) : (S_IFREG | 0666);
    st->st_nlink = 1;
}

void Lookup(fuse_req_t req, fuse_ino_t parent, const char* name) {
    if (parent != FUSE_ROOT_ID || name[0] == '.') {
        fuse_reply_err(req, ENOENT);
        return;
    }
    fuse_entry_param e;
    memset(&e, 0, sizeof(e));
    e.ino = kFileIno;
    e.attr_timeout = kForever;
    e.entry_timeout = kForever;
    FillAttr(kFileIno, &e.attr);
    fuse_reply_entry(req, &e);
}

void GetAttr(fuse_req_t req, fuse_ino_t ino, fuse_file_info*) {
    struct stat st;
    FillAttr(ino, &st);
    fuse_reply_attr(req, &st, kForever);
}

// Each open file reads the reply as a stream from its start: fh points at how much it has read.
void Open(fuse_req_t req, fuse_ino_t, fuse_file_info* fi) {
    fi->fh = reinterpret_cast<uint64_t>(new size_t(0));
    fi->direct_io = 1;
    fi->nonseekable = 1;
    fuse_reply_open(req, fi);
}

void Ioctl(fuse_req_t req, fuse_ino_t, unsigned int, void*, fuse_file_info*, unsigned, const void*, size_t,
           size_t) {
    fuse_reply_ioctl(req, 0, nullptr, 0);
}

void Write(fuse_req_t req, fuse_ino_t, const char*, size_t size, off_t, fuse_file_info*) {
    fuse_reply_write(req, size);
}

void Read(fuse_req_t req, fuse_ino_t, size_t size, off_t, fuse_file_info* fi) {
    const auto* reply = static_cast<const std::vector<uint8_t>*>(fuse_req_userdata(req));
    size_t* done = reinterpret_cast<size_t*>(fi->fh);
    size_t n = std::min(size, reply->size() - *done);
    fuse_reply_buf(req, reinterpret_cast<const char*>(reply->data()) + *done, n);
    *done += n;
}

void Release(fuse_req_t req, fuse_ino_t, fuse_file_info* fi) {
    delete reinterpret_cast<size_t*>(fi->fh);
    fuse_reply_err(req, 0);
}

}  // namespace

bool FuseFloor::Mount(const std::string& dir, std::vector<uint8_t> reply) {
    reply_ = std::move(reply);
    static fuse_lowlevel_ops ops;
    ops.lookup = Lookup;
    ops.getattr = GetAttr;
    ops.open = Open;
    ops.ioctl = Ioctl;
    ops.write = Write;
    ops.read = Read;
    ops.release = Release;
    char name[] = "vks_fuse_floor";
    char* argv[] = {name, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, argv);
    session_ = fuse_session_new(&args, &ops, sizeof(ops), &reply_);
    if (session_ == nullptr || fuse_session_mount(session_, dir.c_str()) != 0) {
        return false;
    }
    loop_ = std::thread([this] {
        loopTid_ = vks_bench::ThisThread().tid;
        fuse_session_loop(session_);
    });
    while (loopTid_ == 0) {
        std::this_thread::yield();
    }
    return true;
}

vks_bench::Task FuseFloor::Server() const {
    return {getpid(), loopTid_.load()};
}

FuseFloor::~FuseFloor() {
    if (session_ == nullptr) {
        return;
    }
    if (loop_.joinable()) {
        fuse_session_exit(session_);
        fuse_session_unmount(session_);
        loop_.join();
    }
    fuse_session_destroy(session_);
}
