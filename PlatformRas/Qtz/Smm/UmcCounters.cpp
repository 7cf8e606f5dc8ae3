#include "PlatformRas/Qtz/Smm/UmcCounters.h"

#include "Include/PlatformApeiData.h"
#include "Include/UmcRegisters.h"
#include "Library/RasLib/FabricTopology.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/Smn.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Protocol/RasService.h"
#include "PlatformRas/Qtz/Smm/DriverInit.h"
#include "PlatformRas/Qtz/Smm/UmcShadowCounters.h"

namespace {

// A counter that stands here has saturated.
constexpr UINT16 COUNTER_SATURATED = 0xFFFF;

// Programs one DIMM's counters. Every failure's status ORed.
EFI_STATUS ConfigureDimm(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, const CHAR8* Caller) {
    UmcEccErrCntRegInitData InitData{};
    const EFI_STATUS InitStatus =
        VornElogSmmGetUmcEccErrCntInitData(mSerDbgLevelDetailed, Socket, UmcChannel, Dimm, &InitData);
    if (EFI_ERROR(InitStatus)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r retrieving Skt %d Ch %2d Dimm %d Vorn UMC::EccErrCnt value, programming default "
                "PcdKyrDdrEccErrorCounterStartCount value\n",
                InitStatus, Socket, UmcChannel, Dimm);
        InitData.EccErrCnt = mPlatformApeiData->DdrEccErrorCounterStartCount;
    }
    const EFI_STATUS Status =
        mKyrRasServiceSmmProtocol->CorrectedErrorCounterPerDimm(Socket, UmcChannel, Dimm, &InitData);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from Skt %d Ch %2d Dimm %d KyrRasServiceSmmProtocol->CorrectedErrorCounterPerDimm\n",
                Status, Socket, UmcChannel, Dimm);
    }
    VornSetPrivateDataUmcCeccErrorCounterPerDimm(mSerDbgLevelDetailed, Socket, UmcChannel, Dimm,
                                                 EFI_ERROR(Status) ? UMC_COUNTER_INVALID : InitData.EccErrCnt);
    return (EFI_ERROR(InitStatus) ? InitStatus : EFI_SUCCESS) | (EFI_ERROR(Status) ? Status : EFI_SUCCESS);
}

// The counters of the chip select that an error lies in.
struct CHIP_SELECT_COUNTERS {
    UINT64 Level;
    UINT32 SegBus;
    UINT8 Socket;
    UINT8 UmcChannel;
    UINT8 ChipSelect;
    UmcEccErrCntRegInitData InitData;
};

UINT16 ReadCounter(const CHIP_SELECT_COUNTERS& Counters, UINT8 SubChannel, UINT8 RankMul) {
    const UINT32 Index = EccErrCntSel::SubChannel::Of(SubChannel) |
                         EccErrCntSel::ChipSelect::Of(Counters.ChipSelect) | EccErrCntSel::RankMul::Of(RankMul);
    RasSmnRW(Counters.SegBus, UmcSmnAddress(Counters.UmcChannel, UMC_ECC_ERR_CNT_SEL), EccErrCntSel::KEEP_MASK,
             Index);
    UINT32 Value = 0;
    RasSmnRead(Counters.SegBus, UmcSmnAddress(Counters.UmcChannel, UMC_ECC_ERR_CNT), &Value);
    return static_cast<UINT16>(EccErrCnt::Count::Get(Value));
}

// Starts a saturated counter again; what its shadow holds from now on.
UINT16 RestartCounter(const CHIP_SELECT_COUNTERS& Counters, UINT8 SubChannel, UINT8 RankMul, const CHAR8* Caller) {
    const EFI_STATUS Status = mKyrRasServiceSmmProtocol->CorrectedErrorCounterIndividual(
        Counters.Socket, Counters.UmcChannel, SubChannel, Counters.ChipSelect, RankMul, &Counters.InitData);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from Skt %d Ch %2d SubCh %d ChipSelect %d RankMul %d "
                "KyrRasServiceSmmProtocol->CorrectedErrorCounterIndividual\n",
                Status, Counters.Socket, Counters.UmcChannel, SubChannel, Counters.ChipSelect, RankMul);
        return UMC_COUNTER_INVALID;
    }
    return Counters.InitData.EccErrCnt;
}

