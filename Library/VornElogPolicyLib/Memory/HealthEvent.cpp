#include "Library/VornElogPolicyLib/Memory/HealthEvent.h"

#include "Include/MemoryHealthEvents.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/RealTimeClock.h"
#include "Library/VornElogChipsetLib/DimmLocation.h"
#include "Library/VornElogPolicyLib/Memory/MemoryRecord.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/VendorServices.h"
#include "Platform/State.h"

// Located once and kept.
KYR_STATE static VORN_ELOG_IPMI_SMM_PROTOCOL* mpHealthEventIpmi = nullptr;

static EFI_STATUS LocateIpmi(const CHAR8* Caller) {
    if (mpHealthEventIpmi != nullptr) {
        return EFI_SUCCESS;
    }
    const EFI_STATUS Status = LocateSmmProtocol(gVornElogIpmiSmmProtocolGuid, &mpHealthEventIpmi);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r locating protocol gVornElogIpmiSmmProtocolGuid %g, aborting...\n",
                Status, &gVornElogIpmiSmmProtocolGuid);
    }
    return Status;
}

static EFI_STATUS Send(const void* pPayload, UINTN Bytes, const CHAR8* Caller) {
    const VORN_MEMORY_HEALTH_REQUEST Request = {MEMORY_HEALTH_EVENT_KIND, pPayload};
    const EFI_STATUS Status = mpHealthEventIpmi->LogMemoryHealthData(&Request, Bytes);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR %r from LogMemoryHealthData\n", Status);
    }
    return Status;
}

static EFI_STATUS CheckRecord(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData, const CHAR8* Caller) {
    if (pKyrChipsetSupportData == nullptr) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR pKyrChipsetSupportData == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const MACHINE_CHECK_SUPPORT_DATA& Data = pKyrChipsetSupportData->MachineCheck;
    if (Data.ValidNormalizedAddressInfoPsp == FALSE) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR ValidNormalizedAddressInfoPsp == 0, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (!DimmInfoValid::AddressTranslationData::Get(Data.DimmInfo.ValidBits)) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR DimmInfo.ValidBits.Field.AddressTranslationData == 0, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    if (Data.ValidRasMcaErrorInfo == FALSE) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR RasMcaErrorInfo not valid, aborting...\n");
        return EFI_UNSUPPORTED;
    }
    return VornElogSmmIsMemErrLocationActive(Caller) ? EFI_SUCCESS : EFI_UNSUPPORTED;
}

static void FillHostEcc(const KYR_CHIPSET_SUPPORT_DATA& ChipsetData, UINT8 HostEccEventType,
                        HOST_ECC_EVENT_DATA* pEvent) {
    const MEM_ERR_LOCATION& Location = mPrivateDataVornElogPolicyLib.MemErrLocation;
    const DIMM_DATA& Dimm = mPrivateDataVornElogPolicyLib.DimmData[Location.Socket][Location.Channel][Location.Dimm];
    const RANK_DATA& Rank = Dimm.Rank[Location.Rank];
    const NORMALIZED_ADDRESS& Address = ChipsetData.MachineCheck.NormalizedAddressInfo;
    const DIMM_INFO& Info = ChipsetData.MachineCheck.DimmInfo;
    const MCA_BANK_ERROR_INFO& Bank = RecordBank(ChipsetData);
    pEvent->Socket = Address.Socket;
    pEvent->DimmSlot = static_cast<UINT8>(Dimm.DimmIndex + 1);
    pEvent->UmcChannel = Address.UmcChannel;
    pEvent->Channel = Location.Channel;
    pEvent->SubChannel = Info.SubChannel;
    pEvent->RankOnDimm = Info.RankOnDimm;
    pEvent->RankMul = Info.RankMul;
    pEvent->BankGroup = Info.BankGroup;
    pEvent->BankAddress = Info.BankAddress;
    pEvent->Row = Info.Row;
    pEvent->Column = Info.Column;
    pEvent->EventType = HostEccEventType;
    pEvent->ErrorCount = static_cast<UINT16>(Rank.CeccPfaCurrentErrorCount);
    pEvent->SecondsElapsed = static_cast<UINT16>(
        CperGetNoofSecondsPast(&Rank.CeccPfaTimestampCurrentError, &Rank.CeccPfaTimestampPreviousError));
    pEvent->FormatCode = HOST_ECC_FORMAT_CODE;
    pEvent->McaBankNumber = static_cast<UINT8>(Bank.McaBankNumber);
    pEvent->McaCtl = Bank.McaCtl;
    pEvent->McaStatus = Bank.McaStatus;
    pEvent->McaAddr = Bank.McaAddr;
    pEvent->McaMisc0 = Bank.McaMisc0;
    pEvent->McaConfig = Bank.McaConfig;
    pEvent->McaSynd = Bank.McaSynd;
    pEvent->McaDeStat = Bank.McaDeStat;
    pEvent->McaDeAddr = Bank.McaDeAddr;
}

