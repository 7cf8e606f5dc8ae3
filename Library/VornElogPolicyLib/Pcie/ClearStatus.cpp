#include "Library/VornElogPolicyLib/Pcie/ClearStatus.h"

#include "Include/CxlRegisters.h"
#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"

namespace {

// Meant: zeros stand at exactly the status bits, so that the write leaves them for the OS or the next SMI to see.
constexpr UINT32 RP_PIO_STATUS_WRITE = 0xFFF8F8F8;
static_assert((RP_PIO_STATUS_WRITE & (RpPio::UrCompletions | RpPio::CaCompletions | RpPio::CompletionTimeouts)) == 0);

// Registers of one function that are cleared: each write is read back and printed where the level is.
class LiveFunction {
 public:
    LiveFunction(UINT32 PciAddress, UINT64 DebugLevel, const CHAR8* Caller)
        : Address(PciSegmentAddressOfPacked(PciAddress)),
          Sbdf(SbdfOf(PciAddress)),
          Level(DebugLevel),
          Operation(Caller) {}

    UINT8 Read8(UINTN Offset) const {
        return PciSegmentRead8(Address | Offset);
    }
    UINT16 Read16(UINTN Offset) const {
        return PciSegmentRead16(Address | Offset);
    }
    UINT32 Read32(UINTN Offset) const {
        return PciSegmentRead32(Address | Offset);
    }

    void Write16(UINTN Offset, UINT16 Value, const CHAR8* Register) const {
        PciSegmentWrite16(Address | Offset, Value);
        if (DebugPrintLevelEnabled(Level)) {
            Print(Offset, Value, Read16(Offset), Register);
        }
    }
    void Write32(UINTN Offset, UINT32 Value, const CHAR8* Register) const {
        PciSegmentWrite32(Address | Offset, Value);
        if (DebugPrintLevelEnabled(Level)) {
            Print(Offset, Value, Read32(Offset), Register);
        }
    }

    const PCI_SBDF& Where() const {
        return Sbdf;
    }

 private:
    void Print(UINTN Offset, UINT32 Written, UINT32 Read, const CHAR8* Register) const {
        TraceAs(Operation, Level, "%a: SBDF %04X:%02X:%02X.%1X %a 0x%03x write 0x%08x read 0x%08x\n", Sbdf.Seg,
                Sbdf.Bus, Sbdf.Dev, Sbdf.Func, Register, Offset, Written, Read);
    }

    UINT64 Address;
    PCI_SBDF Sbdf;
    UINT64 Level;
    const CHAR8* Operation;
};

// What the flags of a function ask for.
struct CLEAR_REQUEST {
    bool Dpc;
    bool RpPio;
    bool Cxl;
    bool Uncorrectable;
    bool Correctable;
};

CLEAR_REQUEST RequestOf(const PCI_DEVICE_STATE& State) {
    const PCIE_ERROR_STATUS& Pcie = State.Pcie.ErrorStatus;
    const CXL_ERROR_STATUS& Cxl = State.Cxl.ErrorStatus;
    const UINT8 AnyClass = Pcie.ClearUnsupportedRequest | Pcie.ClearDpcEvent | Pcie.DetectedHotRemoval;
    return {
        .Dpc = Pcie.DetectedDpcEvent != FALSE && Pcie.ClearDpcEvent != FALSE,
        .RpPio = Pcie.DetectedRpPioFatal != FALSE && Pcie.ClearRpPioFatal != FALSE,
        .Cxl = (Cxl.ClearFatal | Cxl.ClearNonFatal | Cxl.ClearCorrectable) != FALSE,
        .Uncorrectable = (Pcie.ClearFatal | Pcie.ClearNonFatal | AnyClass) != FALSE,
        .Correctable = (Pcie.ClearCorrectable | AnyClass) != FALSE,
    };
}

void ClearAerUncorrectable(const LiveFunction& Live, const PCI_DEVICE_STATE& State, const CLEAR_REQUEST& Request) {
    const PCIE_ERROR_STATUS& Pcie = State.Pcie.ErrorStatus;
    const UINT32 Mask = CapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_MASK);
    const UINT32 Severity = CapturedRegister32(State.AerCapability, AER_UNCORRECTABLE_SEVERITY);
    const UINT32 Status = Live.Read32(State.AerOffset + AER_UNCORRECTABLE_STATUS);
    if (Status == 0) {
        return;
    }
    // Masked errors are cleared whatever the class is that asks.
    UINT32 Clear = Status & Mask;
    if (Pcie.ClearFatal != FALSE || Request.Dpc) {
        Clear |= Status & ~Mask & Severity;
    }
    if (Pcie.DetectedHotRemoval != FALSE) {
        Clear |= AerUncorrectable::CompletionTimeout | AerUncorrectable::SurpriseDown;
    }
    if (Pcie.ClearNonFatal != FALSE || Request.Dpc) {
        Clear |= Status & ~Mask & ~Severity;
    }
    if (Pcie.ClearUnsupportedRequest != FALSE) {
        Clear |= AerUncorrectable::UnsupportedRequest;
    }
    if (Clear != 0) {
        Live.Write32(State.AerOffset + AER_UNCORRECTABLE_STATUS, Clear, "UNCERRSTS");
    }
}

