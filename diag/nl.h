// Message output: numbered messages from the client's message catalogue.
//
// Every text the client shows a user is a message of the catalogue
// "qmxclientV3.cat" (one per language, <dir>/<LANGUAGE>/qmxclientV3.cat):
//
//   nlprintf(9117, value);                 // routed by severity (stdout)
//   nlfprintf(stderr, 9178, prog, path, strerror(errno));
//   char* s = nullptr;
//   if (nlsprintf(&s, 1107, arg) > 0) { ...; free(s); }
//
// Each issued message raises the process return code (diag/globalrc.h);
// warnings and worse also go to the error log (diag/logfile.h).  The inserts
// a message takes, and their printf types, are listed in messages/EN_US.msg;
// callers must pass exactly those.
//
// Start-up: newNlsGlobalObject once, then nlinit (cache 10 early, 50 once
// the options are read); shut-down: nlterm and destroyNlsGlobalObject.
// Before nlinit nothing is found: the print functions return 0 silently.
//
// Thread safety: every function may be called from any thread; the caches
// and catalogue reads are guarded by the recursive message mutex, which the
// logs also take (nlLockMutex / nlUnlockMutex).
#ifndef QMX_DIAG_NL_H_
#define QMX_DIAG_NL_H_

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "diag/diag_status.h"

// ---------------------------------------------------------------------------
// Severity codes (the letter after the message number).
enum nlSeverity_t : unsigned char {
  nlsevZ = 0,  // display text, identifier removed
  nlsevT = 1,  // identifier removed
  nlsevR = 2,  // identifier removed
  nlsevK = 3,
  nlsevI = 4,       // informational
  nlsevW = 5,       // warning (logged)
  nlsevE = 6,       // error (logged)
  nlsevS = 7,       // severe (logged)
  nlsevL = 8,       // identifier removed, logged
  nlsevNone = 255,  // message absent
};

// An output function: shows one finished message text.
typedef void (*nlOutputFn_t)(const char* text);
inline constexpr int nlNumOutputFns = 9;  // one per severity code 0..8

// Client types that change message output (see diag/trace.h cliType_t).
inline constexpr int nlClientTypeAPI = 4;  // embedded: never stdout/stderr

inline constexpr size_t nlMaxLocale = 84;
inline constexpr size_t nlWorkBufSize = 4861;
inline constexpr const char* nlDefaultCatalogue = "qmxclientV3.cat";

// ---------------------------------------------------------------------------
// The message object.
struct nlsObject_t;

// Creates the process's message object: clears it, installs the nine output
// functions (|fns| may be null, and any null slot gets the default, which
// writes to stdout) and the prefix "ANS".  |envFlag| is kept for the
// platform's language services.  A second call is a no-op.  Returns 0, or
// PS_RC_NOMEM when memory runs out.
int newNlsGlobalObject(const nlOutputFn_t* fns, int envFlag);
// The object, or null before newNlsGlobalObject.
nlsObject_t* getNlsGlobalObjectHandle();
// Closes the catalogues, frees the caches and the object.
void destroyNlsGlobalObject();
// Empties both message caches (the catalogues stay open).
void destroyNlsGlobalCache();
// Replaces the three-letter prefix shown in identifiers ("ANS").
void setNlsGlobalObjectMsgPrefix(const char* prefix);
// Replaces the output function of severity |sev| (null: the default).
void setNlsOutputFunction(unsigned sev, nlOutputFn_t fn);

// Language settings.  qmxLocale is the upper-cased locale in use (set from
// the LANGUAGE option with nlSetLocale before nlinit, or from the
// environment by nlinit).  Language and CodePage follow from it.
extern char qmxLocale[nlMaxLocale + 1];
extern char Language[nlMaxLocale + 1];
extern char CodePage[64];
// Sets qmxLocale (upper-cased) as the LANGUAGE option does; null or ""
// clears it so that nlinit takes the environment's locale.
void nlSetLocale(const char* language);

// What nlinit reports back.
struct nlInitInfo_t {
  char locale[nlMaxLocale + 1];  // the locale in use ("EN_US" on fallback)
  int dateFormat;
  int timeFormat;
  int numberFormat;
};

