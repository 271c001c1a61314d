#include "hsm/cmd/hsm_global_cb.h"

#include <pthread.h>

#include <cstring>

#include "platform/console.h"

HSMGlobalCB* HSMGlobalCB::pInstance = nullptr;

namespace {
char whoami[255] = "unknown";
}  // namespace

uint32_t hsmStatVar[kHsmStatWords];

HSMGlobalCB::HSMGlobalCB() {
  psMutexInit(&sessionMapMutex, 0);
  canPrintInCleanUp = clUtCanPrintInCleanUp();
  stdoutRedirected = clUtIsStdoutRedirected();
  clUtGetScreenSize(&screenRows, &screenColumns);
}

HSMGlobalCB* HSMGlobalCB::GetHsmCB() {
  if (pInstance == nullptr) pInstance = new HSMGlobalCB();
  return pInstance;
}

Sess_o* HSMGlobalCB::threadSession() {
  auto it = sessionMap.find(static_cast<unsigned long>(pthread_self()));
  return it == sessionMap.end() ? nullptr : it->second;
}

const char* hsmWhoAmI() {
  return whoami;
}

void hsmSetWhoAmI(const char* name) {
  if (name == nullptr) name = "unknown";
  std::strncpy(whoami, name, sizeof whoami - 1);
  whoami[sizeof whoami - 1] = '\0';
}

void ClearStats() {
  std::memset(hsmStatVar, 0, sizeof hsmStatVar);
}
