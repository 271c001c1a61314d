// Status codes of the DMAPI layer.
//
// Most functions of this layer return 0, or -1 with errno set, as the
// provider's dm_ functions do; that convention needs no names.  Named here
// are the values that carry more: the migration states the state queries
// return, the answers of the access object's session calls, the errno by
// which some providers report an absent attribute, and the exit statuses
// of the query probe.
#ifndef QMX_HSM_DMAPI_DMI_STATUS_H_
#define QMX_HSM_DMAPI_DMI_STATUS_H_

// ---- Migration states --------------------------------------------------
// What dmiGetFileResStat and dmiGetFileMigStat return (or -1 with errno,
// message 9511), what dmiSetFileMigStat moves a file to, and what the
// record "KVRObj" stores as its state.  The attribute command refuses to
// touch a file in transition (EBUSY).
enum : int {
  dmiStatePremigrated = 1,    // only "KVRPMig": data on the server and here
  dmiStateMigrated = 2,       // a stub: the data is on the server
  dmiStateResident = 3,       // not migrated ("KVRObj" absent)
  dmiStateInTransition = 10,  // being migrated or recalled
  dmiStateTransition12 = 12,  // in transition, stored as its own state
};

// ---- Session calls of the access object ---------------------------------
// XDSMAPI::initService and XDSMAPI::destroySession answer 1 or 0 (with the
// errno in getLastErrno()).  dmiInit turns a failed initService into -1
// and message 9505; dmiCloseSession traces a failed destroy and returns
// -1.
enum : int {
  DMI_XDSM_FAILED = 0,
  DMI_XDSM_DONE = 1,  // initialised (also when it already was); destroyed,
                      // or nothing to destroy in this process
};

// ---- Provider errno ------------------------------------------------------
// The errno some DMAPI implementations give for an attribute that is not
// there, besides ENOENT and this platform's ENODATA.  An absent attribute
// is a state (resident, not premigrated, not managed), never an error.
constexpr int DMI_ERRNO_NOATTR = 112;

// ---- dmapi_query_probe exit statuses ------------------------------------
enum : int {
  DMI_PROBE_EXIT_OK = 0,      // both queries worked
  DMI_PROBE_EXIT_FAILED = 1,  // no DMAPI service or session, or a query failed
  DMI_PROBE_EXIT_USAGE = 2,   // not exactly one file named
};

#endif  // QMX_HSM_DMAPI_DMI_STATUS_H_
