// The command's error log: where it is, and opening it with the settings
// in force.
//
// Where it is: the ERRORLOGNAME option (the command line's value before the
// system option file's; "/" means the default beside the option files);
// else, for root or when QMX_LOG names a directory, "qmxerror.log" there or
// beside the option files; else, for an ordinary user, who can't write
// root's places, $XDG_STATE_HOME/qmx/qmxerror.log or
// ~/.local/state/qmx/qmxerror.log (its missing directories are made with
// mode 0700).
//
// Start-up opens the log before the system option file is read; that file
// may name another log, or set another size (ERRORLOGMAX) or retention
// (ERRORLOGRETENTION).  cmdReopenErrorLog then opens the log again with
// them: the lines written so far stay where they are, every later line
// goes to the log as configured, none twice.
//
// For the command's one thread, at start-up.
#ifndef QMX_HSM_CMD_CMD_ERROR_LOG_H_
#define QMX_HSM_CMD_CMD_ERROR_LOG_H_

class clientOptions;

// Opens DLogFile::errorLogFile as |opts| says (an ERRORLOGNAME of "/" is
// replaced there by the default name).  Returns 0, or CMD_RC_ERRORLOG
// after message 1398 (the log can't be opened, is a symbolic link, or is
// no regular file; the command goes on without a log).
int cmdOpenErrorLog(clientOptions* opts);

// After the system option file is read: opens the log again when its
// name, size or retention differ from those it was opened with.  Returns
// 0 (nothing to do, or reopened) or CMD_RC_ERRORLOG as cmdOpenErrorLog.
int cmdReopenErrorLog(clientOptions* opts);

#endif  // QMX_HSM_CMD_CMD_ERROR_LOG_H_
