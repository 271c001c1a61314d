// Status codes of the space-management command: its start-up, its parts
// and what the process exits with.
//
// Codes of the libraries below keep their own names and are passed on:
// PS_RC_NOMEM (platform/platform_status.h) from the parsing space, the
// directory list and the operand split; DIAG_RC_NOCATALOG
// (diag/diag_status.h) from the message system's start; the option layer's
// codes (options/opt_status.h) from the option files and the command line.
#ifndef QMX_HSM_CMD_CMD_STATUS_H_
#define QMX_HSM_CMD_CMD_STATUS_H_

// ---- Return codes --------------------------------------------------------
enum : int {
  // The file list can't be opened or read, is no regular file (nor
  // standard input fit to read), or is a UTF-16/32 file.  HsmFileList::init
  // reports why (14005, 14006 or 14007); DscMigAttr adds 9219 and ends with
  // CMD_EXIT_FAILED.
  CMD_RC_FILELIST = 104,

  // A non-root caller asked to set the recall mode of a file he does not
  // own (message 9096).  smMigAttr and DscMigAttr stop there: nothing after
  // the file is touched, and the command exits with this code.
  CMD_RC_NOTOWNER = 829,

  // A command-line argument of 1279 characters or more (message 1246).
  // PreParseCmdLine; start-up then ends the process with CMD_EXIT_FAILED.
  CMD_RC_ARGTOOLONG = 937,

  // smInitOptFile: the error log could not be opened (message 1398).  Not
  // fatal: the command runs without an error log.
  CMD_RC_ERRORLOG = -1,
};

// smSysOptFile's failures when it does not end the process itself (its
// |exitOnError| decides; see hsm/cmd/hsm_startup.h).
enum : int {
  CMD_RC_SYSOPT_FILE = -1,     // the system option file is bad (reported)
  CMD_RC_SYSOPT_USER = -2,     // USERS/GROUPS lock the caller out
  CMD_RC_SYSOPT_POST = -4,     // post-processing refused the options
  CMD_RC_SYSOPT_NOMEM = -5,    // no memory for the option-error record
  CMD_RC_SYSOPT_SESSION = -6,  // the server session can't be created
};

// ---- Space-management state ----------------------------------------------
// getSpaceManState's answer for a file system.  qmxSpaceManIsInstalled
// counts every state but SPACEMAN_NONE as managed (the command reports
// message 9085 for an unmanaged one and goes on with the next operand).
enum : int {
  SPACEMAN_NOSESSION = -1,         // no DMAPI session could be had
  SPACEMAN_NONE = 0,               // not managed
  SPACEMAN_ACTIVE = 1,             // migration and recall on
  SPACEMAN_INACTIVE = 2,           // both off
  SPACEMAN_RECALLONLY = 3,         // recall on, migration off
  SPACEMAN_MIGONLY = 4,            // migration on, recall off
  SPACEMAN_GLOBALDEACTIVATED = 6,  // recall and migration off node-wide
};

// ---- Exit statuses -------------------------------------------------------
// qmxattr exits with DscMigAttr's result: one of these, CMD_RC_NOTOWNER,
// the last operand's outcome, or else the process return code (DIAG_GRC_*
// of diag/diag_status.h).  The system keeps the low eight bits, so -1 is
// seen as 255, -2 as 254 and 829 as 61.
enum : int {
  // The usage was shown (asked for, or an unknown short option) and
  // nothing else done.
  CMD_EXIT_USAGE = 0,
  // The command could not run: a bad command line or option file, no
  // memory for the operands, /tmp full, no DMAPI session, no current
  // directory, an unusable file list, or one that could not be read to its
  // end.  A message said why.  Also the status after a signal's clean-up.
  CMD_EXIT_FAILED = -1,
  // Memory ran out while the operands were worked through (message 9184).
  CMD_EXIT_NOMEM = -2,
  // A recall mode was to be set but no file was named (message 1079).
  CMD_EXIT_NOOPERAND = -3,
  // Start-up: the option-error record, the file layer, the options object
  // or the first start of the message system failed.
  CMD_EXIT_STARTUP = 11,
  // Start-up: the message system could not be restarted after the option
  // files were read.
  CMD_EXIT_MESSAGES = 13,
};

#endif  // QMX_HSM_CMD_CMD_STATUS_H_
