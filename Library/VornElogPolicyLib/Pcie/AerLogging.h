// The error registers of a reporting function as records of the event log. Every value is the captured one.
#pragma once

#include "Include/Cper.h"
#include "Library/VornElogPolicyLib/Pcie/SelEvent.h"

// Sends the AER registers that tell something: see the parts below. pSelData names the reporting function.
// Nothing is sent for a NULL argument or a function without AER.
void VornElogSmmCheckAndLogPcieAerRegs(const CPER_RECORD* pCper, const PCI_DEVICE_STATE* pPciDeviceState,
                                       const PCIE_SEL_DATA* pSelData);

// Uncorrectable status without its masked bits, with what belongs to it. TRUE: a header log came with it.
BOOLEAN VornElogSmmCheckAndLogPcieAerRegsUncorr(const PCI_DEVICE_STATE* pPciDeviceState,
                                                const PCIE_SEL_DATA* pSelData);

// Header log and, where the first error has one, TLP prefix log. FALSE: the header log is not valid.
BOOLEAN VornElogSmmLogAerHeaderLogRegisters(const PCI_DEVICE_STATE* pPciDeviceState);

// Device Control, where the logged TLP's payload exceeds the function's maximum.
void VornElogSmmLogAerUncErrMalformedTlpSupportingData(const PCI_DEVICE_STATE* pPciDeviceState,
                                                       const PCIE_SEL_DATA* pSelData);

// Secondary uncorrectable status and header log of a PCIe-to-PCI bridge.
void VornElogSmmCheckAndLogPcieAerRegsSecondaryUncorr(const PCI_DEVICE_STATE* pPciDeviceState);

// Correctable status without its masked bits.
void VornElogSmmCheckAndLogPcieAerRegsCorr(const PCI_DEVICE_STATE* pPciDeviceState);

// The header log of the root port above, where that names this function as its error's source.
void VornElogSmmLogAerHeaderLogRegistersUpstreamRootPort(const PCI_DEVICE_STATE* pPciDeviceState,
                                                         const PCIE_SEL_DATA* pSelData);

// The captured root port above the function, where its Error Source Identification names the function; else NULL.
const PCI_DEVICE_STATE* RootPortThatNamesSource(const PCI_DEVICE_STATE& State,
                                                const CHAR8* Caller = __builtin_FUNCTION());

// Sends an informational event of the chipset that names the reporting function.
void LogChipsetEvent(const PCIE_SEL_DATA& SelData);

// False, and traced in the name of Caller, for a NULL record or event.
bool AreStateAndEventGiven(const PCI_DEVICE_STATE* pPciDeviceState, const PCIE_SEL_DATA* pSelData,
                           const CHAR8* Caller = __builtin_FUNCTION());
