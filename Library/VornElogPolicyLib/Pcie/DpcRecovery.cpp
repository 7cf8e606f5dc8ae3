#include "Library/VornElogPolicyLib/Pcie/DpcRecovery.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/PciConfiguration.h"
#include "Library/VornElogChipsetLib/SelTransport.h"
#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/DpcDownstream.h"
#include "Library/VornElogPolicyLib/Pcie/DpcTriggerBuffer.h"
#include "Library/VornElogPolicyLib/Pcie/PcieUceCount.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

// A port of the DPC_Triggered buffer and its capabilities, 0 where it has none.
struct DPC_RECOVERY_PORT {
    PCI_SBDF At;
    UINT8 PcieOffset;
    UINT16 AerOffset;
    UINT16 DpcOffset;
};

DPC_RECOVERY_PORT LocatePort(const DPC_TRIGGER_ENTRY& Entry, const CHAR8* Caller) {
    const PCI_SBDF At{Entry.DpcPortSegment, static_cast<UINT8>(DpcPortBdf::Bus::Get(Entry.DpcPortBdf)),
                      static_cast<UINT8>(DpcPortBdf::Device::Get(Entry.DpcPortBdf)),
                      static_cast<UINT8>(DpcPortBdf::Function::Get(Entry.DpcPortBdf))};
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: DPC Port @ SBDF %04X:%02X:%02X.%1X below RP @ SBDF %04X:%02X:%02X.%1X OST Status 0x%x\n", At.Seg,
            At.Bus, At.Dev, At.Func, Entry.RootPortSegment, DpcPortBdf::Bus::Get(Entry.RootPortBdf),
            DpcPortBdf::Device::Get(Entry.RootPortBdf), DpcPortBdf::Function::Get(Entry.RootPortBdf),
            Entry.OstStatus);
    return {At, VornGetPciCapabilityOffset(At.Seg, At.Bus, At.Dev, At.Func, PciCapabilityPciExpress),
            VornGetPcieExtendedCapabilityOffset(At.Seg, At.Bus, At.Dev, At.Func, PcieExtendedCapabilityAer),
            VornGetPcieExtendedCapabilityOffset(At.Seg, At.Bus, At.Dev, At.Func, PcieExtendedCapabilityDpc)};
}

// Whether the OS did not recover the port, or recovered it too often.
bool IsRecoveryFailed(DPC_TRIGGER_ENTRY& Entry, const PCI_SBDF& At) {
    if (Entry.OstStatus == OST_SUCCESS &&
        GetPcieUceLimitStatus(At.Seg, At.Bus, At.Dev, At.Func, FALSE) != PcieUceUnderLimit) {
        Entry.OstStatus = OST_FAILURE;
    }
    return Entry.OstStatus != OST_SUCCESS;
}

// Whether a hot-plug port has neither its device nor its link back.
bool IsLinkLost(const DPC_RECOVERY_PORT& Port, const CHAR8* Caller) {
    const PCI_SBDF& At = Port.At;
    const UINT64 Pcie = PciFunctionAddress(At, Port.PcieOffset);
    if ((PciSegmentRead32(Pcie + PCIE_SLOT_CAPABILITIES) & PcieSlotCapabilities::HotPlugCapable) == 0) {
        return false;
    }
    const bool IsLinkActive =
        (PciSegmentRead16(Pcie + PCIE_LINK_STATUS) & PcieLinkStatus::DataLinkLayerLinkActive) != 0;
    const bool IsPresent = (PciSegmentRead16(Pcie + PCIE_SLOT_STATUS) & PcieSlotStatus::PresenceDetectState) != 0;
    if (IsLinkActive && IsPresent) {
        return false;
    }
    TraceAs(Caller, DEBUG_ERROR,
            "%a: SBDF %04X:%02X:%02X.%1X ERROR Link or PDS not in expected state after OS EDR attempt\n", At.Seg,
            At.Bus, At.Dev, At.Func);
    return true;
}

