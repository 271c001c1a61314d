// A DMAPI handle as the layer carries it, and its text form.
#ifndef QMX_HSM_DMAPI_XDSM_HANDLE_H_
#define QMX_HSM_DMAPI_XDSM_HANDLE_H_

#include <cstddef>
#include <string>

// A DMAPI handle: the provider's bytes and their length.  Handles made by
// XDSMAPI::pathToHandle are released with XDSMAPI::freeHandle.
struct xdsm_handle_t {
  void* hanp = nullptr;
  size_t hlen = 0;
};

// The handle as hexadecimal digits (for messages), "<NULL>" without bytes.
std::string dmiHandleToHex(const xdsm_handle_t& h);

#endif  // QMX_HSM_DMAPI_XDSM_HANDLE_H_
