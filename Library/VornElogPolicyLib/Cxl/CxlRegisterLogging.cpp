#include "Library/VornElogPolicyLib/Cxl/CxlRegisterLogging.h"

#include "Include/CxlRegisters.h"
#include "Library/VornElogChipsetLib/SelRegisters.h"
#include "Library/VornElogPolicyLib/Pcie/AerLogging.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"

namespace {

UINT32 Ras(const PCI_DEVICE_STATE& State, UINTN Register) {
    return State.Cxl.RasCapability[Register / sizeof(UINT32)];
}

void LogRas(UINTN Register, UINT32 Value) {
    ElogLogCxlRasCapabilityStructure(static_cast<UINT8>(Register), Value);
}

bool IsHeaderLogEmpty(const PCI_DEVICE_STATE& State) {
    return Ras(State, CXL_RAS_HEADER_LOG) == 0;
}

void LogHeaderLog(const PCI_DEVICE_STATE& State) {
    for (UINTN Index = 0; Index < CXL_RAS_HEADER_LOG_DWORDS; Index++) {
        const UINTN Register = CXL_RAS_HEADER_LOG + Index * sizeof(UINT32);
        if (Ras(State, Register) != 0) {
            LogRas(Register, Ras(State, Register));
        }
    }
}

bool HasRas(const PCI_DEVICE_STATE& State) {
    return State.Cxl.IsCxl != FALSE && State.Cxl.RasCapabilityValid != FALSE;
}

}  // namespace

BOOLEAN VornElogSmmLogCxlProtocolHeaderLogRegisters(const PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState) || IsHeaderLogEmpty(*pPciDeviceState)) {
        return FALSE;
    }
    LogHeaderLog(*pPciDeviceState);
    return TRUE;
}

BOOLEAN VornElogSmmCheckAndLogCxlProtocolRegsUncorr(const PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return FALSE;
    }
    const UINT32 Errors =
        Ras(*pPciDeviceState, CXL_RAS_UNCORRECTABLE_STATUS) & ~Ras(*pPciDeviceState, CXL_RAS_UNCORRECTABLE_MASK);
    if (Errors == 0) {
        return FALSE;
    }
    LogRas(CXL_RAS_UNCORRECTABLE_STATUS, Errors);
    return VornElogSmmLogCxlProtocolHeaderLogRegisters(pPciDeviceState);
}

void VornElogSmmCheckAndLogCxlProtocolRegsCorr(const PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return;
    }
    const UINT32 Errors =
        Ras(*pPciDeviceState, CXL_RAS_CORRECTABLE_STATUS) & ~Ras(*pPciDeviceState, CXL_RAS_CORRECTABLE_MASK);
    if (Errors != 0) {
        LogRas(CXL_RAS_CORRECTABLE_STATUS, Errors);
    }
}

void VornElogSmmLogCxlProtocolHeaderLogRegistersUpstreamRootPort(const PCI_DEVICE_STATE* pPciDeviceState,
                                                                 const PCIE_SEL_DATA* pSelData) {
    if (!AreStateAndEventGiven(pPciDeviceState, pSelData)) {
        return;
    }
    // CXL errors reach the root port as messages of internal errors: its AER names their source.
    const PCI_DEVICE_STATE* const pRootPort = RootPortThatNamesSource(*pPciDeviceState);
    if (pRootPort != nullptr && HasRas(*pRootPort) && !IsHeaderLogEmpty(*pRootPort)) {
        LogChipsetEvent(*pSelData);
        LogHeaderLog(*pRootPort);
    }
}

void VornElogSmmCheckAndLogCxlProtocolRegs(const CPER_RECORD* pCper, const PCI_DEVICE_STATE* pPciDeviceState,
                                           const PCIE_SEL_DATA* pSelData) {
    if (pCper == nullptr || pPciDeviceState == nullptr || pSelData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR one or more input parameters are NULL, aborting...\n");
        return;
    }
    const PCI_DEVICE_STATE& State = *pPciDeviceState;
    if (!HasRas(State)) {
        Trace(DEBUG_ERROR, "%a: ERROR CXL RAS capability structure not supported, aborting...\n");
        return;
    }
    VornElogSmmCheckAndLogCxlProtocolRegsUncorr(pPciDeviceState);
    VornElogSmmCheckAndLogCxlProtocolRegsCorr(pPciDeviceState);
    if (!IsRootPortOrEventCollector(State) && IsHeaderLogEmpty(State)) {
        VornElogSmmLogCxlProtocolHeaderLogRegistersUpstreamRootPort(pPciDeviceState, pSelData);
    }
}
