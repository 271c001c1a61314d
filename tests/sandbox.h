// A client in a sandbox, for tests that run the real programs.
//
// Each Sandbox is a fresh temporary directory R used as the system root
// (QMX_SYSROOT=R): the installed client is mirrored at
// R/opt/norvik/nqb/client (directories made, files linked or copied), and
// the test writes option files, makes managed file systems and runs the
// programs there as separate processes.  The directory is removed when the
// sandbox goes (unless QMX_KEEP_SANDBOX is set).
#ifndef QMX_TESTS_SANDBOX_H_
#define QMX_TESTS_SANDBOX_H_

#include <sys/types.h>

#include <map>
#include <string>
#include <vector>

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
  int timeoutSec = 30;
  int signalAfterMs = -1;  // send |signal| after this delay
  int signal = 0;
  std::string stdinText;
};

class Sandbox {
 public:
  Sandbox();
  ~Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;

  const std::string& root() const { return root_; }
  // R followed by |abs| (an absolute path inside the sandbox's system).
  std::string sys(const std::string& abs) const { return root_ + abs; }
  // The installed client directory inside the sandbox.
  std::string clientDir() const { return sys("/opt/norvik/nqb/client"); }

  // Writes |content| to |path| (absolute host path), creating directories.
  static void writeFile(const std::string& path, const std::string& content);
  static std::string readFile(const std::string& path);
  static void makeDirs(const std::string& path);

  // Runs |argv| (argv[0] a path) with QMX_SYSROOT set to the sandbox.
  RunResult run(const std::vector<std::string>& argv, const RunOptions& opts = {}) const;
  // Runs an installed program of the client: "hsm/bin/qmxattr", ...
  RunResult runClient(const std::string& rel, const std::vector<std::string>& args,
                      const RunOptions& opts = {}) const;

 private:
  static void mirror(const std::string& from, const std::string& to);
  std::string root_;
};

// Where the build installed the client for the tests (QMX_TEST_INSTALL_DIR).
std::string testInstallDir();

#endif  // QMX_TESTS_SANDBOX_H_