EFI_STATUS VornElogSmmProcessMemoryHealthEventHostEcc(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData,
                                                      UINT8 HostEccEventType) {
    EFI_STATUS Status = CheckRecord(pKyrChipsetSupportData, __func__);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    Status = LocateIpmi(__func__);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    HOST_ECC_EVENT_DATA* pEvent = nullptr;
    Status = AllocateZeroedRuntimeData(sizeof(*pEvent), &pEvent);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r allocating EfiRuntimeServicesData memory for HOST_ECC_EVENT_DATA\n", Status);
        return EFI_OUT_OF_RESOURCES;
    }
    FillHostEcc(*pKyrChipsetSupportData, HostEccEventType, pEvent);
    Status = Send(pEvent, sizeof(*pEvent), __func__);
    const EFI_STATUS FreeStatus = FreeRuntimeData(pEvent);
    if (EFI_ERROR(FreeStatus)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from SmmFreePool\n", FreeStatus);
    }
    return Status;
}

// The slot of an entry's DIMM, from 1; 0 when the platform has no such slot.
static UINT8 SlotOf(const RUNTIME_PPR_CHECK_ENTRY& Entry) {
    constexpr UINT8 ChipSelectsPerDimm = 2;
    const UINT8 Dimm = (Entry.ChipSelect & 3) / ChipSelectsPerDimm;
    VORN_MEMORY_SLOT_INFO* pSlotInfo = nullptr;
    UINT8 DimmIndex = 0;
    const EFI_STATUS Status =
        VornElogGetDimmSlotInfoPointer(Entry.Socket, Entry.UmcChannel, Dimm, &pSlotInfo, &DimmIndex);
    return EFI_ERROR(Status) ? 0 : static_cast<UINT8>(DimmIndex + 1);
}

EFI_STATUS VornElogSmmProcessMemoryHealthEventRtPpr(const RUNTIME_PPR_CHECK_ENTRY* pEntry, UINT8 Result) {
    if (pEntry == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pEntry == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const EFI_STATUS Status = LocateIpmi(__func__);
    if (EFI_ERROR(Status)) {
        return Status;
    }
    PPR_EVENT_DATA Event{};
    Event.Socket = pEntry->Socket;
    Event.DimmSlot = SlotOf(*pEntry);
    // A device number beyond the mask's bits leaves it empty.
    Event.DeviceMask = pEntry->DramDevice < 32 ? UINT32{1} << pEntry->DramDevice : 0;
    Event.SubChannel = pEntry->SubChannel;
    Event.ChipSelect = pEntry->ChipSelect;
    Event.BankGroup = RuntimePprBank::Group::Get(pEntry->Bank);
    Event.BankAddress = RuntimePprBank::Address::Get(pEntry->Bank);
    Event.Row = pEntry->Row;
    Event.Value15 = PPR_EVENT_VALUE_15;
    Event.Value16 = PPR_EVENT_VALUE_16;
    Event.Result = Result;
    return Send(&Event, sizeof(Event), __func__);
}
