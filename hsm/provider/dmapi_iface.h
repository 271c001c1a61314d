/*
 * The Data Management API (XDSM) as the DMAPI layer calls it: value types,
 * constants and the C functions of a DMAPI provider.
 *
 * A provider is any shared library exporting these functions with C linkage
 * (the system's libdmapi.so, our own libqmxdmapi.so).  The layer never calls
 * them by name: it binds them once through the table of dmapi_binding.h, so
 * that the provider can be chosen at run time.
 *
 * Conventions shared by every function:
 *  - int results are 0 on success and -1 on failure with errno set;
 *    dm_read_invis/dm_write_invis return a byte count or -1.
 *  - A session id of DM_NO_SESSION (0) is never a valid session (EINVAL).
 *  - Handles are opaque bytes plus their length, allocated by the provider
 *    (dm_path_to_handle, dm_fd_to_handle) and given back with dm_handle_free.
 *    A handle the provider does not recognise fails with EBADF.
 *  - Functions that return variable-length data take the caller's buffer
 *    length; when it is too small they fail with E2BIG and store the length
 *    needed in the returned-length argument.
 *  - An absent DM attribute is ENOENT.
 *
 * This header is plain C so that a provider can be written in C as well.
 */
#ifndef QMX_HSM_PROVIDER_DMAPI_IFACE_H_
#define QMX_HSM_PROVIDER_DMAPI_IFACE_H_

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Scalar types ---------------------------------------------------- */

typedef int dm_boolean_t;
#define DM_FALSE 0
#define DM_TRUE 1

typedef uint64_t dm_sessid_t; /* text form "%llX" */
typedef int64_t dm_off_t;
typedef uint64_t dm_size_t;
typedef int64_t dm_ssize_t;
typedef uint64_t dm_ino_t;
typedef uint64_t dm_sequence_t;

#define DM_NO_SESSION ((dm_sessid_t)0)
/* All ones: what a session id field holds when it was never set. */
#define DM_INVALID_SESSION (~(dm_sessid_t)0)

/* A 128-bit value held as two unsigned 64-bit halves; text form
 * "%llX-%llX", high half first. */
typedef struct dm_scalar128 {
  uint64_t high;
  uint64_t low;
} dm_scalar128;

typedef dm_scalar128 dm_token_t;

/* The token of an operation that runs under no event and holds no rights. */
static const dm_token_t DM_NO_TOKEN = {0, 0};
/* A token that is never issued. */
static const dm_token_t DM_INVALID_TOKEN = {~(uint64_t)0, ~(uint64_t)0};

#define DM_TOKEN_EQ(a, b) ((a).high == (b).high && (a).low == (b).low)

/* ---- Sessions -------------------------------------------------------- */

/* Longest session info string including its terminating NUL. */
#define DM_SESSION_INFO_LEN 256

/* ---- DM attributes ---------------------------------------------------- */

/* An attribute name: up to 8 bytes, NUL-padded when shorter. */
#define DM_ATTR_NAME_SIZE 8
typedef struct dm_attrname {
  unsigned char an_chars[DM_ATTR_NAME_SIZE];
} dm_attrname_t;

/* ---- Rights, responses, events --------------------------------------- */

typedef enum dm_right { DM_RIGHT_NULL = 0, DM_RIGHT_SHARED = 1, DM_RIGHT_EXCL = 2 } dm_right_t;

/* dm_request_right flags */
#define DM_RR_WAIT 0x1

typedef enum dm_response {
  DM_RESP_INVALID = 0,
  DM_RESP_CONTINUE = 1,
  DM_RESP_ABORT = 2,
  DM_RESP_DONTCARE = 3
} dm_response_t;

typedef enum dm_eventtype {
  DM_EVENT_INVALID = -1,
  DM_EVENT_CANCEL = 0,
  DM_EVENT_MOUNT = 1,
  DM_EVENT_PREUNMOUNT = 2,
  DM_EVENT_UNMOUNT = 3,
  DM_EVENT_DEBUT = 4,
  DM_EVENT_CREATE = 5,
  DM_EVENT_CLOSE = 6,
  DM_EVENT_POSTCREATE = 7,
  DM_EVENT_REMOVE = 8,
  DM_EVENT_POSTREMOVE = 9,
  DM_EVENT_RENAME = 10,
  DM_EVENT_POSTRENAME = 11,
  DM_EVENT_LINK = 12,
  DM_EVENT_POSTLINK = 13,
  DM_EVENT_SYMLINK = 14,
  DM_EVENT_POSTSYMLINK = 15,
  DM_EVENT_READ = 16,
  DM_EVENT_WRITE = 17,
  DM_EVENT_TRUNCATE = 18,
  DM_EVENT_ATTRIBUTE = 19,
  DM_EVENT_DESTROY = 20,
  DM_EVENT_NOSPACE = 21,
  DM_EVENT_USER = 22,
  DM_EVENT_MAX = 23
} dm_eventtype_t;

