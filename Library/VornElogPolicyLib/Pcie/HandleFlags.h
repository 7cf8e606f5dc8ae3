// What the Handle flags of a captured function ask for.
#pragma once

#include "Include/PciDeviceState.h"

// Any class of PCIe errors but a containment event.
constexpr bool IsPcieErrorHandled(const PCIE_ERROR_STATUS& Is) {
    return (Is.HandleFatal | Is.HandleUnsupportedRequest | Is.HandleNonFatal | Is.HandleCorrectable |
            Is.HandleRpPioFatal) != FALSE;
}

// The same, or a containment event.
constexpr bool IsPcieErrorOrDpcEventHandled(const PCIE_ERROR_STATUS& Is) {
    return Is.HandleDpcEvent != FALSE || IsPcieErrorHandled(Is);
}

// Any class of CXL protocol errors.
constexpr bool IsCxlProtocolErrorHandled(const CXL_ERROR_STATUS& Is) {
    return (Is.HandleFatal | Is.HandleNonFatal | Is.HandleCorrectable) != FALSE;
}
