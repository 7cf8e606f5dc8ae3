// The check that describes an MCA error code, and its check-information word (UEFI 2.10, appendix N.2.4.2.1).
#pragma once

#include "Include/Cper.h"
#include "Include/McaErrorInfo.h"

// Whether the check describes ErrorCode (MCA_STATUS[15:0]). EFI_INVALID_PARAMETER when the flag pointer is NULL.
using CPER_PROCESSOR_CHECK_VALIDATOR = EFI_STATUS(UINT64 Level, UINT16 ErrorCode, BOOLEAN IsDeferred,
                                                  BOOLEAN* pIsErrorCheckTypeDetected);

// ORs the check-information word of bank BankIndex into *pCheckInfo, and says whether it is valid and whether the
// instruction at the captured pointer can be restarted. EFI_INVALID_PARAMETER for a NULL pointer or a bank index
// that the scan cannot hold.
using CPER_PROCESSOR_CHECK_CONSTRUCTOR = EFI_STATUS(UINT64 Level, const RasMcaErrorInfo* pRasMcaErrorInfo,
                                                    UINT32 BankIndex, BOOLEAN* pIsErrorCheckInfoValid,
                                                    UINT64* pCheckInfo, BOOLEAN* pIsMachineCheckRestartable);

struct CPER_PROCESSOR_ERROR_CHECK {
    CPER_PROCESSOR_CHECK_VALIDATOR* Validator;
    CPER_PROCESSOR_CHECK_CONSTRUCTOR* Constructor;
    const EFI_GUID* pErrorTypeGuid;
};

inline constexpr UINT32 MAX_UEFI_CPER_ERROR_CHECK_STRUCTURE_TYPES = 6;

// Tried in this order; the last row takes whatever is left.
extern const CPER_PROCESSOR_ERROR_CHECK CperProcessorErrorCheckTable[MAX_UEFI_CPER_ERROR_CHECK_STRUCTURE_TYPES];

CPER_PROCESSOR_CHECK_VALIDATOR VornCperDetectCacheCheck;
CPER_PROCESSOR_CHECK_VALIDATOR VornCperDetectTlbCheck;
CPER_PROCESSOR_CHECK_VALIDATOR VornCperDetectBusCheck;
CPER_PROCESSOR_CHECK_VALIDATOR VornCperDetectMsCheck;
CPER_PROCESSOR_CHECK_VALIDATOR VornCperDetectUniqueMcaDeferredError;
CPER_PROCESSOR_CHECK_VALIDATOR VornCperDetectUnrecognizedError;

CPER_PROCESSOR_CHECK_CONSTRUCTOR VornCperCreateCacheCheckStructure;
CPER_PROCESSOR_CHECK_CONSTRUCTOR VornCperCreateTlbCheckStructure;
CPER_PROCESSOR_CHECK_CONSTRUCTOR VornCperCreateBusCheckStructure;
CPER_PROCESSOR_CHECK_CONSTRUCTOR VornCperCreateMsCheckStructure;
CPER_PROCESSOR_CHECK_CONSTRUCTOR VornCperCreateUniqueMcaDeferredError;
CPER_PROCESSOR_CHECK_CONSTRUCTOR VornCperCreateUnrecognizedErrorStructure;
