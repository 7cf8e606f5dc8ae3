#include "Library/VornElogPolicyLib/Pcie/AerLogging.h"

#include "Library/VornElogChipsetLib/SelPcie.h"
#include "Library/VornElogChipsetLib/SelRegisters.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

constexpr UINT32 BYTES_PER_DWORD = 4;
constexpr UINT32 SMALLEST_MAX_PAYLOAD = 128;  // bytes

UINT32 Aer(const PCI_DEVICE_STATE& State, UINTN Register) {
    return CapturedRegister32(State.AerCapability, Register);
}

// Unmasked uncorrectable errors.
UINT32 Signalled(const PCI_DEVICE_STATE& State) {
    return Aer(State, AER_UNCORRECTABLE_STATUS) & ~Aer(State, AER_UNCORRECTABLE_MASK);
}

void LogAer(const PCI_DEVICE_STATE& State, UINTN Register, UINT32 Value) {
    ElogLogRegisterInfo(static_cast<UINT16>(State.AerOffset + Register), Value);
}

// The doublewords of a log that are not zero.
void LogDwords(const PCI_DEVICE_STATE& State, UINTN Log, UINTN Dwords) {
    for (UINTN Index = 0; Index < Dwords; Index++) {
        const UINTN Register = Log + Index * BYTES_PER_DWORD;
        if (Aer(State, Register) != 0) {
            LogAer(State, Register, Aer(State, Register));
        }
    }
}

bool HasPrefixLog(const PCI_DEVICE_STATE& State) {
    return AerCapabilitiesControl::TlpPrefixLogPresent::Get(Aer(State, AER_CAPABILITIES_CONTROL)) != 0;
}

// Prefixes of the first error's TLP; the first doubleword that is zero ends them, the first of all aside.
void LogPrefixLog(const PCI_DEVICE_STATE& State) {
    const UINT32 FirstError = AerCapabilitiesControl::FirstErrorPointer::Get(Aer(State, AER_CAPABILITIES_CONTROL));
    if (!HasPrefixLog(State) || (Aer(State, AER_UNCORRECTABLE_STATUS) >> FirstError & 1) == 0) {
        return;
    }
    for (UINTN Index = 0; Index < TLP_PREFIX_LOG_DWORDS; Index++) {
        const UINTN Register = AER_TLP_PREFIX_LOG + Index * BYTES_PER_DWORD;
        const UINT32 Prefix = Aer(State, Register);
        if (Prefix != 0) {
            LogAer(State, Register, Prefix);
        } else if (Index > 0) {
            return;
        }
    }
}

// The first doubleword tells: a header that begins with zero is none.
bool IsHeaderLogValid(const PCI_DEVICE_STATE& State) {
    return Aer(State, AER_HEADER_LOG) != 0;
}

bool IsHeaderLogZero(const PCI_DEVICE_STATE& State) {
    UINT32 Any = 0;
    for (UINTN Index = 0; Index < TLP_HEADER_LOG_DWORDS; Index++) {
        Any |= Aer(State, AER_HEADER_LOG + Index * BYTES_PER_DWORD);
    }
    return Any == 0;
}

bool IsErrorSourceOfRootPort(const PCI_DEVICE_STATE& RootPort, PCI_SBDF Sbdf) {
    const UINT32 Sources = Aer(RootPort, AER_ERROR_SOURCE_ID);
    const UINT32 Requester = PackRequesterId(Sbdf.Bus, Sbdf.Dev, Sbdf.Func);
    return RootPort.AerOffset != 0 && (AerErrorSourceId::Correctable::Get(Sources) == Requester ||
                                       AerErrorSourceId::Uncorrectable::Get(Sources) == Requester);
}

}  // namespace

void LogChipsetEvent(const PCIE_SEL_DATA& SelData) {
    const PCI_SBDF& At = SelData.Sbdf;
    ElogLogChipsetAnyEvent(At.Seg, At.Bus, At.Dev, At.Func, SelChipsetSeverityInformational);
}

bool AreStateAndEventGiven(const PCI_DEVICE_STATE* pPciDeviceState, const PCIE_SEL_DATA* pSelData,
                           const CHAR8* Caller) {
    if (pSelData == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR pSelData == NULL, aborting...\n");
        return false;
    }
    return IsDeviceStateGiven(pPciDeviceState, Caller);
}

const PCI_DEVICE_STATE* RootPortThatNamesSource(const PCI_DEVICE_STATE& State, const CHAR8* Caller) {
    const PCI_DEVICE_STATE* pRootPort = State.PcieRootPortData.pPciDeviceStateUpstreamRootPort;
    if (pRootPort == nullptr) {
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                "%a: WARN pPciDeviceState->PcieRootPortData.pPciDeviceStateUpstreamRootPort == NULL, exiting...\n");
        return nullptr;
    }
    return IsErrorSourceOfRootPort(*pRootPort, SbdfOf(State.PciAddress)) ? pRootPort : nullptr;
}

BOOLEAN VornElogSmmLogAerHeaderLogRegisters(const PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState) || !IsHeaderLogValid(*pPciDeviceState)) {
        return FALSE;
    }
    LogDwords(*pPciDeviceState, AER_HEADER_LOG, TLP_HEADER_LOG_DWORDS);
    LogPrefixLog(*pPciDeviceState);
    return TRUE;
}

