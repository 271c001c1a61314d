// What the DMAPI layer needs to speak: the program's name and messages that
// go to the trace and the error log.
//
// The program name is the one seam to the command's start-up: it calls
// dmiSetProgName(hsmWhoAmI()) once the name is known.  Until then (and in
// tools that never set it) the base name of the running executable is used.
// The layer never includes the command's headers.
#ifndef QMX_HSM_DMAPI_DMI_LOG_H_
#define QMX_HSM_DMAPI_DMI_LOG_H_

#include <errno.h>

#include <cstddef>
#include <new>
#include <string>
#include <vector>

// Sets the program name used in DMAPI trace lines and messages (copied, at
// most 255 characters; null or "" returns to the default).
void dmiSetProgName(const char* name);
// The program name: the one set, else the executable's base name.  The
// pointer stays valid until the next dmiSetProgName.
const char* dmiProgName();

// Composes catalogue message |num| with its inserts and writes it to the
// trace (class DMI) and the error log; nothing is shown on the terminal.
// Keeps errno.
void dmiLogMsg(unsigned num, ...);

// Gives |v| |n| copies of |fill|.  When memory runs out, message 9184 is
// logged and false returned with errno ENOMEM (|v| is then left as it was).
template <typename T>
bool dmiAssign(std::vector<T>* v, size_t n, const T& fill) {
  try {
    v->assign(n, fill);
    return true;
  } catch (const std::bad_alloc&) {
    dmiLogMsg(9184, dmiProgName(), "");
    errno = ENOMEM;
    return false;
  }
}

#endif  // QMX_HSM_DMAPI_DMI_LOG_H_
