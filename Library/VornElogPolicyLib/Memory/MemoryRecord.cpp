#include "Library/VornElogPolicyLib/Memory/MemoryRecord.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/DimmLocation.h"
#include "Library/VornElogChipsetLib/SelMemory.h"
#include "Library/VornElogPolicyLib/MachineCheck/Filing.h"
#include "Library/VornElogPolicyLib/MachineCheck/ThresholdDisable.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"
#include "Library/VornElogPolicyLib/Storm/SmiStorm.h"

// SEL event of a memory controller whose interrupt source was switched off.
static constexpr UINT8 STORM_EVENT_DATA1 = 0x24;
static constexpr UINT8 STORM_EVENT_DATA2 = 0xF0;

static void LogStorm(const MACHINE_CHECK_SUPPORT_DATA& Data, bool IsEccError, const CHAR8* Caller) {
    if (Data.ValidNormalizedAddressInfoPsp == FALSE) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: PSP normalized address data unavailable, not able to log SEL MEM record for SMI storm\n");
        return;
    }
    const bool IsDimmKnown = (Data.DimmInfo.ValidBits & (DimmInfoValid::AddressTranslationData::Mask |
                                                         DimmInfoValid::ChipSelectFromSyndrome::Mask)) != 0;
    const UINT8 Dimms = IsDimmKnown ? 1 : MAX_DIMMS_PER_CHANNEL;
    for (UINT8 Dimm = 0; Dimm < Dimms; Dimm++) {
        // The loop index is not passed on: a DIMM that was not decoded yields two identical records, which is meant.
        ElogLogMemoryEvent(
            SENSOR_MEMORY_THRESHOLD, STORM_EVENT_DATA1, static_cast<UINT8>(STORM_EVENT_DATA2 | (IsEccError ? 1 : 0)),
            static_cast<UINT8>(ElogGetDimmLocation(Data.NormalizedAddressInfo.Socket,
                                                   Data.NormalizedAddressInfo.UmcChannel, Data.DimmInfo.DimmOnCh)));
    }
}

// A corrected error may be one too many: the counter that raised it is switched off then and not re-armed.
static void StopCorrectedStorm(const ERROR_RECORD_BUFFER_ENTRY& Entry, KYR_CHIPSET_SUPPORT_DATA& Callers,
                               const CHAR8* Caller) {
    MACHINE_CHECK_SUPPORT_DATA& Data = Callers.MachineCheck;
    MCA_BANK_ERROR_INFO& Bank = Data.RasMcaErrorInfo.McaBankErrorInfo[Data.McaBankIndex];
    const bool IsEccError = McaStatus::ErrorCodeExt::Get(Bank.McaStatus) == UmcErrorCodeExt::DRAM_ECC;
    if (IsEccError && mPrivateDataVornElogPolicyLib.RasErrorLoggingMode == RasProductionMode) {
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel,
                "%a: UMC ECC corrected machine check deteced in threshold mode, skip SMI storm check\n");
        return;
    }
    if (!IsStormDetected(Entry.pCper, Entry.pKyrChipsetSupportData, Caller)) {
        return;
    }
    UINT64& Misc = IsEccError ? Bank.McaMisc0 : Bank.McaMisc1;
    Misc = McaMisc::Ovrflw::Set(Misc, 0);
    // 0 names the counter of ECC errors here; a processor's record of any memory controller's bank asks for 1.
    if (!EFI_ERROR(VornElogSmmDisableThreshold(*Entry.pKyrChipsetSupportData, IsEccError ? 0 : 1, Caller))) {
        LogStorm(Data, IsEccError, Caller);
    }
}

void VornElogSmmProcessErrorRecordMemory(const CPER_RECORD* pCper, KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    if (!VornElogSmmIsBankRecord(pCper, pKyrChipsetSupportData)) {
        return;
    }
    if (!IsSectionType(pCper, gCperSectionPlatformMemoryGuid)) {
        Trace(DEBUG_ERROR, "%a: ERROR Supported CPER format not found, aborting...\n");
        return;
    }
    ERROR_RECORD_BUFFER_ENTRY Entry;
    if (!VornElogSmmMakeBankEntry(pCper, pKyrChipsetSupportData, &Entry)) {
        return;
    }
    // Unlike a processor's, a corrected memory record is kept in every mode: it is counted at the end of the SMI.
    VornElogSmmFileEntry(Entry, true);
    if (Entry.MceClass == MceClassCorrected) {
        StopCorrectedStorm(Entry, *pKyrChipsetSupportData, __func__);
    } else if (Entry.MceClass == MceClassTransparent && IsStormDetected(Entry.pCper, Entry.pKyrChipsetSupportData)) {
        VornElogSmmDisableTransparentErrorLogging(*Entry.pKyrChipsetSupportData);
    }
}

EFI_STATUS VornElogSmmGetMemErrorLocation(const CPER_RECORD* pCper) {
    if (pCper == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pCper == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (!IsRecordFrontComplete(pCper) || !IsSectionType(pCper, gCperSectionPlatformMemoryGuid)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR Unable to detect CPER Memory record Descriptor->SectionType = "
              "gErrRecordPlatformMemErrGuid, aborting...\n");
        return EFI_NOT_FOUND;
    }
    const auto Section = SectionField<CPER_MEMORY_SECTION>(pCper, 0);
    if (!IsMemoryLocationValid(Section.ValidationBits)) {
        Trace(DEBUG_ERROR, "%a: ERROR CPER node, card, and/or module data invalid, aborting...\n");
        return EFI_NOT_FOUND;
    }
    MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    Location.Socket = static_cast<UINT8>(Section.Node);
    Location.Channel = static_cast<UINT8>(Section.Card);
    Location.Dimm = static_cast<UINT8>(Section.Module);
    Location.Rank = static_cast<UINT8>(Section.RankNumber);
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: Skt %d Ch %d Dimm %d Rank %d\n", Location.Socket,
          Location.Channel, Location.Dimm, Location.Rank);
    return EFI_SUCCESS;
}

bool VornElogSmmIsMemErrLocationActive(const CHAR8* Caller) {
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    UINT8 Present = FALSE;
    UINT8 Enabled = FALSE;
    // A rank that no DIMM has stands for a DIMM that is not there, as a chip select from the syndrome can give one.
    if (VornElogSmmIsDimmPlace(Location.Socket, Location.Channel, Location.Dimm, Caller) &&
        Location.Rank < MAX_RANKS_PER_DIMM) {
        const DIMM_DATA& Dimm =
            mPrivateDataVornElogPolicyLib.DimmData[Location.Socket][Location.Channel][Location.Dimm];
        Present = Dimm.Flags.Present;
        Enabled = Dimm.Flags.Enabled;
    }
    if (Present == FALSE || Enabled == FALSE) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR mPrivateDataVornElogPolicyLib.DimmData[Skt %d][Ch %d][Dimm %d].Flags Present %d "
                "Enabled %d, aborting...\n",
                Location.Socket, Location.Channel, Location.Dimm, Present, Enabled);
        return false;
    }
    return true;
}
