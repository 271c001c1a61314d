// qmxstub: sets up space management on this node's DMAPI provider through
// the DMAPI layer, so that managed file systems and stubs can be made for
// demonstrations and tests without a storage server.
//
//   qmxstub fs-add DIR...
//   qmxstub fs-state DIR... [--recall on|off] [--migrate on|off]
//   qmxstub global [--recall on|off] [--migrate on|off]
//   qmxstub migrate FILE... [--mode n|p|s|r|m] [--compression none|yes|unknown]
//                           [--size BYTES] [--transition] [--state N]
//   qmxstub premigrate FILE...
//   qmxstub resident FILE...
//   qmxstub show FILE...
#ifndef QMX_TOOLS_QMXSTUB_H_
#define QMX_TOOLS_QMXSTUB_H_

#include <cstdio>

#include "tools/tools_status.h"

// Runs the command line |argv| (argv[0] the program) and returns its exit
// status (tools/tools_status.h).  Results go to |out|, catalogue messages
// to |err|.  The message system must be started and the access object
// usable (qmxstub_main.cpp does both).
int qmxstubRun(int argc, char** argv, FILE* out, FILE* err);

#endif  // QMX_TOOLS_QMXSTUB_H_
