// qmxstub: see tools/qmxstub.h.
#include <stdlib.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <string>

#include "diag/nl.h"
#include "hsm/dmapi/dmi_log.h"
#include "platform/sysroot.h"
#include "tools/qmxstub.h"

namespace {

// The directory of this executable.
std::string exeDir() {
  char buf[PATH_MAX];
  ssize_t n = readlink("/proc/self/exe", buf, sizeof buf - 1);
  if (n <= 0) return ".";
  std::string p(buf, static_cast<size_t>(n));
  size_t slash = p.rfind('/');
  return slash == std::string::npos ? "." : p.substr(0, slash);
}

// Starts the message system from the first catalogue directory that works:
// QMX_DIR, the installed client beside this program, the build tree, the
// client's fixed directory.
bool startMessages() {
  newNlsGlobalObject(nullptr, 0);
  std::string dirs[4];
  const char* env = getenv("QMX_DIR");
  if (env != nullptr) dirs[0] = env;
  dirs[1] = exeDir() + "/../../ba/bin";
  dirs[2] = exeDir() + "/../client/ba/bin";
  dirs[3] = psSysPath("/opt/norvik/nqb/client/ba/bin");
  for (const std::string& d : dirs) {
    // Probe first: the message system complains about a directory without
    // the catalogue.
    if (d.empty() || access((d + "/EN_US/qmxclientV3.cat").c_str(), R_OK) != 0) continue;
    if (nlinit("AMENG", 50, d.c_str(), 5, 0, 0, 0, nullptr, nullptr) == 0) return true;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  dmiSetProgName("qmxstub");
  if (!startMessages())
    std::fprintf(stderr, "qmxstub: the message catalogue qmxclientV3.cat was not found\n");
  int rc = qmxstubRun(argc, argv, stdout, stderr);
  nlterm();
  return rc;
}
