#include "Library/VornElogPolicyLib/Memory/RowHistory.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/RecordFields.h"
#include "Platform/Protocol/RasService.h"

// Whether the bank's error is one that names its symbol: an uncorrectable symbol, also where the error itself was
// corrected, names none.
static bool IsSymbolKnown(const MCA_BANK_ERROR_INFO& Bank) {
    const UINT64 Status = Bank.McaStatus;
    if (!McaIpid::IsUmc(Bank.McaIpid) || !McaStatus::Val::Get(Status) ||
        McaStatus::ErrorCodeExt::Get(Status) != UmcErrorCodeExt::DRAM_ECC) {
        return false;
    }
    const bool IsDeferred = McaStatus::Deferred::Get(Status) != 0;
    if (!McaStatus::UC::Get(Status) && !IsDeferred &&
        (McaStatus::UECC::Get(Status) || (Bank.McaSynd & McaSynd::NO_SYMBOL_CORRECTED_MASK) != 0)) {
        return false;
    }
    return !IsDeferred || (Bank.McaSynd & McaSynd::NO_SYMBOL_DEFERRED_MASK) == 0;
}

EFI_STATUS VornElogSmmIsDeviceDecodeSupported(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                              BOOLEAN* pIsSupported) {
    if (pKyrChipsetSupportData == nullptr || pIsSupported == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pIsSupported = FALSE;
    const MCA_BANK_ERROR_INFO& Bank = RecordBank(*pKyrChipsetSupportData);
    if (!IsSymbolKnown(Bank)) {
        Trace(DEBUG_ERROR, "%a: ERROR MCA_STATUS 0x%016lx MCA_SYND 0x%016lx name no ECC symbol, aborting...\n",
              Bank.McaStatus, Bank.McaSynd);
        return EFI_UNSUPPORTED;
    }
    if (pKyrChipsetSupportData->MachineCheck.ValidNormalizedAddressInfoPsp == FALSE) {
        Trace(DEBUG_ERROR, "%a: ERROR ValidNormalizedAddressInfoPsp == 0, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pIsSupported = TRUE;
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmIsDdrRowAlreadyInHashTable(LIST_ENTRY* pUniqueRowIdentifierList, UINT8 ChipSelect,
                                                 UINT8 RankMul, UINT32 DeviceStart, UINT32 DeviceEnd, UINT8 Bank,
                                                 UINT32 Row, BOOLEAN* pIsPresent, UNIQUE_ROW_INSTANCE_NODE** ppNode) {
    if (pUniqueRowIdentifierList == nullptr || pIsPresent == nullptr || ppNode == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *pIsPresent = FALSE;
    *ppNode = nullptr;
    if (IsListEmpty(pUniqueRowIdentifierList)) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: UniqueRowIdentifierList is empty\n");
        return EFI_NOT_FOUND;
    }
    for (LIST_ENTRY* pLink = pUniqueRowIdentifierList->ForwardLink; pLink != pUniqueRowIdentifierList;
         pLink = pLink->ForwardLink) {
        UNIQUE_ROW_INSTANCE_NODE* const pNode = RowInstance(pLink);
        // The row tells most nodes apart.
        if (pNode->Row == Row && pNode->ChipSelect == ChipSelect && pNode->RankMul == RankMul &&
            pNode->DeviceStart == DeviceStart && pNode->DeviceEnd == DeviceEnd && pNode->Bank == Bank) {
            *pIsPresent = TRUE;
            *ppNode = pNode;
            break;
        }
    }
    return EFI_SUCCESS;
}

// The DIMM's history; NULL for a DIMM that has none.
static LIST_ENTRY* HistoryOf(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, const CHAR8* Caller = __builtin_FUNCTION()) {
    if (!VornElogSmmIsDimmPlace(Socket, UmcChannel, Dimm, Caller)) {
        return nullptr;
    }
    LIST_ENTRY* const pHistory =
        mPrivateDataVornElogPolicyLib.DimmData[Socket][UmcChannel][Dimm].pUniqueRowIdentifierList;
    if (pHistory == nullptr) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR mPrivateDataVornElogPolicyLib.DimmData[Skt %d][Ch %d][Dimm %d].pUniqueRowIdentifierList "
                "== NULL, aborting...\n",
                Socket, UmcChannel, Dimm);
    }
    return pHistory;
}

// Keeps copies of the latest record and its chipset data with the row.
static void StoreRecord(const CPER_RECORD* pCper, const KYR_CHIPSET_SUPPORT_DATA& ChipsetData,
                        UNIQUE_ROW_INSTANCE_NODE& Node) {
    const UINT32 RecordLength = pCper->Header.RecordLength;
    const UINT32 Kept = RecordLength < sizeof(Node.Cper) ? RecordLength : sizeof(Node.Cper);
    CopyMem(Node.Cper, pCper, Kept);
    ZeroMem(Node.Cper + Kept, sizeof(Node.Cper) - Kept);
    // Whoever is handed the copy must not read past it.
    reinterpret_cast<CPER_RECORD*>(Node.Cper)->Header.RecordLength = Kept;
    CopyMem(&Node.ChipsetSupportData, &ChipsetData, sizeof(ChipsetData));
}

// Fills the DRAM devices of the record's error symbol.
static EFI_STATUS DecodeDevices(KYR_CHIPSET_SUPPORT_DATA& ChipsetData, const CHAR8* Caller) {
    BOOLEAN IsDeviceDecodeSupported = FALSE;
    EFI_STATUS Status = VornElogSmmIsDeviceDecodeSupported(&ChipsetData, &IsDeviceDecodeSupported);
    if (EFI_ERROR(Status) || IsDeviceDecodeSupported == FALSE) {
        TraceAs(Caller, mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: IsDeviceDecodeSupported %d, exiting...\n",
                IsDeviceDecodeSupported);
        return EFI_ERROR(Status) ? Status : EFI_UNSUPPORTED;
    }
    const KYR_RAS_SERVICE_SMM_PROTOCOL* pRasService = mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol;
    MACHINE_CHECK_SUPPORT_DATA& Data = ChipsetData.MachineCheck;
    UINT32 DeviceStart = 0;
    UINT32 DeviceEnd = 0;
    UINT8 Unused = 0;
    Status = pRasService->MapSymbolToDramDevice(pRasService, &Data.RasMcaErrorInfo, &Data.NormalizedAddressInfo,
                                                Data.McaBankIndex, &DeviceStart, &DeviceEnd, &Unused);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol->MapSymbolToDramDevice, "
                "aborting...\n",
                Status);
        return Status;
    }
    Data.DimmInfo.DeviceStart = DeviceStart;
    Data.DimmInfo.DeviceEnd = DeviceEnd;
    return EFI_SUCCESS;
}

