// Process-level services that every command brings up at start-up and takes
// down at exit: thread mode, signal handlers, thread-specific data, the core
// and the captured environment.
//
// These run on the main thread during start-up and shut-down; only the
// thread-specific-data accessors are meant for use from any thread.
#ifndef QMX_PLATFORM_SERVICES_H_
#define QMX_PLATFORM_SERVICES_H_

#include <csignal>

// Records whether the process runs several threads (1) or one (0).  Returns
// the previous mode.
int psSetThreadMode(int mode);
int psGetThreadMode();

// Records the program's path and name from |argv| (argv[0]); returns 0.
int psInitialization(char** argv);
// The program path given to psInitialization ("" before it ran).
const char* psProgramPath();

// Installs |handler| for |sig| (SIG_IGN and SIG_DFL are accepted).  The
// handler runs with every other handled signal blocked, so that a second
// signal can't interrupt the clean-up it starts.  Returns 0 or an errno.
typedef void (*psSignalHandler_t)(int);
int pkInstallSignalHandler(int sig, psSignalHandler_t handler);

// Thread-specific data: one pointer per thread.  pkTSDinit creates the key
// once (later calls are no-ops) and returns 0 or an errno.
int pkTSDinit();
void* pkTSDget();
int pkTSDset(void* value);

// Functions run, newest first, by psCleanUpatExit (each at most once).
typedef void (*psCleanUpFn_t)();
int psRegisterCleanUp(psCleanUpFn_t fn);
void psCleanUpatExit();

// Core initialisation and clean-up of the client: records the process id
// and start time, sets the file-creation mask for the client's files.
// |apiMode| non-zero for a program that embeds the client; |threaded| as for
// psSetThreadMode.  Returns 0.
int dsCoreInit(int apiMode, int threaded);
void dsCoreCleanUp();
int dsCoreIsUp();

// Snapshot of the environment variables the client reads, taken once at
// start-up by euGetEnvironment so that later readers see one consistent view.
struct euEnvironment_t {
  const char* qmxDir;      // QMX_DIR or null
  const char* qmxConfig;   // QMX_CONFIG or null
  const char* qmxLog;      // QMX_LOG or null
  const char* qmxiDir;     // QMXI_DIR or null (programming-interface client)
  const char* qmxiConfig;  // QMXI_CONFIG or null
  const char* qmxiLog;     // QMXI_LOG or null
  const char* pwd;         // PWD or null
  const char* lang;        // LANG or null
  const char* lcAll;       // LC_ALL or null
  const char* lcMessages;  // LC_MESSAGES or null
};

// Captures (|refresh| non-zero: captures again) and returns the snapshot.
// The strings are owned by the snapshot and live until the next refresh.
const euEnvironment_t* euGetEnvironment(int refresh);

// Initialises the miscellaneous services (random seed for generated names,
// host name).  Returns 0.
int psMiscInit();
// The computer's host name (short form, as gethostname gives it).
const char* psHostName();

// Brings up the file layer (nothing to open on this platform beyond checking
// that the process can read its working directory).  Returns 0, or an errno.
int FileSubsystemInit();

#endif  // QMX_PLATFORM_SERVICES_H_
