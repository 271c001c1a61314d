// Assertions for programming errors of the session layer.
//
// Unlike assert() these stay in release builds: a wrong attribute index or a
// missing transport function is a bug that must stop the program, not a
// condition to recover from.  The expression is expanded before it is
// quoted, so the message shows what the compiler saw.
#ifndef QMX_SESSION_SESS_ASSERT_H_
#define QMX_SESSION_SESS_ASSERT_H_

// Writes "Assertion failed: <what>, file <file>, line <line>" to standard
// error and aborts.
[[noreturn]] void sessAssertFail(const char* what, const char* file, int line);

#define SESS_ASSERT_QUOTE(e) ((e) ? (void)0 : sessAssertFail(#e, __FILE__, __LINE__))
#define SESS_ASSERT(e) SESS_ASSERT_QUOTE(e)

#endif  // QMX_SESSION_SESS_ASSERT_H_
