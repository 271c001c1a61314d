// The functions of a DMAPI provider, as one list.
//
// QMX_DM_FUNCTIONS(X) calls X(name, required) for every function of
// dmapi_iface.h, name without its "dm_" prefix.  The binding table, the
// symbol look-up of a loaded provider and our own provider's declarations
// are all generated from this list, so that a function added here is bound
// everywhere.  A provider must export every required function; an optional
// one (required 0) may be missing and is then null in the table.
#ifndef QMX_HSM_PROVIDER_DMAPI_FUNCTIONS_H_
#define QMX_HSM_PROVIDER_DMAPI_FUNCTIONS_H_

#define QMX_DM_FUNCTIONS(X) \
  X(init_service, 1)        \
  X(create_session, 1)      \
  X(destroy_session, 1)     \
  X(getall_sessions, 1)     \
  X(query_session, 1)       \
  X(path_to_handle, 1)      \
  X(fd_to_handle, 1)        \
  X(handle_to_path, 0)      \
  X(handle_free, 1)         \
  X(handle_hash, 1)         \
  X(handle_cmp, 1)          \
  X(handle_is_valid, 1)     \
  X(set_dmattr, 1)          \
  X(get_dmattr, 1)          \
  X(remove_dmattr, 1)       \
  X(probe_hole, 1)          \
  X(punch_hole, 1)          \
  X(read_invis, 1)          \
  X(write_invis, 1)         \
  X(get_fileattr, 1)        \
  X(set_fileattr, 1)        \
  X(set_region, 1)          \
  X(get_region, 1)          \
  X(request_right, 1)       \
  X(release_right, 1)       \
  X(get_events, 1)          \
  X(respond_event, 1)       \
  X(create_userevent, 1)    \
  X(getall_tokens, 1)

#endif  // QMX_HSM_PROVIDER_DMAPI_FUNCTIONS_H_