void ClearAerCorrectable(const LiveFunction& Live, const PCI_DEVICE_STATE& State, const CLEAR_REQUEST& Request) {
    const PCIE_ERROR_STATUS& Pcie = State.Pcie.ErrorStatus;
    const UINT32 Mask = CapturedRegister32(State.AerCapability, AER_CORRECTABLE_MASK);
    const UINT32 Status = Live.Read32(State.AerOffset + AER_CORRECTABLE_STATUS);
    if (Status == 0) {
        return;
    }
    UINT32 Clear = Status & Mask;
    if (Pcie.ClearUnsupportedRequest != FALSE) {
        Clear |= AerCorrectable::AdvisoryNonFatalError;
    }
    if (Pcie.ClearCorrectable != FALSE || Request.Dpc) {
        Clear |= Status & ~Mask;
    }
    if (Clear != 0) {
        Live.Write32(State.AerOffset + AER_CORRECTABLE_STATUS, Clear, "CORERRSTS");
    }
}

void ClearAer(const LiveFunction& Live, const PCI_DEVICE_STATE& State, const CLEAR_REQUEST& Request) {
    if (State.AerOffset == 0) {
        return;
    }
    if (Request.Uncorrectable) {
        ClearAerUncorrectable(Live, State, Request);
    }
    if (Request.Correctable) {
        ClearAerCorrectable(Live, State, Request);
    }
    if (State.Pcie.IsPcieToPciBridge != FALSE && Request.Uncorrectable) {
        const UINT32 Secondary = Live.Read32(State.AerOffset + AER_SECONDARY_UNCORRECTABLE_STATUS);
        if (Secondary != 0) {
            Live.Write32(State.AerOffset + AER_SECONDARY_UNCORRECTABLE_STATUS, Secondary,
                         "Secondary Uncorrectable Error Status");
        }
    }
}

void ClearLaneErrors(const LiveFunction& Live) {
    const PCI_SBDF& At = Live.Where();
    const UINT16 Capability =
        VornGetPcieExtendedCapabilityOffset(At.Seg, At.Bus, At.Dev, At.Func, PcieExtendedCapabilitySecondaryPcie);
    const UINTN Offset = Capability + UINTN{SECONDARY_PCIE_LANE_ERROR_STATUS};
    // At a capability that ends beyond configuration space the next function's registers lie there.
    if (Capability != 0 && Offset < PCI_CONFIGURATION_SPACE_SIZE) {
        Live.Write32(Offset, Live.Read32(Offset), "Lane Error Status");
    }
}

void ClearLinkStatus(const LiveFunction& Live, UINTN PcieCapability) {
    const UINT16 Status = Live.Read16(PcieCapability + PCIE_LINK_STATUS);
    if ((Status & (PcieLinkStatus::LinkBandwidthManagementStatus | PcieLinkStatus::LinkAutonomousBandwidthStatus)) !=
        0) {
        Live.Write16(PcieCapability + PCIE_LINK_STATUS, Status, "Link Status");
    }
}