// Starts the message system.  |language| must be non-empty (start-up
// passes the message-file name); a national catalogue is opened for
// qmxLocale (nlSetLocale, the LANGUAGE option) or else for the
// environment's locale.  |cacheSize| bounds
// each message cache; |msgDir| holds the <LANGUAGE> directories;
// |clientType| becomes the output mode (4: nothing to stdout or stderr);
// |catName| is honoured only for client types 9, 10 and 11 (null: the
// default).  A second call re-applies the formats and cache size, and
// reopens the national catalogue only when qmxLocale changed in between.
// Returns 0, or DIAG_RC_NOCATALOG (empty language, over-long arguments, no
// English catalogue).  |info| may be null.
int nlinit(const char* language, unsigned cacheSize, const char* msgDir, int clientType,
           int dateFormat, int timeFormat, int numberFormat, nlInitInfo_t* info,
           const char* catName);
// Opens the catalogues (nlinit's work).  Returns 0 or DIAG_RC_NOCATALOG.
int initMsgSys(const char* language, const char* catName, int clientType, unsigned cacheSize,
               const char* msgDir, nlInitInfo_t* info);
// Closes both catalogues and frees the caches; the object stays.
void nlterm();
int termMsgSys();

// ---------------------------------------------------------------------------
// Issuing messages.  The return value is the length of the text written or
// composed, 0 when the message is absent (retired, missing, damaged).

// Composes message |num| and hands it to the output function of its
// severity (not in output mode 4).
int nlprintf(unsigned num, ...);
// Composes message |num| and writes it to |stream| (not to stdout or stderr
// in output mode 4).
int nlfprintf(FILE* stream, unsigned num, ...);
int nlvfprintf(FILE* stream, unsigned num, va_list args);
// Composes into *|out|, a new string the caller frees with free(); *|out|
// is null when the message is absent.  The return code is raised; the text
// is neither shown nor logged (the caller decides what to do with it).
int nlsprintf(char** out, unsigned num, ...);
int nlvsprintf(char** out, unsigned num, va_list args);
// The same, returning the string (null when absent).
char* nlMessage(unsigned num, ...);
// Composes from the English catalogue whatever the national language.
int nlEngsprintf(char** out, unsigned num, ...);
// The text for a program that embeds the client: composed into |buf| of
// |size| bytes (cut to fit), not shown, not logged.
int nlapimsg(unsigned num, char* buf, size_t size, ...);
// The raw text of response message |num| (the answers a prompt accepts,
// e.g. "yes|no") into |buf|, without identifier.  Returns its length or 0.
int nlresponse(unsigned num, char* buf, size_t size);

// The severity code of message |num|: 0..8, nlsevNone (255) when absent or
// the mutex cannot be released, 6 when the mutex cannot be taken.
unsigned char nlGetMsgSev(unsigned num);

// Switches the copying of messages into the error and schedule logs.
void SetMsgLoggingMode(int on);
int nlGetMsgLoggingMode();
// Schedule mode: messages also go to the schedule log when it is open.
void nlSetScheduleMode(int on);

// The message mutex (recursive); the logs hold it while writing a line.
// Return 0 or an error number.
int nlLockMutex();
int nlUnlockMutex();

// ---------------------------------------------------------------------------
// Code pages.  UCS-2 text to the local code page and back.  Return the
// length written (without the terminating zero), or -1 when the text cannot
// be converted or does not fit.
int nlsUcsToLocal(const uint16_t* ucs, char* out, size_t outSize);
int nlsLocalToUcs(const char* local, uint16_t* out, size_t outCount);

// ---------------------------------------------------------------------------
// Date, time and number formats (options DATEFORMAT, TIMEFORMAT and
// NUMBERFORMAT).  Format 0 takes the locale's; unknown numbers keep the
// current one.  Return 0, or PS_RC_BADARG for an unknown format number.
int setDateFmt(int fmt);
int setTimeFmt(int fmt);
int setNumberFmt(int fmt);
int getDateFmt();
int getTimeFmt();
int getNumberFmt();
// The strftime patterns in force.
const char* nlDatePattern();
const char* nlTimePattern();
// Formats |t| into |date| and |time| (each |size| bytes, at least 32) with
// the patterns in force.
void dateFmt(const struct tm* t, char* date, char* time, size_t size);
// Parses a date written with the date format in force ("%m/%d/%Y" ...) at
// the start of |text|.  Returns the number of characters read, 0 when the
// text does not start with such a date.  |out| receives day, month, year.
size_t nlParseDate(const char* text, struct tm* out);
// Formats |value| with the number format in force (thousands separators):
// 1,234,567 for format 1.  Returns |buf|.
char* nlFormatNumber(unsigned long long value, char* buf, size_t size);

#endif  // QMX_DIAG_NL_H_
