#include "Library/VornElogPolicyLib/Pcie/HotRemoval.h"

#include "Library/VornElogBaseLib/NvmeSwitch.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

// A port's PCI Express capability and containment as they were captured.
class CapturedPort {
 public:
    explicit CapturedPort(const PCI_DEVICE_STATE& Captured) : State(Captured) {}

    UINT32 Read32(UINT16 Register) const {
        return CapturedRegister32(State.PcieCapability, Register);
    }
    UINT16 Read16(UINT16 Register) const {
        return CapturedRegister16(State.PcieCapability, Register);
    }
    bool IsContained() const {
        return State.Pcie.ErrorStatus.DetectedDpcEvent != FALSE;
    }

 private:
    const PCI_DEVICE_STATE& State;
};

// The same as they are now.
class LivePort {
 public:
    LivePort(const PCI_SBDF& Function, UINT8 PcieCapabilityOffset) : Where(Function), Offset(PcieCapabilityOffset) {}

    UINT32 Read32(UINT16 Register) const {
        return PciSegmentRead32(PciFunctionAddress(Where, static_cast<UINT16>(Offset + Register)));
    }
    UINT16 Read16(UINT16 Register) const {
        return PciSegmentRead16(PciFunctionAddress(Where, static_cast<UINT16>(Offset + Register)));
    }
    bool IsContained() const {
        const UINT16 DpcOffset = VornGetPcieExtendedCapabilityOffset(Where.Seg, Where.Bus, Where.Dev, Where.Func,
                                                                     PcieExtendedCapabilityDpc);
        if (DpcOffset == 0) {
            return false;
        }
        const UINT64 Dpc = PciFunctionAddress(Where, DpcOffset);
        const UINT16 Control = PciSegmentRead16(Dpc + DPC_CONTROL);
        return DpcControl::TriggerEnable::Get(Control) != 0 && DpcControl::ErrCorEnable::Get(Control) != 0 &&
               DpcStatus::TriggerStatus::Get(PciSegmentRead16(Dpc + DPC_STATUS)) != 0;
    }

 private:
    PCI_SBDF Where;
    UINT8 Offset;
};

// A link that is down says nothing behind a port that containment has taken down itself.
template <class Port>
bool IsDeviceRemoved(const Port& At) {
    const UINT32 SlotCapabilities = At.Read32(PCIE_SLOT_CAPABILITIES);
    if ((SlotCapabilities & PcieSlotCapabilities::HotPlugCapable) == 0) {
        return false;
    }
    if ((SlotCapabilities & PcieSlotCapabilities::PowerControllerPresent) != 0) {
        return (At.Read16(PCIE_SLOT_CONTROL) & PcieSlotControl::PowerControllerControl) != 0;
    }
    const bool IsPresent = (At.Read16(PCIE_SLOT_STATUS) & PcieSlotStatus::PresenceDetectState) != 0;
    if (!IsPresent) {
        return true;
    }
    const bool IsLinkReported =
        (At.Read32(PCIE_LINK_CAPABILITIES) & PcieLinkCapabilities::DataLinkLayerLinkActiveReportingCapable) != 0;
    return IsLinkReported && (At.Read16(PCIE_LINK_STATUS) & PcieLinkStatus::DataLinkLayerLinkActive) == 0 &&
           !At.IsContained();
}

// Whether the port's bus leads on: a removal then happens at the ports of the switch below.
bool IsSwitchBelow(const PCI_DEVICE_STATE& State, const CHAR8* Caller) {
    const UINT8 SecondaryBus = State.PciHeader[PCI_SECONDARY_BUS_NUMBER];
    const UINT8 SubordinateBus = State.PciHeader[PCI_SUBORDINATE_BUS_NUMBER];
    const UINT32 SlotCapabilities = CapturedRegister32(State.PcieCapability, PCIE_SLOT_CAPABILITIES);
    if (State.Pcie.Characteristics.IsRootPort == FALSE ||
        (SlotCapabilities & PcieSlotCapabilities::HotPlugCapable) == 0 || SecondaryBus == SubordinateBus) {
        return false;
    }
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X Mirrow platform PCIe root port SecBus 0x%02x SubBus 0x%02x (switch "
            "topology)\n",
            At.Seg, At.Bus, At.Dev, At.Func, SecondaryBus, SubordinateBus);
    TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X Bypass PCI hot removal detection logic\n", At.Seg, At.Bus, At.Dev, At.Func);
    return true;
}

void ExamineNvmeSwitch(PCI_DEVICE_STATE& State, const CHAR8* Caller) {
    const PCI_SBDF At = SbdfOf(State.PciAddress);
    const EFI_STATUS Status = VornCheckNvmePcieSwitchDownstreamPort(
        At.Seg, At.Bus, At.Dev, At.Func, &State.Pcie.IsVornBrandedNvmeSwitch, &State.Pcie.NvmeSwitchOperatingMode);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornCheckNvmePcieSwitchDownstreamPort SBDF %04X:%02X:%02X.%1X\n", Status, At.Seg,
                At.Bus, At.Dev, At.Func);
    }
}

}  // namespace

BOOLEAN VornElogSmmCheckHotRemoval(const PCI_DEVICE_STATE* pPciDeviceState) {
    return IsDeviceStateGiven(pPciDeviceState) && IsDeviceRemoved(CapturedPort(*pPciDeviceState));
}

BOOLEAN VornElogSmmCheckPcieHotRemovalRegisterBased(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func) {
    const UINT8 Offset = VornGetPciCapabilityOffset(Seg, Bus, Dev, Func, PciCapabilityPciExpress);
    return Offset != 0 && IsDeviceRemoved(LivePort({Seg, Bus, Dev, Func}, Offset));
}

BOOLEAN VornElogSmmCheckPcieHotRemoval(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return FALSE;
    }
    UINT8& DetectedHotRemoval = pPciDeviceState->Pcie.ErrorStatus.DetectedHotRemoval;
    DetectedHotRemoval = FALSE;
    if (!IsRootOrDownstreamPort(*pPciDeviceState)) {
        return FALSE;
    }
    if (pPciDeviceState->Pcie.Characteristics.IsSwitchDownstreamPort != FALSE) {
        ExamineNvmeSwitch(*pPciDeviceState, __func__);
    }
    if (!IsSwitchBelow(*pPciDeviceState, __func__)) {
        DetectedHotRemoval = VornElogSmmCheckHotRemoval(pPciDeviceState);
    }
    if (DetectedHotRemoval != FALSE) {
        const PCI_SBDF At = SbdfOf(pPciDeviceState->PciAddress);
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: SBDF %04X:%02X:%02X.%1X PCIe device hot removal\n",
              At.Seg, At.Bus, At.Dev, At.Func);
    }
    return DetectedHotRemoval;
}