void ClearDeviceStatus(const LiveFunction& Live, const PCI_DEVICE_STATE& State, const CLEAR_REQUEST& Request) {
    const PCIE_ERROR_STATUS& Pcie = State.Pcie.ErrorStatus;
    const struct {
        UINT8 IsAsked;
        UINT16 Bit;
    } Classes[] = {
        {Pcie.ClearFatal, PcieDeviceStatus::FatalErrorDetected},
        {Pcie.ClearNonFatal, PcieDeviceStatus::NonFatalErrorDetected},
        {Pcie.ClearUnsupportedRequest, PcieDeviceStatus::UnsupportedRequestDetected},
        {Pcie.ClearCorrectable, PcieDeviceStatus::CorrectableErrorDetected},
    };
    UINT16 Clear = 0;
    for (const auto& Class : Classes) {
        if (Class.IsAsked != FALSE || Request.Dpc) {
            Clear |= Class.Bit;
        }
    }
    if (Clear == 0) {
        return;
    }
    Clear &= Live.Read16(State.PcieCapabilityOffset + PCIE_DEVICE_STATUS);
    if (Clear != 0) {
        Live.Write16(State.PcieCapabilityOffset + PCIE_DEVICE_STATUS, Clear, "Device Status");
    }
}

void ClearPmeStatus(const LiveFunction& Live, UINTN PcieCapability) {
    if ((Live.Read32(PcieCapability + PCIE_ROOT_STATUS) & PcieRootStatus::PmeStatus) != 0) {
        Live.Write32(PcieCapability + PCIE_ROOT_STATUS, PcieRootStatus::PmeStatus, "Root Status");
    }
}

// Writes Status or Secondary Status back where it shows one of the bits; what was read, 0 when nothing was written.
UINT16 WriteBackStatus(const LiveFunction& Live, UINTN Offset, UINT16 Bits) {
    const UINT16 Status = Live.Read16(Offset);
    if ((Status & Bits) == 0) {
        return 0;
    }
    Live.Write16(Offset, Status, Offset == PCI_STATUS ? "Status" : "Secondary Status");
    return Status;
}

// A bridge that signalled a system error because of the unsupported request below it.
void ClearSystemError(const LiveFunction& Bridge) {
    const PCI_SBDF& At = Bridge.Where();
    constexpr UINTN StatusRegisters[] = {PCI_STATUS, PCI_SECONDARY_STATUS};
    for (const UINTN Offset : StatusRegisters) {
        const UINT16 Status = WriteBackStatus(Bridge, Offset, PciStatus::SignaledSystemError);
        PCI_DEVICE_STATE* pQueued = nullptr;
        if (Status != 0 && !EFI_ERROR(VornElogRetrievePciDeviceState(At.Seg, At.Bus, At.Dev, At.Func, &pQueued))) {
            pQueued->LegacyPci.Clear = TRUE;
            SetCapturedRegister16(pQueued->PciHeader, Offset, Status & static_cast<UINT16>(~PciStatus::ErrorBits));
        }
    }
}

bool IsBridgeTo(const LiveFunction& Live, UINT8 Bus) {
    return PciHeaderType::Layout::Get(Live.Read8(PCI_HEADER_TYPE)) == PciHeaderType::Type1 &&
           Live.Read8(PCI_SECONDARY_BUS_NUMBER) <= Bus && Bus <= Live.Read8(PCI_SUBORDINATE_BUS_NUMBER);
}

