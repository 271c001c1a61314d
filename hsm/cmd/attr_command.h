// The qmxattr program: start-up, command line, DMAPI session, the attribute
// command and shut-down, in that order.
#ifndef QMX_HSM_CMD_ATTR_COMMAND_H_
#define QMX_HSM_CMD_ATTR_COMMAND_H_

// Runs qmxattr and returns its result as the process status (the system
// keeps the low eight bits; hsm/cmd/cmd_status.h).  Fatal start-up errors
// end the process inside.  Standard output that can't be written stops
// the work: a failed output adds message 14020 and an error's status (12,
// or the command's own failure code); a reader that has gone (a closed
// pipe) ends the process, after its clean-up, as SIGPIPE would have.
int qmxattrMain(int argc, char** argv);

#endif  // QMX_HSM_CMD_ATTR_COMMAND_H_
