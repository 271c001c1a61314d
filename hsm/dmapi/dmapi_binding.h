// The one table through which the DMAPI layer calls its provider.
//
// The provider is chosen once per process, at the first dmBindProvider():
//  1. the library named by the environment variable QMX_DMAPI_LIB, when
//     set: loaded with dlopen; when it can't be loaded or lacks a required
//     function the binding fails with a message saying so (no fallback);
//  2. otherwise the system's libdmapi.so, when it loads (one that loads but
//     lacks a required function fails the same way);
//  3. otherwise our own provider, linked into the program.
#ifndef QMX_HSM_DMAPI_DMAPI_BINDING_H_
#define QMX_HSM_DMAPI_DMAPI_BINDING_H_

#include <string>

#include "hsm/provider/dmapi_functions.h"
#include "hsm/provider/dmapi_iface.h"

// The provider's functions, one member per function of dmapi_iface.h
// without its "dm_" prefix: binding->get_dmattr(sid, ...).  Required
// members are never null in a bound table; optional ones may be.
struct dmapiBinding_t {
#define QMX_DM_BINDING_MEMBER(name, required) decltype(&::dm_##name) name;
  QMX_DM_FUNCTIONS(QMX_DM_BINDING_MEMBER)
#undef QMX_DM_BINDING_MEMBER
};

// The process-wide table, bound on the first call; every later call gives
// the outcome of that first one.  Returns the table, or null when binding
// failed.  |whichOut| (may be null) receives which provider is bound, for
// the trace ("QMX_DMAPI_LIB=/x/libqmxdmapi.so", "libdmapi.so", "built-in
// provider"); |errorOut| (may be null) the reason of a failure, a sentence
// ready for a message.  Thread-safe.
const dmapiBinding_t* dmBindProvider(std::string* whichOut, std::string* errorOut);

// The steps of dmBindProvider, for callers that bind a table of their own
// (tests, tools).  None of them touches the process-wide table.
//
// Binds |out| from the shared library |path|, which stays loaded for the
// life of the process.  Returns 0, or -1 with |*error| naming the library
// and the failure (dlopen's reason, or the first missing function).
int dmBindLibrary(const char* path, dmapiBinding_t* out, std::string* error);
// Binds |out| to our own provider.  Cannot fail.
void dmBindBuiltIn(dmapiBinding_t* out);
// Whether |b| is bound to our own provider linked into this program (whose
// handles are made as provider/handle.h says).
bool dmIsBuiltIn(const dmapiBinding_t& b);
// Makes the choice described at the top of this file, with |envLib| as the
// value of QMX_DMAPI_LIB (null: unset).  Returns 0 or -1 as above.
int dmChooseProvider(const char* envLib, dmapiBinding_t* out, std::string* which,
                     std::string* error);

#endif  // QMX_HSM_DMAPI_DMAPI_BINDING_H_
