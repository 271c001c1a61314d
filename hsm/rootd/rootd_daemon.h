// The program qmxrootd: start-up, arguments, the reports of the service
// through the message catalogue and the error log, and shut-down.
//
//   qmxrootd [-d] [-c clients] [-t seconds] [start-up options]
//     -d   run as a daemon (detached, in the background)
//     -c   connections served at once (1..256, default 16)
//     -t   seconds a request may take, and a connection may idle (1..3600,
//          default 5)
//   Start-up options as for every command: -TRACEFILE=, -TRACEFLAGS=,
//   -TRACEMAX=, -TESTFLAGS=, -ERRORLOGNAME=.
//
// SIGTERM and SIGINT (and SIGHUP, SIGQUIT) end the service cleanly: the
// socket is removed and the process ends with status 0.
#ifndef QMX_HSM_ROOTD_ROOTD_DAEMON_H_
#define QMX_HSM_ROOTD_ROOTD_DAEMON_H_

#include <string>

struct rtdArgs_t {
  bool daemon = false;
  int maxClients = 16;
  int timeoutSec = 5;
};

// Parses the daemon's own arguments into |out|, passing over the start-up
// options.  Returns 0, or -1 with |*bad| the argument that is not valid.
int rtdParseArgs(int argc, char** argv, rtdArgs_t* out, std::string* bad);

// The whole program; returns the exit status.
int rtdDaemonMain(int argc, char** argv);

#endif  // QMX_HSM_ROOTD_ROOTD_DAEMON_H_
