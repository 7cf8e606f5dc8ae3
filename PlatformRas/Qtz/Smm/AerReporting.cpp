#include "PlatformRas/Qtz/Smm/AerReporting.h"

#include "Include/NbioRegisters.h"
#include "Library/RasLib/NbioPort.h"
#include "Library/RasLib/Smn.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/PciConfiguration.h"
#include "Platform/Hardware.h"
#include "PlatformRas/Qtz/Smm/DriverInit.h"

namespace {

constexpr UINT32 CPUID_LEAF_FAMILY = 1;
constexpr UINT32 PROCESSOR_FAMILY_MASK = 0x0FFF0F00;  // extended family, extended model and family
constexpr UINT32 SUPPORTED_PROCESSOR_FAMILIES[] = {0xB00F00, 0xB10F00};

constexpr UINT32 WRAPPER_STRIDE = 0x120;

bool IsProcessorFamilySupported(const CHAR8* Caller) {
    const UINT32 Family = AsmCpuid(CPUID_LEAF_FAMILY).Eax & PROCESSOR_FAMILY_MASK;
    for (const UINT32 Supported : SUPPORTED_PROCESSOR_FAMILIES) {
        if (Family == Supported) {
            return true;
        }
    }
    TraceAs(Caller, DEBUG_ERROR, "%a: ERROR processor family 0x%08x is not supported, aborting...\n", Family);
    return false;
}

// Meant: a 2-bit value is never 5, so that the second wrapper's offset is never added. Ports are counted through an
// IOHC, which leads to the same registers.
UINT32 WrapIdOf(UINT8 Wrapper) {
    const UINT32 Swapped = (Wrapper & 1u) << 1 | (Wrapper >> 1 & 1u);
    return Swapped == 5 ? 1 : 0;
}

void GenerateSmi(UINT32 SegBus, UINT32 Address) {
    RasSmnRW(SegBus, Address, ~IohcActionControl::IntrGenSel::Mask,
             IohcActionControl::IntrGenSel::Of(IohcActionControl::GENERATE_SMI));
}

// Hot-Plug Surprise is hardware-initialised: it can be written only while the core's lock is open.
void ClearHotPlugSurprise(const NBIO_PORT_INFO& Port, UINT64 SlotCapabilitiesAddress, UINT32 SlotCapabilities) {
    UINT32 Lock = 0;
    RasSmnRead(Port.SegBus, Port.HwInitLockAddr, &Lock);
    Lock = PcieCoreControl::HwInitLock::Set(Lock, 0);
    RasSmnWrite(Port.SegBus, Port.HwInitLockAddr, &Lock);
    PciSegmentWrite32(SlotCapabilitiesAddress, SlotCapabilities & ~PcieSlotCapabilities::HotPlugSurprise);
    Lock = PcieCoreControl::HwInitLock::Set(Lock, 1);
    RasSmnWrite(Port.SegBus, Port.HwInitLockAddr, &Lock);
}

}  // namespace

EFI_STATUS EdrDsmDpcEnReqFromOs(UINT32 RpPciAddr, BOOLEAN Enable) {
    if (Enable == FALSE) {
        Trace(DEBUG_ERROR, "%a: ERROR handing containment back is not supported, aborting...\n");
        return EFI_UNSUPPORTED;
    }
    const PCI_SBDF Rp = SbdfOf(RpPciAddr);
    const UINT8 PcieCapabilityOffset =
        VornGetPciCapabilityOffset(Rp.Seg, Rp.Bus, Rp.Dev, Rp.Func, PciCapabilityPciExpress);
    if (PcieCapabilityOffset == 0) {
        Trace(DEBUG_ERROR,
              "%a: ERROR RP @ SBDF %04X:%02X:%02X.%1X PCIe capability structure not supported, aborting...\n", Rp.Seg,
              Rp.Bus, Rp.Dev, Rp.Func);
        return EFI_UNSUPPORTED;
    }
    const UINT64 SlotCapabilitiesAddress =
        PciFunctionAddress(Rp, static_cast<UINT16>(PcieCapabilityOffset + PCIE_SLOT_CAPABILITIES));
    const UINT32 SlotCapabilities = PciSegmentRead32(SlotCapabilitiesAddress);

    UINT8 Iom = 0;
    UINT8 PcieCoreNumInNbio = 0;
    NBIO_PORT_INFO Port{};
    const EFI_STATUS Status = ConvertRpPciAddrToNbioWrapperPort(RpPciAddr, &Iom, &PcieCoreNumInNbio, &Port);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from ConvertRpPciAddrToNbioWrapperPort, aborting...\n", Status);
        return Status;
    }
    constexpr UINT32 HOT_PLUG_SURPRISE = PcieSlotCapabilities::HotPlugCapable | PcieSlotCapabilities::HotPlugSurprise;
    if ((SlotCapabilities & HOT_PLUG_SURPRISE) == HOT_PLUG_SURPRISE) {
        Trace(mSerDbgLevel, "%a: RP @ SBDF %04X:%02X:%02X.%1X Slot Capabilities 0x%08x, clear Hot-Plug Surprise\n",
              Rp.Seg, Rp.Bus, Rp.Dev, Rp.Func, SlotCapabilities);
        ClearHotPlugSurprise(Port, SlotCapabilitiesAddress, SlotCapabilities);
    }
    RasSmnRW(Port.SegBus,
             GetPcieErrCtrlSmnAddr(Iom, PcieCoreNumInNbio) + (static_cast<UINT32>(Port.PortNumber) << 12),
             ~PcieErrorControl::SurpriseDownStrap::Mask,
             PcieErrorControl::SurpriseDownStrap::Of(PcieErrorControl::SURPRISE_DOWN_REPORTED));
    return EFI_SUCCESS;
}

EFI_STATUS ReConfigAerReportingPath(UINT8 PortIndex, UINT32 RpPciAddr) {
    if (!IsProcessorFamilySupported(__func__)) {
        return EFI_UNSUPPORTED;
    }
    NBIO_HUB Hub{};
    const EFI_STATUS Status = FindNbioHubOfBus(mSerDbgLevel, RpPciAddr, &Hub);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    const UINT8 MaxPortNumber = IohcPortCount(Hub.Iom);
    if (PortIndex >= MaxPortNumber) {
        Trace(DEBUG_ERROR, "%a: ERROR Port %d >= MaxPortNumber %d\n", PortIndex, MaxPortNumber);
        return EFI_INVALID_PARAMETER;
    }
    const UINT32 Wrapper = WrapIdOf(PcieCoreOfPort(Hub.Iom, PortIndex)) * WRAPPER_STRIDE;
    const UINT32 ExtCorr = ExtCorr_ACTION_CONTROL.SmnAddress(Hub.NbioRbIndex, PortIndex) + Wrapper;
    const UINT32 IntCorr = IntCorr_ACTION_CONTROL.SmnAddress(Hub.NbioRbIndex, PortIndex) + Wrapper;
    Trace(mSerDbgLevel, "%a: Socket %d Iom %d Port %d ExtCorr 0x%08x IntCorr 0x%08x => SMI\n", Hub.Socket, Hub.Iom,
          PortIndex, ExtCorr, IntCorr);
    GenerateSmi(Hub.SegBus, ExtCorr);
    GenerateSmi(Hub.SegBus, IntCorr);
    return EFI_SUCCESS;
}
