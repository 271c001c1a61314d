// Status codes of the option layer: the readers of the option files and the
// command line, the options object and its callbacks.
//
// Every failure also fills the caller's error record (optError: the code,
// the offending token, the whole line, its number and the file name), which
// the command prints with ReportOptionError before it ends.  Out of memory,
// a bad argument, a bad option or value and an unbalanced quote are the
// shared PS_RC_NOMEM, PS_RC_BADARG, PS_RC_BADVALUE and PS_RC_QUOTE of
// platform/platform_status.h.
#ifndef QMX_OPTIONS_OPT_STATUS_H_
#define QMX_OPTIONS_OPT_STATUS_H_

#include "platform/platform_status.h"

enum : int {
  // Not a failure: clientOptions::optCheckUser's answer that the calling
  // user may run commands (USERS and GROUPS name him, neither is set, or he
  // is the superuser); 0 means he may not.  Start-up ends the command with
  // message 1216 on anything else.
  OPT_RC_USERALLOWED = 403,

  // An option file can't be opened or read (the user or system option
  // file, an include-exclude file).  The file name is in the error record;
  // the command ends (start-up reports it as an option error).
  OPT_RC_OPENFAIL = 406,

  // The server stanza asked for is not in the system option file; its name
  // is in the error record.  The command ends.
  OPT_RC_NOSTANZA = 409,

  // An option other than the prolog options stands before the first
  // SERVERNAME line of the system option file.  The command ends.
  OPT_RC_NOSERVER = 410,

  // The option is not allowed in this source (file or command line).  The
  // reader reports message 1691 and ignores the option; the system file's
  // early pass and an include-exclude file refuse it as PS_RC_BADVALUE.
  OPT_RC_SOURCE = 429,
};

#endif  // QMX_OPTIONS_OPT_STATUS_H_
