// Operating modes and debug levels of the error log, fixed while the driver starts.
#pragma once

#include "Include/PolicyPrivateData.h"
#include "Platform/Services.h"

// Levels under which traces print: while the driver starts, decisions, progress.
struct SERIAL_DEBUG_LEVELS {
    UINT64 SerDbgLevelConstructor;
    UINT64 SerDbgLevel;
    UINT64 SerDbgLevelDetailed;
};

// Those of the error log; all 0, which prints nothing, before the constructor below ran.
const SERIAL_DEBUG_LEVELS& SerialDebugLevels();

// Sets the debug levels, reads the memory ECC logging mode and the manufacturing mode. EFI_NOT_FOUND without the
// SMM base protocol; EFI_SUCCESS (a missing manufacturing mode is none).
EFI_STATUS VornElogBaseLibConstructor(EFI_HANDLE ImageHandle, EFI_SYSTEM_TABLE* SystemTable);

// Diagnostic when the setup attribute "CorErrLoggingThreshold" is "Disabled"; threshold otherwise.
RAS_MEM_ECC_LOGGING_MODE VornElogGetRasMemEccLoggingMode();

// Diagnostic in manufacturing mode or with memory ECC diagnostic logging; production otherwise. Level is the
// debug level of its messages.
RAS_ERROR_LOGGING_MODE VornGetRasErrorLoggingMode(UINT64 Level);

// Copies the three debug levels. A NULL pointer is traced and nothing is written.
void VornElogGetSerialDebugLevels(UINT64* SerDbgLevelConstructor, UINT64* SerDbgLevel, UINT64* SerDbgLevelDetailed);

// The same for the CXL chipset hooks' own copy.
void VornElogCxlChipsetHooksLibGetSerialDebugLevels(UINT64* SerDbgLevelConstructor, UINT64* SerDbgLevel,
                                                    UINT64* SerDbgLevelDetailed);

// Writes 1 to the operating mode and copies the three debug levels. EFI_INVALID_PARAMETER for a NULL pointer;
// EFI_SUCCESS.
EFI_STATUS VornElogGetOperatingModeData(UINT32* OperatingMode, UINT64* SerDbgLevelConstructor, UINT64* SerDbgLevel,
                                        UINT64* SerDbgLevelDetailed);
