// A client in a sandbox, for tests that run the real programs.
//
// Each Sandbox is a test sandbox (testing/sandbox.h) whose directory R is
// itself the system root (QMX_SYSROOT=R, for this process and every
// program it runs) and which other users may enter: the installed client
// is mirrored at R/opt/norvik/nqb/client (directories made, files linked
// or copied), and the test writes option files, makes managed file systems
// and runs the programs there as separate processes.  The directory is
// removed when the sandbox goes (unless QMX_KEEP_SANDBOX is set).
#ifndef QMX_TESTS_SANDBOX_H_
#define QMX_TESTS_SANDBOX_H_

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "testing/sandbox.h"

struct RunResult {
  int status = -1;  // exit status (0-255), or 128 + signal number
  bool timedOut = false;
  std::string out;  // standard output
  std::string err;  // standard error
};

struct RunOptions {
  std::string cwd;                         // "" = the sandbox root
  std::map<std::string, std::string> env;  // added to (or replacing) the base environment
  std::vector<std::string> unsetEnv;       // removed from it
  uid_t uid = static_cast<uid_t>(-1);      // run as this user (root only)
  gid_t gid = static_cast<gid_t>(-1);
  int timeoutSec = 30;  // then the program is killed (RunResult::timedOut)
  // Sends |signal| once this holds of the running program (asked with its
  // pid while it runs, until it holds once): a readiness condition, such
  // as qmxtest::waitsReading, never a delay.
  std::function<bool(pid_t)> signalWhen;
  int signal = 0;
  std::string stdinText;
  // A descriptor the program gets as its standard input instead of a pipe
  // holding |stdinText| (-1: none).  The caller keeps and closes it.
  int stdinFd = -1;
};

class Sandbox : public qmxtest::Sandbox {
 public:
  // Throws std::runtime_error when the sandbox or the client can't be made.
  Sandbox();

  const std::string& root() const { return sysRoot(); }
  // The installed client directory inside the sandbox.
  std::string clientDir() const { return sys("/opt/norvik/nqb/client"); }

  // Makes the directory |fs| (a host path inside the sandbox) the managed
  // file system of the sandboxed client, as an administrator would: option
  // files naming it as the virtual mount point of a server, the recall
  // daemon's executable in place, and "qmxstub fs-add".  Returns qmxstub's
  // result.
  RunResult manageFileSystem(const std::string& fs) const;

  // Runs |argv| (argv[0] a path) with QMX_SYSROOT set to the sandbox.
  RunResult run(const std::vector<std::string>& argv, const RunOptions& opts = {}) const;
  // Runs an installed program of the client: "hsm/bin/qmxattr", ...
  RunResult runClient(const std::string& rel, const std::vector<std::string>& args,
                      const RunOptions& opts = {}) const;

 private:
  static void mirror(const std::string& from, const std::string& to);
};

// Where the build installed the client for the tests (QMX_TEST_INSTALL_DIR).
std::string testInstallDir();

#endif  // QMX_TESTS_SANDBOX_H_
