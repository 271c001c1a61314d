// The directory call (rdm_dirattrs.h) for a caller who is not root: every
// regular file of a directory the caller could list, reached and judged
// with the caller's identity and read with root's, as the single calls
// would do it (rootd_guard.h has the rules).
#ifndef QMX_HSM_ROOTD_ROOTD_DIRCALL_H_
#define QMX_HSM_ROOTD_ROOTD_DIRCALL_H_

#include <sys/stat.h>

#include <string>
#include <vector>

#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/rdm/rdm_dirattrs.h"
#include "hsm/rootd/rootd_caller.h"

// The sorted names of the regular files of the directory that a connection
// asked for last, kept while that directory is unchanged, so that a large
// directory answered in several replies is read once.  A name list that
// is a little old does no harm: a file made since is asked for by its own
// call, one removed since is answered as gone.  Not thread-safe: one per
// connection.
class rtdDirListing {
 public:
  // The names of the directory open on |fd| (which stays the caller's):
  // the kept ones while |fd| is the same directory, unchanged, as last
  // time; otherwise read anew.  Null with errno when it can't be read.
  const std::vector<std::string>* names(int fd);

 private:
  bool valid_ = false;
  struct statx key_ = {};
  std::vector<std::string> names_;
};

// Answers |q| for |caller|, who is not root and may use |q.sid|, through
// the real provider |dm|; |listing| (may be null) is the connection's
// kept listing.  The directory must be absolute.  Returns 0 with the reply
// in |*out| and the number of files refused to the caller in |*refused|;
// or -1 with errno: EACCES (or EPERM) when the caller may not list the
// directory, EPERM when the daemon could not take the caller's identity,
// anything else from opening or reading the directory.
int64_t rtdAnswerDirAttrs(const rtdCaller_t& caller, const dmapiBinding_t& dm,
                          rtdDirListing* listing, const rdmDirQuery_t& q, rdmDirReply_t* out,
                          int* refused);

#endif  // QMX_HSM_ROOTD_ROOTD_DIRCALL_H_
