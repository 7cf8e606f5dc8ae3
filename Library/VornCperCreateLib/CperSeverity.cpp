#include "Library/VornCperCreateLib/CperSeverity.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/MachineCheckClass.h"

namespace {

constexpr const CHAR8* CperSeverityTexts[] = {"Recoverable", "Fatal", "Corrected", "None"};

constexpr const CHAR8* IoErrorTypeTexts[] = {
    "CXL Protocol Correctable", "CXL Protocol Uncorrectable Non-Fatal", "CXL Protocol Uncorrectable Fatal",
    "PCIe Correctable",         "PCIe Uncorrectable Non-Fatal",         "PCIe Uncorrectable Fatal"};

struct IO_ERROR_SEVERITIES {
    UINT32 Type;
    UINT16 HeaderSeverity;
    UINT16 DescriptorSeverity;
};

// An uncorrectable error leaves the record recoverable, so that the OS is not forced to stop, while its section
// says fatal. The split is meant.
constexpr IO_ERROR_SEVERITIES IoErrorSeverities[] = {
    {IoErrorTypeCxlProtocolCorrectable, CperSeverityCorrected, CperSeverityCorrected},
    {IoErrorTypeCxlProtocolNonFatal, CperSeverityRecoverable, CperSeverityFatal},
    {IoErrorTypeCxlProtocolFatal, CperSeverityRecoverable, CperSeverityFatal},
    {IoErrorTypePcieCorrectable, CperSeverityCorrected, CperSeverityCorrected},
    {IoErrorTypePcieNonFatal, CperSeverityRecoverable, CperSeverityFatal},
    {IoErrorTypePcieFatal, CperSeverityRecoverable, CperSeverityFatal},
};

// By machine-check class.
constexpr CPER_SEVERITY MceClassSeverities[] = {
    CperSeverityFatal,        // MceClassPccFatal
    CperSeverityCorrected,    // MceClassCorrected
    CperSeverityRecoverable,  // MceClassUcThreadFatal
    CperSeverityRecoverable,  // MceClassUcThreadRecoverable
    CperSeverityRecoverable,  // MceClassDeferred
    CperSeverityCorrected,    // MceClassTransparent
};

constexpr UINT32 CPER_SEVERITY_COUNT = 4;

// By the running severity and the new one. Neither a numeric maximum nor one by seriousness: the outcome depends on
// the order of folding, and that is meant.
constexpr UINT16 FoldedSeverities[CPER_SEVERITY_COUNT][CPER_SEVERITY_COUNT] = {
    {CperSeverityRecoverable, CperSeverityRecoverable, CperSeverityCorrected, CperSeverityNone},
    {CperSeverityFatal, CperSeverityFatal, CperSeverityFatal, CperSeverityFatal},
    {CperSeverityCorrected, CperSeverityCorrected, CperSeverityCorrected, CperSeverityNone},
    {CperSeverityNone, CperSeverityNone, CperSeverityNone, CperSeverityNone},
};

}  // namespace

const CHAR8* ConvertCperSeverityToString(UINT32 CperSeverity) {
    if (CperSeverity == CperSeverityUnset) {
        return "Unset";
    }
    return CperSeverity < CPER_SEVERITY_COUNT ? CperSeverityTexts[CperSeverity] : "Unrecognized Type";
}

const CHAR8* ConvertIoErrorTypeToString(UINT32 ErrorType) {
    return ErrorType <= IoErrorType_MaxValue ? IoErrorTypeTexts[ErrorType] : "Unrecognized Type";
}

UINT32 VornCperGetMachineCheckSeverity(UINT64 McaStatus) {
    const UINT32 MceClass = VornGetMceClass(McaStatus);
    return MceClass <= MceClassTransparent ? MceClassSeverities[MceClass] : CperSeverityNone;
}

