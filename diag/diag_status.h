// Status codes of the diagnostics library: the message system, the trace,
// the logs, and the process return code kept by GlobalRC.
//
// The codes shared with the platform layer (out of memory, bad argument) are
// PS_RC_NOMEM and PS_RC_BADARG of platform/platform_status.h; the trace's
// "bad name" and "unknown keyword" answers are the usual -1.
#ifndef QMX_DIAG_DIAG_STATUS_H_
#define QMX_DIAG_DIAG_STATUS_H_

#include <cstdint>

#include "platform/platform_status.h"

// Function return codes.
enum : int {
  // The trace file can't be opened.  trBegin (and trInitializeStatusLog,
  // which passes trBegin's result on); the trace is reset.  The option
  // layer puts it into the option-error record, and start-up reports it
  // and ends the command.
  DIAG_RC_TRACEOPEN = 426,

  // The message system can't start: nlinit got an empty language, or no
  // message object exists, or initMsgSys got over-long arguments or could
  // not open the English catalogue (ANS0102W).  Start-up ends the command.
  DIAG_RC_NOCATALOG = 610,

  // A line could not be written to a log.  DLogFile::writeLine and so
  // LogMsg, LogSchedMsg, LogAuditMsg; lastErrno() keeps the errno.  The
  // line is lost; later lines are still tried.
  DIAG_RC_LOGWRITE = 621,

  // The trace file name is a symbolic link.  trSetTraceFileName, after it
  // tried to delete the link (messages 1193 and 1191 or 1190); the name is
  // not stored.  The TRACEFILE option refuses the value (PS_RC_BADVALUE).
  DIAG_RC_TRACELINK = 959,

  // The indexed message repository can't be read, or has no entry for the
  // message (ANS0105E, ANS0106E).  ReadIndex; the number is that of the
  // internal-error message, which the process return code has also been
  // raised by.  The message can't be read from that repository.
  DIAG_RC_MSGINDEX = 9999,
};

// The process return code (GlobalRC), in rising order of gravity: what each
// composed message maps to, the highest of which the command returns as
// its exit status when nothing worse happened.
enum : int32_t {
  DIAG_GRC_OK = 0,       // informational messages only
  DIAG_GRC_SKIPPED = 4,  // an object was skipped (the fixed list of messages)
  DIAG_GRC_WARNING = 8,  // a warning was issued
  DIAG_GRC_ERROR = 12,   // an error, a severe or an internal error was issued
};

#endif  // QMX_DIAG_DIAG_STATUS_H_
