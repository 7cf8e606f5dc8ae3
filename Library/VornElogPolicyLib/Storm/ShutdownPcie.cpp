#include "Library/VornElogPolicyLib/Storm/ShutdownPcie.h"

#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

constexpr const CHAR8* Disabler = "VornElogSmmDisablePcieErrorGeneration";

// What a class's storm takes away. Non-fatal errors include the unsupported requests.
struct CLASS_ENABLES {
    UINT8 PCIE_SMI_STORM::*Flag;
    UINT16 DeviceControl;
    UINT16 RootControl;
};
constexpr CLASS_ENABLES ENABLES[] = {
    {&PCIE_SMI_STORM::Correctable, PcieDeviceControl::CorrectableErrorReportingEnable,
     PcieRootControl::SystemErrorOnCorrectableErrorEnable},
    {&PCIE_SMI_STORM::NonFatal,
     PcieDeviceControl::NonFatalErrorReportingEnable | PcieDeviceControl::UnsupportedRequestReportingEnable,
     PcieRootControl::SystemErrorOnNonFatalErrorEnable},
    {&PCIE_SMI_STORM::Fatal, PcieDeviceControl::FatalErrorReportingEnable,
     PcieRootControl::SystemErrorOnFatalErrorEnable},
};

UINT16 Read16(const PCI_SBDF& At, UINT16 Register, const CHAR8* Name) {
    const UINT16 Value = PciSegmentRead16(PciFunctionAddress(At, Register));
    TraceAs(Disabler, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X %a @ 0x%03x Rd 0x%04x\n", At.Seg, At.Bus, At.Dev, At.Func, Name, Register,
            Value);
    return Value;
}

void Clear16(const PCI_SBDF& At, UINT16 Register, UINT16 Bits, const CHAR8* Name) {
    const UINT16 Value = static_cast<UINT16>(Read16(At, Register, Name) & ~Bits);
    PciSegmentWrite16(PciFunctionAddress(At, Register), Value);
    TraceAs(Disabler, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X %a @ 0x%03x Wr 0x%04x\n", At.Seg, At.Bus, At.Dev, At.Func, Name, Register,
            Value);
}

void Write32(const PCI_SBDF& At, UINT16 Register, UINT32 Value, const CHAR8* Name) {
    PciSegmentWrite32(PciFunctionAddress(At, Register), Value);
    TraceAs(Disabler, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X %a @ 0x%03x Wr 0x%08x\n", At.Seg, At.Bus, At.Dev, At.Func, Name, Register,
            Value);
}

EFI_STATUS DisableRpPio(const PCI_SBDF& At, const PCI_DEVICE_STATE& State) {
    if (!IsDpcCapablePort(State)) {
        TraceAs(Disabler, DEBUG_ERROR, "%a: ERROR SBDF %04X:%02X:%02X.%1X has no DPC capability, aborting...\n",
                At.Seg, At.Bus, At.Dev, At.Func);
        return EFI_UNSUPPORTED;
    }
    const auto Register = [&](UINT16 Offset) { return static_cast<UINT16>(State.DpcOffset + Offset); };
    const auto Saved = [&](UINT16 Offset) { return CapturedRegister32(State.DpcCapability, Offset); };
    const UINT32 Status = PciSegmentRead32(PciFunctionAddress(At, Register(DPC_RP_PIO_STATUS)));
    TraceAs(Disabler, mPrivateDataVornElogPolicyLib.SerDbgLevel,
            "%a: SBDF %04X:%02X:%02X.%1X RP PIO Status @ 0x%03x Rd 0x%08x\n", At.Seg, At.Bus, At.Dev, At.Func,
            Register(DPC_RP_PIO_STATUS), Status);
    Write32(At, Register(DPC_RP_PIO_MASK), Saved(DPC_RP_PIO_MASK) | Status, "RP PIO Mask");
    Write32(At, Register(DPC_RP_PIO_SEVERITY), Saved(DPC_RP_PIO_SEVERITY) & ~Status, "RP PIO Severity");
    Write32(At, Register(DPC_RP_PIO_SYS_ERROR), Saved(DPC_RP_PIO_SYS_ERROR) & ~Status, "RP PIO SysError");
    return EFI_SUCCESS;
}

// False when the function has no PCI Express capability.
bool DisableReporting(const PCI_SBDF& At, UINT16 DeviceControl, UINT16 RootControl) {
    const UINT8 Capability = VornGetPciCapabilityOffset(At.Seg, At.Bus, At.Dev, At.Func, PciCapabilityPciExpress);
    if (Capability == 0) {
        TraceAs(Disabler, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                "%a: SBDF %04X:%02X:%02X.%1X has no PCI Express capability\n", At.Seg, At.Bus, At.Dev, At.Func);
        return false;
    }
    const auto Register = [&](UINT16 Offset) { return static_cast<UINT16>(Capability + Offset); };
    const UINT16 Type =
        PcieCapabilities::DevicePortType::Get(Read16(At, Register(PCIE_CAPABILITIES), "PCI Express Capabilities"));
    Clear16(At, Register(PCIE_DEVICE_CONTROL), DeviceControl, "Device Control");
    if (Type == PcieRootPort || Type == PcieRootComplexEventCollector) {
        Clear16(At, Register(PCIE_ROOT_CONTROL), RootControl, "Root Control");
    }
    return true;
}

EFI_STATUS DisableClasses(PCI_SBDF At, const PCIE_SMI_STORM& Storm) {
    UINT16 DeviceControl = 0;
    UINT16 RootControl = 0;
    for (const CLASS_ENABLES& Class : ENABLES) {
        if (Storm.*Class.Flag != FALSE) {
            DeviceControl |= Class.DeviceControl;
            RootControl |= Class.RootControl;
        }
    }
    if (DeviceControl == 0) {
        return EFI_SUCCESS;
    }
    if (Storm.AllFunctions == FALSE) {
        return DisableReporting(At, DeviceControl, RootControl) ? EFI_SUCCESS : EFI_UNSUPPORTED;
    }
    // A function that is no PCIe function has nothing to switch off; the others are treated all the same.
    for (At.Func = 0; At.Func < PCI_FUNCTIONS_PER_DEVICE; At.Func++) {
        if (VornCheckDevicePresent(At.Seg, At.Bus, At.Dev, At.Func) != FALSE) {
            DisableReporting(At, DeviceControl, RootControl);
        }
    }
    return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS VornElogSmmDisablePcieErrorGeneration(const PCI_DEVICE_STATE* pPciDeviceState) {
    if (pPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pPciDeviceState == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const PCIE_SMI_STORM& Storm = pPciDeviceState->Pcie.SmiStorm;
    if (pPciDeviceState->LegacyPci.SmiStorm == FALSE && Storm.Pcie == FALSE) {
        Trace(DEBUG_ERROR, "%a: ERROR No PCI or PCIe SMI storm reported, aborting...\n");
        return EFI_UNSUPPORTED;
    }
    if (pPciDeviceState->LegacyPci.SmiStorm != FALSE) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
              "%a: Legacy PCI error SMI storm reported, currently no action\n");
    }
    const PCI_SBDF At = SbdfOf(pPciDeviceState->PciAddress);
    if (Storm.DpcRpPio != FALSE) {
        const EFI_STATUS Status = DisableRpPio(At, *pPciDeviceState);
        if (EFI_ERROR(Status)) {
            return Status;
        }
    }
    return DisableClasses(At, Storm);
}
