// The one place that picks the process's access object: root calls its
// provider directly, every other user goes through the root daemon.  Kept
// apart from the base class so that XDSMAPI knows none of its subclasses.
#include <unistd.h>

#include "hsm/dmapi/rxdsmapi.h"
#include "hsm/dmapi/uxdsmapi.h"
#include "hsm/dmapi/xdsmapi.h"

namespace {

XDSMAPI* gInstance = nullptr;

}  // namespace

XDSMAPI* XDSMAPI::getXDSMAPI() {
  if (gInstance == nullptr) {
    if (getuid() == 0)
      gInstance = new RXDSMAPI(DM_TRUE);
    else
      gInstance = new UXDSMAPI(DM_FALSE);
    gInstance->init();
  }
  return gInstance;
}

XDSMAPI* XDSMAPI::setXDSMAPI(XDSMAPI* x) {
  XDSMAPI* old = gInstance;
  gInstance = x;
  return old;
}
