#include "hsm/rdm/rdm_calls.h"

bool rdmDirAttrsMsg_t::decodeArgs(const void* p, size_t n, Args* a) {
  rdmReader in(p, n);
  return rdmDecodeDirQuery(in, a);
}

void rdmDirAttrsMsg_t::encodeReply(const Reply& v, int64_t, rdmWriter* out) {
  rdmPutDirEntries(v.entries, v.more, out);
}

bool rdmDirAttrsMsg_t::decodeReply(const Args& q, const void* p, size_t n, int64_t result,
                                   Reply* v) {
  rdmReader in(p, n);
  if (!rdmGetDirEntries(in, q.names.size(), &v->entries, &v->more)) return false;
  // Names come sorted and after the cursor; anything else is not an answer
  // to this request.
  const std::string* prev = &q.cursor;
  for (const rdmDirEntry_t& e : v->entries) {
    if (!prev->empty() && e.name <= *prev) return false;
    prev = &e.name;
  }
  if (result != 0 && (!v->entries.empty() || v->more)) return false;
  if (v->more && v->entries.empty()) return false;  // no progress
  return q.limit == 0 || v->entries.size() <= q.limit;
}
