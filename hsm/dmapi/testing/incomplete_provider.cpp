// A DMAPI library that offers the service call and nothing else, as a
// half-installed or foreign library might: the binding must refuse it.
#include "hsm/provider/dmapi_iface.h"

extern "C" __attribute__((visibility("default"))) int dm_init_service(char** versionstrpp) {
  static char version[] = "VEXA DMAPI 3.40";
  *versionstrpp = version;
  return 0;
}
