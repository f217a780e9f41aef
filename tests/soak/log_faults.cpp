#include "log_faults.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/fs.h>
#include <sched.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>

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

std::string folderOf(const Unit& unit) {
    return fs::path(unit.logPath).parent_path().string();
}

const std::string& ownMounts() {
    static const std::string why = enterMountSpace();
    return why;
}

Mounted::Mounted(const std::string& path) : m_folder(path), m_why(ownMounts()) {
    std::error_code error;
    fs::create_directories(m_folder, error);
    if (m_why.empty() && mount("soak", m_folder.c_str(), "tmpfs", 0, "size=1m") != 0) {
        m_why = std::string("may not mount: ") + strerror(errno);
    }
}

Mounted::~Mounted() {
    if (m_why.empty()) {
        umount2(m_folder.c_str(), MNT_DETACH);
    }
}

void fill(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    const std::string block(4096, 'x');
    for (size_t size = block.size(); size > 0; size /= 2) {
        while (write(fd, block.data(), size) > 0) {
        }
    }
    close(fd);
}

bool setWritable(const std::string& folder, bool on) {
    return geteuid() == 0 ? setImmutable(folder, !on) : chmod(folder.c_str(), on ? 0755 : 0555) == 0;
}

void setAllWritable(const std::string& path) {
    struct stat entry = {};
    if (lstat(path.c_str(), &entry) != 0 || !S_ISDIR(entry.st_mode)) {
        return;
    }
    setImmutable(path, false);
    chmod(path.c_str(), 0755);
    std::error_code error;
    for (fs::directory_iterator at(path, error); !error && at != fs::directory_iterator(); at.increment(error)) {
        setAllWritable(at->path().string());
    }
}

std::string whyAlwaysWritable() {
    const TempFolder folder;
    const std::string why =
        setWritable(folder.path(), false) ? "" : std::string("may not make a folder immutable: ") + strerror(errno);
    setWritable(folder.path(), true);
    return why;
}

rlim_t numbersInUse(const Unit& unit) {
    const std::string folder = "/proc/" + std::to_string(unit.daemon->pid()) + "/fd";
    std::set<rlim_t> used;
    std::error_code error;
    for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator(); at.increment(error)) {
        std::error_code isClosed;
        if (fs::read_symlink(at->path(), isClosed) != unit.logPath) {
            used.insert(strtoul(at->path().filename().c_str(), nullptr, 10));
        }
    }
    rlim_t first = 0;
    while (used.contains(first)) {
        first++;
    }
    return first;
}

bool limitDescriptors(const Unit& unit, rlim_t soft) {
    rlimit limit = {};
    if (prlimit(unit.daemon->pid(), RLIMIT_NOFILE, nullptr, &limit) != 0) {
        return false;
    }
    limit.rlim_cur = std::min(soft, limit.rlim_max);
    return prlimit(unit.daemon->pid(), RLIMIT_NOFILE, &limit, nullptr) == 0;
}

void traceAll(const Unit& unit) {
    const Peer tool;
    tool.sendTo(unit.logToolPort, hex("A55A0400 0000000000000000 3200 0F00 00  02 0000 0A00  414C4C0000000000 0700"));
}

void fillLog(const Unit& unit) {
    constexpr size_t ROTATED_AT = size_t{10} * 1024 * 1024;
    constexpr size_t ROOM = 80000; // for the start of the daemon, about 50000
    std::error_code error;
    fs::create_directories(folderOf(unit), error);
    const std::string line(99, '-');
    std::string text;
    while (text.size() + ROOM < ROTATED_AT) {
        text += line + "\n";
    }
    writeFile(unit.logPath, text);
}
