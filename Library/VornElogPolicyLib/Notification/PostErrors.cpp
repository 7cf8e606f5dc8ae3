#include "Library/VornElogPolicyLib/Notification/PostErrors.h"

#include "Library/RasLib/CommunicationBuffer.h"
#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/SmiHandler.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/SelRegisters.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/VendorServices.h"
#include "Platform/State.h"

// The message-code area follows one byte that is skipped.
static constexpr UINTN MESSAGE_CODE_AREA_OFFSET = 1;

// Error flags of the SEL event.
static constexpr UINT8 ERROR_INFO_POST_ERRORS = 0x01;

KYR_STATE static EFI_HANDLE mPostErrorsHandle = nullptr;

EFI_STATUS VornElogSmmRegisterPostErrorsHandler() {
    return RegisterSmiHandler(VornElogSmmProcessPostErrors, gElogLogPOSTErrorToBMCGuid, &mPostErrorsHandle);
}

static EFI_STATUS Unregister(EFI_HANDLE DispatchHandle, const CHAR8* Caller = __builtin_FUNCTION()) {
    const EFI_STATUS Status = gSmst->SmiHandlerUnRegister(DispatchHandle);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from SmiHandlerUnRegister for gElogLogPOSTErrorToBMCGuid %g\n",
                Status, &gElogLogPOSTErrorToBMCGuid);
    } else {
        mPostErrorsHandle = nullptr;
    }
    return Status;
}

EFI_STATUS VornElogSmmUnregisterPostErrorsHandler() {
    return mPostErrorsHandle == nullptr ? EFI_SUCCESS : Unregister(mPostErrorsHandle);
}

// Tells SEL and BMC of the errors that wait; EFI_NOT_FOUND when there are none.
static EFI_STATUS ForwardErrors(const VORN_ELOG_IPMI_SMM_PROTOCOL& Ipmi, UINT16 BmcErrorCount, const CHAR8* Caller) {
    if (BmcErrorCount == 0) {
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: BmcErrorCount is zero, returning...\n");
        return EFI_NOT_FOUND;
    }
    ElogLogErrorInfo(ERROR_INFO_POST_ERRORS, 0);
    const EFI_STATUS Status = Ipmi.SendBmcData();
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from SendBmcData\n", Status);
    }
    return Status;
}

EFI_STATUS VornElogSmmProcessPostErrors(EFI_HANDLE DispatchHandle, const void*, void* CommBuffer,
                                        UINTN* CommBufferSize) {
    if (!IsCommunicationBufferValid(CommBuffer, CommBufferSize, MESSAGE_CODE_AREA_OFFSET + 1)) {
        return EFI_INVALID_PARAMETER;
    }
    const VORN_ELOG_IPMI_SMM_PROTOCOL* pIpmi = nullptr;
    EFI_STATUS Status = LocateSmmProtocol(gVornElogIpmiSmmProtocolGuid, &pIpmi);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gVornElogIpmiSmmProtocolGuid %g, aborting...\n", Status,
              &gVornElogIpmiSmmProtocolGuid);
        return Status;
    }
    const VORN_ELOG_IPMI_SMM_PROTOCOL& Ipmi = *pIpmi;

    Status = Ipmi.GetPostMessageCodes(static_cast<const UINT8*>(CommBuffer) + MESSAGE_CODE_AREA_OFFSET);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from GetPostMessageCodes\n", Status);
    }
    Status = Ipmi.GetIpmiTransportProtocol();
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from GetIpmiTransportProtocol, aborting...\n", Status);
        return Status;
    }
    UINT16 BmcErrorCount = 0;
    Status = Ipmi.GetBmcErrorCount(&BmcErrorCount);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from GetBmcErrorCount, aborting...\n", Status);
        return Status;
    }
    Status = ForwardErrors(Ipmi, BmcErrorCount, __func__);
    Unregister(DispatchHandle);
    return Status;
}
