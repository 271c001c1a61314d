// The statuses the root daemon's program gives that are not errno values.
// Reply statuses are the protocol's (hsm/rdm/rdm_status.h).
#ifndef QMX_HSM_ROOTD_ROOTD_STATUS_H_
#define QMX_HSM_ROOTD_ROOTD_STATUS_H_

// Exit statuses of qmxrootd, on the scale of the process return code.
constexpr int rtdExitOk = 0;       // served, then ended on a signal
constexpr int rtdExitSevere = 12;  // could not start: not root, a bad argument,
                                   // no provider, no socket

// The verdict byte a detached daemon sends to the parent that waits on the
// terminal; the parent exits with it.  No verdict at all counts as failed.
constexpr unsigned char rtdVerdictServing = rtdExitOk;
constexpr unsigned char rtdVerdictFailed = rtdExitSevere;

#endif  // QMX_HSM_ROOTD_ROOTD_STATUS_H_