/* dm_get_events flags */
#define DM_EV_WAIT 0x1

/* Variable-length data inside an event message: offset from the start of
 * the structure that holds the dm_vardata_t, and length. */
typedef struct dm_vardata {
  int32_t vd_offset;
  uint32_t vd_length;
} dm_vardata_t;

#define DM_GET_VALUE(p, field, type) ((type)((char*)(p) + (p)->field.vd_offset))
#define DM_GET_LEN(p, field) ((p)->field.vd_length)

/* One event as dm_get_events returns it.  Messages lie one after another in
 * the caller's buffer; _link is the byte offset of the next one from this
 * one, 0 for the last. */
typedef struct dm_eventmsg {
  int32_t _link;
  dm_eventtype_t ev_type;
  dm_token_t ev_token;
  dm_sequence_t ev_sequence;
  dm_vardata_t ev_data;
} dm_eventmsg_t;

#define DM_STEP_TO_NEXT(p, type) ((p)->_link != 0 ? (type)((char*)(p) + (p)->_link) : (type)0)

/* me_mode of a mount event */
#define DM_MOUNT_RDONLY 0x1
#define DM_MOUNT_LOCAL 0x2
#define DM_MOUNT_REMOTE 0x4

/* ev_data of DM_EVENT_MOUNT */
typedef struct dm_mount_event {
  uint32_t me_mode;
  dm_vardata_t me_handle1; /* file system */
  dm_vardata_t me_handle2; /* mount point */
  dm_vardata_t me_name1;   /* mount point path */
  dm_vardata_t me_name2;   /* device */
  dm_vardata_t me_roothandle;
} dm_mount_event_t;

/* ev_data of DM_EVENT_READ, DM_EVENT_WRITE and DM_EVENT_TRUNCATE */
typedef struct dm_data_event {
  dm_vardata_t de_handle;
  dm_off_t de_offset;
  dm_size_t de_length;
} dm_data_event_t;

/* ev_data of DM_EVENT_PREUNMOUNT, DM_EVENT_NOSPACE and the name-space
 * events */
typedef struct dm_namesp_event {
  uint32_t ne_mode;
  dm_vardata_t ne_handle1;
  dm_vardata_t ne_handle2;
  dm_vardata_t ne_name1;
  dm_vardata_t ne_name2;
  int32_t ne_retcode;
} dm_namesp_event_t;

/* ---- Managed regions -------------------------------------------------- */

#define DM_REGION_NOEVENT 0x0
#define DM_REGION_READ 0x1
#define DM_REGION_WRITE 0x2
#define DM_REGION_TRUNCATE 0x4

/* A region of a file that raises events.  rg_size 0 reaches to the end of
 * the file however long it grows. */
typedef struct dm_region {
  dm_off_t rg_offset;
  dm_size_t rg_size;
  uint32_t rg_flags;
  uint32_t rg_opaque;
} dm_region_t;

/* ---- File attributes -------------------------------------------------- */

/* Mask bits of dm_get_fileattr and dm_set_fileattr. */
#define DM_AT_ATIME 0x0001
#define DM_AT_MTIME 0x0002
#define DM_AT_CTIME 0x0004
#define DM_AT_DTIME 0x0008
#define DM_AT_HANDLE 0x0010
#define DM_AT_EMASK 0x0020
#define DM_AT_PMANR 0x0040
#define DM_AT_PATTR 0x0080
#define DM_AT_STAT 0x0100
#define DM_AT_CFLAG 0x0200
#define DM_AT_MODE 0x0400
#define DM_AT_UID 0x0800
#define DM_AT_GID 0x1000
#define DM_AT_SIZE 0x2000

