// The command-line parser of the space-management commands.
//
// Two grammars, chosen by the OPTIONFORMAT option: the short one (single
// letters through getopt) and the long one (dash-prefixed keywords that may
// be abbreviated, values after "=").  Both fill the control block
// (HSMGlobalCB: queryMode, recallMode, fileListName, helpRequested, the
// operands) and a few options (SUBDIR).  Only the attribute command
// (commandKind 29) has a body here; the other commands' option strings are
// kept in one table so the parser's frame is complete.
//
// On a bad command line the parsers end the process themselves
// (CMD_EXIT_FAILED, or CMD_EXIT_USAGE after printing the usage; see
// hsm/cmd/cmd_status.h), so for this command they return 0.
#ifndef QMX_HSM_CMD_MIG_PARSE_H_
#define QMX_HSM_CMD_MIG_PARSE_H_

// The command kind of the attribute command.
constexpr int kCmdKindAttr = 29;

int ParseMigOptShort(int argc, char** argv);
int ParseMigOptLong(int argc, char** argv);

// The getopt option string of command kind |kind| ("" for kinds whose
// string is built at run time or that have none).  |multiServer| selects
// kind 14's string for the HSMMULTISERVER option.
const char* migShortOptions(int kind, bool multiServer);

// Recall-mode values the parser stores in HSMGlobalCB::recallMode.
enum : unsigned char {
  kParseRecallNormal = 1,
  kParseRecallPartial = 5,
  kParseRecallStreaming = 4,
};

#endif  // QMX_HSM_CMD_MIG_PARSE_H_
