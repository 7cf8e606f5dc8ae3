// Events of machine checks: the event itself, the thread that saw it, and the bank's registers.
#pragma once

#include "Include/McaErrorInfo.h"

// Sends one machine-check event. ApicId is the low byte of the local APIC ID. A body whose socket bit equals the
// remembered one and the APIC ID is taken for a repeat and not sent.
void ElogLogMachineCheckError(UINT8 Socket, UINT8 ApicId, UINT32 IsCorrectable);

// Sends an MSR's number and value as four bodies.
void ElogLogMsrInfo(UINT32 Msr, UINT64 Value);

// Sends the thread's place in the machine, in the form of an MSR whose number is the local APIC ID.
void VornElogLogCpuThreadLocationData(const CPU_INFO* pCpuInfo);

// Sends the registers of a bank that hold something, each by its MSR number.
void VornELogLogMcBankRegisterData(const MCA_BANK_ERROR_INFO* pBank);
