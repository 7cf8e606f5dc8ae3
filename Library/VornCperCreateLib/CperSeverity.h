// Severities of records: from a bank's status, and from the error classes of PCIe and CXL.
#pragma once

#include "Include/Cper.h"
#include "Include/PciDeviceState.h"

enum IoErrorType : UINT32 {
    IoErrorTypeCxlProtocolCorrectable = 0,
    IoErrorTypeCxlProtocolNonFatal = 1,
    IoErrorTypeCxlProtocolFatal = 2,
    IoErrorTypePcieCorrectable = 3,
    IoErrorTypePcieNonFatal = 4,
    IoErrorTypePcieFatal = 5,
    IoErrorType_MaxValue = IoErrorTypePcieFatal,
};

// Texts for people; "Unrecognized Type" for a value that is none.
const CHAR8* ConvertCperSeverityToString(UINT32 CperSeverity);
const CHAR8* ConvertIoErrorTypeToString(UINT32 ErrorType);

// CPER_SEVERITY of a machine check.
UINT32 VornCperGetMachineCheckSeverity(UINT64 McaStatus);

// Header and descriptor severity of one error class. EFI_INVALID_PARAMETER for a NULL pointer or a class that does
// not exist.
EFI_STATUS VornCperGetErrorSeverities(UINT64 Level, UINT32 ErrorType, UINT16* pCperHeaderSeverity,
                                      UINT16* pCperDescriptorSeverity);

// Folds NewSeverity into the running *pSeverity, which starts at CperSeverityUnset. The result depends on the order
// of folding: this is no maximum. EFI_INVALID_PARAMETER for NULL or a NewSeverity that is none; *pSeverity stays.
EFI_STATUS VornCperGetHighestCperSeverity(UINT64 Level, UINT16 NewSeverity, UINT16* pSeverity);

// Folds the severities of one error class into the two running values. Always EFI_SUCCESS.
EFI_STATUS VornCperGetCperSeverityPcieOrCxlError(UINT64 Level, UINT32 ErrorType, UINT16* pHighestHeaderSeverity,
                                                 UINT16* pHighestDescriptorSeverity);

// Severities of everything that a captured function marks for handling; CperSeverityUnset when that is nothing.
// EFI_INVALID_PARAMETER for a NULL pointer.
EFI_STATUS VornCperGetHighestCperSeverityAllPcieOrCxlErrors(UINT64 Level, const PCI_DEVICE_STATE* pPciDeviceState,
                                                            UINT16* pHighestCperHeaderSeverity,
                                                            UINT16* pHighestCperDescriptorSeverity);