// The bridges between the root port and the function, wherever they lie on the buses in between.
void ClearBridgesAbove(const PCI_DEVICE_STATE& State, UINT64 DebugLevel, const CHAR8* Caller) {
    const PCI_DEVICE_STATE* pRootPort = State.PcieRootPortData.pPciDeviceStateUpstreamRootPort;
    if (pRootPort == nullptr) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: WARN pPciDeviceState->PcieRootPortData.pPciDeviceStateUpstreamRootPort == NULL, exiting...\n");
        return;
    }
    const PCI_SBDF Below = SbdfOf(State.PciAddress);
    for (UINT8 Bus = pRootPort->PciHeader[PCI_SECONDARY_BUS_NUMBER]; Bus < Below.Bus; Bus++) {
        for (UINT8 Dev = 0; Dev < PCI_DEVICES_PER_BUS; Dev++) {
            if (VornCheckDevicePresent(Below.Seg, Bus, Dev, 0) == FALSE) {
                continue;
            }
            for (UINT8 Func = 0; Func < PCI_FUNCTIONS_PER_DEVICE; Func++) {
                const LiveFunction Live(PackPciAddress(Below.Seg, Bus, Dev, Func), DebugLevel, Caller);
                if (IsBridgeTo(Live, Below.Bus)) {
                    ClearSystemError(Live);
                }
            }
        }
    }
}

}  // namespace

