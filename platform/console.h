// The terminal the command talks to.
#ifndef QMX_PLATFORM_CONSOLE_H_
#define QMX_PLATFORM_CONSOLE_H_

// 1 when standard output is not a terminal (a pipe or a file), else 0.
int clUtIsStdoutRedirected();

// Rows and columns of the terminal on standard output; from the LINES and
// COLUMNS variables when it is not a terminal; 24 by 80 when neither says.
void clUtGetScreenSize(int* rows, int* columns);

// 1 when the clean-up path may print: standard error is still open.
int clUtCanPrintInCleanUp();

// Flushes the standard streams at shut-down.
void clUtCleanUp();

// Converts a text from the OEM to the display code page in place.  On this
// platform both are the locale's code page, so the text is returned as is.
char* psConvertOemString(char* text);

#endif  // QMX_PLATFORM_CONSOLE_H_
