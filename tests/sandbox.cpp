#include "tests/sandbox.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "testing/files.h"

extern char** environ;

std::string testInstallDir() {
  const char* d = std::getenv("QMX_TEST_INSTALL_DIR");
  if (d == nullptr || *d == '\0') throw std::runtime_error("QMX_TEST_INSTALL_DIR is not set");
  return d;
}

Sandbox::Sandbox() : qmxtest::Sandbox({.prefix = "qmxsandbox.", .mode = 0755, .sysRoot = ""}) {
  // The client directory mirrors the installation: real directories, so
  // that a test may add or leave out files (option files, the recall
  // daemon's executable), and links to the installed files.
  mirror(testInstallDir(), clientDir());
}

void Sandbox::mirror(const std::string& from, const std::string& to) {
  qmxtest::makeDirs(to);
  DIR* d = opendir(from.c_str());
  if (d == nullptr) throw std::runtime_error("cannot read " + from);
  while (struct dirent* e = readdir(d)) {
    std::string n = e->d_name;
    if (n == "." || n == "..") continue;
    std::string src = from + "/" + n, dst = to + "/" + n;
    struct stat st;
    if (stat(src.c_str(), &st) != 0) continue;
    if (S_ISDIR(st.st_mode)) {
      mirror(src, dst);
    } else if (link(src.c_str(), dst.c_str()) != 0) {
      // Hard links (or copies across file systems), not symbolic ones: the
      // installation may sit below a directory that only root can enter,
      // and the tests run the programs as other users too.
      std::error_code ec;
      std::filesystem::copy_file(src, dst, ec);
      if (ec) {
        closedir(d);
        throw std::runtime_error("cannot copy " + dst);
      }
    }
  }
  closedir(d);
}

RunResult Sandbox::manageFileSystem(const std::string& fs) const {
  qmxtest::makeDirs(fs);
  qmxtest::writeFile(clientDir() + "/ba/bin/qmx.opt", "OPTIONFORMAT STANDARD\nLOGO NO\n");
  qmxtest::writeFile(
      clientDir() + "/ba/bin/qmx.sys",
      "SERVERNAME server_a\n  TCPSERVERADDRESS 127.0.0.1\n  VIRTUALMOUNTPOINT " + fs + "\n");
  qmxtest::writeFile(clientDir() + "/hsm/bin/qmxrecalld", "");
  return runClient("hsm/bin/qmxstub", {"fs-add", fs});
}

namespace {

void Drain(int fd, std::string* into, bool* open) {
  char buf[65536];
  ssize_t n = read(fd, buf, sizeof buf);
  if (n > 0) {
    into->append(buf, static_cast<size_t>(n));
  } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
    *open = false;
  }
}

}  // namespace

RunResult Sandbox::run(const std::vector<std::string>& argv, const RunOptions& opts) const {
  RunResult res;
  int outp[2], errp[2], inp[2];
  if (pipe2(outp, O_CLOEXEC) != 0 || pipe2(errp, O_CLOEXEC) != 0 || pipe2(inp, O_CLOEXEC) != 0) {
    throw std::runtime_error("pipe failed");
  }
  // The child's environment: ours, changed as asked, with the sandbox root.
  std::map<std::string, std::string> env;
  for (char** e = environ; *e != nullptr; ++e) {
    const char* eq = std::strchr(*e, '=');
    if (eq != nullptr) env[std::string(*e, static_cast<size_t>(eq - *e))] = eq + 1;
  }
  for (const std::string& u : opts.unsetEnv) env.erase(u);
  env["QMX_SYSROOT"] = root();
  for (const auto& [k, v] : opts.env) env[k] = v;
  std::vector<std::string> envStore;
  for (const auto& [k, v] : env) envStore.push_back(k + "=" + v);
  std::vector<char*> envp, args;
  for (std::string& s : envStore) envp.push_back(s.data());
  envp.push_back(nullptr);
  std::vector<std::string> argStore = argv;
  for (std::string& s : argStore) args.push_back(s.data());
  args.push_back(nullptr);
  const std::string cwd = opts.cwd.empty() ? root() : opts.cwd;

  pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("fork failed");
  if (pid == 0) {
    dup2(opts.stdinFd >= 0 ? opts.stdinFd : inp[0], 0);
    dup2(outp[1], 1);
    dup2(errp[1], 2);
    if (chdir(cwd.c_str()) != 0) _exit(126);
    if (opts.gid != static_cast<gid_t>(-1) && (setgroups(0, nullptr), setgid(opts.gid) != 0)) {
      _exit(126);
    }
    if (opts.uid != static_cast<uid_t>(-1) && setuid(opts.uid) != 0) _exit(126);
    execve(args[0], args.data(), envp.data());
    _exit(127);
  }
  close(inp[0]);
  close(outp[1]);
  close(errp[1]);
  if (!opts.stdinText.empty()) {
    ssize_t w = ::write(inp[1], opts.stdinText.data(), opts.stdinText.size());
    (void)w;
  }
  close(inp[1]);
  bool outOpen = true, errOpen = true, signalled = false;
  const auto start = std::chrono::steady_clock::now();
  while (outOpen || errOpen) {
    struct pollfd fds[2] = {{outp[0], POLLIN, 0}, {errp[0], POLLIN, 0}};
    int rc = poll(fds, 2, 50);
    if (rc > 0) {
      if (outOpen && (fds[0].revents & (POLLIN | POLLHUP))) Drain(outp[0], &res.out, &outOpen);
      if (errOpen && (fds[1].revents & (POLLIN | POLLHUP))) Drain(errp[0], &res.err, &errOpen);
    }
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                  std::chrono::steady_clock::now() - start)
                  .count();
    if (!signalled && opts.signalWhen && opts.signalWhen(pid)) {
      kill(pid, opts.signal);
      signalled = true;
    }
    if (ms > opts.timeoutSec * 1000L) {
      kill(pid, SIGKILL);
      res.timedOut = true;
      break;
    }
  }
  close(outp[0]);
  close(errp[0]);
  int st = 0;
  while (waitpid(pid, &st, 0) < 0 && errno == EINTR) {
  }
  res.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
  return res;
}

RunResult Sandbox::runClient(const std::string& rel, const std::vector<std::string>& args,
                             const RunOptions& opts) const {
  std::vector<std::string> argv{clientDir() + "/" + rel};
  argv.insert(argv.end(), args.begin(), args.end());
  return run(argv, opts);
}
