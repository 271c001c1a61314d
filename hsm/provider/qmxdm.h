// Our own DMAPI provider: DM attributes kept as extended attributes of the
// files, sessions in a registry directory under the system root.
//
// Every function of dmapi_iface.h exists here as qmxdm_<name> with the same
// signature and contract.  The built-in binding takes their addresses; the
// shared library libqmxdmapi.so exports them under their dm_ names.  The
// prefix keeps the copy linked into a program from shadowing the dm_
// functions of a library that program loads.
//
// Where things live:
//  - DM attribute N of a file is its extended attribute "trusted.dmapi.N"
//    (N up to its first NUL byte), value exactly the attribute's bytes;
//  - the managed regions of a file are its extended attribute
//    "trusted.qmxdm.regions", which no DM attribute name can reach;
//  - sessions and their user-event tokens are files of the registry
//    directory "/run/qmxdmapi" under the system root.
// The trusted namespace is root's only, as DMAPI is: dm_init_service fails
// with EPERM for any other user.
//
// All functions are safe to call from several threads and processes at once.
#ifndef QMX_HSM_PROVIDER_QMXDM_H_
#define QMX_HSM_PROVIDER_QMXDM_H_

#include "hsm/provider/dmapi_functions.h"
#include "hsm/provider/dmapi_iface.h"

extern "C" {
#define QMXDM_DECLARE(name, required) decltype(::dm_##name) qmxdm_##name;
QMX_DM_FUNCTIONS(QMXDM_DECLARE)
#undef QMXDM_DECLARE
}

// The version string that qmxdm_init_service reports.
#define QMXDM_VERSION "VEXA DMAPI 3.40"

#endif  // QMX_HSM_PROVIDER_QMXDM_H_
