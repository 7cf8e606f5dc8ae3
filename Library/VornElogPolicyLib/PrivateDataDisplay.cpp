#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/PrivateData.h"

static void DisplayTimestamp(UINT64 Level, const CHAR8* Name, const CPER_TIMESTAMP& Time) {
    Trace(Level, "  %a %02d%02d-%02d-%02d %02d:%02d:%02d Flags 0x%02x\n", Name, Time.Century, Time.Year, Time.Month,
          Time.Day, Time.Hours, Time.Minutes, Time.Seconds, Time.Flags);
}

void VornElogSmmDisplayPrivateDataPerRankData(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, UINT8 Rank) {
    if (!VornElogSmmIsDimmPlace(Socket, UmcChannel, Dimm)) {
        return;
    }
    if (Rank >= MAX_RANKS_PER_DIMM) {
        Trace(DEBUG_ERROR, "%a: ERROR Rank %d >= Max %d, aborting...\n", Rank, MAX_RANKS_PER_DIMM);
        return;
    }
    const RANK_DATA& Data = mPrivateDataVornElogPolicyLib.DimmData[Socket][UmcChannel][Dimm].Rank[Rank];
    Trace(Level, "%a: DimmData[Skt %d][Ch %d][Dimm %d].Rank[%d]\n", Socket, UmcChannel, Dimm, Rank);
    Trace(Level, "  Flags.WarnThresholdLogged %d\n", Data.Flags.WarnThresholdLogged);
    Trace(Level, "  Flags.WarnThresholdPprRequested %d\n", Data.Flags.WarnThresholdPprRequested);
    Trace(Level, "  Flags.CritThresholdLogged %d\n", Data.Flags.CritThresholdLogged);
    Trace(Level, "  Flags.CritThresholdPprRequested %d\n", Data.Flags.CritThresholdPprRequested);
    Trace(Level, "  CeccPfaCurrentErrorCount %d\n", Data.CeccPfaCurrentErrorCount);
    DisplayTimestamp(Level, "CeccPfaTimestampPreviousError", Data.CeccPfaTimestampPreviousError);
    DisplayTimestamp(Level, "CeccPfaTimestampCurrentError", Data.CeccPfaTimestampCurrentError);
}

void VornElogSmmDisplayPrivateDataPerDimmData(UINT64 Level, UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm) {
    if (!VornElogSmmIsDimmPlace(Socket, UmcChannel, Dimm)) {
        return;
    }
    const DIMM_DATA& Data = mPrivateDataVornElogPolicyLib.DimmData[Socket][UmcChannel][Dimm];
    const UINT8 Info = Data.CeccPfaData.SwThresholdInfo;
    Trace(Level, "%a: DimmData[Skt %d][Ch %d][Dimm %d]\n", Socket, UmcChannel, Dimm);
    Trace(Level, "  Flags.Present %d\n", Data.Flags.Present);
    Trace(Level, "  Flags.Enabled %d\n", Data.Flags.Enabled);
    Trace(Level, "  Flags.CeccSmiDisabled %d\n", Data.Flags.CeccSmiDisabled);
    Trace(Level, "  CeccPfaData.SwThresholdCount %d\n", Data.CeccPfaData.SwThresholdCount);
    Trace(Level, "  CeccPfaData.SwThresholdInfo.ThresholdType %d\n", SwThresholdInfo::ThresholdType::Get(Info));
    Trace(Level, "  CeccPfaData.SwThresholdInfo.ThresholdMultiplier %d\n",
          SwThresholdInfo::ThresholdMultiplier::Get(Info));
    Trace(Level, "  CeccPfaData.HwThresholdCount %d\n", Data.CeccPfaData.HwThresholdCount);
    Trace(Level, "  UmcEccErrCntRegInitData.EccErrThresh 0x%04x\n", Data.UmcEccErrCntRegInitData.EccErrThresh);
    Trace(Level, "  UmcEccErrCntRegInitData.EccErrCnt 0x%04x\n", Data.UmcEccErrCntRegInitData.EccErrCnt);
    Trace(Level, "  pUniqueRowIdentifierList 0x%016lx\n", reinterpret_cast<UINT64>(Data.pUniqueRowIdentifierList));
    Trace(Level, "  pVornMemorySlotInfo 0x%016lx\n", reinterpret_cast<UINT64>(Data.pVornMemorySlotInfo));
    Trace(Level, "  DimmIndex %d\n", Data.DimmIndex);
}

void VornElogSmmDisplayPrivateDataEsxiMemPageRetireDataPerEntry(UINT64 Level, UINT32 Index,
                                                                const ESXI_PAGE_RETIRE_ENTRY* pEsxiPageRetireEntry) {
    if (Index >= ESXI_PAGE_RETIRE_ENTRIES) {
        Trace(DEBUG_ERROR, "%a: ERROR Index %d >= Max %d, aborting...\n", Index, ESXI_PAGE_RETIRE_ENTRIES);
        return;
    }
    if (pEsxiPageRetireEntry == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pEsxiPageRetireEntry == NULL, aborting...\n");
        return;
    }
    const ESXI_PAGE_RETIRE_ENTRY& Entry = *pEsxiPageRetireEntry;
    const auto& Time = *reinterpret_cast<const CPER_TIMESTAMP*>(Entry.ApeiHestNotificationTimestamp);
    Trace(Level, "%a: OsEsxiPageRetireInfo[%d]\n", Index);
    Trace(Level, "  MemoryPageAddress 0x%016lx\n", Entry.MemoryPageAddress);
    Trace(Level, "  CeccErrorCount %d\n", Entry.CeccErrorCount);
    Trace(Level, "  ApeiHestNotificationAttempted %d\n", Entry.ApeiHestNotificationAttempted);
    Trace(Level, "  ApeiHestNotificationSuccessful %d\n", Entry.ApeiHestNotificationSuccessful);
    DisplayTimestamp(Level, "ApeiHestNotificationTimestamp", Time);
}
