// Flat FUSE handlers: each looks up what it needs in the Core and replies with an explicit errno.
// Entries and attributes are never cached by the kernel, so a removed service disappears at once.
#include "fuse_ops.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "core.h"

namespace srvfs {
namespace detail {
namespace {

Core& CoreOf(fuse_req_t req) {
    return *static_cast<SessionData*>(fuse_req_userdata(req))->core;
}

const double kNameCacheSeconds = 86400.0;

struct stat AttrOf(fuse_ino_t ino) {
    struct stat st;
    memset(&st, 0, sizeof(st));
    st.st_ino = ino;
    st.st_mode = ino == FUSE_ROOT_ID ? (S_IFDIR | 0755) : (S_IFREG | 0666);
    st.st_nlink = ino == FUSE_ROOT_ID ? 2 : 1;
    return st;
}

void OpLookup(fuse_req_t req, fuse_ino_t parent, const char* name) {
    fuse_ino_t ino = 0;
    if (parent != FUSE_ROOT_ID || !CoreOf(req).FindService(name, &ino)) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    fuse_entry_param entry;
    memset(&entry, 0, sizeof(entry));
    entry.ino = ino;
    entry.attr = AttrOf(ino);
    // The kernel keeps the name and its attributes: an open then costs no lookup of its own. A
    // removed service's name is invalidated by FileSystem::RemoveService.
    entry.entry_timeout = kNameCacheSeconds;
    entry.attr_timeout = kNameCacheSeconds;
    fuse_reply_entry(req, &entry);
}

bool Exists(fuse_req_t req, fuse_ino_t ino) {
    return ino == FUSE_ROOT_ID || CoreOf(req).IsService(ino);
}

void OpGetattr(fuse_req_t req, fuse_ino_t ino, fuse_file_info* /*fi*/) {
    if (!Exists(req, ino)) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    struct stat st = AttrOf(ino);
    fuse_reply_attr(req, &st, kNameCacheSeconds);
}

// Every handler takes what it needs from req before replying: a reply frees the request.
void OpOpen(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi) {
    uint64_t connId = 0;
    std::shared_ptr<Service> service;
    Core& core = CoreOf(req);
    int err = core.Open(ino, &connId, &service);
    if (err != 0) {
        fuse_reply_err(req, err);
        return;
    }
    fi->fh = connId;
    fi->direct_io = 1;    // every read and write reaches us unchanged, no page cache
    fi->nonseekable = 1;  // a connection is a stream
    if (fuse_reply_open(req, fi) != 0) {
        core.Release(connId);  // the opener is gone (interrupted)
        return;
    }
    if (service != nullptr) {
        service->OnOpen(ReplyHandle(core.shared_from_this(), connId));
    }
}

void OpRead(fuse_req_t req, fuse_ino_t /*ino*/, size_t size, off_t /*off*/, fuse_file_info* fi) {
    CoreOf(req).Read(req, fi->fh, size, (fi->flags & O_NONBLOCK) != 0);
}

void OpWrite(fuse_req_t req, fuse_ino_t /*ino*/, const char* buf, size_t size, off_t /*off*/,
             fuse_file_info* fi) {
    std::vector<std::vector<uint8_t>> frames;
    std::shared_ptr<Service> service;
    Core& core = CoreOf(req);
    int err = core.Write(fi->fh, reinterpret_cast<const uint8_t*>(buf), size, &frames, &service);
    // The service sees the request before the writer returns, so a writer never races its service.
    ReplyHandle conn(core.shared_from_this(), fi->fh);
    for (auto& frame : frames) {
        if (service != nullptr) {
            service->OnRequest(conn, std::move(frame));
        }
    }
    if (err != 0) {
        fuse_reply_err(req, err);
    } else {
        fuse_reply_write(req, size);
    }
}

void OpIoctl(fuse_req_t req, fuse_ino_t /*ino*/, unsigned int cmd, void* arg, fuse_file_info* fi,
             unsigned flags, const void* /*inBuf*/, size_t /*inSize*/, size_t /*outSize*/) {
    std::shared_ptr<Service> service;
    Core& core = CoreOf(req);
    auto value = reinterpret_cast<unsigned long>(arg);
    int err = (flags & FUSE_IOCTL_DIR) != 0 ? ENOTTY : core.Ioctl(fi->fh, cmd, value, &service);
    if (err != 0) {
        fuse_reply_err(req, err);
        return;
    }
    // The service hears of the setting before the caller's ioctl returns, as it hears of a request
    // before the caller's write returns: what a client did is visible to the service at once.
    if (service != nullptr) {
        service->OnIoctl(ReplyHandle(core.shared_from_this(), fi->fh), cmd, value);
    }
    fuse_reply_ioctl(req, 0, nullptr, 0);
}

void OpPoll(fuse_req_t req, fuse_ino_t /*ino*/, fuse_file_info* fi, fuse_pollhandle* ph) {
    fuse_reply_poll(req, CoreOf(req).Poll(fi->fh, ph));
}

void OpRelease(fuse_req_t req, fuse_ino_t /*ino*/, fuse_file_info* fi) {
    std::shared_ptr<Service> service = CoreOf(req).Release(fi->fh);
    uint64_t connId = fi->fh;
    fuse_reply_err(req, 0);
    if (service != nullptr) {
        service->OnClose(connId);
    }
}

bool AddEntry(fuse_req_t req, std::vector<char>* out, size_t limit, const char* name, fuse_ino_t ino,
              off_t next) {
    struct stat st = AttrOf(ino);
    size_t used = out->size();
    size_t need = fuse_add_direntry(req, nullptr, 0, name, nullptr, 0);
    if (used + need > limit) {
        return false;
    }
    out->resize(used + need);
    fuse_add_direntry(req, out->data() + used, need, name, &st, next);
    return true;
}

void OpReaddir(fuse_req_t req, fuse_ino_t ino, size_t size, off_t off, fuse_file_info* /*fi*/) {
    if (ino != FUSE_ROOT_ID) {
        fuse_reply_err(req, ENOTDIR);
        return;
    }
    std::vector<std::pair<std::string, fuse_ino_t>> entries{{".", FUSE_ROOT_ID}, {"..", FUSE_ROOT_ID}};
    for (auto& service : CoreOf(req).Services()) {
        entries.push_back(std::move(service));
    }
    std::vector<char> out;
    for (size_t i = static_cast<size_t>(off); i < entries.size(); ++i) {
        if (!AddEntry(req, &out, size, entries[i].first.c_str(), entries[i].second,
                      static_cast<off_t>(i + 1))) {
            break;
        }
    }
    fuse_reply_buf(req, out.data(), out.size());
}

fuse_lowlevel_ops MakeOps() {
    fuse_lowlevel_ops ops;
    memset(&ops, 0, sizeof(ops));
    ops.lookup = OpLookup;
    ops.getattr = OpGetattr;
    // No access: libfuse answers the first one ENOSYS and from then on the kernel decides from the
    // attributes it holds, as for flush. Whether a service exists is the lookup's answer, which
    // removing a service invalidates, so access() of a removed one still fails with ENOENT; and
    // the asynchronous road's access() before each open costs no round trip.
    ops.open = OpOpen;
    ops.read = OpRead;
    ops.write = OpWrite;
    ops.ioctl = OpIoctl;
    ops.poll = OpPoll;
    ops.release = OpRelease;
    ops.readdir = OpReaddir;
    return ops;
}

}  // namespace

const fuse_lowlevel_ops& ServiceFileOps() {
    static const fuse_lowlevel_ops ops = MakeOps();
    return ops;
}

}  // namespace detail
}  // namespace srvfs
