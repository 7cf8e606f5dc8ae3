// How the operations on a captured function reach its registers: the captured ones in the record, the live ones in
// configuration space.
#pragma once

#include "Include/PciDeviceState.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/PciConfiguration.h"

// FALSE, and traced in the name of Caller, for a NULL record.
inline bool IsDeviceStateGiven(const PCI_DEVICE_STATE* pPciDeviceState, const CHAR8* Caller = __builtin_FUNCTION()) {
    if (pPciDeviceState == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR pPciDeviceState == NULL, aborting...\n");
        return false;
    }
    return true;
}

inline bool IsRootPortOrEventCollector(const PCI_DEVICE_STATE& State) {
    const PCIE_CHARACTERISTICS& Is = State.Pcie.Characteristics;
    return Is.IsRootPort != FALSE || Is.IsRootComplexEventCollector != FALSE;
}

// These and switch downstream ports: error messages of others arrive there.
inline bool IsRootOrDownstreamPort(const PCI_DEVICE_STATE& State) {
    return IsRootPortOrEventCollector(State) || State.Pcie.Characteristics.IsSwitchDownstreamPort != FALSE;
}

// Such a port that has downstream port containment.
inline bool IsDpcCapablePort(const PCI_DEVICE_STATE& State) {
    return IsRootOrDownstreamPort(State) && State.DpcOffset != 0;
}

inline bool HasDpcRpExtensions(const PCI_DEVICE_STATE& State) {
    return DpcCapability::RpExtensions::Get(CapturedRegister16(State.DpcCapability, DPC_CAPABILITY)) != 0;
}

inline UINT64 LiveRegister(const PCI_DEVICE_STATE& State, UINTN Offset) {
    return PciSegmentAddressOfPacked(State.PciAddress) | Offset;
}

// A header log out of a captured structure, whose doublewords need not be aligned.
inline void CopyHeaderLog(UINT32 (&HeaderLog)[TLP_HEADER_LOG_DWORDS], const UINT8* pCaptured) {
    for (UINTN Index = 0; Index < TLP_HEADER_LOG_DWORDS; Index++) {
        HeaderLog[Index] = CapturedRegister32(pCaptured, Index * sizeof(UINT32));
    }
}
