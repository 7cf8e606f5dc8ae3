#include "PlatformRas/Qtz/Smm/DpcConfiguration.h"

#include "Library/RasLib/PciePortMap.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "Library/VornElogChipsetLib/ActiveRootPorts.h"
#include "Library/VornElogPolicyLib/Pcie/DpcTriggerBuffer.h"
#include "PlatformRas/Qtz/Smm/AerReporting.h"
#include "PlatformRas/Qtz/Smm/DriverInit.h"

// The map entry of the root port that the _DSM call is about.
static EFI_STATUS FindDsmRootPort(const KYR_PCIE_PORT_MAP_ENTRY** ppEntry, const CHAR8* Caller) {
    TraceAs(Caller, mSerDbgLevel,
            "%a: Retrieving DPC port PCIe address from AML _DSM DPC enabling call prior to Soft SMI trigger\n");
    PCI_SBDF Port{};
    const EFI_STATUS Status = VornElogSmmGetDsmDpcPort(&Port.Seg, &Port.Bus, &Port.Dev, &Port.Func);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r retrieving DPC port PCIe address, aborting...\n", Status);
        return Status;
    }
    PCI_SBDF Rp{Port.Seg, 0xFF, 0xFF, 0xFF};
    VornGetRootPortBDF(Port.Seg, Port.Bus, Port.Dev, Port.Func, &Rp.Bus, &Rp.Dev, &Rp.Func);
    if (Rp.Bus == 0xFF && Rp.Dev == 0xFF && Rp.Func == 0xFF) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR retrieving DPC port PCIe address, aborting...\n");
        return EFI_NOT_FOUND;
    }
    *ppEntry = FindPciePortMapEntry(PackPciAddress(Rp.Seg, Rp.Bus, Rp.Dev, Rp.Func));
    if (*ppEntry == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR RP @ SBDF %04X:%02X:%02X.%1X is not in the port map, aborting...\n",
                Rp.Seg, Rp.Bus, Rp.Dev, Rp.Func);
        return EFI_NOT_FOUND;
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornSmmHandlerPcieDpcConfigIioSmiGeneration(EFI_HANDLE, const void*, void*, UINTN*) {
    const RAS_ERROR_LOGGING_MODE LoggingMode = VornGetRasErrorLoggingMode(mSerDbgLevel);
    const KYR_PCIE_PORT_MAP_ENTRY* pEntry = nullptr;
    EFI_STATUS Status = FindDsmRootPort(&pEntry, __func__);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    const PCI_SBDF Rp = SbdfOf(pEntry->RpPciAddr);
    Status = EdrDsmDpcEnReqFromOs(pEntry->RpPciAddr, TRUE);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r reconfiguring KYR Hot Plug Surprise logic for PCIe Root Complex @ Seg 0x%04X Bus 0x%02x "
              "RP @ Dev %d Fnc %d\n",
              Status, Rp.Seg, Rp.Bus, Rp.Dev, Rp.Func);
        return Status;
    }
    if (LoggingMode == RasProductionMode) {
        Trace(mSerDbgLevel,
              "%a: System is in RAS production/threshold mode, configure PCIe ExtCorr for SMI generation\n");
        Status = ReConfigAerReportingPath(pEntry->PortNumber, pEntry->RpPciAddr);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r from ReConfigAerReportingPath Port %d RP @ SBDF %04X:%02X:%02X.%1X\n",
                  Status, pEntry->PortNumber, Rp.Seg, Rp.Bus, Rp.Dev, Rp.Func);
        }
    }
    return Status;
}
