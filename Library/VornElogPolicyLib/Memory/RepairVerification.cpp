#include "Library/VornElogPolicyLib/Memory/RepairVerification.h"

#include "Include/DramAddress.h"
#include "Include/McaErrorInfo.h"
#include "Include/MemorySlots.h"
#include "Include/UmcRegisters.h"
#include "Library/RasLib/FabricTopology.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/ProcessorAccess.h"
#include "Library/RasLib/Smn.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/AddressTranslation.h"
#include "Library/VornElogPolicyLib/Memory/HealthEvent.h"
#include "Library/VornElogPolicyLib/Memory/RuntimePprState.h"
#include "Platform/State.h"

KYR_STATE UINT32 mRtPprThresholdInterruptMode = 1;

static constexpr UINT32 SCRUB_POLLS = 200;
static constexpr UINT64 SCRUB_POLL_MICROSECONDS = 1;
static constexpr UINT64 SCRUB_ADDRESS_MASK = ~UINT64{63};

// Of MemoryErrorCounterMode: the memory controllers count, not the machine-check banks.
static constexpr UINT8 COUNTER_MODE_UMC = 1;

// The memory controller's channel of an entry.
struct UMC_CHANNEL {
    UINT32 SegBus;  // of the socket's IO hub 0
    UINT8 UmcChannel;
};

static UINT32 ReadUmc(const UMC_CHANNEL& Umc, UINT32 Register) {
    UINT32 Value = 0;
    RasSmnRead(Umc.SegBus, UmcSmnAddress(Umc.UmcChannel, Register), &Value);
    return Value;
}

static bool FindUmc(const RUNTIME_PPR_CHECK_ENTRY& Entry, UMC_CHANNEL* pUmc) {
    UINT8 Bus = 0;
    UINT8 Segment = 0;
    const EFI_STATUS Status = AcquireIoHubSSecSegBusNum(mRbBusMap, Entry.Socket, 0, 0, &Bus, &Segment);
    if (EFI_ERROR(Status) || Entry.UmcChannel >= MAX_UMC_CHANNELS) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR %r finding UMC channel %d of socket %d\n", __func__, Status,
              Entry.UmcChannel, Entry.Socket);
        return false;
    }
    *pUmc = {SmnSegBus(Segment, Bus), Entry.UmcChannel};
    if (ReadUmc(*pUmc, UMC_DRAM_SCRUB_CTRL) == SMN_NO_ANSWER) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR UMC channel %d of socket %d does not answer\n", __func__,
              Entry.UmcChannel, Entry.Socket);
        return false;
    }
    return true;
}

static UINT64 ReadScrubAddress(const UMC_CHANNEL& Umc) {
    const UINT64 Low = ReadUmc(Umc, UMC_DRAM_SCRUB_ADDR_LO);
    return UINT64{ReadUmc(Umc, UMC_DRAM_SCRUB_ADDR_HI)} << 32 | Low;
}

static void WriteScrubAddress(const UMC_CHANNEL& Umc, UINT64 Address) {
    const UINT32 Low = static_cast<UINT32>(Address);
    const UINT32 High = static_cast<UINT32>(Address >> 32);
    RasSmnWrite(Umc.SegBus, UmcSmnAddress(Umc.UmcChannel, UMC_DRAM_SCRUB_ADDR_LO), &Low);
    RasSmnWrite(Umc.SegBus, UmcSmnAddress(Umc.UmcChannel, UMC_DRAM_SCRUB_ADDR_HI), &High);
}

static bool IsScrubberEnabled(const UMC_CHANNEL& Umc) {
    return DramScrubCtrl::Enable::Get(ReadUmc(Umc, UMC_DRAM_SCRUB_CTRL)) != 0;
}

static void DisableScrubber(const UMC_CHANNEL& Umc) {
    RasSmnRW(Umc.SegBus, UmcSmnAddress(Umc.UmcChannel, UMC_DRAM_SCRUB_CTRL), ~DramScrubCtrl::Enable::Mask, 0);
    if (IsScrubberEnabled(Umc)) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR] Disable patrol scrubber: Failed\n");
    }
}

static void EnableScrubber(const UMC_CHANNEL& Umc) {
    RasSmnRW(Umc.SegBus, UmcSmnAddress(Umc.UmcChannel, UMC_DRAM_SCRUB_CTRL), ~UINT32{0}, DramScrubCtrl::Enable::Mask);
    if (!IsScrubberEnabled(Umc)) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR] Enable patrol scrubber: Failed\n");
    }
}

