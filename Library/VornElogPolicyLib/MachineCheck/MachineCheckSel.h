// A machine-check bank as SEL records.
#pragma once

#include "Include/ChipsetSupportData.h"

// Sends the SEL records of the bank that the chipset data are about. Nothing is sent when the processor's location
// cannot be had.
void VornElogSmmLogMachineCheckData(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData);

// Sends the machine-check record, the processor's location and the bank's registers, in this order.
void VornElogSmmMcBankData(const CPU_INFO* pCpuInfo, const MCA_BANK_ERROR_INFO* pMcaBankErrorInfo);
