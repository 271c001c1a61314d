// The fixture of the tests that run qmxattr as a separate process: a
// sandboxed client (tests/sandbox.h) with a managed file system made by
// qmxstub, and helpers to read what the command printed.
#ifndef QMX_TESTS_TESTING_ATTR_FIXTURE_H_
#define QMX_TESTS_TESTING_ATTR_FIXTURE_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "testing/files.h"
#include "tests/sandbox.h"

namespace attrtest {

inline std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> v;
  std::istringstream in(text);
  std::string l;
  while (std::getline(in, l)) v.push_back(l);
  return v;
}

// The index of the first line equal to |line|, or -1.
inline int Find(const std::vector<std::string>& lines, const std::string& line) {
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i] == line) return static_cast<int>(i);
  }
  return -1;
}

// One line of the listing: the mode letter and the name.
inline std::string Row(const std::string& mode, const std::string& name) {
  char buf[1400];
  std::snprintf(buf, sizeof buf, "%5s   %s", mode.c_str(), name.c_str());
  return buf;
}

// How often |what| occurs in |text|.
inline size_t Count(const std::string& text, const std::string& what) {
  size_t n = 0;
  for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

class AttrTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0)
      GTEST_SKIP()
          << "the DMAPI provider keeps its attributes in the trusted namespace: run as root";
    fs_ = sb_.root() + "/hsmfs";
    RunResult r = sb_.manageFileSystem(fs_);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
  }

  void writeOptions(const std::string& text) {
    qmxtest::writeFile(sb_.clientDir() + "/ba/bin/qmx.opt", text);
  }
  // The system option file: the sandbox's server stanza, with |extra|
  // lines added to it.
  void writeSystemOptions(const std::string& extra) {
    qmxtest::writeFile(sb_.clientDir() + "/ba/bin/qmx.sys",
                       "SERVERNAME server_a\n  TCPSERVERADDRESS 127.0.0.1\n  VIRTUALMOUNTPOINT " +
                           fs_ + "\n" + extra);
  }
  // The error log when nothing names another.
  std::string defaultLog() const { return sb_.clientDir() + "/ba/bin/qmxerror.log"; }

  void stub(const std::vector<std::string>& args) {
    RunResult r = sb_.runClient("hsm/bin/qmxstub", args);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
  }
  // A file of |size| bytes made into a stub with |extra| qmxstub options.
  std::string makeStub(const std::string& rel, const std::vector<std::string>& extra = {}) {
    std::string p = fs_ + "/" + rel;
    qmxtest::writeFile(p, "data");
    std::vector<std::string> args{"migrate", p};
    args.insert(args.end(), extra.begin(), extra.end());
    stub(args);
    return p;
  }
  RunResult attr(const std::vector<std::string>& args, RunOptions opts = {}) {
    if (opts.cwd.empty()) opts.cwd = fs_;
    return sb_.runClient("hsm/bin/qmxattr", args, opts);
  }
  // Runs qmxattr with |args| through "/bin/sh -c |script|", where the
  // script names the command as "$0" and its arguments as "$@".
  RunResult attrInShell(const std::string& script, const std::vector<std::string>& args,
                        RunOptions opts = {}) {
    if (opts.cwd.empty()) opts.cwd = fs_;
    std::vector<std::string> argv{"/bin/sh", "-c", script, sb_.clientDir() + "/hsm/bin/qmxattr"};
    argv.insert(argv.end(), args.begin(), args.end());
    return sb_.run(argv, opts);
  }
  // The sessions in the provider's registry (one file each, named by id).
  std::string sessions() {
    return sb_.run({"/bin/sh", "-c", "ls '" + sb_.sys("/run/qmxdmapi") + "' 2>/dev/null"}).out;
  }
  std::string show(const std::string& path) {
    RunResult r = sb_.runClient("hsm/bin/qmxstub", {"show", path});
    return r.out;
  }

  Sandbox sb_;
  std::string fs_;
};

}  // namespace attrtest

#endif  // QMX_TESTS_TESTING_ATTR_FIXTURE_H_
