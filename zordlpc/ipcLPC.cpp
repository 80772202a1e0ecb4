#include "zordlpc/trace_unit.h"
#include "zordlpc/zordlpc.h"

ipcLPC::ipcLPC() : _lpcError(1) {
  TRC1_FUNCTION("ipcLPC::ipcLPC - BAD");
  TRC1_ERROR("Error: this constructor should not be used.");
  TRC1_LEAVE();
}

ipcLPC::ipcLPC(short typeOfService, void* clientArg, ZORA_Long connectTo)
    : DCHipc(typeOfService), _lpcError(ipcGetError()) {
  TRC1_FUNCTION("ipcLPC::ipcLPC");
  startup(clientArg, connectTo);
  TRC1_LEAVE();
}

ipcLPC::~ipcLPC() {
  TRC1_FUNCTION("ipcLPC::~ipcLPC");
  TRC1_LEAVE();
}

ZORA_Long ipcLPC::ipcRead(void**, ZORA_Long) {
  TRC1_FUNCTION("ipcLPC::ipcRead");
  TRC1_RETURN(0);
}

ZORA_Long ipcLPC::ipcWrite(void*, ZORA_Long, unsigned int) {
  TRC1_FUNCTION("ipcLPC::ipcWrite");
  TRC1_RETURN(0);
}

void ipcLPC::setClientAddr(void*, ZORA_Long) {
  TRC1_FUNCTION("ipcLPC::setClientAddr");
  TRC1_LEAVE();
}

ZORA_Long ipcLPC::IPCServer() {
  TRC1_FUNCTION("ipcLPC::IPCServer");
  TRC1_RETURN(_lpcError);
}

ZORA_Long ipcLPC::IPCClient(void*, ZORA_Long, ZORA_Long) {
  TRC1_FUNCTION("ipcLPC::IPCClient");
  TRC1_RETURN(_lpcError);
}

ZORA_Long ipcLPC::allocateIPC() {
  TRC1_FUNCTION("ipcLPC::allocateIPC");
  TRC1_RETURN(_lpcError);
}

ZORA_Long ipcLPC::releaseIPC() {
  TRC1_FUNCTION("ipcLPC::releaseIPC");
  TRC1_RETURN(_lpcError);
}
