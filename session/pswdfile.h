// The stored password file (PASSWORDACCESS GENERATE).
//
// The client keeps no password, only what it needs to answer the server's
// challenge: per server and node, the salt, the iteration count and the
// verifier.  The file "qmx.pwd" in the password directory (PASSWORDDIR, else
// the system default) is readable and writable by root only; a file that
// others may read is refused, since its verifiers are as good as passwords to
// this server.  Lines the client does not understand are kept as they are
// when it rewrites the file, so nothing is lost.
//
// Line form: "V1 <server> <node> <iterations> <salt hex> <verifier hex>".
// Names are upper-case words without blanks.
//
// Thread safety: the directory setting is guarded; file updates are atomic
// (a temporary file renamed over the old one) and serialised between
// processes with a lock on the file.
#ifndef QMX_SESSION_PSWDFILE_H_
#define QMX_SESSION_PSWDFILE_H_

#include <string>
#include <vector>

#include "platform/platform_status.h"
#include "session/auth.h"

struct pswdRecord_t {
  std::string server;
  std::string node;
  std::vector<unsigned char> salt;
  uint32_t iterations = 0;
  authVerifier_t verifier{};
};

// Sets the directory of the password file (empty: the default).  Returns 0,
// or PS_RC_BADARG for a relative path.
int psSetPswdFileOption(const char* dir);
// The full name of the password file now in force.
std::string pswdFilePath();

// Reads the record of |server| and |node|.  Returns 0, ENOENT when there is
// none (or no file), EACCES when the file may be read by others, or the
// errno of a failing read.
int pswdFRead(const std::string& server, const std::string& node, pswdRecord_t* out);
// Stores |rec|, replacing an earlier record of the same server and node.
// Returns 0 or an errno.
int pswdFWrite(const pswdRecord_t& rec);
// Deletes the record of |server| and |node|.  Returns 0 (also when there was
// none) or an errno.
int dsDeletePasswordRecord(const std::string& server, const std::string& node);

// Makes a new password for the node: 0 and the password in |*out|, or EIO
// when the random source fails.
int pswdFGeneratePswd(std::string* out);

#endif  // QMX_SESSION_PSWDFILE_H_
