// The FUSE low-level operations of the service file system; their userdata is a SessionData.
#ifndef SRVFS_FUSE_OPS_H
#define SRVFS_FUSE_OPS_H

#include <fuse_lowlevel.h>

namespace srvfs {
namespace detail {

class Core;
class FuseRing;

// What the session's userdata leads to: the operations need the Core, the device hooks the ring.
struct SessionData {
    Core* core;
    FuseRing* ring;
};

const fuse_lowlevel_ops& ServiceFileOps();

}  // namespace detail
}  // namespace srvfs

#endif
