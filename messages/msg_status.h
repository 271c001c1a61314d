// Exit statuses of the catalogue generator qmx_catgen, which the build runs
// for every language: any status but CATGEN_EXIT_OK stops the build before
// a catalogue is compiled from a damaged or inconsistent source.
#ifndef QMX_MESSAGES_MSG_STATUS_H_
#define QMX_MESSAGES_MSG_STATUS_H_

enum : int {
  CATGEN_EXIT_OK = 0,      // the compiler input was written
  CATGEN_EXIT_FAILED = 1,  // bad usage, an unreadable or inconsistent
                           // source, or the output can't be written (the
                           // reasons are on standard error)
};

#endif  // QMX_MESSAGES_MSG_STATUS_H_