void VornElogSmmLogAerUncErrMalformedTlpSupportingData(const PCI_DEVICE_STATE* pPciDeviceState,
                                                       const PCIE_SEL_DATA* pSelData) {
    if (!AreStateAndEventGiven(pPciDeviceState, pSelData)) {
        return;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    const UINT32 Payload = TlpHeader::Length::Get(Aer(State, AER_HEADER_LOG)) * BYTES_PER_DWORD;
    const UINT16 DeviceControl = CapturedRegister16(State.PcieCapability, PCIE_DEVICE_CONTROL);
    const UINT32 MaxPayload = SMALLEST_MAX_PAYLOAD << PcieDeviceControl::MaxPayloadSize::Get(DeviceControl);
    if (Payload > MaxPayload) {
        LogChipsetEvent(*pSelData);
        ElogLogRegisterInfo(static_cast<UINT16>(State.PcieCapabilityOffset + PCIE_DEVICE_CONTROL), DeviceControl);
    }
}

BOOLEAN VornElogSmmCheckAndLogPcieAerRegsUncorr(const PCI_DEVICE_STATE* pPciDeviceState,
                                                const PCIE_SEL_DATA* pSelData) {
    if (!AreStateAndEventGiven(pPciDeviceState, pSelData)) {
        return FALSE;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    const UINT32 Errors = Signalled(State);
    if (Errors == 0) {
        return FALSE;
    }
    if ((Errors & AerUncorrectable::UnsupportedRequest) != 0) {
        ElogLogRegisterInfo(PCI_COMMAND, CapturedRegister16(State.PciHeader, PCI_COMMAND));
    }
    LogAer(State, AER_UNCORRECTABLE_STATUS, Errors);
    const bool IsOneError = (Errors & (Errors - 1)) == 0;
    if (!IsOneError || HasPrefixLog(State)) {
        LogAer(State, AER_CAPABILITIES_CONTROL, Aer(State, AER_CAPABILITIES_CONTROL));
    }
    const BOOLEAN IsHeaderLogged = VornElogSmmLogAerHeaderLogRegisters(pPciDeviceState);
    if (IsHeaderLogged != FALSE && (Errors & AerUncorrectable::MalformedTlp) != 0) {
        VornElogSmmLogAerUncErrMalformedTlpSupportingData(pPciDeviceState, pSelData);
    }
    return IsHeaderLogged;
}

void VornElogSmmCheckAndLogPcieAerRegsSecondaryUncorr(const PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    const UINT32 Errors =
        Aer(State, AER_SECONDARY_UNCORRECTABLE_STATUS) & ~Aer(State, AER_SECONDARY_UNCORRECTABLE_MASK);
    if (Errors != 0) {
        LogAer(State, AER_SECONDARY_UNCORRECTABLE_STATUS, Errors);
        LogDwords(State, AER_SECONDARY_HEADER_LOG, TLP_HEADER_LOG_DWORDS);
    }
}

void VornElogSmmCheckAndLogPcieAerRegsCorr(const PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return;
    }
    const UINT32 Errors =
        Aer(*pPciDeviceState, AER_CORRECTABLE_STATUS) & ~Aer(*pPciDeviceState, AER_CORRECTABLE_MASK);
    if (Errors != 0) {
        LogAer(*pPciDeviceState, AER_CORRECTABLE_STATUS, Errors);
    }
}

void VornElogSmmLogAerHeaderLogRegistersUpstreamRootPort(const PCI_DEVICE_STATE* pPciDeviceState,
                                                         const PCIE_SEL_DATA* pSelData) {
    if (!AreStateAndEventGiven(pPciDeviceState, pSelData)) {
        return;
    }
    const PCI_DEVICE_STATE* const pRootPort = RootPortThatNamesSource(*pPciDeviceState);
    if (pRootPort != nullptr && !IsHeaderLogZero(*pRootPort)) {
        LogChipsetEvent(*pSelData);
        LogDwords(*pRootPort, AER_HEADER_LOG, TLP_HEADER_LOG_DWORDS);
    }
}

void VornElogSmmCheckAndLogPcieAerRegs(const CPER_RECORD* pCper, const PCI_DEVICE_STATE* pPciDeviceState,
                                       const PCIE_SEL_DATA* pSelData) {
    if (pCper == nullptr || pPciDeviceState == nullptr || pSelData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    if (State.PcieCapabilityOffset == 0 || State.AerOffset == 0) {
        Trace(DEBUG_ERROR, "%a: ERROR PCIe extended capability (AER) structure not supported, aborting...\n");
        return;
    }
    VornElogSmmCheckAndLogPcieAerRegsUncorr(pPciDeviceState, pSelData);
    if (State.Pcie.IsPcieToPciBridge != FALSE) {
        VornElogSmmCheckAndLogPcieAerRegsSecondaryUncorr(pPciDeviceState);
    }
    VornElogSmmCheckAndLogPcieAerRegsCorr(pPciDeviceState);
    if (!IsRootPortOrEventCollector(State) && !IsHeaderLogValid(State)) {
        VornElogSmmLogAerHeaderLogRegistersUpstreamRootPort(pPciDeviceState, pSelData);
    }
}
