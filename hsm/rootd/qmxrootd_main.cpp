// qmxrootd: the root daemon that makes DMAPI calls for users who are not
// root (rootd_daemon.h).
#include "hsm/rootd/rootd_daemon.h"

int main(int argc, char** argv) {
  return rtdDaemonMain(argc, argv);
}
