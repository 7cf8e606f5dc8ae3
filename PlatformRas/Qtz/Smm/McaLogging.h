// Turns one processor's bank scan into error records for the policy engine.
#pragma once

#include "Include/McaErrorInfo.h"

// Builds a CPER record for every valid bank and hands it over; a memory record where the failing DIMM could be
// isolated, else a processor record. Sets the flag when a record was taken. Writes McgIp, and the Ovrflw bits of
// a bank's MCA_MISC0 and MCA_MISC1 as the policy engine left them. No failure stops the banks behind it.
void VornLogMCAError(RasMcaErrorInfo* Info, BOOLEAN* pIsPostProcessingRequired);

// Appends the bank's MCA registers as a context structure to mCperProcCtxInfoListHead.
// EFI_INVALID_PARAMETER when Info is NULL; a structure that cannot be built is left out.
EFI_STATUS VornGetCperProcessorContextInformationStructureData(UINT64 Level, UINT64 ProcessorNumber,
                                                               const RasMcaErrorInfo* Info, UINT32 BankIndex,
                                                               BOOLEAN IsDeferred);
