#include "kova_man.h"

namespace {
constexpr char kName[] = "kOVA_Man";
}

CkOVA_MANAGER* kOVA_CardMan[MAXCARDNO] = {};

CkOVA_MANAGER::~CkOVA_MANAGER() {
  Console("~kOVA_MANAGER\n");
}

int CkOVA_MANAGER::CPUReport(int) {
  return 0;
}
void CkOVA_MANAGER::SetSlotID(unsigned char nSlotID) {
  SlotID = nSlotID;
}
void CkOVA_MANAGER::InitHardware() {}
int CkOVA_MANAGER::GetHardVer() {
  return 1;
}
int CkOVA_MANAGER::GetHardType() {
  return 1;
}

char* CkOVA_MANAGER::GetHardTypeName(char* TypeName) {
  if (TypeName != nullptr) std::memcpy(TypeName, kName, sizeof kName);
  return const_cast<char*>(kName);
}

int CkOVA_MANAGER::GetTaskNum() {
  return 1;
}
int CkOVA_MANAGER::GetCPUSeting() {
  return 0;
}
HKEY CkOVA_MANAGER::ReadHKey() {
  return HKEY_NUL;
}
unsigned char CkOVA_MANAGER::InB(unsigned short) {
  return 0xFF;
}
void CkOVA_MANAGER::OutB(unsigned short, unsigned char) {}
int CkOVA_MANAGER::Cmd_OUT(int, void*) {
  return 1;
}
int CkOVA_MANAGER::Cmd_LD(int, void*) {
  return 1;
}
int CkOVA_MANAGER::Cmd_MOT(int, void*) {
  return 1;
}
int CkOVA_MANAGER::Cmd_LMOT(int, void*) {
  return 1;
}
int CkOVA_MANAGER::Cmd_DG(int, void*) {
  return 1;
}
int CkOVA_MANAGER::Cmd_LDG(int, void*) {
  return 1;
}
// The one command that is not met when the card does not know it.
int CkOVA_MANAGER::Cmd_ROW(int, void*) {
  return 0;
}
int CkOVA_MANAGER::Cmd_ROCLR(int, void*) {
  return 1;
}
int CkOVA_MANAGER::Cmd_IF(int, void*, char*) {
  return 1;
}
