#include "options/opt_keywords.h"

#include <strings.h>

#include <cstring>

const optKeyword_t kwOptionFormat[] = {{"STANDARD", 2, 0}, {"SHORT", 2, 1}, {nullptr, 0, 0}};
const optKeyword_t kwPasswordAccess[] = {{"PROMPT", 1, 0}, {"GENERATE", 1, 1}, {nullptr, 0, 0}};
const optKeyword_t kwCommMethod[] = {
    {"TCPIP", 3, 1}, {"SHAREDMEM", 3, 2}, {"V6TCPIP", 2, 3}, {nullptr, 0, 0}};
const optKeyword_t kwSchedMode[] = {{"POLLING", 2, 1}, {"PROMPTED", 2, 2}, {nullptr, 0, 0}};
const optKeyword_t kwSessionInitiation[] = {
    {"CLIENT", 1, 0}, {"SERVERONLY", 1, 1}, {nullptr, 0, 0}};
const optKeyword_t kwEncryptionType[] = {{"DES56", 1, 1}, {"AES128", 1, 2}, {nullptr, 0, 0}};
const optKeyword_t kwEncryptKey[] = {
    {"PROMPT", 1, 0}, {"SAVE", 1, 1}, {"GENERATE", 1, 2}, {nullptr, 0, 0}};
const optKeyword_t kwAuditLogging[] = {
    {"OFF", 2, 0}, {"BASIC", 1, 1}, {"FULL", 1, 2}, {nullptr, 0, 0}};
const optKeyword_t kwAutoFsRename[] = {
    {"NO", 1, 0}, {"YES", 1, 1}, {"PROMPT", 1, 2}, {nullptr, 0, 0}};
const optKeyword_t kwAutoDeploy[] = {
    {"NO", 2, 0}, {"YES", 1, 1}, {"NOREBOOT", 3, 2}, {nullptr, 0, 0}};
const optKeyword_t kwClientView[] = {{"STANDARD", 1, 0}, {"ALL", 1, 1}, {nullptr, 0, 0}};
const optKeyword_t kwIeObjType[] = {
    {"FILE", 1, 0}, {"IMAGE", 1, 1}, {"NAS", 1, 2}, {nullptr, 0, 0}};
const optKeyword_t kwManagedServices[] = {
    {"NONE", 1, 0}, {"WEBCLIENT", 1, 1}, {"SCHEDULE", 1, 2}, {"BOTH", 1, 3}, {nullptr, 0, 0}};
const optKeyword_t kwMemEfficient[] = {
    {"NO", 1, 0}, {"YES", 1, 1}, {"DISKCACHEMETHOD", 1, 2}, {nullptr, 0, 0}};
const optKeyword_t kwImageMethod[] = {
    {"SNAPSHOT", 2, 0}, {"STATIC", 2, 1}, {"DYNAMIC", 1, 2}, {nullptr, 0, 0}};
const optKeyword_t kwReplace[] = {
    {"PROMPT", 1, 0}, {"ALL", 1, 1}, {"YES", 1, 2}, {"NO", 1, 3}, {nullptr, 0, 0}};
const optKeyword_t kwRevokeRemoteAccess[] = {{"NONE", 1, 0}, {"ACCESS", 1, 1}, {nullptr, 0, 0}};
const optKeyword_t kwSnapshotProvider[] = {{"NONE", 1, 0}, {"LVM", 1, 1}, {nullptr, 0, 0}};
const optKeyword_t kwVmBackupType[] = {{"FULLVM", 2, 0}, {"FILE", 2, 1}, {nullptr, 0, 0}};
const optKeyword_t kwVmFullType[] = {{"FULL", 1, 0}, {"CHANGED", 1, 1}, {nullptr, 0, 0}};

// The value of a yes word is the caller's "low"; 1 here marks it.
const optKeyword_t kwYesNo[] = {{"YES", 1, 1}, {"NO", 1, 0},   {"ON", 2, 1},
                                {"OFF", 2, 0}, {"TRUE", 1, 1}, {"FALSE", 1, 0},
                                {"1", 1, 1},   {"0", 1, 0},    {nullptr, 0, 0}};

int optFindKeyword(const optKeyword_t* list, const char* token) {
  if (list == nullptr || token == nullptr) return -1;
  size_t len = strlen(token);
  if (len == 0) return -1;
  for (int i = 0; list[i].word != nullptr; ++i) {
    const optKeyword_t& k = list[i];
    if (len <= strlen(k.word) && len >= k.minLen && strncasecmp(token, k.word, len) == 0) return i;
  }
  return -1;
}

int optReadToggle(const char* token, int yesValue, int* result) {
  int i = optFindKeyword(kwYesNo, token);
  if (i < 0) return PS_RC_BADVALUE;
  *result = kwYesNo[i].value ? yesValue : 0;
  return PS_RC_OK;
}
