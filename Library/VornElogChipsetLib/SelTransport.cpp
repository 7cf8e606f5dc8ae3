#include "Library/VornElogChipsetLib/SelTransport.h"

#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/OperatingModes.h"
#include "Platform/Guids.h"
#include "Platform/State.h"

KYR_STATE VORN_ELOG_IPMI_PRIVATE_DATA mPrivateDataVornElogIpmi = {};

EFI_STATUS VornELogIpmiLibConstructor(EFI_HANDLE, EFI_SYSTEM_TABLE*) {
    VORN_ELOG_IPMI_PRIVATE_DATA& Data = mPrivateDataVornElogIpmi;
    VornElogGetSerialDebugLevels(&Data.SerDbgLevelConstructor, &Data.SerDbgLevel, &Data.SerDbgLevelDetailed);

    VORN_MEMORY_INTERFACE_SMM_PROTOCOL* MemoryInterface = nullptr;
    EFI_STATUS Status = LocateSmmProtocol(gVornMemoryInterfaceMemorySmmProtocolGuid, &MemoryInterface);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR: Unable to retrieve gVornMemoryInterfaceMemorySmmProtocolGuid %g, aborting...\n",
              &gVornMemoryInterfaceMemorySmmProtocolGuid);
        return EFI_NOT_FOUND;
    }

    VORN_MEMORY_ARRAY* MemoryArray = nullptr;
    Status = MemoryInterface->GetMemoryArrayPtr(&MemoryArray);
    if (EFI_ERROR(Status) || MemoryArray == nullptr) {
        // Every memory event then carries location 0.
        Trace(DEBUG_ERROR, "%a: ERROR %r from GetMemoryArrayPtr, no DIMM map\n", Status);
    } else {
        Data.NumDimmSlot = MemoryArray->NumDimmSlot;
        Data.pDimmMap = MemoryArray->DimmMap;
        Trace(Data.SerDbgLevelConstructor, "%a: DIMM map of %d slots\n", Data.NumDimmSlot);
    }

    Data.ApplyPprType = ApplyPprTypeHard;
    Trace(Data.SerDbgLevelConstructor,
          "%a: mPrivateDataVornElogIpmi.ApplyPprType has been set to Hard PPR by default\n");
    return EFI_SUCCESS;
}

void ElogBmcData(const ELOG_SEL_DATA* pSelRecord) {
    if (pSelRecord == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pSelRecord is NULL, aborting...\n");
        return;
    }
    VORN_ELOG_IPMI_PRIVATE_DATA& Data = mPrivateDataVornElogIpmi;
    if (Data.pVornElogIpmiProtocol == nullptr) {
        const EFI_STATUS Status = LocateSmmProtocol(gVornElogIpmiSmmProtocolGuid, &Data.pVornElogIpmiProtocol);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gVornElogIpmiSmmProtocolGuid %g, aborting...\n",
                  Status, &gVornElogIpmiSmmProtocolGuid);
            return;
        }
    }
    Trace(Data.SerDbgLevelDetailed, "%a: SEL event %02x %02x %02x %02x %02x %02x\n", pSelRecord->SensorType,
          pSelRecord->SensorNumber, pSelRecord->EventDirType, pSelRecord->EventData1, pSelRecord->EventData2,
          pSelRecord->EventData3);
    const EFI_STATUS Status = Data.pVornElogIpmiProtocol->LogBmcData(pSelRecord);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from mPrivateDataVornElogIpmi.pVornElogIpmiProtocol->LogBmcData\n", Status);
    }
}

namespace {

// Sends Count bodies and, when they went out, empties the store.
EFI_STATUS TransmitStoredRecords(UINT8 Count, const ELOG_SEL_DATA* pSel, const CHAR8* Caller = __builtin_FUNCTION()) {
    const VORN_ELOG_IPMI_PRIVATE_DATA& Data = mPrivateDataVornElogIpmi;
    TraceAs(Caller, Data.SerDbgLevel,
            "%a: Transmit SEL records to Mavik via ElogSendSelLog consolidated SEL logging command(s)\n");
    EFI_STATUS Status =
        Data.pVornIpmiSelSupportProtocol->SendConsolidatedOemCommand(Data.pVornIpmiSelSupportProtocol, Count, pSel);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from mPrivateDataVornElogIpmi.pVornIpmiSelSupportProtocol->SendConsolidatedOemCommand, "
                "aborting...\n",
                Status);
        return Status;
    }
    Status = Data.pVornSelRecordProtocol->ClearSelRecords(Data.pVornSelRecordProtocol);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR,
                "%a: ERROR %r from mPrivateDataVornElogIpmi.pVornSelRecordProtocol->ClearSelRecords\n", Status);
    }
    return Status;
}

}  // namespace

EFI_STATUS ElogSendSelLog() {
    VORN_ELOG_IPMI_PRIVATE_DATA& Data = mPrivateDataVornElogIpmi;
    EFI_STATUS Status = LocateSmmProtocol(gVornSmmSelRecordProtocolGuid, &Data.pVornSelRecordProtocol);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gVornSmmSelRecordProtocolGuid %g, aborting...\n", Status,
              &gVornSmmSelRecordProtocolGuid);
        return Status;
    }
    Status = LocateSmmProtocol(gVornSmmIpmiSelSupportProtocolGuid, &Data.pVornIpmiSelSupportProtocol);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating protocol gVornSmmIpmiSelSupportProtocolGuid %g, aborting...\n",
              Status, &gVornSmmIpmiSelSupportProtocolGuid);
        return Status;
    }

    UINT8 Count = 0;
    ELOG_SEL_DATA* pSel = nullptr;
    Status = Data.pVornSelRecordProtocol->GetSelRecords(Data.pVornSelRecordProtocol, &Count, &pSel);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r from mPrivateDataVornElogIpmi.pVornSelRecordProtocol->GetSelRecords, aborting...\n",
              Status);
        return Status;
    }
    if (pSel == nullptr) {
        Trace(DEBUG_ERROR,
              "%a: pSel is NULL after mPrivateDataVornElogIpmi.pVornSelRecordProtocol->GetSelRecords, "
              "aborting...\n");
        return EFI_NOT_FOUND;
    }
    if (Count == 0) {
        Trace(Data.SerDbgLevel, "%a: No SEL records present, exiting...\n");
        return EFI_SUCCESS;
    }
    Status = Data.pVornSelRecordProtocol->DisplaySelRecords(Data.pVornSelRecordProtocol);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from mPrivateDataVornElogIpmi.pVornSelRecordProtocol->DisplaySelRecords\n",
              Status);
    }
    return TransmitStoredRecords(Count, pSel);
}