EFI_STATUS VornElogClearPcieDeviceStatus(const PCI_DEVICE_STATE* pPciDeviceState, UINT64 DebugLevel) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    if (State.PcieCapabilityOffset == 0) {
        return EFI_SUCCESS;
    }
    const CLEAR_REQUEST Request = RequestOf(State);
    const LiveFunction Live(State.PciAddress, DebugLevel, __func__);
    const PCI_SBDF& At = Live.Where();
    if (State.Cxl.IsCxl != FALSE && Request.Cxl) {
        VornElogClearCxlProtocol(At.Seg, At.Bus, At.Dev, At.Func, pPciDeviceState, DebugLevel);
    }
    ClearAer(Live, State, Request);
    ClearLaneErrors(Live);
    ClearLinkStatus(Live, State.PcieCapabilityOffset);
    ClearDeviceStatus(Live, State, Request);
    if (IsRootPortOrEventCollector(State)) {
        ClearPmeStatus(Live, State.PcieCapabilityOffset);
    }
    if (IsRootOrDownstreamPort(State) && (Request.Dpc || Request.RpPio)) {
        Trace(DebugLevel, "%a: SBDF %04X:%02X:%02X.%1X Clearing DPC status\n", At.Seg, At.Bus, At.Dev, At.Func);
        VornElogClearPcieDpc(pPciDeviceState, DebugLevel);
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogClearPcieDpc(const PCI_DEVICE_STATE* pPciDeviceState, UINT64 DebugLevel) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    const LiveFunction Live(pPciDeviceState->PciAddress, DebugLevel, __func__);
    const UINTN Dpc = pPciDeviceState->DpcOffset;
    if (Dpc == 0) {
        Trace(DEBUG_ERROR, "%a: ERROR PCIe extended capability structure (DPC) not supported, aborting...\n");
        return EFI_UNSUPPORTED;
    }
    Live.Write16(Dpc + DPC_STATUS, DpcStatus::TriggerStatus::Mask, "DPC Status");
    if (HasDpcRpExtensions(*pPciDeviceState)) {
        Live.Write32(Dpc + DPC_RP_PIO_STATUS, RP_PIO_STATUS_WRITE, "RP PIO Status");
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogClearCxlProtocol(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                    const PCI_DEVICE_STATE* pPciDeviceState, UINT64 DebugLevel) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    const UINT64 Ras = pPciDeviceState->Cxl.RasCapabilityAddress;
    if (Ras == 0) {
        Trace(DEBUG_ERROR, "%a: ERROR SBDF %04X:%02X:%02X.%1X CXL RAS capability not supported, aborting...\n", Seg,
              Bus, Dev, Func);
        return EFI_UNSUPPORTED;
    }
    const CHAR8* const Caller = __func__;
    const auto WriteBack = [&](UINT32 Offset, UINT32 Value, const CHAR8* Register) {
        if (Value == 0) {
            return;
        }
        MmioWrite32(Ras + Offset, Value);
        if (DebugPrintLevelEnabled(DebugLevel)) {
            TraceAs(Caller, DebugLevel, "%a: SBDF %04X:%02X:%02X.%1X %a write 0x%08x read 0x%08x\n", Seg, Bus, Dev,
                    Func, Register, Value, MmioRead32(Ras + Offset));
        }
    };
    const CXL_ERROR_STATUS& Is = pPciDeviceState->Cxl.ErrorStatus;
    if (Is.ClearFatal != FALSE || Is.ClearNonFatal != FALSE) {
        const UINT32* Captured = pPciDeviceState->Cxl.RasCapability;
        const UINT32 Severity = Captured[CXL_RAS_UNCORRECTABLE_SEVERITY / sizeof(UINT32)];
        // Unlike AER's, masked errors stay.
        const UINT32 Unmasked =
            MmioRead32(Ras + CXL_RAS_UNCORRECTABLE_STATUS) & ~Captured[CXL_RAS_UNCORRECTABLE_MASK / sizeof(UINT32)];
        const UINT32 Asked = (Is.ClearFatal != FALSE ? Severity : 0) | (Is.ClearNonFatal != FALSE ? ~Severity : 0);
        WriteBack(CXL_RAS_UNCORRECTABLE_STATUS, Unmasked & Asked, "CXL Uncorrectable Error Status");
    }
    if (Is.ClearCorrectable != FALSE) {
        WriteBack(CXL_RAS_CORRECTABLE_STATUS, MmioRead32(Ras + CXL_RAS_CORRECTABLE_STATUS),
                  "CXL Correctable Error Status");
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogClearLegacyPciDeviceStatus(const PCI_DEVICE_STATE* pPciDeviceState, UINT64 DebugLevel) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    if (State.LegacyPci.Clear == FALSE) {
        Trace(DebugLevel, "%a: Caller has not requested to clear PCI legacy errors, exiting...\n");
        return EFI_SUCCESS;
    }
    const LiveFunction Live(State.PciAddress, DebugLevel, __func__);
    if (State.IsPciBridgeDevice != FALSE) {
        WriteBackStatus(Live, PCI_SECONDARY_STATUS, PciStatus::ErrorBits);
    }
    WriteBackStatus(Live, PCI_STATUS, PciStatus::ErrorBits);
    if (State.Pcie.ErrorStatus.ClearUnsupportedRequest != FALSE && !IsRootPortOrEventCollector(State)) {
        ClearBridgesAbove(State, DebugLevel, __func__);
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogClearPcieAerRootPortErrorStatus(const PCI_DEVICE_STATE* pPciDeviceStatePcieRootPort,
                                                   UINT64 DebugLevel) {
    if (pPciDeviceStatePcieRootPort == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pPciDeviceStatePcieRootPort == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceStatePcieRootPort;
    if (!IsRootPortOrEventCollector(State)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR pPciDeviceStatePcieRootPort->Pcie.Characteristics.IsRootPort = %d "
              "Pcie.Characteristics.IsRootComplexEventCollector %d (not a root port), aborting...\n",
              State.Pcie.Characteristics.IsRootPort, State.Pcie.Characteristics.IsRootComplexEventCollector);
        return EFI_INVALID_PARAMETER;
    }
    const LiveFunction Live(State.PciAddress, DebugLevel, __func__);
    const PCI_SBDF& At = Live.Where();
    if (State.AerOffset < PcieExtendedCapabilityHeader::FirstOffset) {
        Trace(DEBUG_ERROR,
              "%a: ERROR RP @ SBDF %04X:%02X:%02X.%1X AerOffset 0x%04x < minimum value 0x0100, aborting...\n", At.Seg,
              At.Bus, At.Dev, At.Func, State.AerOffset);
        return EFI_UNSUPPORTED;
    }
    const UINT32 Status = Live.Read32(State.AerOffset + AER_ROOT_ERROR_STATUS);
    if ((Status & AerRootErrorStatus::ErrorBits) != 0) {
        Live.Write32(State.AerOffset + AER_ROOT_ERROR_STATUS, Status, "Root Error Status");
    }
    return EFI_SUCCESS;
}
