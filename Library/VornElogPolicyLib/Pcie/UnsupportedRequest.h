// Unsupported requests: which of them are errors, and how a bus scan keeps its own from being reported.
#pragma once

#include "Include/PciDeviceState.h"

// *pHandleUrError is TRUE when the function's unsupported request is genuine. A PCIe 1.0 device, which answers probes
// of absent functions with unsupported requests, stops reporting them from here on.
// EFI_INVALID_PARAMETER: a NULL pointer. EFI_UNSUPPORTED: no PCI Express capability; *pHandleUrError is FALSE.
EFI_STATUS VornElogSmmValidatePcieUnsupportedRequest(PCI_DEVICE_STATE* pPciDeviceState, BOOLEAN* pHandleUrError);

// Stops the root port from reporting unsupported requests while absent functions below it are probed. The three
// answers say what was on before: unsupported requests reported by Device Control, and unmasked in AER, and advisory
// non-fatal errors unmasked in AER.
// EFI_INVALID_PARAMETER: a NULL pointer. EFI_UNSUPPORTED: no PCI Express capability; the answers are FALSE.
EFI_STATUS VornElogSuppressUnsupportedRequest(const PCI_DEVICE_STATE* pPciDeviceState,
                                              BOOLEAN* pIsPcieDeviceControlUrReportingEnabled,
                                              BOOLEAN* pIsPcieAerUrReportingUnmasked,
                                              BOOLEAN* pIsPcieAerAdvisoryNonFatalReportingUnmasked);

// Clears what the scan caused and turns on again what the three answers say.
// EFI_INVALID_PARAMETER: pPciDeviceState is NULL. EFI_UNSUPPORTED: no PCI Express capability.
EFI_STATUS VornElogRestoreUnsupportedRequest(const PCI_DEVICE_STATE* pPciDeviceState,
                                             BOOLEAN IsPcieDeviceControlUrReportingEnabled,
                                             BOOLEAN IsPcieAerUrReportingUnmasked,
                                             BOOLEAN IsPcieAerAdvisoryNonFatalReportingUnmasked);

// Turns on again what the three answers say and clears nothing: for probes before the port's own errors were looked
// at. What the probes leave is then masked, and cleared with the rest.
void ResumeUnsupportedRequestReporting(const PCI_DEVICE_STATE& State, BOOLEAN IsPcieDeviceControlUrReportingEnabled,
                                       BOOLEAN IsPcieAerUrReportingUnmasked,
                                       BOOLEAN IsPcieAerAdvisoryNonFatalReportingUnmasked);
