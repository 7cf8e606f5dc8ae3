#include "PlatformRas/Qtz/Smm/ReadyToBoot.h"

#include "Include/PlatformApeiData.h"
#include "Include/PolicyPrivateData.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "PlatformRas/Qtz/Smm/DriverInit.h"
#include "PlatformRas/Qtz/Smm/IoCorrectedErrors.h"
#include "PlatformRas/Qtz/Smm/UmcCounters.h"

EFI_STATUS VornRasSmmReadyToBootCallback(const EFI_GUID*, void*, EFI_HANDLE) {
    const UINT32 LoggingMode = VornGetRasErrorLoggingMode(mSerDbgLevel);
    Trace(mSerDbgLevel, "%a: Performing KYR IO corrected error interrupt configuration\n");
    const EFI_STATUS Status = VornConfigureSmiForIoCorrectedErrors();
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r returned from KYR IO corrected error interrupt configuration\n", Status);
    }
    if (LoggingMode != RasProductionMode) {
        return Status;
    }
    if (mPlatformApeiData->PFEHEnable == FALSE) {
        Trace(mSerDbgLevel,
              "%a: PFEH disabled so we skip configuring UMC Corrected ECC error count registers, exiting...\n");
        return EFI_UNSUPPORTED;
    }
    return VornConfigureUmcEccErrCntRegisters();
}