// First address of the bank group that the row lies in; false when it cannot be told.
static bool TranslateRow(const RUNTIME_PPR_CHECK_ENTRY& Entry, UINT64* pAddress) {
    const UINT8 BankAddressBits = GetNumOfBABits(Entry.Socket, Entry.UmcChannel, Entry.ChipSelect);
    if (BankAddressBits < 8 * sizeof(Entry.Bank)) {
        DRAM_ADDRESS DramAddress{};
        DramAddress.ChipSelect = Entry.ChipSelect;
        DramAddress.Bank = static_cast<UINT8>(Entry.Bank >> BankAddressBits << BankAddressBits);
        DramAddress.Row = Entry.Row;
        DramAddress.Column = Entry.Column;
        DramAddress.RankMultiplier = Entry.RankMul;
        DramAddress.SubChannel = Entry.SubChannel;
        NORMALIZED_ADDRESS Normalized{};
        mKyrRasServiceSmmProtocol->DramToNormalized(Entry.Socket, 0, Entry.UmcChannel, &DramAddress, &Normalized);
        *pAddress = Normalized.NormalizedAddress;
        if (*pAddress != NORMALIZED_ADDRESS_TRANSLATION_FAILED) {
            return true;
        }
    }
    Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR no normalized address for row 0x%x, bank %d of chip select %d\n",
          __func__, Entry.Row, Entry.Bank, Entry.ChipSelect);
    return false;
}

static UINT64 ScrubStartAddress(const RUNTIME_PPR_CHECK_ENTRY& Entry) {
    UINT64 Address = 0;
    if (Entry.EntryType != RUNTIME_PPR_ENTRY_DRAM_ADDRESS || !TranslateRow(Entry, &Address)) {
        Address = Entry.NormalizedAddress == 0 ? 0 : Entry.NormalizedAddress - 1;
    }
    return Address & SCRUB_ADDRESS_MASK;
}

// Lets the scrubber run until it is past the row.
static void Scrub(const UMC_CHANNEL& Umc, UINT64 RowAddress) {
    EnableScrubber(Umc);
    for (UINT32 Poll = 0; Poll < SCRUB_POLLS; Poll++) {
        const UINT64 Current = ReadScrubAddress(Umc);
        MicroSecondDelay(SCRUB_POLL_MICROSECONDS);
        if (Current > RowAddress) {
            return;
        }
    }
    Trace(DEBUG_ERROR, "[RAS Runtime PPR] Timeout while waiting for scrubbing done.\n");
}

// All ones when the processor does not answer: that is no clean bank.
static UINT64 ReadBank(const RUNTIME_PPR_CHECK_ENTRY& Entry, UINT32 Register) {
    RAS_MSR_ACCESS Access = {
        .MsrAddress = McaMsr(Entry.McaBankNumber, Register), .MsrValue = ~UINT64{0}, .IsWrite = FALSE};
    RasSmmMsrAccess(Entry.CpuInfo.ProcessorNumber, &Access);
    return Access.MsrValue;
}

static UINT8 JudgeBank(const RUNTIME_PPR_CHECK_ENTRY& Entry) {
    const UINT64 Status = ReadBank(Entry, MCA_STATUS);
    const bool IsPassed = Status == 0;
    if (!IsPassed) {
        Trace(DEBUG_ERROR,
              "[RAS Runtime PPR] Processor %d Bank %d MCA_STATUS 0x%016lx MCA_ADDR 0x%016lx MCA_SYND 0x%016lx\n",
              Entry.CpuInfo.ProcessorNumber, Entry.McaBankNumber, Status, ReadBank(Entry, MCA_ADDR),
              ReadBank(Entry, MCA_SYND));
    }
    Trace(DEBUG_INFO, "[RAS Runtime PPR] Scrubbing Done.  Runtime PPR repair result: %a.\n",
          IsPassed ? "Passed" : "Failed");
    return IsPassed ? RuntimePprPassed : RuntimePprFailed;
}

static void ClearBank(const RUNTIME_PPR_CHECK_ENTRY& Entry) {
    const EFI_STATUS Status =
        mKyrRasServiceSmmProtocol->ClrMcaStatus(Entry.CpuInfo.ProcessorNumber, Entry.McaBankNumber, FALSE);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR %r from ClrMcaStatus on Processor %d Bank %d\n", __func__,
              Status, Entry.CpuInfo.ProcessorNumber, Entry.McaBankNumber);
    }
}

static void AdjustErrCounter(BOOLEAN Adjust, UINT32 EntryIndex) {
    const EFI_STATUS Status = RtPprAdjustErrCounter(Adjust, EntryIndex);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR %r from RtPprAdjustErrCounter (%d)\n", __func__, Status,
              Adjust);
    }
}

