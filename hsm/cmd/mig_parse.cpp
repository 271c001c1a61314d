#include "hsm/cmd/mig_parse.h"

#include <getopt.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "diag/nl.h"
#include "diag/trace.h"
#include "hsm/cmd/abbrev.h"
#include "hsm/cmd/cmd_status.h"
#include "hsm/cmd/hsm_global_cb.h"
#include "hsm/cmd/parsing_space.h"
#include "options/optobj.h"

namespace {

struct KindOptions {
  int kind;
  const char* options;
};

// Short option strings of the commands sharing this parser.
constexpr KindOptions kShortOptions[] = {
    {13, "vh?"},    {15, "Rptvlho:s:?"}, {16, "cfmodvh?"}, {19, "d:t:o:r:a:h?"},
    {20, "nxRlh?"}, {21, "ash?"},        {22, "hv?"},      {25, "h?"},
    {26, "h?"},     {27, "h?"},          {28, "h?"},       {kCmdKindAttr, "r:Rlh?"},
    {39, "sh?"},
};

// Keywords of the attribute command's long grammar, in matching order.
enum LongKey { kHelp, kRecursive, kRecallMode, kFileList };
struct LongKeyword {
  const char* name;
  int shortest;
  LongKey key;
};
constexpr LongKeyword kAttrKeywords[] = {
    {"HELP", 1, kHelp},
    {"RECURSIVE", 4, kRecursive},
    {"RECALLMODE", 4, kRecallMode},
    {"FILELIST", 2, kFileList},
};

// Names start-up has already handled; TESTFLAGS is deliberately not among
// them, so that it is refused here like any unknown option.
constexpr LongKeyword kStartUpKeywords[] = {
    {"TRACEFILE", 7, kHelp},
    {"TRACEMAX", 6, kHelp},
    {"TRACEFLAGS", 7, kHelp},
    {"ERRORLOGNAME", 9, kHelp},
};

bool ShortFormat() {
  return optionsP != nullptr && optionsP->optionFormat != 0;
}

[[noreturn]] void Usage() {
  nlprintf(ShortFormat() ? 9139 : 9138);
  std::exit(CMD_EXIT_USAGE);
}

void CopyFileListName(HSMGlobalCB* cb, const char* src) {
  // A null source leaves the name as it was (the short grammar's -l).
  if (src == nullptr) return;
  std::snprintf(cb->fileListName, sizeof cb->fileListName, "%s", src);
}

void AddOperand(HSMGlobalCB* cb, char* arg) {
  if (getParsingSpace(&cb->operands, &cb->operandCount, &cb->operandCapacity) != 0) {
    nlfprintf(stderr, 1075, "dscspars", __LINE__);
    std::exit(CMD_EXIT_FAILED);
  }
  cb->operands[cb->operandCount++] = arg;
}

std::string Upper(const char* s) {
  std::string u(s);
  for (char& c : u) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return u;
}

bool TracingParse() {
  return TR_GENERAL || TR_SM || TR_SMVERBOSE;
}

}  // namespace

const char* migShortOptions(int kind, bool multiServer) {
  if (kind == 14) return multiServer ? "Rvpflxhs:?" : "Rvpflxh?";
  for (const KindOptions& k : kShortOptions) {
    if (k.kind == kind) return k.options;
  }
  return "";
}

