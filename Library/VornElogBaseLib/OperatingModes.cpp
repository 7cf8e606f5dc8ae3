#include "Library/VornElogBaseLib/OperatingModes.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Text.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/SetupAttributes.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/SmmBase2.h"
#include "Platform/Protocol/VendorServices.h"
#include "Platform/State.h"

namespace {

struct VORN_ELOG_BASE_PRIVATE_DATA {
    SERIAL_DEBUG_LEVELS Levels;
    UINT32 MfgModeType;
    BOOLEAN ManufacturingDiagsEnabled;
    UINT32 MemEccLoggingMode;
};

KYR_STATE VORN_ELOG_BASE_PRIVATE_DATA mPrivateDataVornElogBase = {};
KYR_STATE SERIAL_DEBUG_LEVELS mCxlChipsetHooksLevels = {};

constexpr SERIAL_DEBUG_LEVELS INFORMATIONAL{DEBUG_INFO, DEBUG_INFO, DEBUG_INFO};

enum MFG_MODE_TYPE : UINT32 { MfgModeDisabled = 0, MfgModeEnabled = 1, MfgModeEnabledVariant = 2 };

// Operating mode that VornElogGetOperatingModeData reports.
constexpr UINT32 OPERATING_MODE = 1;

// False when a destination is NULL; then nothing is written.
bool CopyLevels(const SERIAL_DEBUG_LEVELS& Levels, UINT64* Constructor, UINT64* Level, UINT64* Detailed) {
    if (Constructor == nullptr || Level == nullptr || Detailed == nullptr) {
        return false;
    }
    *Constructor = Levels.SerDbgLevelConstructor;
    *Level = Levels.SerDbgLevel;
    *Detailed = Levels.SerDbgLevelDetailed;
    return true;
}

bool IsManufacturingMode(UINT32 MfgModeType) {
    return MfgModeType == MfgModeEnabled || MfgModeType == MfgModeEnabledVariant;
}

}  // namespace

const SERIAL_DEBUG_LEVELS& SerialDebugLevels() {
    return mPrivateDataVornElogBase.Levels;
}

EFI_STATUS VornElogBaseLibConstructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    const EFI_SMM_BASE2_PROTOCOL* SmmBase2 = nullptr;
    EFI_STATUS Status = LocateBootProtocol(gEfiSmmBase2ProtocolGuid, &SmmBase2);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gEfiSmmBase2ProtocolGuid, aborting...\n", Status);
        return EFI_NOT_FOUND;
    }
    BOOLEAN InSmram = FALSE;
    Status = SmmBase2->InSmm(SmmBase2, &InSmram);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from InSmm, aborting...\n", Status);
        return EFI_NOT_FOUND;
    }

    VORN_ELOG_BASE_PRIVATE_DATA& Data = mPrivateDataVornElogBase;
    Data.Levels = INFORMATIONAL;
    mCxlChipsetHooksLevels = INFORMATIONAL;
    Data.MemEccLoggingMode = VornElogGetRasMemEccLoggingMode();

    Data.MfgModeType = MfgModeDisabled;
    const VORN_MANUFACTURING_MODE_PROTOCOL* Manufacturing = nullptr;
    Status = LocateBootProtocol(gVornManufacturingModeProtocolGuid, &Manufacturing);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gVornManufacturingModeProtocolGuid\n", Status);
    } else {
        Data.MfgModeType = Manufacturing->GetMfgModeType(Manufacturing);
        if (Data.MfgModeType > MfgModeEnabledVariant) {
            Trace(DEBUG_ERROR, "%a: ERROR MfgModeType %d unrecognized, default to mfg mode disabled\n",
                  Data.MfgModeType);
        }
    }
    Data.ManufacturingDiagsEnabled = IsManufacturingMode(Data.MfgModeType) ? TRUE : FALSE;
    Trace(Data.Levels.SerDbgLevelConstructor,
          "%a: MemEccLoggingMode %d MfgModeType %d ManufacturingDiagsEnabled %d\n", Data.MemEccLoggingMode,
          Data.MfgModeType, Data.ManufacturingDiagsEnabled);
    return EFI_SUCCESS;
}

RAS_MEM_ECC_LOGGING_MODE VornElogGetRasMemEccLoggingMode() {
    CHAR16* Value = nullptr;
    const EFI_STATUS Status = VornGetNvramAttributeString(u"CorErrLoggingThreshold", &Value);
    if (EFI_ERROR(Status) || Value == nullptr) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r retrieving NVRAM attribute value for INTERNAL_CORERR_THRESHOLD_ATTR_NAME 's', default to "
              "RasMemEccThresholdMode\n",
              Status);
        return RasMemEccThresholdMode;
    }
    const bool Diagnostic = SameText(Value, u"Disabled");
    FreeRuntimeData(Value);
    if (Diagnostic) {
        Trace(mPrivateDataVornElogBase.Levels.SerDbgLevel, "%a: Threshold mode disabled\n");
    }
    return Diagnostic ? RasMemEccDiagnosticMode : RasMemEccThresholdMode;
}

RAS_ERROR_LOGGING_MODE VornGetRasErrorLoggingMode(UINT64 Level) {
    RAS_ERROR_LOGGING_MODE Mode = RasProductionMode;
    if (mPrivateDataVornElogBase.ManufacturingDiagsEnabled != FALSE) {
        Trace(Level, "%a: Manufacturing mode detected, forcing RAS to RasDiagnosticMode\n");
        Mode = RasDiagnosticMode;
    }
    if (mPrivateDataVornElogBase.MemEccLoggingMode == RasMemEccDiagnosticMode) {
        Trace(Level, "%a: Memory CECC diagnostic mode detected, forcing RAS to RasDiagnosticMode\n");
        Mode = RasDiagnosticMode;
    }
    return Mode;
}

void VornElogGetSerialDebugLevels(UINT64* SerDbgLevelConstructor, UINT64* SerDbgLevel, UINT64* SerDbgLevelDetailed) {
    if (!CopyLevels(mPrivateDataVornElogBase.Levels, SerDbgLevelConstructor, SerDbgLevel, SerDbgLevelDetailed)) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
    }
}

void VornElogCxlChipsetHooksLibGetSerialDebugLevels(UINT64* SerDbgLevelConstructor, UINT64* SerDbgLevel,
                                                    UINT64* SerDbgLevelDetailed) {
    if (!CopyLevels(mCxlChipsetHooksLevels, SerDbgLevelConstructor, SerDbgLevel, SerDbgLevelDetailed)) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
    }
}

EFI_STATUS VornElogGetOperatingModeData(UINT32* OperatingMode, UINT64* SerDbgLevelConstructor, UINT64* SerDbgLevel,
                                        UINT64* SerDbgLevelDetailed) {
    if (OperatingMode == nullptr ||
        !CopyLevels(mPrivateDataVornElogBase.Levels, SerDbgLevelConstructor, SerDbgLevel, SerDbgLevelDetailed)) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *OperatingMode = OPERATING_MODE;
    return EFI_SUCCESS;
}
