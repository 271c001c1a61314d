// Start-up and shut-down shared by every space-management command.
//
// Start-up brings the services up in a fixed order: platform layer, trace,
// options, message system (twice: before and after the option files), the
// error log.  The command then parses its command line, creates its DMAPI
// session, reads the system option file and creates the thread's server
// session (smSysOptFile), runs, and leaves through exactly one of three
// paths, each guarded so that it runs once:
//   smPostProc        normal end after the command ran;
//   HsmNormalCleanUp  fatal error during start-up (ends the process);
//   CleanUp           signal handler for SIGINT, SIGQUIT, SIGTERM, SIGHUP and
//                     SIGABRT (ends the process with CMD_EXIT_FAILED).
// Statuses and codes are those of hsm/cmd/cmd_status.h.
//
// Everything here runs on the command's one thread.
#ifndef QMX_HSM_CMD_HSM_STARTUP_H_
#define QMX_HSM_CMD_HSM_STARTUP_H_

#include "hsm/cmd/cmd_status.h"

class clientOptions;
class GlobalRC;
struct optError;

// Set once post-processing or a clean-up has begun; later ones do nothing.
extern int bHsmCleanupStarted;
// The process return code (the same object as pGlobalRC).
extern GlobalRC* gRC;

typedef void (*smSignalHandler_t)(int);

// Brings up platform, trace, options and messages and opens the error log
// (hsm/cmd/cmd_error_log.h).  |handler| null means CleanUp.  Returns 0, or CMD_RC_ERRORLOG when the
// error log could not be opened (message 1398; not fatal).  Worse failures
// end the process: CMD_EXIT_STARTUP (option-error record, file layer,
// options object or first message start), CMD_EXIT_MESSAGES (second message
// start), CMD_EXIT_FAILED (command line or option files).
int smInitOptFile(int argc, char** argv, smSignalHandler_t handler);

// Platform initialisation and the signal handlers (2, 3, 15, then 1, 6;
// SIGPIPE ignored).  Returns 0.
int clSmPreInitialize(smSignalHandler_t handler, char** argv);

// Picks the start-up options (TRACEFILE, TRACEFLAGS, TRACEMAX, TESTFLAGS,
// ERRORLOGNAME) out of the command line and validates them; TRACEFILE only
// on the first pass, TRACEFLAGS only on the second.  Returns 0,
// CMD_RC_ARGTOOLONG for an argument of 1279 characters or more (message
// 1246), or the validation code (message 1107 with the argument).
int PreParseCmdLine(int argc, char** argv, int firstPass);

// The banner: 9006 when LOGO is set, then 15755 and 15756.  Returns 0.
int smGreetings();

// True when /tmp reports no block free for unprivileged users.
bool isTmpFsFull();

// Reads the system option file's stanza, post-processes the options, opens
// the error log again when they changed its name, size or retention (only
// for optionsP; message 1398 when it can't be opened, which is not fatal),
// checks the user and creates this thread's server session.  |opts| null means
// optionsP.  With |exitOnError| 1 the failures of the option file, the
// post-processing and the user check end the process; otherwise they return
// CMD_RC_SYSOPT_FILE, CMD_RC_SYSOPT_POST and CMD_RC_SYSOPT_USER
// (CMD_RC_SYSOPT_NOMEM when out of memory).  A session that cannot be
// created returns CMD_RC_SYSOPT_SESSION when |exitOnError| is 0 and ends the
// process otherwise.
int smSysOptFile(int exitOnError, clientOptions* opts);

// Normal shut-down.  Returns 0.
int smPostProc();
// Shut-down on a fatal start-up error; ends the process with
// CMD_EXIT_FAILED unless a shut-down had already begun (then it returns).
void HsmNormalCleanUp();
// The signal handler.
void CleanUp(int sig);

// An option-error record for the readers (zeroed); null when out of memory.
optError* new_optError();
void delete_optError(optError*& err);

#endif  // QMX_HSM_CMD_HSM_STARTUP_H_
