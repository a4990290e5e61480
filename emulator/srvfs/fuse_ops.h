// The FUSE low-level operations of the service file system; their userdata is the Core.
#ifndef SRVFS_FUSE_OPS_H
#define SRVFS_FUSE_OPS_H

#include <fuse_lowlevel.h>

namespace srvfs {
namespace detail {
const fuse_lowlevel_ops& ServiceFileOps();
}
}  // namespace srvfs

#endif
