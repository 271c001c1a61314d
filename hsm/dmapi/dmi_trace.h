// Trace lines of the DMAPI layer: "(<program>:<function>): <text>".
// Private to hsm/dmapi.
#ifndef QMX_HSM_DMAPI_DMI_TRACE_H_
#define QMX_HSM_DMAPI_DMI_TRACE_H_

#include "diag/trace.h"
#include "hsm/dmapi/dmi_log.h"

// The classes that show the layer's session and attribute work.
#define DMI_TR_ON (TR_DMI || TR_SMXDSM || TR_SM)

// A line under |on| (a class test) with the program and function names.
#define DMI_TRACE(on, fn, fmt, ...)                                                            \
  do {                                                                                         \
    if (on) trPrintf(__FILE__, __LINE__, "(%s:%s): " fmt, dmiProgName(), (fn), ##__VA_ARGS__); \
  } while (0)

#endif  // QMX_HSM_DMAPI_DMI_TRACE_H_