int ParseMigOptShort(int argc, char** argv) {
  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  cb->queryMode = 1;
  const bool multi = optionsP != nullptr && optionsP->hsmMultiServer != 0;
  const char* optstring = migShortOptions(cb->commandKind, multi);
  const int kind = cb->commandKind;
  // Two commands take a numbered variant as their first argument; it is
  // not an option for getopt.
  if ((kind == 13 || kind == 16) && argc > 1 &&
      (std::strcmp(argv[1], "-1") == 0 || std::strcmp(argv[1], "-2") == 0)) {
    cb->commandVariant = argv[1][1] - '0';
    for (int i = 1; i + 1 <= argc; ++i) argv[i] = argv[i + 1];
    --argc;
  }
  if (kind == 13 && getuid() != 0) {
    nlfprintf(stderr, 9012, hsmWhoAmI());
    std::exit(CMD_EXIT_FAILED);
  }
  optind = 1;
  int c;
  while ((c = getopt(argc, argv, optstring)) != -1) {
    if (kind != kCmdKindAttr) {
      if (c == '?') {
        nlprintf(kind == 13 ? 9125 : (ShortFormat() ? 9139 : 9138));
        std::exit(CMD_EXIT_USAGE);
      }
      continue;
    }
    switch (c) {
      case 'h':
        cb->helpRequested = 1;
        break;
      case 'l':
        // "l" takes no argument in the option string, so optarg is normally
        // null here and the name is left alone: file lists come through the
        // long grammar.
        CopyFileListName(cb, optarg);
        break;
      case 'R':
        optionsP->subdir = 1;
        break;
      case 'r':
        cb->queryMode = 0;
        if (Abbrev(optarg, "n", 1)) {
          cb->recallMode = kParseRecallNormal;
        } else if (Abbrev(optarg, "p", 1)) {
          cb->recallMode = kParseRecallPartial;
        } else if (Abbrev(optarg, "s", 1)) {
          cb->recallMode = kParseRecallStreaming;
        } else {
          nlfprintf(stderr, 9117, optarg);
          std::exit(CMD_EXIT_FAILED);
        }
        break;
      case '?':
        Usage();
      default:
        break;
    }
  }
  if (cb->commandKind == 25 || cb->commandKind == 2 || optind >= argc) return 0;
  for (int i = optind; i < argc; ++i) AddOperand(cb, argv[i]);
  return 0;
}

int ParseMigOptLong(int argc, char** argv) {
  HSMGlobalCB* cb = HSMGlobalCB::GetHsmCB();
  if (argc < 2) {
    if (cb->commandKind == 17) cb->helpRequested = 1;
  } else {
    std::string first = Upper(argv[1]);
    if (first == "-1" || first == "-2") return ParseMigOptShort(argc, argv);
  }
  cb->queryMode = 1;
  cb->parseFlag = 1;
  if (argc < 2) return 0;

  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    const char* eq = std::strchr(arg, '=');
    std::string name = eq != nullptr ? std::string(arg, static_cast<size_t>(eq - arg)) : arg;
    std::string value = eq != nullptr ? eq + 1 : "";
    name = Upper(name.c_str());
    if (TracingParse()) {
      if (!value.empty()) {
        trPrintf(__FILE__, __LINE__, "Argument %d is: '%s'   value: %s\n", i, name.c_str(),
                 value.c_str());
      } else {
        trPrintf(__FILE__, __LINE__, "Argument %d is: '%s'\n", i, name.c_str());
      }
    }
    if (arg[0] != '-') {
      AddOperand(cb, argv[i]);
      continue;
    }
    const char* key = name.c_str() + 1;
    bool startUp = false;
    for (const LongKeyword& k : kStartUpKeywords) {
      if (Abbrev(key, k.name, k.shortest)) startUp = true;
    }
    if (startUp) continue;
    if (cb->commandKind < 13 || cb->commandKind > 39) {
      nlfprintf(stderr, 1107, arg);
      std::exit(CMD_EXIT_FAILED);
    }
    if (cb->commandKind != kCmdKindAttr) continue;

    const LongKeyword* match = nullptr;
    for (const LongKeyword& k : kAttrKeywords) {
      if (Abbrev(key, k.name, k.shortest)) {
        match = &k;
        break;
      }
    }
    if (match == nullptr) {
      nlfprintf(stderr, 1107, arg);
      std::exit(CMD_EXIT_FAILED);
    }
    switch (match->key) {
      case kHelp:
        cb->helpRequested = 1;
        break;
      case kRecursive:
        optionsP->subdir = 1;
        break;
      case kRecallMode: {
        cb->queryMode = 0;
        std::string v = Upper(value.c_str());
        if (Abbrev(v.c_str(), "NORMAL", 1)) {
          cb->recallMode = kParseRecallNormal;
        } else if (Abbrev(v.c_str(), "PARTIALRECALL", 1)) {
          cb->recallMode = kParseRecallPartial;
        } else if (Abbrev(v.c_str(), "STREAMING", 1)) {
          cb->recallMode = kParseRecallStreaming;
        } else {
          nlfprintf(stderr, 9117, v.c_str());
          std::exit(CMD_EXIT_FAILED);
        }
        break;
      }
      case kFileList:
        CopyFileListName(cb, value.c_str());
        break;
    }
  }
  return 0;
}
