// libqmxdmapi.so: our provider under the dm_ names of the DMAPI, for
// programs that load it as their DMAPI library (QMX_DMAPI_LIB).  Each
// function hands over to the provider's qmxdm_ function; nothing else of
// the library is exported.
#include "hsm/provider/qmxdm.h"

#define QMXDM_EXPORT __attribute__((visibility("default")))

extern "C" {
QMXDM_EXPORT int dm_init_service(char** versionstrpp) {
  return qmxdm_init_service(versionstrpp);
}
QMXDM_EXPORT int dm_create_session(dm_sessid_t oldsid, char* sessinfop, dm_sessid_t* newsidp) {
  return qmxdm_create_session(oldsid, sessinfop, newsidp);
}
QMXDM_EXPORT int dm_destroy_session(dm_sessid_t sid) {
  return qmxdm_destroy_session(sid);
}
QMXDM_EXPORT int dm_getall_sessions(unsigned int nelem, dm_sessid_t* sidbufp,
                                    unsigned int* nelemp) {
  return qmxdm_getall_sessions(nelem, sidbufp, nelemp);
}
QMXDM_EXPORT int dm_query_session(dm_sessid_t sid, size_t buflen, void* bufp, size_t* rlenp) {
  return qmxdm_query_session(sid, buflen, bufp, rlenp);
}
QMXDM_EXPORT int dm_path_to_handle(char* path, void** hanpp, size_t* hlenp) {
  return qmxdm_path_to_handle(path, hanpp, hlenp);
}
QMXDM_EXPORT int dm_fd_to_handle(int fd, void** hanpp, size_t* hlenp) {
  return qmxdm_fd_to_handle(fd, hanpp, hlenp);
}
QMXDM_EXPORT int dm_handle_to_path(void* dirhanp, size_t dirhlen, void* targhanp, size_t targhlen,
                                   size_t buflen, char* pathbufp, size_t* rlenp) {
  return qmxdm_handle_to_path(dirhanp, dirhlen, targhanp, targhlen, buflen, pathbufp, rlenp);
}
QMXDM_EXPORT void dm_handle_free(void* hanp, size_t hlen) {
  qmxdm_handle_free(hanp, hlen);
}
QMXDM_EXPORT int dm_handle_cmp(void* hanp1, size_t hlen1, void* hanp2, size_t hlen2) {
  return qmxdm_handle_cmp(hanp1, hlen1, hanp2, hlen2);
}
QMXDM_EXPORT dm_boolean_t dm_handle_is_valid(void* hanp, size_t hlen) {
  return qmxdm_handle_is_valid(hanp, hlen);
}
QMXDM_EXPORT int dm_set_dmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                               dm_attrname_t* attrnamep, int setdtime, size_t buflen, void* bufp) {
  return qmxdm_set_dmattr(sid, hanp, hlen, token, attrnamep, setdtime, buflen, bufp);
}
QMXDM_EXPORT int dm_get_dmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                               dm_attrname_t* attrnamep, size_t buflen, void* bufp, size_t* rlenp) {
  return qmxdm_get_dmattr(sid, hanp, hlen, token, attrnamep, buflen, bufp, rlenp);
}
QMXDM_EXPORT int dm_remove_dmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                                  int setdtime, dm_attrname_t* attrnamep) {
  return qmxdm_remove_dmattr(sid, hanp, hlen, token, setdtime, attrnamep);
}
QMXDM_EXPORT int dm_probe_hole(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                               dm_off_t off, dm_size_t len, dm_off_t* roffp, dm_size_t* rlenp) {
  return qmxdm_probe_hole(sid, hanp, hlen, token, off, len, roffp, rlenp);
}
QMXDM_EXPORT int dm_punch_hole(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                               dm_off_t off, dm_size_t len) {
  return qmxdm_punch_hole(sid, hanp, hlen, token, off, len);
}
QMXDM_EXPORT dm_ssize_t dm_read_invis(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                                      dm_off_t off, dm_size_t len, void* bufp) {
  return qmxdm_read_invis(sid, hanp, hlen, token, off, len, bufp);
}
QMXDM_EXPORT dm_ssize_t dm_write_invis(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                                       int flags, dm_off_t off, dm_size_t len, void* bufp) {
  return qmxdm_write_invis(sid, hanp, hlen, token, flags, off, len, bufp);
}
QMXDM_EXPORT int dm_get_fileattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                                 unsigned int mask, dm_stat_t* statp) {
  return qmxdm_get_fileattr(sid, hanp, hlen, token, mask, statp);
}
QMXDM_EXPORT int dm_set_fileattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                                 unsigned int mask, dm_fileattr_t* attrp) {
  return qmxdm_set_fileattr(sid, hanp, hlen, token, mask, attrp);
}
QMXDM_EXPORT int dm_set_region(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                               unsigned int nelem, dm_region_t* regbufp, dm_boolean_t* exactflagp) {
  return qmxdm_set_region(sid, hanp, hlen, token, nelem, regbufp, exactflagp);
}
QMXDM_EXPORT int dm_get_region(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                               unsigned int nelem, dm_region_t* regbufp, unsigned int* nelemp) {
  return qmxdm_get_region(sid, hanp, hlen, token, nelem, regbufp, nelemp);
}
QMXDM_EXPORT int dm_request_right(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                                  unsigned int flags, dm_right_t right) {
  return qmxdm_request_right(sid, hanp, hlen, token, flags, right);
}
QMXDM_EXPORT int dm_release_right(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token) {
  return qmxdm_release_right(sid, hanp, hlen, token);
}
QMXDM_EXPORT int dm_get_events(dm_sessid_t sid, unsigned int maxmsgs, unsigned int flags,
                               size_t buflen, void* bufp, size_t* rlenp) {
  return qmxdm_get_events(sid, maxmsgs, flags, buflen, bufp, rlenp);
}
QMXDM_EXPORT int dm_respond_event(dm_sessid_t sid, dm_token_t token, dm_response_t response,
                                  int reterror, size_t buflen, void* respbufp) {
  return qmxdm_respond_event(sid, token, response, reterror, buflen, respbufp);
}
QMXDM_EXPORT int dm_create_userevent(dm_sessid_t sid, size_t msglen, void* msgdatap,
                                     dm_token_t* tokenp) {
  return qmxdm_create_userevent(sid, msglen, msgdatap, tokenp);
}
QMXDM_EXPORT int dm_getall_tokens(dm_sessid_t sid, unsigned int nelem, dm_token_t* tokenbufp,
                                  unsigned int* nelemp) {
  return qmxdm_getall_tokens(sid, nelem, tokenbufp, nelemp);
}
QMXDM_EXPORT unsigned int dm_handle_hash(void* hanp, size_t hlen) {
  return qmxdm_handle_hash(hanp, hlen);
}

}  // extern "C"
