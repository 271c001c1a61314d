// Runs the attribute command's query of one file twice through the DMAPI
// layer, between marker writes that a system-call tracer can see:
//   write(-1, "QMX-BEGIN n", ...)  open  <the query>  close  write(-1, "QMX-END n", ...)
// The test of the per-file cost counts the calls between the markers.
// Usage: dmapi_query_probe FILE   (as root; exit DMI_PROBE_EXIT_OK when both
// queries worked)
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "hsm/dmapi/dmi_fileattr.h"
#include "hsm/dmapi/dmi_log.h"
#include "hsm/dmapi/dmi_session.h"
#include "hsm/dmapi/dmi_status.h"

int main(int argc, char** argv) {
  if (argc != 2) return DMI_PROBE_EXIT_USAGE;
  dmiSetProgName("dmapi_query_probe");
  if (dmiInit(1) != 0) return DMI_PROBE_EXIT_FAILED;
  XDSMAPI* x = XDSMAPI::getXDSMAPI();
  dm_sessid_t sid = x->createSession(0, "dmapi_query_probe", 0);
  if (sid == 0) return DMI_PROBE_EXIT_FAILED;
  int ok = 0;
  for (int round = 1; round <= 2; ++round) {
    char begin[32], end[32];
    int nb = std::snprintf(begin, sizeof begin, "QMX-BEGIN %d", round);
    int ne = std::snprintf(end, sizeof end, "QMX-END %d", round);
    if (write(-1, begin, static_cast<size_t>(nb)) < 0) {
      // The marker is meant to fail: only the tracer sees it.
    }
    migAttrRequest req;
    std::memset(&req, 0, sizeof req);
    req.operation = migAttrQuery;
    std::strncpy(req.path, argv[1], sizeof req.path - 1);
    req.fd = open(argv[1], O_RDONLY);
    if (req.fd >= 0 && dmiEntryFileAttributes(sid, &req) == 0) ++ok;
    if (req.fd >= 0) close(req.fd);
    if (write(-1, end, static_cast<size_t>(ne)) < 0) {
    }
  }
  x->destroySession(sid, 0);
  return ok == 2 ? DMI_PROBE_EXIT_OK : DMI_PROBE_EXIT_FAILED;
}
