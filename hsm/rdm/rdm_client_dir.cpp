// The directory call of the client (rdm_client.h): made at once, or sent
// ahead and received later.
#include <errno.h>

#include <utility>

#include "diag/trace.h"
#include "hsm/rdm/rdm_calls.h"
#include "hsm/rdm/rdm_client.h"
#include "hsm/rdm/rdm_make_call.h"
#include "hsm/rdm/rdm_status.h"
#include "hsm/rdm/rdm_transport.h"

namespace {

// The query of the directory call sent ahead, while it is not received.
struct DirAhead {
  bool active = false;
  rdmDirQuery_t q;
};

thread_local DirAhead tDirAhead;

bool validQuery(const rdmDirQuery_t& q) {
  return !q.dir.empty() && !q.names.empty() && q.names.size() <= rdmDirMaxNames &&
         q.dir.find('\0') == std::string::npos;
}

// The answer to |q| in |rep| into |*entries| and |*more|.
int takeDirReply(const rdmDirQuery_t& q, const rdmReply_t& rep, std::vector<rdmDirEntry_t>* entries,
                 bool* more) {
  rdmDirReply_t v;
  if (rdmTakeReply<rdmDirAttrsMsg_t>(q, rep, &v) != 0) return -1;
  *entries = std::move(v.entries);
  *more = v.more;
  return rdmOutcome(rep);
}

}  // namespace

int rdmDirAttrs(const rdmDirQuery_t& q, std::vector<rdmDirEntry_t>* entries, bool* more) {
  if (!validQuery(q) || entries == nullptr || more == nullptr) {
    errno = EINVAL;
    return -1;
  }
  rdmWriter w;
  rdmDirAttrsMsg_t::encodeArgs(q, &w);
  rdmReply_t rep;
  if (rdmTransact(rdmDirAttrsCall, w, &rep) != 0) return -1;
  return takeDirReply(q, rep, entries, more);
}

int rdmDirAttrsSend(const rdmDirQuery_t& q) {
  rdmDirAttrsAbandon();
  if (!validQuery(q)) {
    errno = EINVAL;
    return -1;
  }
  tDirAhead.active = true;
  tDirAhead.q = q;
  rdmWriter w;
  rdmDirAttrsMsg_t::encodeArgs(q, &w);
  rdmSendAhead(rdmDirAttrsCall, w.data());
  return 0;
}

int rdmDirAttrsReceive(std::vector<rdmDirEntry_t>* entries, bool* more) {
  if (!tDirAhead.active || entries == nullptr || more == nullptr) {
    errno = EINVAL;
    return -1;
  }
  rdmDirQuery_t q = std::move(tDirAhead.q);
  tDirAhead = DirAhead();
  rdmReply_t rep;
  bool lost = false;
  bool answered = rdmReceiveAhead(&rep, &lost) == 0;
  if (answered && rep.status == rdmStatusMade) return takeDirReply(q, rep, entries, more);
  // Lost, busy or refused: the ordinary call retries, reconnects and
  // reports as for any other call.
  if (TR_DMI && !lost)
    trPrintf(__FILE__, __LINE__, "rdm: directory call sent ahead not answered, status %d\n",
             answered ? rep.status : -1);
  return rdmDirAttrs(q, entries, more);
}

void rdmDirAttrsAbandon() {
  if (!tDirAhead.active) return;
  rdmAbandonAhead();
  tDirAhead = DirAhead();
}
