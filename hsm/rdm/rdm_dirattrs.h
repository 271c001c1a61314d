// The directory call of the root daemon's service (rdmDirAttrsCall): for
// one directory, every regular file's handle and a few DM attributes in one
// exchange, so that a user listing a directory of stubs pays one round trip
// per directory instead of two or three per file.
//
// Request: u64 sid, bytes directory (absolute, with its NUL), bytes cursor
//          (a name; only names sorting after it are answered, empty: from
//          the start), u32 flags, u32 limit (at most this many entries in
//          the reply, 0: as many as fit), u32 n (1..rdmDirMaxNames), n names.
// Reply:   result 0, or -1 with the errno of opening the directory;
//          u32 count, u32 more (1: ask again with the last name as cursor),
//          count entries in name order, each: bytes name, i32 errno of
//          PathToHandle (0: done), handle, then per requested name: i32
//          errno of GetDmattr (0: done), u64 rlen, bytes value.
// An entry is a regular file (symbolic links are not followed); its handle
// is what PathToHandle gives for directory + "/" + name, and each attribute
// what GetDmattr with DM_NO_TOKEN gives (a value of up to rdmDirValueMax
// bytes; a larger one gets E2BIG and its length).  The daemon answers under
// the rules of the single calls, so a caller sees exactly what they would
// show it, and nothing they would refuse.
//
// With rdmDirIfAbsent in the flags a name is read only when every name
// before it was absent (ENOENT or ENODATA); the others are answered
// rdmDirNotRead.  That is how a migration state is read (the premigration
// attribute matters only without the migration one), and it spares a
// directory of stubs one read per file.
#ifndef QMX_HSM_RDM_RDM_DIRATTRS_H_
#define QMX_HSM_RDM_RDM_DIRATTRS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hsm/rdm/rdm_proto.h"

constexpr uint32_t rdmDirMaxNames = 4;
constexpr size_t rdmDirValueMax = 64 * 1024;
constexpr uint32_t rdmDirIfAbsent = 1;  // the only flag
// The errno slot of an attribute that rdmDirIfAbsent left unread.
constexpr int rdmDirNotRead = -1;

struct rdmDirAttr_t {
  int err = 0;  // errno of GetDmattr, 0 when it succeeded, or rdmDirNotRead
  uint64_t rlen = 0;
  std::vector<unsigned char> value;
};

struct rdmDirEntry_t {
  std::string name;
  int handleErr = 0;  // errno of PathToHandle, 0 when it succeeded
  std::vector<unsigned char> handle;
  std::vector<rdmDirAttr_t> attrs;  // one per requested name, in order
};

// The arguments of a directory call.
struct rdmDirQuery_t {
  dm_sessid_t sid = DM_NO_SESSION;
  std::string dir;
  std::string cursor;
  uint32_t flags = 0;
  uint32_t limit = 0;
  std::vector<dm_attrname_t> names;
};

// The encoding of the query (rdm_calls.h's rdmDirAttrsMsg_t uses these).
void rdmEncodeDirQuery(const rdmDirQuery_t& q, rdmWriter* out);
// False when the arguments do not decode exactly or make no sense (no
// directory, a NUL inside it, no names or too many, a cursor that is not a
// file name, an unknown flag).
bool rdmDecodeDirQuery(rdmReader& in, rdmDirQuery_t* q);

// The answer of one call: entries in name order, and whether it was cut
// short (ask again with the last name as cursor).
struct rdmDirReply_t {
  std::vector<rdmDirEntry_t> entries;
  bool more = false;
};

// Encodes the entries part of a reply.
void rdmPutDirEntries(const std::vector<rdmDirEntry_t>& entries, bool more, rdmWriter* out);
// Decodes it, expecting |nattrs| attributes per entry.  False when the
// payload is malformed (a wrong attribute count, a bad name, a value longer
// than its limit, bytes left over).
bool rdmGetDirEntries(rdmReader& in, size_t nattrs, std::vector<rdmDirEntry_t>* entries,
                      bool* more);

// Gathers the entries of one reply within the payload limit and at most
// |limit| entries (0: no limit).
class rdmDirReplyBuilder {
 public:
  explicit rdmDirReplyBuilder(uint32_t limit = 0) : limit_(limit) {}
  // Appends |e|; false (and more() true) when it no longer fits.
  bool add(rdmDirEntry_t e);
  bool more() const { return more_; }
  // How many more entries the limit allows (SIZE_MAX without one).
  size_t room() const { return limit_ == 0 ? SIZE_MAX : limit_ - reply_.entries.size(); }
  // Says that entries were left out (when the limit is reached before
  // the next file is looked at).
  void cut() { more_ = true; }
  // Hands the gathered reply over to |out|; the builder is empty after.
  void finish(rdmDirReply_t* out);

 private:
  rdmDirReply_t reply_;
  size_t bodySize_ = 0;  // the encoded size of the entries so far
  uint32_t limit_;
  bool more_ = false;
};

#endif  // QMX_HSM_RDM_RDM_DIRATTRS_H_