// From here on the firmware holds the port in containment.
void TriggerContainment(DPC_TRIGGER_ENTRY& Entry, const DPC_RECOVERY_PORT& Port, const CHAR8* Caller) {
    const PCI_SBDF& At = Port.At;
    const UINT64 UncorrectableStatus = PciFunctionAddress(At, Port.AerOffset) + AER_UNCORRECTABLE_STATUS;
    PciSegmentWrite32(UncorrectableStatus, PciSegmentRead32(UncorrectableStatus));
    const UINT64 Control = PciFunctionAddress(At, Port.DpcOffset) + DPC_CONTROL;
    PciSegmentWrite16(Control, DpcControl::SoftwareTrigger::Set(PciSegmentRead16(Control), 1));
    Entry.EDRStatus = EdrStatus::BiosSoftSmi::Set(Entry.EDRStatus, 1);
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X Placing DPC port in software triggered state\n", At.Seg, At.Bus, At.Dev,
            At.Func);
}

// One port whose outcome the OS has told. TRUE when an event went to the event log.
BOOLEAN CheckPort(DPC_TRIGGER_ENTRY& Entry, UINT8 Index, PCIE_ALREADY_LOGGED* pAlreadyLogged, const CHAR8* Caller) {
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevel;
    const DPC_RECOVERY_PORT Port = LocatePort(Entry, Caller);
    const PCI_SBDF& At = Port.At;
    if (Port.PcieOffset == 0 || Port.AerOffset == 0 || Port.DpcOffset == 0) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR SBDF %04X:%02X:%02X.%1X PCIe, AER or DPC capability not supported, clear "
                "DPC_Triggered[%d]\n",
                At.Seg, At.Bus, At.Dev, At.Func, Index);
        Entry = {};
        return FALSE;
    }
    bool IsSoftwareDpcRequested = IsRecoveryFailed(Entry, At);
    if (IsLinkLost(Port, Caller)) {
        IsSoftwareDpcRequested = true;
    }
    const BOOLEAN IsLogged = VornElogSmmCheckAndLogPcieDpcDownstream(
        At.Seg, At.Bus, At.Dev, At.Func, IsSoftwareDpcRequested ? TRUE : FALSE, pAlreadyLogged);
    const UINT8 EdrCount = static_cast<UINT8>(EdrStatus::EdrCount::Get(Entry.EDRStatus) - 1);
    Entry.EDRStatus = EdrStatus::EdrCount::Set(Entry.EDRStatus, EdrCount);
    TraceAs(Caller, Level,
            "%a: SBDF %04X:%02X:%02X.%1X DPC_Triggered[%d].EDRStatus.EdrCount decremented, new count %d\n", At.Seg,
            At.Bus, At.Dev, At.Func, Index, EdrCount);
    ClearDpcTriggerSlot();
    if (IsSoftwareDpcRequested) {
        TriggerContainment(Entry, Port, Caller);
    }
    return IsLogged;
}

}  // namespace

EFI_STATUS VornElogSmmHandlerPcieDpcCheckDownstream(EFI_HANDLE, const void*, void*, UINTN*) {
    RAS_ACPI_SMM_DATA* const pShared = mPrivateDataVornElogPolicyLib.pKyrRasAcpiSmmData;
    if (pShared == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pKyrRasAcpiSmmData == NULL, aborting...\n");
        return EFI_NOT_FOUND;
    }
    PCIE_ALREADY_LOGGED AlreadyLogged{};
    bool IsAnythingLogged = false;
    for (UINT8 Index = 0; Index < DPC_TRIGGERED_ENTRIES; Index++) {
        DPC_TRIGGER_ENTRY& Entry = pShared->DPC_Triggered[Index];
        if (Entry.Flag == 1 && Entry.OstStatus != 0 && EdrStatus::EdrCount::Get(Entry.EDRStatus) != 0 &&
            CheckPort(Entry, Index, &AlreadyLogged, __func__) != FALSE) {
            IsAnythingLogged = true;
        }
    }
    if (!IsAnythingLogged) {
        return EFI_SUCCESS;
    }
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: Send consolidated SEL data\n");
    const EFI_STATUS Status = ElogSendSelLog();
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from ElogSendSelLog\n", Status);
    }
    return Status;
}
