#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "host/virtual_dsp/nodes/nodes.h"

// FUSE's own, named here so that its header stays out of this one.
struct fuse_req;

namespace virtual_dsp {

// The board's one directory: the names, numbers (inodes) and attributes of its files. Answers what
// the kernel asks about them. Used by the serving thread only.
class FuseDirectory {
  public:
    explicit FuseDirectory(const NodeContext& context) : context_(context) {}

    // The file's node; null for the directory itself and for numbers that are not in use.
    static const NodeInfo* NodeOf(uint64_t inode);

    void Lookup(fuse_req* req, uint64_t parent, const char* name) const;
    void GetAttributes(fuse_req* req, uint64_t inode) const;
    void ReadDirectory(fuse_req* req, uint64_t inode, size_t size, off_t offset) const;

  private:
    const NodeContext context_;
};

}  // namespace virtual_dsp
