// The four classes of errors that Device Status and advanced error reporting show (PCI Express Base 6.0, sections
// 6.2 and 7.8.4). A function without the PCI Express capability has none; one without advanced error reporting shows
// them by its Device Status alone.
#pragma once

#include "Include/PciDeviceState.h"

// Each reads the class's status registers from the function and sets the class's Detected, Clear and Handle flags.
// EFI_INVALID_PARAMETER: pPciDeviceState is NULL.

// Also sets the legacy flags of a signaled system error.
EFI_STATUS VornElogSmmCheckPcieErrorFatal(PCI_DEVICE_STATE* pPciDeviceState);

// An unsupported request of non-fatal severity; one of fatal severity belongs to the fatal class. Whether it is
// handled is VornElogSmmValidatePcieUnsupportedRequest's answer.
EFI_STATUS VornElogSmmCheckPcieErrorUnsupportedRequest(PCI_DEVICE_STATE* pPciDeviceState);

// Also sets the legacy flags of a signaled system error. The unsupported-request check must have run before.
EFI_STATUS VornElogSmmCheckPcieErrorNonFatal(PCI_DEVICE_STATE* pPciDeviceState);

// The unsupported-request check and the CXL correctable check must have run before.
EFI_STATUS VornElogSmmCheckPcieErrorCorrectable(PCI_DEVICE_STATE* pPciDeviceState);
