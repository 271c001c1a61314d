// Exit statuses of the tools.
//
// qmxstub (tools/qmxstub.h) sets up space management for demonstrations and
// tests; the demo and the tests that call it stop on any status but
// qmxstubOk.
#ifndef QMX_TOOLS_TOOLS_STATUS_H_
#define QMX_TOOLS_TOOLS_STATUS_H_

enum : int {
  qmxstubOk = 0,      // every name was done
  qmxstubFailed = 1,  // at least one name could not be done (the others
                      // were; each failure has its catalogue message)
  qmxstubUsage = 2,   // bad command line: nothing was done
};

#endif  // QMX_TOOLS_TOOLS_STATUS_H_