// Scrubs the entry's row and looks at its bank. A row that cannot be scrubbed does not pass.
static UINT8 VerifyEntry(UINT32 EntryIndex) {
    const RUNTIME_PPR_CHECK_ENTRY& Entry = mChkRtPprComplStruct[EntryIndex];
    UMC_CHANNEL Umc{};
    if (!FindUmc(Entry, &Umc) || Entry.McaBankNumber >= MCA_BANK_ERROR_INFO_MAX) {
        return RuntimePprFailed;
    }
    const UINT64 SavedScrubAddress = ReadScrubAddress(Umc);
    if (IsScrubberEnabled(Umc)) {
        DisableScrubber(Umc);
    }
    WriteScrubAddress(Umc, ScrubStartAddress(Entry));
    ClearBank(Entry);
    AdjustErrCounter(TRUE, EntryIndex);
    Scrub(Umc, Entry.NormalizedAddress);
    const UINT8 Result = JudgeBank(Entry);
    // Off also where it was on before, which is meant.
    DisableScrubber(Umc);
    WriteScrubAddress(Umc, SavedScrubAddress);
    if (Result == RuntimePprFailed) {
        ClearBank(Entry);
    }
    AdjustErrCounter(FALSE, EntryIndex);
    return Result;
}

BOOLEAN IsRtPprRepairedSuccess() {
    if (mRtPprEn == FALSE || mPspRtPprComplFlag == FALSE) {
        return FALSE;
    }
    if (RtPprRepairStatus != 0) {
        ResetRuntimePprState();
        return FALSE;
    }
    UINT8 Results[RUNTIME_PPR_CHECK_ENTRIES] = {};
    for (UINT32 EntryIndex = 0; EntryIndex < RuntimePprEntriesInServed(); EntryIndex++) {
        Results[EntryIndex] = VerifyEntry(EntryIndex);
        VornElogSmmProcessMemoryHealthEventRtPpr(&mChkRtPprComplStruct[EntryIndex], Results[EntryIndex]);
    }
    ReportRuntimePprResults(0, Results);
    ResetRuntimePprState();
    return TRUE;
}

static EFI_STATUS AdjustUmcCounters(BOOLEAN Adjust, const RUNTIME_PPR_CHECK_ENTRY& Entry) {
    UMC_CHANNEL Umc{};
    if (!FindUmc(Entry, &Umc)) {
        return EFI_NOT_FOUND;
    }
    RasSmnRW(Umc.SegBus, UmcSmnAddress(Umc.UmcChannel, UMC_ECC_ERR_CNT_CTRL), ~EccErrCntCtrl::EccErrCntEn::Mask,
             EccErrCntCtrl::EccErrCntEn::Of(Adjust != FALSE ? 0 : 1));
    return EFI_SUCCESS;
}

EFI_STATUS RtPprAdjustErrCounter(BOOLEAN Adjust, UINT32 EntryIndex) {
    if (EntryIndex >= RUNTIME_PPR_CHECK_ENTRIES) {
        Trace(DEBUG_ERROR, "[RAS Runtime PPR]%a: ERROR EntryIndex %d >= Max %d, aborting...\n", __func__, EntryIndex,
              RUNTIME_PPR_CHECK_ENTRIES);
        return EFI_INVALID_PARAMETER;
    }
    const RUNTIME_PPR_CHECK_ENTRY& Entry = mChkRtPprComplStruct[EntryIndex];
    if (mPlatformApeiData->MemoryErrorCounterEnable != FALSE &&
        mPlatformApeiData->MemoryErrorCounterMode == COUNTER_MODE_UMC) {
        return AdjustUmcCounters(Adjust, Entry);
    }
    RasThresholdConfig Config{};
    Config.McaMisc0DataValid = 1;
    Config.ThresholdControl = mPlatformApeiData->McaErrThreshEn;
    Config.ThresholdCount = Adjust != FALSE ? UINT16{0} : mPlatformApeiData->McaErrThreshCount;
    Config.ThresholdIntType = mRtPprThresholdInterruptMode == 1 ? THRESHOLD_INT_TYPE_SMI : THRESHOLD_INT_TYPE_NONE;
    const UINTN Processor = Entry.CpuInfo.ProcessorNumber;
    const UINTN Bank = Entry.McaBankNumber;
    return mKyrRasServiceSmmProtocol->SetMcaThreshold(&Processor, &Bank, &Config, TRUE);
}