// Reads the sixteen counters and lets their shadows follow. Returns what they took since, invalid shadows included,
// in 16 bits that wrap.
UINT16 UpdateCounters(const CHIP_SELECT_COUNTERS& Counters, const CHAR8* Caller) {
    UINT16 After = 0;
    for (UINT8 SubChannel = 0; SubChannel < UMC_SUB_CHANNELS; SubChannel++) {
        for (UINT8 RankMul = 0; RankMul < UMC_RANK_MULTIPLIERS; RankMul++) {
            const UINT16 Count = ReadCounter(Counters, SubChannel, RankMul);
            const UINT16 Shadow = VornGetPrivateDataUmcCeccErrorCounter(
                Counters.Level, Counters.Socket, Counters.UmcChannel, SubChannel, Counters.ChipSelect, RankMul);
            After = static_cast<UINT16>(After + Count - Shadow);
            const UINT16 NewShadow =
                Count == COUNTER_SATURATED ? RestartCounter(Counters, SubChannel, RankMul, Caller) : Count;
            VornSetPrivateDataUmcCeccErrorCounter(Counters.Level, Counters.Socket, Counters.UmcChannel, SubChannel,
                                                  Counters.ChipSelect, RankMul, NewShadow);
        }
    }
    return After;
}

// Traced where the channel does not count, or does not answer: then its counters would all seem saturated.
bool IsCountingEnabled(const CHIP_SELECT_COUNTERS& Counters, const CHAR8* Caller) {
    UINT32 Control = 0;
    RasSmnRead(Counters.SegBus, UmcSmnAddress(Counters.UmcChannel, UMC_ECC_ERR_CNT_CTRL), &Control);
    TraceAs(Caller, Counters.Level, "%a: UMC:EccErrCntCtrl 0x%08x EccErrCntEn %d EccErrInt %d\n", Control,
            EccErrCntCtrl::EccErrCntEn::Get(Control), EccErrCntCtrl::EccErrInt::Get(Control));
    if (Control == SMN_NO_ANSWER) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR UMC:EccErrCntCtrl of Skt %d Ch %2d does not answer, aborting...\n",
                Counters.Socket, Counters.UmcChannel);
        return false;
    }
    if (EccErrCntCtrl::EccErrCntEn::Get(Control) == 0) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR UMC:EccErrCntCtrl.EccErrCntEn = 0 (thresholding disabled), aborting...\n");
        return false;
    }
    return true;
}

// Finds the counters of the error's chip select. Channel: logical channel of the DIMM.
EFI_STATUS FindCounters(UINT64 Level, const MACHINE_CHECK_SUPPORT_DATA& Data, UINT8 Channel,
                        CHIP_SELECT_COUNTERS* pCounters, const CHAR8* Caller) {
    const NORMALIZED_ADDRESS& Address = Data.NormalizedAddressInfo;
    const DIMM_INFO& Dimm = Data.DimmInfo;
    UINT8 Bus = 0;
    UINT8 Segment = 0;
    if (EFI_ERROR(AcquireIoHubSSecSegBusNum(mRbBusMap, Address.Socket, 0, 0, &Bus, &Segment)) ||
        !VornElogSmmDimmActiveCheck(Level, Address.Socket, Channel, Dimm.DimmOnCh)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR Skt %d Ch %2d Dimm %d not reachable or not active, aborting...\n",
                Address.Socket, Channel, Dimm.DimmOnCh);
        return EFI_NOT_FOUND;
    }
    *pCounters = {Level, SmnSegBus(Segment, Bus), Address.Socket, Address.UmcChannel, Dimm.ChipSelect, {}};
    const EFI_STATUS Status =
        VornElogSmmGetUmcEccErrCntInitData(Level, Address.Socket, Channel, Dimm.DimmOnCh, &pCounters->InitData);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from VornElogSmmGetUmcEccErrCntInitData, programming default "
                "PcdKyrDdrEccErrorCounterStartCount value\n",
                Status);
        pCounters->InitData.EccErrCnt = mPlatformApeiData->DdrEccErrorCounterStartCount;
    }
    return EFI_SUCCESS;
}

}  // namespace

