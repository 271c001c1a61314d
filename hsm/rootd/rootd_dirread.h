// The directory call (hsm/rdm/rdm_dirattrs.h) as the daemon reads it:
// a directory's regular files and each one's DM attributes through a
// provider binding.
#ifndef QMX_HSM_ROOTD_ROOTD_DIRREAD_H_
#define QMX_HSM_ROOTD_ROOTD_DIRREAD_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "hsm/dmapi/dmapi_binding.h"
#include "hsm/rdm/rdm_dirattrs.h"

// The names of the regular files (symbolic links not followed) of the
// directory open on |fd| that sort after |cursor|, sorted byte-wise.  Takes
// |fd| over.  Returns 0 or -1 with errno.
int rtdListRegularFiles(int fd, const std::string& cursor, std::vector<std::string>* names);

// GetDmattr of each name of |q| through |dm| with DM_NO_TOKEN into
// |*attrs| (resized to match), as |q|'s flags ask: a small buffer first,
// then one as large as the value (up to rdmDirValueMax).
void rtdReadDirAttrs(const dmapiBinding_t& dm, const rdmDirQuery_t& q, void* hanp, size_t hlen,
                     std::vector<rdmDirAttr_t>* attrs);

// Answers |q| with the calls of |dm| (PathToHandle, then GetDmattr per
// name), the directory opened plainly.  Returns 0, or -1 with errno of the
// directory.
int64_t rtdAnswerDirAttrsAsRoot(const dmapiBinding_t& dm, const rdmDirQuery_t& q,
                                rdmDirReply_t* out);

#endif  // QMX_HSM_ROOTD_ROOTD_DIRREAD_H_
