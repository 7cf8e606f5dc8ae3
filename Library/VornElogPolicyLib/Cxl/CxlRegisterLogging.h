// The captured CXL RAS registers of a reporting function as records of the event log, by their offsets in the CXL
// RAS capability (CXL 3.1, section 8.2.4.17).
#pragma once

#include "Include/Cper.h"
#include "Library/VornElogPolicyLib/Pcie/SelEvent.h"

// Sends the registers that tell something; pSelData names the reporting function. Nothing is sent for a NULL argument
// or a function without a captured RAS capability.
void VornElogSmmCheckAndLogCxlProtocolRegs(const CPER_RECORD* pCper, const PCI_DEVICE_STATE* pPciDeviceState,
                                           const PCIE_SEL_DATA* pSelData);

// Uncorrectable status without its masked bits, and the header log. TRUE: a header log came with it.
BOOLEAN VornElogSmmCheckAndLogCxlProtocolRegsUncorr(const PCI_DEVICE_STATE* pPciDeviceState);

// The header log. FALSE: it is not valid.
BOOLEAN VornElogSmmLogCxlProtocolHeaderLogRegisters(const PCI_DEVICE_STATE* pPciDeviceState);

// Correctable status without its masked bits.
void VornElogSmmCheckAndLogCxlProtocolRegsCorr(const PCI_DEVICE_STATE* pPciDeviceState);

// The header log of the root port above, where that names this function as its error's source.
void VornElogSmmLogCxlProtocolHeaderLogRegistersUpstreamRootPort(const PCI_DEVICE_STATE* pPciDeviceState,
                                                                 const PCIE_SEL_DATA* pSelData);
