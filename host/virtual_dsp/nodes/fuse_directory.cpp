#include "host/virtual_dsp/nodes/fuse_directory.h"

#define FUSE_USE_VERSION 35
#include <fuse_lowlevel.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

namespace virtual_dsp {
namespace {

constexpr uint64_t kFirstInode = FUSE_ROOT_ID + 1;
constexpr double kForEver = 1e9;  // Seconds that the kernel may remember something.

uint64_t InodeOf(const NodeInfo& node) {
    return kFirstInode + static_cast<uint64_t>(node.id);
}

// Empty for a node that does not exist now.
std::optional<struct stat> AttributesOf(uint64_t inode, const NodeContext& context) {
    struct stat attributes {};
    attributes.st_ino = inode;
    attributes.st_uid = getuid();
    attributes.st_gid = getgid();
    if (inode == FUSE_ROOT_ID) {
        attributes.st_mode = S_IFDIR | 0755;
        attributes.st_nlink = 2;
        return attributes;
    }
    const NodeInfo* node = FuseDirectory::NodeOf(inode);
    const auto size = node != nullptr ? NodeSize(node->id, context) : std::nullopt;
    if (!size) return std::nullopt;
    // A regular file for stat(): the kernel would look for the driver of a character device itself.
    attributes.st_mode = S_IFREG | node->permissions;
    attributes.st_nlink = 1;
    attributes.st_size = *size;
    return attributes;
}

// Only the tuning file comes, goes and changes its size.
double TimeoutOf(uint64_t inode) {
    const NodeInfo* node = FuseDirectory::NodeOf(inode);
    return node != nullptr && node->id == NodeId::kTuning ? 0.0 : kForEver;
}

}  // namespace

const NodeInfo* FuseDirectory::NodeOf(uint64_t inode) {
    const uint64_t index = inode - kFirstInode;
    return inode >= kFirstInode && index < kNodes.size() ? &kNodes[index] : nullptr;
}

void FuseDirectory::Lookup(fuse_req* req, uint64_t parent, const char* name) const {
    for (const NodeInfo& node : kNodes) {
        if (parent != FUSE_ROOT_ID || node.FileName() != name) continue;
        const uint64_t inode = InodeOf(node);
        const auto attributes = AttributesOf(inode, context_);
        if (!attributes) break;
        fuse_entry_param entry{};
        entry.ino = inode;
        entry.attr = *attributes;
        entry.attr_timeout = entry.entry_timeout = TimeoutOf(inode);
        fuse_reply_entry(req, &entry);
        return;
    }
    fuse_reply_err(req, ENOENT);
}

void FuseDirectory::GetAttributes(fuse_req* req, uint64_t inode) const {
    const auto attributes = AttributesOf(inode, context_);
    if (attributes) {
        fuse_reply_attr(req, &*attributes, TimeoutOf(inode));
    } else {
        fuse_reply_err(req, ENOENT);
    }
}

void FuseDirectory::ReadDirectory(fuse_req* req, uint64_t inode, size_t size, off_t offset) const {
    if (inode != FUSE_ROOT_ID) {
        fuse_reply_err(req, ENOTDIR);
        return;
    }
    std::vector<char> entries(size);
    size_t used = 0;
    for (size_t i = static_cast<size_t>(offset); i < kNodes.size(); ++i) {
        const auto attributes = AttributesOf(InodeOf(kNodes[i]), context_);
        if (!attributes) continue;
        const size_t added = fuse_add_direntry(req, entries.data() + used, size - used,
                                               std::string(kNodes[i].FileName()).c_str(),
                                               &*attributes, static_cast<off_t>(i + 1));
        if (added > size - used) break;
        used += added;
    }
    fuse_reply_buf(req, entries.data(), used);
}

}  // namespace virtual_dsp
