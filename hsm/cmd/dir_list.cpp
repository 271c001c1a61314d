#include "hsm/cmd/dir_list.h"

#include <cstring>

#include "platform/platform_status.h"

int DirList::insert(const char* path) {
  size_t n = std::strlen(path);
  auto* node = static_cast<dirListNode_t*>(qmxpAlloc(pool_, sizeof(dirListNode_t) + n));
  if (node == nullptr) return PS_RC_NOMEM;
  std::memcpy(node->path, path, n + 1);
  dirListNode_t** at = &head_;
  while (*at != nullptr && std::strcmp((*at)->path, path) < 0) at = &(*at)->next;
  node->next = *at;
  *at = node;
  return 0;
}

void* dirListPoolAlloc(void* ctx, size_t size) {
  return qmxpAlloc(*static_cast<mpHandle_t*>(ctx), size);
}
