// Why a port went into containment, as its captured DPC Status tells (PCI Express Base 6.0, section 7.9.14.4).
#pragma once

#include "Include/PciDeviceState.h"

// DPC_TRIGGER_REASON.
inline UINT16 DpcTriggerReason(const PCI_DEVICE_STATE& State) {
    return DpcStatus::TriggerReason::Get(CapturedRegister16(State.DpcCapability, DPC_STATUS));
}

inline bool HasDpcReasonExtension(const PCI_DEVICE_STATE& State, DPC_TRIGGER_REASON_EXTENSION Extension) {
    const UINT16 Status = CapturedRegister16(State.DpcCapability, DPC_STATUS);
    return DpcStatus::TriggerReason::Get(Status) == DpcReasonSeeExtension &&
           DpcStatus::TriggerReasonExtension::Get(Status) == Extension;
}

// Software set the port's trigger.
inline bool IsSoftwareDpc(const PCI_DEVICE_STATE& State) {
    return HasDpcReasonExtension(State, DpcReasonExtensionSoftwareTrigger);
}

// Programmed IO of the root port itself failed.
inline bool IsRpPioDpc(const PCI_DEVICE_STATE& State) {
    return HasDpcReasonExtension(State, DpcReasonExtensionRpPio);
}