EFI_STATUS VornCperGetErrorSeverities(UINT64 Level, UINT32 ErrorType, UINT16* pCperHeaderSeverity,
                                      UINT16* pCperDescriptorSeverity) {
    if (pCperHeaderSeverity == nullptr || pCperDescriptorSeverity == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (ErrorType > IoErrorType_MaxValue) {
        Trace(DEBUG_ERROR, "%a: ERROR IoErrorType %d > IoErrorType_MaxValue %d, aborting...\n", ErrorType,
              UINT32{IoErrorType_MaxValue});
        return EFI_INVALID_PARAMETER;
    }
    for (const IO_ERROR_SEVERITIES& Row : IoErrorSeverities) {
        if (Row.Type == ErrorType) {
            *pCperHeaderSeverity = Row.HeaderSeverity;
            *pCperDescriptorSeverity = Row.DescriptorSeverity;
            Trace(Level, "%a: %a => header %a descriptor %a\n", ConvertIoErrorTypeToString(ErrorType),
                  ConvertCperSeverityToString(Row.HeaderSeverity),
                  ConvertCperSeverityToString(Row.DescriptorSeverity));
            return EFI_SUCCESS;
        }
    }
    return EFI_NOT_FOUND;
}

EFI_STATUS VornCperGetHighestCperSeverity(UINT64 Level, UINT16 NewSeverity, UINT16* pSeverity) {
    if (pSeverity == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pSeverity == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (NewSeverity >= CPER_SEVERITY_COUNT) {
        Trace(DEBUG_ERROR,
              "%a: ERROR NewSeverity %d is not recognized (None %d Corrected %d Recoverable %d Fatal %d), "
              "aborting...\n",
              NewSeverity, UINT32{CperSeverityNone}, UINT32{CperSeverityCorrected}, UINT32{CperSeverityRecoverable},
              UINT32{CperSeverityFatal});
        return EFI_INVALID_PARAMETER;
    }
    const UINT16 Current = *pSeverity;
    if (Current == CperSeverityUnset) {
        *pSeverity = NewSeverity;
    } else if (Current < CPER_SEVERITY_COUNT) {
        *pSeverity = FoldedSeverities[Current][NewSeverity];
    }
    Trace(Level, "%a: %a and new %a => %a\n", ConvertCperSeverityToString(Current),
          ConvertCperSeverityToString(NewSeverity), ConvertCperSeverityToString(*pSeverity));
    return EFI_SUCCESS;
}

EFI_STATUS VornCperGetCperSeverityPcieOrCxlError(UINT64 Level, UINT32 ErrorType, UINT16* pHighestHeaderSeverity,
                                                 UINT16* pHighestDescriptorSeverity) {
    UINT16 HeaderSeverity = CperSeverityUnset;
    UINT16 DescriptorSeverity = CperSeverityUnset;
    EFI_STATUS Status = VornCperGetErrorSeverities(Level, ErrorType, &HeaderSeverity, &DescriptorSeverity);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornCperGetErrorSeverities\n", Status);
    }
    Status = VornCperGetHighestCperSeverity(Level, HeaderSeverity, pHighestHeaderSeverity);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornCperGetHighestCperSeverity (header)\n", Status);
    }
    Status = VornCperGetHighestCperSeverity(Level, DescriptorSeverity, pHighestDescriptorSeverity);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornCperGetHighestCperSeverity (descriptor)\n", Status);
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornCperGetHighestCperSeverityAllPcieOrCxlErrors(UINT64 Level, const PCI_DEVICE_STATE* pPciDeviceState,
                                                            UINT16* pHighestCperHeaderSeverity,
                                                            UINT16* pHighestCperDescriptorSeverity) {
    if (pPciDeviceState == nullptr || pHighestCperHeaderSeverity == nullptr ||
        pHighestCperDescriptorSeverity == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pHighestCperHeaderSeverity = CperSeverityUnset;
    *pHighestCperDescriptorSeverity = CperSeverityUnset;

    const bool IsCxl = pPciDeviceState->Cxl.IsCxl != FALSE;
    const CXL_ERROR_STATUS& Cxl = pPciDeviceState->Cxl.ErrorStatus;
    const PCIE_ERROR_STATUS& Pcie = pPciDeviceState->Pcie.ErrorStatus;
    const struct {
        bool Handle;
        IoErrorType Type;
    } Classes[] = {
        {IsCxl && Cxl.HandleCorrectable != FALSE, IoErrorTypeCxlProtocolCorrectable},
        {IsCxl && Cxl.HandleNonFatal != FALSE, IoErrorTypeCxlProtocolNonFatal},
        {IsCxl && Cxl.HandleFatal != FALSE, IoErrorTypeCxlProtocolFatal},
        {Pcie.HandleCorrectable != FALSE, IoErrorTypePcieCorrectable},
        {Pcie.HandleNonFatal != FALSE, IoErrorTypePcieNonFatal},
        {Pcie.HandleFatal != FALSE, IoErrorTypePcieFatal},
    };
    for (const auto& Class : Classes) {
        if (Class.Handle) {
            VornCperGetCperSeverityPcieOrCxlError(Level, Class.Type, pHighestCperHeaderSeverity,
                                                  pHighestCperDescriptorSeverity);
        }
    }
    return EFI_SUCCESS;
}
