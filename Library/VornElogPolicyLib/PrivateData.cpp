#include "Library/VornElogPolicyLib/PrivateData.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Protocol/RasService.h"
#include "Platform/State.h"

KYR_STATE VORN_ELOG_POLICY_PRIVATE_DATA mPrivateDataVornElogPolicyLib{};

// A counter overflow stands for at least one error and for 1/32 of what foretells the DIMM's failure.
static constexpr UINT32 HW_THRESHOLD_DIVISOR = 32;

// The counter raises its SMI when it passes this value.
static constexpr UINT16 ECC_ERR_CNT_MAX = 0xFFFF;

EFI_STATUS VornElogGetPrivateData(VORN_ELOG_POLICY_PRIVATE_DATA** ppPrivateData) {
    if (ppPrivateData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR ppPrivateData == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *ppPrivateData = &mPrivateDataVornElogPolicyLib;
    return EFI_SUCCESS;
}

BOOLEAN VornElogSmmDimmActiveCheck(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm) {
    if (!VornElogSmmIsDimmPlace(Socket, UmcChannel, Dimm)) {
        return FALSE;
    }
    const auto& Flags = mPrivateDataVornElogPolicyLib.DimmData[Socket][UmcChannel][Dimm].Flags;
    Trace(Level, "%a: Socket %d UmcChannel %d Dimm %d Present %d Enabled %d\n", Socket, UmcChannel, Dimm,
          Flags.Present, Flags.Enabled);
    return Flags.Present != FALSE && Flags.Enabled != FALSE;
}

EFI_STATUS VornElogSmmGetUmcEccErrCntInitData(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                              UmcEccErrCntRegInitData* pInitData) {
    if (pInitData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pInitData == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (!VornElogSmmIsDimmPlace(Socket, UmcChannel, Dimm)) {
        return EFI_INVALID_PARAMETER;
    }
    *pInitData = mPrivateDataVornElogPolicyLib.DimmData[Socket][UmcChannel][Dimm].UmcEccErrCntRegInitData;
    Trace(Level, "%a: Socket %d UmcChannel %d Dimm %d EccErrThresh 0x%04x EccErrCnt 0x%04x\n", Socket, UmcChannel,
          Dimm, pInitData->EccErrThresh, pInitData->EccErrCnt);
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmSetKyrRasPolicyDataForDiagnosticMode() {
    const EFI_STATUS Status = mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol->SetRasDiagnosticModeData();
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from pKyrRasServiceSmmProtocol->SetRasDiagnosticModeData, aborting...\n",
              Status);
    }
    return Status;
}

static void SeedThresholds(DIMM_DATA& Data) {
    const VORN_MEMORY_SLOT_INFO& Slot = *Data.pVornMemorySlotInfo;
    Data.CeccPfaData.SwThresholdCount = Slot.ThresholdCount;
    Data.CeccPfaData.SwThresholdInfo = Slot.ThresholdInfo;
    const UINT32 Share = Slot.ThresholdCount / HW_THRESHOLD_DIVISOR;
    Data.CeccPfaData.HwThresholdCount = Share == 0 ? 1 : Share;
    // Only the low 16 bits of a threshold fit into the counter.
    Data.UmcEccErrCntRegInitData.EccErrCnt =
        static_cast<UINT16>(ECC_ERR_CNT_MAX - static_cast<UINT16>(Data.CeccPfaData.HwThresholdCount));
    Data.UmcEccErrCntRegInitData.EccErrThresh = 0;
    if (mPrivateDataVornElogPolicyLib.RasErrorLoggingMode == RasDiagnosticMode) {
        Data.UmcEccErrCntRegInitData.EccErrCnt = ECC_ERR_CNT_MAX;  // every single error overflows
    }
}

void VornElogSmmSeedDimmData(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, VORN_MEMORY_SLOT_INFO* pSlotInfo,
                             UINT8 DimmIndex) {
    DIMM_DATA& Data = mPrivateDataVornElogPolicyLib.DimmData[Socket][UmcChannel][Dimm];
    Data.pVornMemorySlotInfo = pSlotInfo;
    Data.DimmIndex = DimmIndex;
    Data.Flags.Present = pSlotInfo->Populated;
    Data.Flags.Enabled = pSlotInfo->Enabled;
    if (!VornElogSmmDimmActiveCheck(mPrivateDataVornElogPolicyLib.SerDbgLevelDetailed, Socket, UmcChannel, Dimm)) {
        return;
    }

    const EFI_STATUS Status = AllocateRuntimeData(sizeof(LIST_ENTRY), &Data.pUniqueRowIdentifierList);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r allocating EfiRuntimeServicesData memory for CECC error history hash table\n", Status);
    } else {
        InitializeListHead(Data.pUniqueRowIdentifierList);
    }
    SeedThresholds(Data);
}
