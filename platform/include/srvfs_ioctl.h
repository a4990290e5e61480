// Connection settings of the service file system (ioctl requests; the argument is passed by value).
#ifndef SRVFS_IOCTL_H
#define SRVFS_IOCTL_H

#define SRVFS_ROOT "/mnt/srvfs/"

#define SRVFS_BUFF_SETWRSIZE 0x211   // write buffer size
#define SRVFS_BUFF_SETRDSIZE 0x213   // read buffer size
#define SRVFS_CONN_SETTIMEOUT 0x301  // reply time-out, milliseconds

#endif
