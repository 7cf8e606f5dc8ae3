// The record of a machine-check bank with an IA32/X64 processor error section (UEFI 2.10, appendix N.2.4.2).
#pragma once

#include "Include/CperNodes.h"
#include "Include/McaErrorInfo.h"

// Fills a zeroed error information structure from bank BankIndex: kind of check, check information and, where the
// instruction can be restarted, its pointer. IsDeferred TRUE takes the check of deferred errors whatever the error
// code is. EFI_INVALID_PARAMETER for NULL pointers or a bank index that the scan cannot hold; else the status of the
// check's constructor.
EFI_STATUS VornCperCreateProcessorErrorInformationStructure(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo,
                                                            UINT32 BankIndex, BOOLEAN IsDeferred,
                                                            EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION* pErrorInfo);

// Fills a zeroed context structure of ContextSize bytes with the first NumRegisters registers of the bank in MSR
// order; those above 15 are left as they are. *pIsValid says whether the structure holds something.
// EFI_INVALID_PARAMETER for NULL pointers or a bank index that the scan cannot hold, EFI_BUFFER_TOO_SMALL when the
// registers do not fit.
EFI_STATUS VornCperCreateProcessorContextInfoStrucMcBank(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo,
                                                         UINT32 BankIndex, UINT16 NumRegisters, UINT64 ContextSize,
                                                         BOOLEAN* pIsValid,
                                                         EFI_IA32_X64_PROCESSOR_CONTEXT_INFO* pContext);

// Bytes of the section, and of the record, over lists of PROCESSOR_ERROR_INFO_DATA_NODE and
// PROCESSOR_CONTEXT_INFO_DATA_NODE. A NULL list makes the section length EFI_INVALID_PARAMETER.
UINT64 VornCperGetProcessorSpecificSectionLength(UINT64 Level, const LIST_ENTRY* pErrorInfoList,
                                                 const LIST_ENTRY* pContextInfoList);
UINT64 VornCperGetProcessorSpecificRecordLength(UINT64 Level, const LIST_ENTRY* pErrorInfoList,
                                                const LIST_ENTRY* pContextInfoList);

// Fills a zeroed record of CperLength bytes for bank BankIndex. Unused is never read. EFI_INVALID_PARAMETER for NULL
// pointers or a bank index that the scan cannot hold; EFI_BUFFER_TOO_SMALL when the lists hold more than the record:
// it is then only partly filled.
EFI_STATUS VornCperCreateProcessorSpecific(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo, UINT32 BankIndex,
                                           BOOLEAN PreviousError, BOOLEAN Unused, const LIST_ENTRY* pErrorInfoList,
                                           const LIST_ENTRY* pContextInfoList, UINT64 CperLength, CPER_RECORD* pCper);
