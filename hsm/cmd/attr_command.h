// The qmxattr program: start-up, command line, DMAPI session, the attribute
// command and shut-down, in that order.
#ifndef QMX_HSM_CMD_ATTR_COMMAND_H_
#define QMX_HSM_CMD_ATTR_COMMAND_H_

// Runs qmxattr and returns its result as the process status (the system
// keeps the low eight bits; hsm/cmd/cmd_status.h).  Fatal start-up errors
// end the process inside.
int qmxattrMain(int argc, char** argv);

#endif  // QMX_HSM_CMD_ATTR_COMMAND_H_
