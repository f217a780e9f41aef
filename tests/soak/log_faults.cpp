#include "log_faults.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/fs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include "process.h"

namespace {

namespace fs = std::filesystem;

std::string enterMountSpace() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) { // as one with threads may not
            return std::string("no name space for a mount: ") + strerror(errno);
        }
        writeFile("/proc/self/setgroups", "deny");
        writeFile("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1");
        writeFile("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
        if (geteuid() != user || getegid() != group) {
            return "no name space for a mount: the user may not be taken over into it";
        }
    }
    const bool isApart = mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return isApart ? "" : std::string("mounts are not to be had apart: ") + strerror(errno);
}

// Of root, for whom a folder without write permission is writable: the immutable flag.
bool setImmutable(const std::string& path, bool on) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    int flags = 0;
    bool done = fd >= 0 && ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    flags = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
    done = done && ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    close(fd);
    return done;
}

} // namespace

const std::string& ownMounts() {
    static const std::string why = enterMountSpace();
    return why;
}

bool setWritable(const std::string& folder, bool on) {
    return geteuid() == 0 ? setImmutable(folder, !on) : chmod(folder.c_str(), on ? 0755 : 0555) == 0;
}

void setAllWritable(const std::string& path) {
    std::error_code error;
    for (fs::recursive_directory_iterator at(path, error); !error && at != fs::recursive_directory_iterator();
         at.increment(error)) {
        if (fs::is_directory(at->symlink_status(error))) {
            setImmutable(at->path(), false);
            chmod(at->path().c_str(), 0755);
        }
    }
}