// A new row at the end of the history, without errors and copies yet.
static EFI_STATUS AppendRow(LIST_ENTRY* pHistory, const DIMM_INFO& Info, UNIQUE_ROW_INSTANCE_NODE** ppNode) {
    const EFI_STATUS Status = AllocateRuntimeData(sizeof(UNIQUE_ROW_INSTANCE_NODE), ppNode);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    UNIQUE_ROW_INSTANCE_NODE& Node = **ppNode;
    Node.Signature = UNIQUE_ROW_INSTANCE_SIGNATURE;
    Node.ChipSelect = Info.ChipSelect;
    Node.RankMul = Info.RankMul;
    Node.DeviceStart = Info.DeviceStart;
    Node.DeviceEnd = Info.DeviceEnd;
    Node.Bank = Info.Bank;
    Node.Row = Info.Row;
    Node.NumberCecc = 0;
    InsertTailList(pHistory, &Node.Link);
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmUpdateMemoryCeccHashTable(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, UINT8 Rank,
                                                const CPER_RECORD* pCper,
                                                KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    if (pCper == nullptr || pKyrChipsetSupportData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    EFI_STATUS Status = DecodeDevices(*pKyrChipsetSupportData, __func__);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    LIST_ENTRY* const pHistory = HistoryOf(Socket, UmcChannel, Dimm);
    if (pHistory == nullptr) {
        return EFI_INVALID_PARAMETER;
    }
    const DIMM_INFO& Info = pKyrChipsetSupportData->MachineCheck.DimmInfo;
    BOOLEAN IsPresent = FALSE;
    UNIQUE_ROW_INSTANCE_NODE* pNode = nullptr;
    VornElogSmmIsDdrRowAlreadyInHashTable(pHistory, Info.ChipSelect, Info.RankMul, Info.DeviceStart, Info.DeviceEnd,
                                          Info.Bank, Info.Row, &IsPresent, &pNode);
    if (IsPresent == FALSE) {
        Status = AppendRow(pHistory, Info, &pNode);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r allocating node memory, skipping entry...\n", Status);
            return Status;
        }
    }
    pNode->NumberCecc += pKyrChipsetSupportData->MachineCheck.UmcCeccPfaThresholdData.EccErrCntDelta;
    StoreRecord(pCper, *pKyrChipsetSupportData, *pNode);
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
          "%a: Skt %d Ch %d Dimm %d Rank %d ChipSelect %d RankMul %d Device %d..%d Bank %d Row 0x%x NumberCecc %d\n",
          Socket, UmcChannel, Dimm, Rank, Info.ChipSelect, Info.RankMul, Info.DeviceStart, Info.DeviceEnd, Info.Bank,
          Info.Row, pNode->NumberCecc);
    return EFI_SUCCESS;
}

