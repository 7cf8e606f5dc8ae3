// Errors of a root port's own programmed IO, and AER errors that they report already (PCI Express Base 6.0, sections
// 6.2.11.3 and 7.9.14).
#pragma once

#include "Include/PciDeviceState.h"

// Reads RP PIO Status from the port and sets the RP PIO flags. Does nothing for a function other than a root port,
// event collector or switch downstream port with DPC and its RP extensions.
// EFI_INVALID_PARAMETER: pPciDeviceState is NULL.
EFI_STATUS VornElogSmmCheckRpPioErrors(PCI_DEVICE_STATE* pPciDeviceState);

// *pValid is TRUE when the captured RP PIO error is genuine: FALSE after a hot removal, for a DMTF vendor-defined
// message that was rejected, and for a memory read that a sleeping function below the port refused.
// EFI_INVALID_PARAMETER: a NULL pointer. EFI_UNSUPPORTED: no RP extensions; *pValid is FALSE.
EFI_STATUS VornElogValidateRpPioError(PCI_DEVICE_STATE* pPciDeviceState, BOOLEAN* pValid);

// For each kind of completion (unsupported request, completer abort, completion timeout) whether the captured RP PIO
// Status shows one that is neither masked nor without a system error. All FALSE without RP extensions.
// EFI_INVALID_PARAMETER: a NULL pointer.
EFI_STATUS VornElogSmmCheckPcieDpRpPioErrorTypeAsserted(const PCI_DEVICE_STATE* pPciDeviceState, BOOLEAN* pUr,
                                                        BOOLEAN* pCa, BOOLEAN* pCto);

// Take back HandleFatal (HandleNonFatal) when the RP PIO error explains every AER error of that severity: its own
// record reports them.
// EFI_INVALID_PARAMETER: pPciDeviceState is NULL.
EFI_STATUS VornElogSmmScreenPcieErrorFatalForDpRpPio(PCI_DEVICE_STATE* pPciDeviceState);
EFI_STATUS VornElogSmmScreenPcieErrorNonFatalForDpRpPio(PCI_DEVICE_STATE* pPciDeviceState);
