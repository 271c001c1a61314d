// The sorted list of directories that the attribute command lists after it
// has handled its operands.
//
// Nodes live in a memory pool owned by the caller and go with it; the list
// never frees a node.  Paths are kept in ascending byte order; a path equal
// to one already present goes before it (the newest of equal paths first),
// and both are kept.
#ifndef QMX_HSM_CMD_DIR_LIST_H_
#define QMX_HSM_CMD_DIR_LIST_H_

#include "diag/mempool.h"
#include "platform/platform_status.h"

struct dirListNode_t {
  dirListNode_t* next;
  char path[1];  // allocated to the path's length
};

class DirList {
 public:
  explicit DirList(mpHandle_t pool) : pool_(pool) {}

  // Inserts a copy of |path|.  Returns 0, or PS_RC_NOMEM when the pool is
  // out of memory (the path is then not in the list).
  int insert(const char* path);

  const dirListNode_t* head() const { return head_; }

 private:
  mpHandle_t pool_;
  dirListNode_t* head_ = nullptr;
};

// An allocator over a pool for fioGetDirEntries2; |ctx| points to the
// mpHandle_t of the pool.
void* dirListPoolAlloc(void* ctx, size_t size);

#endif  // QMX_HSM_CMD_DIR_LIST_H_
