// The session's view of the options object: the one place that reads
// options for the server session.
#include <cstring>

#include "session/sess.h"

#include "options/optobj.h"

namespace {

// Client types that run in front of a user, who may then be asked for a
// password; programs running unattended (the programming interface, daemons)
// may not.
bool InteractiveClientType(int type) {
  switch (type) {
    case 0:   // command-line backup client
    case 1:   // administrative command line
    case 2:   // graphical client
    case 5:   // space-management commands
    case 10:  // command-line utilities
    case 11:  // graphical utilities
    case 12:  // Java graphical client
      return true;
    default:
      return false;
  }
}

}  // namespace

void sessSettingsFromOptions(const clientOptions* options, sessSettings_t* out) {
  *out = sessSettings_t{};
  out->canPrompt = InteractiveClientType(out->clientType);
  if (options == nullptr) return;
  const clientOptions& o = *options;
  commInfo_t& c = out->comm;
  // V6TCPIP is TCP/IP as well; getaddrinfo finds IPv6 and IPv4 addresses.
  c.method = o.commMethod == COMM_SHAREDMEM ? COMM_SHAREDMEM : COMM_TCPIP;
  c.address = o.tcpServerAddress;
  c.port = static_cast<uint16_t>(o.tcpPort);
  c.noDelay = o.tcpNoDelay != 0;
  c.bufferSize = o.tcpBuffSize;
  c.windowSize = o.tcpWindowSize > 0 ? static_cast<uint32_t>(o.tcpWindowSize) : 0;
  c.restartDurationMs =
      static_cast<uint32_t>(o.commRestartDuration > 0 ? o.commRestartDuration : 0) * 60u * 1000u;
  c.restartIntervalMs =
      static_cast<uint32_t>(o.commRestartInterval > 0 ? o.commRestartInterval : 0) * 1000u;
  out->serverName = o.serverName;
  out->nodeName = o.nodeName;
  out->passwordDir = o.passwordDir;
  out->passwordAccess = o.passwordAccess == 1 ? PSWD_GENERATE : PSWD_PROMPT;
  out->largeBuffers = o.largeCommBuffers != 0;
  out->clientType = static_cast<uint8_t>(o.optGetClientType());
  out->canPrompt = InteractiveClientType(o.optGetClientType());
  out->lanFree = o.enableLanFree != 0;
  out->saAddress = o.lanFreeTcpServerAddress;
  out->saPort = static_cast<uint16_t>(o.lanFreeTcpPort);
}
