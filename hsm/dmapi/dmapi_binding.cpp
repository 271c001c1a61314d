#include "hsm/dmapi/dmapi_binding.h"

#include <dlfcn.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

#include "diag/trace.h"
#include "hsm/provider/qmxdm.h"
#include "platform/services.h"

namespace {

constexpr const char kSystemLib[] = "libdmapi.so";

// Looks every function of the list up in |lib|.  Returns the name of the
// first required one that is missing, or null.
const char* lookUp(void* lib, dmapiBinding_t* out) {
  dmapiBinding_t t{};
#define QMX_DM_LOOK_UP(name, required)                                  \
  t.name = reinterpret_cast<decltype(t.name)>(dlsym(lib, "dm_" #name)); \
  if (t.name == nullptr && (required)) return "dm_" #name;
  QMX_DM_FUNCTIONS(QMX_DM_LOOK_UP)
#undef QMX_DM_LOOK_UP
  *out = t;
  return nullptr;
}

struct ProcessBinding {
  dmapiBinding_t table{};
  bool ok = false;
  std::string which;
  std::string error;
};

}  // namespace

int dmBindLibrary(const char* path, dmapiBinding_t* out, std::string* error) {
  if (path == nullptr || *path == '\0') {
    if (error != nullptr) *error = "no DMAPI library named";
    return -1;
  }
  void* lib = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (lib == nullptr) {
    if (error != nullptr) {
      const char* why = dlerror();
      *error = std::string("cannot load DMAPI library ") + path + ": " +
               (why != nullptr ? why : "unknown reason");
    }
    return -1;
  }
  if (const char* missing = lookUp(lib, out)) {
    if (error != nullptr)
      *error = std::string("DMAPI library ") + path + " lacks the function " + missing;
    dlclose(lib);
    return -1;
  }
  // Never unloaded: the table points into it for the rest of the process.
  return 0;
}

void dmBindBuiltIn(dmapiBinding_t* out) {
#define QMX_DM_BUILT_IN(name, required) out->name = &qmxdm_##name;
  QMX_DM_FUNCTIONS(QMX_DM_BUILT_IN)
#undef QMX_DM_BUILT_IN
}

bool dmIsBuiltIn(const dmapiBinding_t& b) {
  return b.path_to_handle == &qmxdm_path_to_handle;
}

int dmChooseProvider(const char* envLib, dmapiBinding_t* out, std::string* which,
                     std::string* error) {
  if (envLib != nullptr) {
    if (which != nullptr) *which = std::string("QMX_DMAPI_LIB=") + envLib;
    if (*envLib == '\0') {
      if (error != nullptr) *error = "QMX_DMAPI_LIB is set but names no library";
      return -1;
    }
    return dmBindLibrary(envLib, out, error);
  }
  // Probe first, so that a missing system library costs no message.
  if (void* sys = dlopen(kSystemLib, RTLD_NOW | RTLD_LOCAL)) {
    dlclose(sys);
    if (which != nullptr) *which = kSystemLib;
    return dmBindLibrary(kSystemLib, out, error);
  }
  if (which != nullptr) *which = "built-in provider";
  dmBindBuiltIn(out);
  return 0;
}

const dmapiBinding_t* dmBindProvider(std::string* whichOut, std::string* errorOut) {
  static ProcessBinding bound;
  static std::once_flag once;
  std::call_once(once, [] {
    bound.ok = dmChooseProvider(std::getenv("QMX_DMAPI_LIB"), &bound.table, &bound.which,
                                &bound.error) == 0;
    if (TR_DMI) {
      const char* prog = psProgramPath();
      const char* slash = std::strrchr(prog, '/');
      prog = slash != nullptr ? slash + 1 : prog;
      if (bound.ok)
        trPrintf(__FILE__, __LINE__, "(%s:%s): DMAPI provider: %s\n", prog, "dmBindProvider",
                 bound.which.c_str());
      else
        trPrintf(__FILE__, __LINE__, "(%s:%s): DMAPI provider %s not bound: %s\n", prog,
                 "dmBindProvider", bound.which.c_str(), bound.error.c_str());
    }
  });
  if (whichOut != nullptr) *whichOut = bound.which;
  if (errorOut != nullptr) *errorOut = bound.ok ? std::string() : bound.error;
  return bound.ok ? &bound.table : nullptr;
}
