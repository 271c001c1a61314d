#include "session/comm.h"

#include "session/tcp_comm.h"

int commSelectMethod(commObj_t* obj, int method) {
  obj->commFunc = commFunc_t{};
  switch (method) {
    case COMM_TCPIP:
      tcpFillFuncTable(&obj->commFunc);
      return 0;
    default:
      return COMM_RC_METHOD;
  }
}

const char* commMethodName(int method) {
  switch (method) {
    case COMM_TCPIP:
      return "TCPIP";
    case COMM_SHAREDMEM:
      return "SHAREDMEM";
    default:
      return "NONE";
  }
}
