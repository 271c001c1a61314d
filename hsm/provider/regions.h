// Managed regions of our provider, for the calls that need them besides
// dm_set_region and dm_get_region.
#ifndef QMX_HSM_PROVIDER_REGIONS_H_
#define QMX_HSM_PROVIDER_REGIONS_H_

#include <vector>

#include "hsm/provider/dmapi_iface.h"

// Most regions one file may have.
#define QDM_MAX_REGIONS 256

// Reads the regions of the file at |path| (none when it has no region
// attribute).  Returns 0, or -1 with errno (EIO for a damaged record).
int qdmReadRegions(const char* path, std::vector<dm_region_t>* out);

// Checks regions before they are stored: at most QDM_MAX_REGIONS (E2BIG),
// known flags, non-negative offsets, no overlaps (EINVAL).
int qdmCheckRegions(unsigned int nelem, const dm_region_t* regs);

#endif  // QMX_HSM_PROVIDER_REGIONS_H_
