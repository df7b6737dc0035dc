#include "host/virtual_dsp/board/board_root.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string_view>

#include "host/virtual_dsp/nodes/node_table.h"

namespace virtual_dsp {
namespace {

namespace fs = std::filesystem;

std::string TargetOf(const NodeInfo& node) {
    return std::string(kBoardDirectory) + "/" + std::string(node.FileName());
}

std::string FirstWordOf(const char* path) {
    std::ifstream file(path);
    std::string word;
    file >> word;
    return word;
}

// Whether this process may mount as it is. If so it keeps its user and its rights, for which even
// the files of other users stay as they are.
bool MayMount() {
    constexpr int kSysAdmin = 21;  // CAP_SYS_ADMIN
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (!line.starts_with("CapEff:")) continue;
        const uint64_t rights = std::strtoull(line.c_str() + strlen("CapEff:"), nullptr, 16);
        return geteuid() == 0 && (rights >> kSysAdmin & 1) != 0;
    }
    return false;
}

bool IsInPath(const std::string& program) {
    const char* variable = getenv("PATH");
    std::string_view path = variable != nullptr ? variable : "/usr/bin:/bin";
    while (!path.empty()) {
        const size_t end = std::min(path.find(':'), path.size());
        if (access((std::string(path.substr(0, end)) + "/" + program).c_str(), X_OK) == 0) {
            return true;
        }
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return false;
}

// The top-level folders and links of this machine, except those that the board has of its own.
void AddHostFolders(std::vector<std::string>& command) {
    constexpr std::string_view kOwn[] = {"/dev", "/proc", "/sys", "/vendor", kBoardDirectory};
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator("/", ignored)) {
        const std::string path = entry.path();
        if (std::find(std::begin(kOwn), std::end(kOwn), path) != std::end(kOwn)) continue;
        if (entry.is_symlink(ignored)) {
            const std::string target = fs::read_symlink(path, ignored);
            command.insert(command.end(), {"--symlink", target, path});
        } else if (entry.is_directory(ignored)) {
            // Not --bind, which would fail if another process removed the folder in between.
            command.insert(command.end(), {"--bind-try", path, path});
        }
    }
}

}  // namespace

bool IsOnBoard() {
    std::error_code error;
    const NodeInfo& node = InfoOf(NodeId::kCommand);
    return fs::read_symlink(node.path, error) == TargetOf(node) && !error;
}

std::vector<std::string> BoardRootCommand() {
    std::vector<std::string> command = {"bwrap", "--die-with-parent"};
    const auto add = [&command](std::initializer_list<std::string> more) {
        command.insert(command.end(), more);
    };
    if (MayMount()) {
        add({"--cap-add", "ALL"});
    } else {
        add({"--unshare-user", "--uid", "0", "--gid", "0", "--cap-add", "CAP_SYS_ADMIN"});
    }
    AddHostFolders(command);
    add({"--proc", "/proc", "--dev", "/dev", "--dev-bind", "/dev/fuse", "/dev/fuse"});
    // Programs share memory with others by way of it, and may pass its files as arguments.
    add({"--bind-try", "/dev/shm", "/dev/shm"});
    // The C library counts the processors here, and sanitizers read about the machine.
    add({"--ro-bind-try", "/sys/devices/system", "/sys/devices/system"});
    add({"--dir", kBoardDirectory});
    for (const NodeInfo& node : kNodes) add({"--symlink", TargetOf(node), node.path});
    return command;
}

host::Result<void> CheckBoardNeeds() {
    if (!IsInPath("bwrap")) {
        return host::Error(
                "bubblewrap is not installed.\n"
                "  Debian: apt-get install bubblewrap");
    }
    if (access("/dev/fuse", F_OK) != 0) {
        return host::Error(
                "there is no /dev/fuse.\n"
                "  On a machine of its own: modprobe fuse\n"
                "  In a container: start it with --device /dev/fuse");
    }
    const int fd = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (fd < 0) {
        return host::Error(
                std::string("/dev/fuse cannot be opened: ") + strerror(errno) +
                ".\n"
                "  Not permitted to this user: chmod 666 /dev/fuse, as distributions have it\n"
                "  In a container: start it with --device /dev/fuse\n"
                "  No such device: modprobe fuse");
    }
    close(fd);
    return {};
}

std::string RootFailureAdvice() {
    if (FirstWordOf("/proc/sys/kernel/unprivileged_userns_clone") == "0") {
        return "user namespaces are switched off for ordinary users.\n"
               "  sysctl kernel.unprivileged_userns_clone=1";
    }
    if (FirstWordOf("/proc/sys/user/max_user_namespaces") == "0") {
        return "user namespaces are switched off.\n"
               "  sysctl user.max_user_namespaces=10000";
    }
    if (FirstWordOf("/proc/sys/kernel/apparmor_restrict_unprivileged_userns") == "1") {
        return "AppArmor keeps user namespaces from ordinary users.\n"
               "  sysctl kernel.apparmor_restrict_unprivileged_userns=0";
    }
    return "this user may not make namespaces or mount in them.\n"
           "  In a container: start it with --cap-add SYS_ADMIN --device /dev/fuse\n"
           "  --security-opt seccomp=unconfined --security-opt apparmor=unconfined";
}

}  // namespace virtual_dsp
