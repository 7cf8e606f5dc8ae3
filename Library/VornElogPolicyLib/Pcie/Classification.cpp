#include "Library/VornElogPolicyLib/Pcie/Classification.h"

#include "Library/VornElogPolicyLib/Cxl/CxlComponentEvents.h"
#include "Library/VornElogPolicyLib/Cxl/CxlProtocolError.h"
#include "Library/VornElogPolicyLib/Pcie/AerClasses.h"
#include "Library/VornElogPolicyLib/Pcie/CxlErrorChecks.h"
#include "Library/VornElogPolicyLib/Pcie/DpcEvent.h"
#include "Library/VornElogPolicyLib/Pcie/FunctionAccess.h"
#include "Library/VornElogPolicyLib/Pcie/HandleFlags.h"
#include "Library/VornElogPolicyLib/Pcie/HotRemoval.h"
#include "Library/VornElogPolicyLib/Pcie/LegacyPciErrors.h"
#include "Library/VornElogPolicyLib/Pcie/PcieRecord.h"
#include "Library/VornElogPolicyLib/Pcie/RpPio.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

namespace {

// Where no containment was triggered. Each check passes over functions that it is not for: those without DPC and its
// RP extensions, without CXL 2.0 registers. The order matters: a check looks at what those before it have found.
using CLASS_CHECK = EFI_STATUS (*)(PCI_DEVICE_STATE* pPciDeviceState);
constexpr CLASS_CHECK ClassChecks[] = {
    VornElogSmmCheckRpPioErrors,
    VornElogSmmCheckCxlProtocolErrorFatal,
    VornElogSmmCheckCxlProtocolErrorNonFatal,
    VornElogSmmCheckPcieErrorFatal,
    VornElogSmmScreenPcieErrorFatalForDpRpPio,
    VornElogSmmCheckPcieErrorUnsupportedRequest,
    VornElogSmmCheckPcieErrorNonFatal,
    VornElogSmmScreenPcieErrorNonFatalForDpRpPio,
    VornElogSmmCheckCxlProtocolErrorCorrectable,
    VornElogSmmCheckPcieErrorCorrectable,
};

}  // namespace

EFI_STATUS VornElogSmmIsPciErrorSignaled(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    if (pPciDeviceState->PcieCapabilityOffset == 0) {
        return VornElogSmmCheckLegacyPciDeviceErrors(pPciDeviceState);
    }
    if (IsDpcCapablePort(*pPciDeviceState)) {
        VornElogSmmCheckPcieErrorDpc(pPciDeviceState);
    }
    VornElogSmmCheckPcieHotRemoval(pPciDeviceState);
    PCIE_ERROR_STATUS& Flags = pPciDeviceState->Pcie.ErrorStatus;
    if (Flags.DetectedDpcEvent != FALSE && Flags.DetectedHotRemoval != FALSE) {
        const PCI_SBDF At = SbdfOf(pPciDeviceState->PciAddress);
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
              "%a: SBDF %04X:%02X:%02X.%1X PCIe device hot removal detected, clear DPC status\n", At.Seg, At.Bus,
              At.Dev, At.Func);
        Flags.HandleDpcEvent = FALSE;
        Flags.ClearDpcEvent = TRUE;
    }
    // The containment event stands for the errors that triggered it.
    if (Flags.DetectedDpcEvent != FALSE) {
        return EFI_SUCCESS;
    }
    for (const CLASS_CHECK Check : ClassChecks) {
        Check(pPciDeviceState);
    }
    const EFI_STATUS Status = VornElogSmmCheckCxlComponentErrorStatus(pPciDeviceState);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from VornElogSmmCheckCxlComponentErrorStatus\n", Status);
    }
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmHandlePciDeviceError(PCI_DEVICE_STATE* pPciDeviceState) {
    if (!IsDeviceStateGiven(pPciDeviceState)) {
        return EFI_INVALID_PARAMETER;
    }
    const PCIE_ERROR_STATUS& Pcie = pPciDeviceState->Pcie.ErrorStatus;
    const CXL_ERROR_STATUS& Cxl = pPciDeviceState->Cxl.ErrorStatus;
    if (pPciDeviceState->PcieCapabilityOffset == 0) {
        if (pPciDeviceState->LegacyPci.Handle != FALSE) {
            VornElogSmmHandlePciError(pPciDeviceState);
        }
        return EFI_SUCCESS;
    }
    if (Pcie.HandleDpcEvent != FALSE) {
        VornElogSmmHandlePcieDpcEvent(pPciDeviceState);
        return EFI_SUCCESS;
    }
    if (IsPcieErrorHandled(Pcie)) {
        VornElogSmmHandlePciError(pPciDeviceState);
    }
    if (IsCxlProtocolErrorHandled(Cxl)) {
        VornElogSmmHandleCxlProtocolError(pPciDeviceState);
    }
    if (Cxl.ComponentDetected != FALSE) {
        VornElogSmmHandleCxlComponentError(pPciDeviceState);
    }
    return EFI_SUCCESS;
}