EFI_STATUS VornConfigureUmcEccErrCntRegisters() {
    EFI_STATUS Status = EFI_SUCCESS;
    for (UINT8 Socket = 0; Socket < MAX_SOCKETS; Socket++) {
        for (UINT8 UmcChannel = 0; UmcChannel < MAX_UMC_CHANNELS; UmcChannel++) {
            for (UINT8 Dimm = 0; Dimm < MAX_DIMMS_PER_CHANNEL; Dimm++) {
                if (VornElogSmmDimmActiveCheck(mSerDbgLevelDetailed, Socket, UmcChannel, Dimm)) {
                    Status |= ConfigureDimm(Socket, UmcChannel, Dimm, __func__);
                }
            }
        }
    }
    VornDisplayPrivateDataUmcCeccErrorCounterAll(DEBUG_VERBOSE);
    return Status;
}

EFI_STATUS VornGetUmcCeccErrorCounterDelta(UINT64 Level, const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                           UmcCeccPfaThresholdData* pThresholdData) {
    if (pKyrChipsetSupportData == nullptr || pThresholdData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pThresholdData = {};
    const MACHINE_CHECK_SUPPORT_DATA& Data = pKyrChipsetSupportData->MachineCheck;
    const NORMALIZED_ADDRESS& Address = Data.NormalizedAddressInfo;
    const UINT8 Channel = static_cast<UINT8>(Address.UmcChannel + 2 * Address.Die);
    CHIP_SELECT_COUNTERS Counters{};
    const EFI_STATUS Status = FindCounters(Level, Data, Channel, &Counters, __func__);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    if (!IsUmcChipSelect(Counters.Socket, Counters.UmcChannel, Counters.ChipSelect)) {
        return EFI_INVALID_PARAMETER;
    }
    UINT16 Before = 0;
    VornGetPrivateDataUmcCeccErrorCounterPerChipSelect(Level, Counters.Socket, Counters.UmcChannel,
                                                       Counters.ChipSelect, Counters.InitData.EccErrCnt, &Before);
    if (!IsCountingEnabled(Counters, __func__)) {
        return EFI_UNSUPPORTED;
    }
    const UINT16 After = UpdateCounters(Counters, __func__);
    UINT16 Delta = static_cast<UINT16>(After - Before);
    if (After < Before) {
        Trace(DEBUG_ERROR,
              "%a: ERROR CeccErrorCountAccumulatedPerPhysRankAfterUpdate 0x%04x < "
              "CeccErrorCountAccumulatedPerPhysRankBeforeUpdate 0x%04x\n",
              After, Before);
        Delta = UMC_DELTA_INVALID;
    }
    *pThresholdData = {
        TRUE, Address.Socket, Channel, Data.DimmInfo.ChipSelect, Data.DimmInfo.DimmOnCh, Data.DimmInfo.RankOnDimm,
        Delta};
    Trace(Level, "%a: Skt %d Ch %2d ChipSelect %d Dimm %d Rank %d EccErrCntDelta 0x%04x\n", pThresholdData->Socket,
          pThresholdData->Channel, pThresholdData->ChipSelect, pThresholdData->Dimm, pThresholdData->DimmPhysRank,
          pThresholdData->EccErrCntDelta);
    return EFI_SUCCESS;
}
