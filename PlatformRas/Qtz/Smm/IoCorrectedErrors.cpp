#include "PlatformRas/Qtz/Smm/IoCorrectedErrors.h"

#include "Library/RasLib/PciePortMap.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "PlatformRas/Qtz/Smm/AerReporting.h"
#include "PlatformRas/Qtz/Smm/DriverInit.h"

static bool IsSmiWanted(const KYR_PCIE_PORT_MAP_ENTRY& Entry, RAS_ERROR_LOGGING_MODE LoggingMode,
                        const CHAR8* Caller) {
    if (LoggingMode != RasProductionMode) {
        TraceAs(Caller, mSerDbgLevel,
                "%a: Diagnostic mode - All PCIe and CXL v2.0+ root ports => Enable SMI on PCIe Action Control "
                "ExtCorr/IntCorr\n");
        return true;
    }
    if (RunsCxl2(Entry)) {
        TraceAs(Caller, mSerDbgLevel,
                "%a: Production mode - CXL v2.0+ root port => Enable SMI on PCIe Action Control ExtCorr/IntCorr\n");
        return true;
    }
    TraceAs(Caller, mSerDbgLevel,
            "%a: Production mode - Root port not configured for CXL v2.0+, skip to next root port...\n");
    return false;
}

EFI_STATUS VornConfigureSmiForIoCorrectedErrors() {
    const RAS_ERROR_LOGGING_MODE LoggingMode = VornGetRasErrorLoggingMode(mSerDbgLevel);
    EFI_STATUS Result = EFI_SUCCESS;
    const KYR_PCIE_PORT_MAP* const pMap = GetPciePortMap();
    for (UINT16 Port = 0; pMap != nullptr && Port < pMap->PortCount; Port++) {
        const KYR_PCIE_PORT_MAP_ENTRY& Entry = PciePortMapEntries(pMap)[Port];
        if (!IsSmiWanted(Entry, LoggingMode, __func__)) {
            continue;
        }
        const EFI_STATUS Status = ReConfigAerReportingPath(Entry.PortNumber, Entry.RpPciAddr);
        if (EFI_ERROR(Status)) {
            const PCI_SBDF Rp = SbdfOf(Entry.RpPciAddr);
            Trace(DEBUG_ERROR, "%a: WARN %r from ReConfigAerReportingPath Port %d RP @ SBDF %04X:%02X:%02X.%1X\n",
                  Status, Entry.PortNumber, Rp.Seg, Rp.Bus, Rp.Dev, Rp.Func);
            if (Status != EFI_NOT_FOUND) {
                Result |= Status;
            }
        }
    }
    return Result;
}
