// The kit's private folders. A daemon's socket and result files live in a folder only its own user
// can change: another user who could plant a link or bind the socket first would steer what the
// module, running with the server's rights, reads and removes.
#ifndef VKS_KIT_DIR_H
#define VKS_KIT_DIR_H

#include <string>

namespace kitdir {

// The per-user runtime folder of the kit: /run/vks-kit for root, $XDG_RUNTIME_DIR/vks-kit for
// another user (else /run/user/<uid>/vks-kit where that exists, else $HOME/.local/state/vks-kit).
// Empty when the user has none of these.
std::string PrivateFolder();
// <PrivateFolder()>/cmd.sock and <PrivateFolder()>/results; empty without a private folder.
std::string DefaultCmdSocket();
std::string DefaultResultDir();
// A state file that outlives a run: /var/lib/vks-emulator/<name> for root, else
// $XDG_STATE_HOME/vks-kit/<name> (else $HOME/.local/state/vks-kit/<name>); empty without either.
std::string DefaultStateFile(const std::string& name);
// Where the defaults come from, for --help: "<rule> (here: <path>)".
std::string DescribeDefault(const std::string& path);
// The folder a file path lies in ("." for a bare name).
std::string FolderOf(const std::string& path);

// Creates path (mode 0700, with missing parents) and checks it: a folder, not a link, owned by this
// user, not writable by group or others, and no folder above it writable by others unless sticky. 0, or -1 with one line in *why that names the folder and the reason.
int EnsurePrivateFolder(const std::string& path, std::string* why);
// Opens a folder that EnsurePrivateFolder accepted, without following a link, and checks the open
// folder itself again (so a folder swapped since the check is refused). The descriptor (O_DIRECTORY,
// close-on-exec), or -1 with the reason in *why.
int OpenPrivateFolder(const std::string& path, std::string* why);

}  // namespace kitdir

#endif