typedef struct dm_stat {
  uint64_t dt_dev;
  dm_ino_t dt_ino;
  uint32_t dt_mode;
  uint32_t dt_nlink;
  uint32_t dt_uid;
  uint32_t dt_gid;
  uint64_t dt_rdev;
  dm_off_t dt_size;
  int64_t dt_atime;
  int64_t dt_mtime;
  int64_t dt_ctime;
  uint32_t dt_blksize;
  uint64_t dt_blocks;
  /* DMAPI-specific fields */
  int64_t dt_dtime;        /* time of the last DM attribute change, or ctime */
  uint64_t dt_emask;       /* events enabled on the object */
  uint32_t dt_nevents;     /* number of event types the provider knows */
  dm_boolean_t dt_pers;    /* some DM attribute would survive a crash */
  dm_boolean_t dt_pmanreg; /* the file has managed regions */
  uint32_t dt_change;      /* increases with every change of the object */
} dm_stat_t;

typedef struct dm_fileattr {
  uint32_t fa_mode;
  uint32_t fa_uid;
  uint32_t fa_gid;
  int64_t fa_atime;
  int64_t fa_mtime;
  int64_t fa_ctime;
  int64_t fa_dtime;
  dm_off_t fa_size;
} dm_fileattr_t;

/* dm_write_invis flags */
#define DM_WRITE_SYNC 0x1

/* ---- Functions -------------------------------------------------------- */

/* Service */
int dm_init_service(char** versionstrpp);

/* Sessions */
int dm_create_session(dm_sessid_t oldsid, char* sessinfop, dm_sessid_t* newsidp);
int dm_destroy_session(dm_sessid_t sid);
int dm_getall_sessions(unsigned int nelem, dm_sessid_t* sidbufp, unsigned int* nelemp);
int dm_query_session(dm_sessid_t sid, size_t buflen, void* bufp, size_t* rlenp);

/* Handles */
int dm_path_to_handle(char* path, void** hanpp, size_t* hlenp);
int dm_fd_to_handle(int fd, void** hanpp, size_t* hlenp);
int dm_handle_to_path(void* dirhanp, size_t dirhlen, void* targhanp, size_t targhlen, size_t buflen,
                      char* pathbufp, size_t* rlenp);
void dm_handle_free(void* hanp, size_t hlen);
unsigned int dm_handle_hash(void* hanp, size_t hlen);
int dm_handle_cmp(void* hanp1, size_t hlen1, void* hanp2, size_t hlen2);
dm_boolean_t dm_handle_is_valid(void* hanp, size_t hlen);

/* DM attributes */
int dm_set_dmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                  dm_attrname_t* attrnamep, int setdtime, size_t buflen, void* bufp);
int dm_get_dmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token,
                  dm_attrname_t* attrnamep, size_t buflen, void* bufp, size_t* rlenp);
int dm_remove_dmattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, int setdtime,
                     dm_attrname_t* attrnamep);

/* File data and attributes */
int dm_probe_hole(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                  dm_size_t len, dm_off_t* roffp, dm_size_t* rlenp);
int dm_punch_hole(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                  dm_size_t len);
dm_ssize_t dm_read_invis(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, dm_off_t off,
                         dm_size_t len, void* bufp);
dm_ssize_t dm_write_invis(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, int flags,
                          dm_off_t off, dm_size_t len, void* bufp);
int dm_get_fileattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int mask,
                    dm_stat_t* statp);
int dm_set_fileattr(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int mask,
                    dm_fileattr_t* attrp);

/* Managed regions */
int dm_set_region(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int nelem,
                  dm_region_t* regbufp, dm_boolean_t* exactflagp);
int dm_get_region(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int nelem,
                  dm_region_t* regbufp, unsigned int* nelemp);

/* Rights */
int dm_request_right(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token, unsigned int flags,
                     dm_right_t right);
int dm_release_right(dm_sessid_t sid, void* hanp, size_t hlen, dm_token_t token);

/* Events and tokens */
int dm_get_events(dm_sessid_t sid, unsigned int maxmsgs, unsigned int flags, size_t buflen,
                  void* bufp, size_t* rlenp);
int dm_respond_event(dm_sessid_t sid, dm_token_t token, dm_response_t response, int reterror,
                     size_t buflen, void* respbufp);
int dm_create_userevent(dm_sessid_t sid, size_t msglen, void* msgdatap, dm_token_t* tokenp);
int dm_getall_tokens(dm_sessid_t sid, unsigned int nelem, dm_token_t* tokenbufp,
                     unsigned int* nelemp);

#ifdef __cplusplus
}
#endif

#endif /* QMX_HSM_PROVIDER_DMAPI_IFACE_H_ */
