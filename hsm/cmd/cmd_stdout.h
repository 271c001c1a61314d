// The command's standard output, whose write errors must not go unseen.
//
// Lines are written through stdio as usual.  cmdWatchStdout() makes the
// stream keep the errno of its first failed write, so that the command can
// tell a reader that has gone (EPIPE: "qmxattr ... | head -1") from an
// output that failed (ENOSPC on a full device, EIO ...), and stop its work
// as soon as either is seen.
//
// SIGPIPE is ignored by the start-up code, so that a closed pipe never
// kills the process in the middle of its clean-up; cmdEndAsBrokenPipe()
// ends it afterwards the way such a reader expects.
//
// Everything here is for the command's one thread.
#ifndef QMX_HSM_CMD_CMD_STDOUT_H_
#define QMX_HSM_CMD_CMD_STDOUT_H_

// Replaces stdout by a stream on descriptor 1 that keeps the errno of its
// first failed write (line-buffered on a terminal, fully buffered
// otherwise).  Called before anything is printed; later calls do nothing.
// When the stream can't be made, the plain stdout stays and a failure is
// seen without its errno (reported as EIO).
void cmdWatchStdout();

// True once a write to standard output has failed.  Cheap enough to ask
// after every line; a failure shows once stdio has tried to write the
// buffer that holds the line.
bool cmdStdoutFailed();

// Flushes standard output.  Returns 0 when everything printed was written,
// else the errno of the first failure.
int cmdFlushStdout();

// Ends the process as if SIGPIPE had killed it (status 128 + 13 to a
// shell): the signal's default action is restored and the signal raised.
// For after the command's clean-up, when its reader has gone.
[[noreturn]] void cmdEndAsBrokenPipe();

#endif  // QMX_HSM_CMD_CMD_STDOUT_H_
