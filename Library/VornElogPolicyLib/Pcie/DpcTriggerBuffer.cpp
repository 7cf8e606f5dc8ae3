#include "Library/VornElogPolicyLib/Pcie/DpcTriggerBuffer.h"

#include "Include/PciDeviceState.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/Pcie/PcieUceCount.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

UINT8 FindEntry(const RAS_ACPI_SMM_DATA& Shared, const PCI_SBDF& Port) {
    const UINT16 Bdf = PackDpcPortBdf(Port.Bus, Port.Dev, Port.Func);
    for (UINT8 Index = 0; Index < DPC_TRIGGERED_ENTRIES; Index++) {
        const DPC_TRIGGER_ENTRY& Entry = Shared.DPC_Triggered[Index];
        if (Entry.Flag == 1 && Entry.DpcPortSegment == Port.Seg && Entry.DpcPortBdf == Bdf) {
            return Index;
        }
    }
    return DPC_TRIGGER_NO_ENTRY;
}

UINT8 FindFreeEntry(const RAS_ACPI_SMM_DATA& Shared) {
    for (UINT8 Index = 0; Index < DPC_TRIGGERED_ENTRIES; Index++) {
        if (Shared.DPC_Triggered[Index].Flag == 0) {
            return Index;
        }
    }
    return DPC_TRIGGER_NO_ENTRY;
}

// Starts a port afresh whose recovery the OS gave up.
void ResetFailedEntry(DPC_TRIGGER_ENTRY& Entry, const PCI_SBDF& Port, bool IsSoftwareDpc, const CHAR8* Caller) {
    UINT8& EDRStatus = Entry.EDRStatus;
    if (!IsSoftwareDpc) {
        Entry.OstStatus = 0;
        EDRStatus = EdrStatus::EdrCount::Of(1);
        GetPcieUceLimitStatus(Port.Seg, Port.Bus, Port.Dev, Port.Func, TRUE);
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                "%a: Clear SBDF %04X:%02X:%02X.%1X OST, EDR status, and error count\n", Port.Seg, Port.Bus, Port.Dev,
                Port.Func);
    } else if (EdrStatus::BiosSoftSmi::Get(EDRStatus) != 0) {
        // The firmware holds the port down: its own trigger is no new chance.
        EDRStatus = EdrStatus::BiosSoftSmi::Set(EDRStatus, 0);
    } else {
        Entry.OstStatus = 0;
        EDRStatus = EdrStatus::EdrSent::Set(EDRStatus, 0);
    }
}

}  // namespace

UINT8 GetSetDpcTriggerBuffer(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT8 RpBus, UINT8 RpDev, UINT8 RpFunc,
                             UINT8 Operation) {
    RAS_ACPI_SMM_DATA* const pShared = mPrivateDataVornElogPolicyLib.pKyrRasAcpiSmmData;
    if (pShared == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pKyrRasAcpiSmmData == NULL, aborting...\n");
        return DPC_TRIGGER_NO_ENTRY;
    }
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevel;
    const PCI_SBDF Port{Seg, Bus, Dev, Func};
    const bool IsSoftwareDpc = (Operation & SOFTWARE_DPC) != 0;
    UINT8 Index = FindEntry(*pShared, Port);
    if ((Operation & ADD_BDF) != 0 && Index == DPC_TRIGGER_NO_ENTRY) {
        Index = FindFreeEntry(*pShared);
        if (Index == DPC_TRIGGER_NO_ENTRY) {
            Trace(DEBUG_ERROR, "%a: ERROR no room for SBDF %04X:%02X:%02X.%1X in DPC_Triggered buffer\n", Seg, Bus,
                  Dev, Func);
            return DPC_TRIGGER_NO_ENTRY;
        }
        pShared->DPC_Triggered[Index] = {
            1,
            PackDpcPortBdf(Bus, Dev, Func),
            Seg,
            PackDpcPortBdf(RpBus, RpDev, RpFunc),
            Seg,
            0,
            static_cast<UINT8>(EdrStatus::EdrCount::Of(1) | EdrStatus::BiosSoftSmi::Of(IsSoftwareDpc ? 1 : 0))};
        Trace(Level, "%a: Add SBDF %04X:%02X:%02X.%1X to DPC_Triggered buffer\n", Seg, Bus, Dev, Func);
    }
    if (Index == DPC_TRIGGER_NO_ENTRY) {
        return DPC_TRIGGER_NO_ENTRY;
    }
    DPC_TRIGGER_ENTRY& Entry = pShared->DPC_Triggered[Index];
    if ((Operation & REMOVE_BDF) != 0 && EdrStatus::EdrSent::Get(Entry.EDRStatus) != 0) {
        Trace(Level,
              "%a: Remove SBDF %04X:%02X:%02X.%1X from DPC_Triggered buffer. Flag %d, OST Status 0x%x, EdrSent %d "
              "EdrCount %d\n",
              Seg, Bus, Dev, Func, Entry.Flag, Entry.OstStatus, EdrStatus::EdrSent::Get(Entry.EDRStatus),
              EdrStatus::EdrCount::Get(Entry.EDRStatus));
        Entry = {};
        return DPC_TRIGGER_NO_ENTRY;
    }
    if ((Operation & (ADD_BDF | SOFTWARE_DPC)) != 0 && Entry.OstStatus == OST_FAILURE) {
        ResetFailedEntry(Entry, Port, IsSoftwareDpc, __func__);
    }
    return Index;
}

UINT8 DpcOstStatus(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func) {
    const UINT8 Index = GetSetDpcTriggerBuffer(Seg, Bus, Dev, Func, 0, 0, 0, DpcTriggerLookUp);
    return Index == DPC_TRIGGER_NO_ENTRY
               ? UINT8{0}
               : mPrivateDataVornElogPolicyLib.pKyrRasAcpiSmmData->DPC_Triggered[Index].OstStatus;
}

EFI_STATUS VornElogSmmGetDsmDpcPort(UINT8* pSeg, UINT8* pBus, UINT8* pDev, UINT8* pFunc) {
    if (pSeg == nullptr || pBus == nullptr || pDev == nullptr || pFunc == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const RAS_ACPI_SMM_DATA* const pShared = mPrivateDataVornElogPolicyLib.pKyrRasAcpiSmmData;
    if (pShared == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pKyrRasAcpiSmmData == NULL, aborting...\n");
        return EFI_NOT_FOUND;
    }
    const DPC_AWARE_OS_ENTRY Port = pShared->DPC_EnIioSmiGen;
    *pSeg = Port.Segment;
    *pBus = static_cast<UINT8>(DpcPortBdf::Bus::Get(Port.Bdf));
    *pDev = static_cast<UINT8>(DpcPortBdf::Device::Get(Port.Bdf));
    *pFunc = static_cast<UINT8>(DpcPortBdf::Function::Get(Port.Bdf));
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: DPC_EnIioSmiGen SBDF %04X:%02X:%02X.%1X\n", *pSeg, *pBus,
          *pDev, *pFunc);
    return EFI_SUCCESS;
}