EFI_STATUS VornElogSmmRetrieveMemoryCeccHashTableHighestRowCount(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm,
                                                                 UINT8 Rank, CPER_RECORD** ppCper,
                                                                 KYR_CHIPSET_SUPPORT_DATA** ppKyrChipsetSupportData) {
    if (ppCper == nullptr || ppKyrChipsetSupportData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    *ppCper = nullptr;
    *ppKyrChipsetSupportData = nullptr;
    LIST_ENTRY* const pHistory = HistoryOf(Socket, UmcChannel, Dimm);
    if (pHistory == nullptr || IsListEmpty(pHistory)) {
        Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: Hash table empty\n");
        return EFI_NOT_FOUND;
    }
    UNIQUE_ROW_INSTANCE_NODE* pHighest = RowInstance(pHistory->ForwardLink);
    for (LIST_ENTRY* pLink = pHighest->Link.ForwardLink; pLink != pHistory; pLink = pLink->ForwardLink) {
        UNIQUE_ROW_INSTANCE_NODE* const pNode = RowInstance(pLink);
        if (pNode->NumberCecc >= pHighest->NumberCecc) {
            pHighest = pNode;
        }
    }
    *ppCper = reinterpret_cast<CPER_RECORD*>(pHighest->Cper);
    *ppKyrChipsetSupportData = &pHighest->ChipsetSupportData;
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel,
          "%a: Skt %d Ch %d Dimm %d Rank %d: row 0x%x of bank %d has the most errors, %d\n", Socket, UmcChannel, Dimm,
          Rank, pHighest->Row, pHighest->Bank, pHighest->NumberCecc);
    return EFI_SUCCESS;
}

void VornElogSmmClearMemoryCeccHashTable(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, UINT8 Rank) {
    LIST_ENTRY* const pHistory = HistoryOf(Socket, UmcChannel, Dimm);
    if (pHistory == nullptr || IsListEmpty(pHistory)) {
        return;
    }
    Trace(mPrivateDataVornElogPolicyLib.SerDbgLevel, "%a: Skt %d Ch %d Dimm %d Rank %d\n", Socket, UmcChannel, Dimm,
          Rank);
    while (!IsListEmpty(pHistory)) {
        LIST_ENTRY* const pLink = pHistory->ForwardLink;
        RemoveEntryList(pLink);
        const EFI_STATUS Status = FreeRuntimeData(RowInstance(pLink));
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r from SmmFreePool\n", Status);
        }
    }
    InitializeListHead(pHistory);
}

void VornElogSmmDisplayMemoryCeccHashTable(UINT8 Socket, UINT8 UmcChannel, UINT8 Dimm, UINT8 Rank) {
    LIST_ENTRY* const pHistory = HistoryOf(Socket, UmcChannel, Dimm);
    if (pHistory == nullptr) {
        return;
    }
    const UINT64 Level = mPrivateDataVornElogPolicyLib.SerDbgLevelDetailed;
    Trace(Level, "%a: Skt %d Ch %d Dimm %d Rank %d\n", Socket, UmcChannel, Dimm, Rank);
    for (LIST_ENTRY* pLink = pHistory->ForwardLink; pLink != pHistory; pLink = pLink->ForwardLink) {
        const UNIQUE_ROW_INSTANCE_NODE& Node = *RowInstance(pLink);
        Trace(Level, "  ChipSelect %d RankMul %d DeviceStart %d DeviceEnd %d Bank %d Row 0x%x NumberCecc %d\n",
              Node.ChipSelect, Node.RankMul, Node.DeviceStart, Node.DeviceEnd, Node.Bank, Node.Row, Node.NumberCecc);
    }
}
