#include "Library/VornElogChipsetLib/SmiStormScaling.h"

#include "Library/RasLib/CommunicationBuffer.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/SmiHandler.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/ChipsetLib.h"
#include "Platform/Guids.h"
#include "Platform/State.h"

// The registration, NULL while none stands, and the count, NULL before it was handed over.
static KYR_STATE EFI_HANDLE mScalingDispatchHandle = nullptr;
static KYR_STATE UINT32* mpCxlEndpointDevCntSystemWide = nullptr;

EFI_STATUS RegisterSmiStormScalingHandler(const CHAR8* Caller) {
    const EFI_STATUS Status = RegisterSmiHandler(VornGetSmiStormThresholdScalingData,
                                                 gVornRasDxeSmiStormScalingDataHoistToSmram, &mScalingDispatchHandle);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from gSmst->SmiHandlerRegister to register SMI handler "
                "VornGetSmiStormThresholdScalingData on gVornRasDxeSmiStormScalingDataHoistToSmram %g\n",
                Status, &gVornRasDxeSmiStormScalingDataHoistToSmram);
    }
    return Status;
}

EFI_STATUS UnregisterSmiStormScalingHandler(const CHAR8* Caller) {
    return mScalingDispatchHandle == nullptr
               ? EFI_SUCCESS
               : UnregisterSmiHandler(&mScalingDispatchHandle, gVornRasDxeSmiStormScalingDataHoistToSmram, Caller);
}

EFI_STATUS VornGetSmiStormThresholdScalingData(EFI_HANDLE, const void*, void* CommBuffer, UINTN* pCommBufferSize) {
    if (!IsCommunicationBufferValid(CommBuffer, pCommBufferSize, sizeof(SMI_STORM_SCALING_COMM_DATA))) {
        return EFI_INVALID_PARAMETER;
    }
    // A handler that could not be taken back may be called again: its block takes the newer count.
    if (mpCxlEndpointDevCntSystemWide == nullptr) {
        const EFI_STATUS Status =
            AllocateRuntimeData(sizeof(*mpCxlEndpointDevCntSystemWide), &mpCxlEndpointDevCntSystemWide);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR,
                  "%a: ERROR %r allocating EfiRuntimeServicesData memory for SMI storm scaling data, aborting...\n",
                  Status);
            return Status;
        }
    }
    CopyMem(
        mpCxlEndpointDevCntSystemWide,
        static_cast<const UINT8*>(CommBuffer) + offsetof(SMI_STORM_SCALING_COMM_DATA, CxlEndpointDevCntSystemWide),
        sizeof(*mpCxlEndpointDevCntSystemWide));
    Trace(mPrivateDataVornElogChipsetLib.SerDbgLevel, "%a: CxlEndpointDevCntSystemWide %d\n",
          *mpCxlEndpointDevCntSystemWide);
    return UnregisterSmiStormScalingHandler();
}

UINT32 CxlEndpointDevCntSystemWide() {
    return mpCxlEndpointDevCntSystemWide == nullptr ? 0 : *mpCxlEndpointDevCntSystemWide;
}
