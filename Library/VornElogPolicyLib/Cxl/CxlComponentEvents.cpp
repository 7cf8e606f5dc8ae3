#include "Library/VornElogPolicyLib/Cxl/CxlComponentEvents.h"

#include "Include/ChipsetSupportData.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/CxlSections.h"
#include "Library/VornElogPolicyLib/Cxl/CxlEventCommands.h"
#include "Library/VornElogPolicyLib/Pcie/PciSlotData.h"
#include "Library/VornElogPolicyLib/Pcie/PcieRecord.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/ProcessErrorRecord.h"

namespace {

constexpr const CHAR8* OPERATION = "VornElogSmmHandleCxlComponentError";

// A log holds no more events than there are handles, which are 16 bits and not 0; a device that goes on past them
// is left for a later SMI.
constexpr UINT32 EVENTS_PER_LOG_MAX = 0xFFFF;

// What every record of one device is made with.
struct EVENT_SOURCE {
    const PCI_DEVICE_STATE* pPciDeviceState;
    PCI_SBDF Where;
    PCI_SLOT_NUMBER_DATA Slot;
    KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData;
};

// Builds the record of one event and hands it to the policy engine. EFI_OUT_OF_RESOURCES, or EFI_SUCCESS: an event
// whose kind is not known gets no record, and is cleared like the others so that it does not stand before them.
EFI_STATUS ReportEvent(const EVENT_SOURCE& Source, const CXL_EVENT_RECORD& Event) {
    const PCI_SBDF& Where = Source.Where;
    const EFI_GUID Uuid = Event.Uuid;
    const UINT32 CperLength = static_cast<UINT32>(VornCperGetCxlComponentRecordLength(&Uuid));
    CPER_RECORD* pCper = nullptr;
    EFI_STATUS Status = AllocateZeroedRuntimeData(CperLength, &pCper);
    if (EFI_ERROR(Status)) {
        TraceAs(OPERATION, DEBUG_ERROR,
                "%a: ERROR %r Unable to allocate EfiRuntimeServicesData memory for CXL Component CPER, aborting...\n",
                Status);
        return EFI_OUT_OF_RESOURCES;
    }
    Status = VornCperCreateCxlComponent(mPrivateDataVornElogPolicyLib.SerDbgLevel, Where.Seg, Where.Bus, Where.Dev,
                                        Where.Func, &Source.Slot, Source.pPciDeviceState, FALSE, &Uuid,
                                        CxlEventFlags::Severity::Get(Event.Flags[0]), &Event, CperLength, pCper);
    if (EFI_ERROR(Status)) {
        TraceAs(OPERATION, DEBUG_ERROR,
                "%a: ERROR %r from VornCperCreateCxlComponent for SBDF %04X:%02X:%02X.%1X event handle 0x%04x\n",
                Status, Where.Seg, Where.Bus, Where.Dev, Where.Func, Event.Handle);
    } else {
        VornElogSmmProcessErrorRecord(pCper, Source.pKyrChipsetSupportData);
    }
    FreeRuntimeData(pCper);
    return EFI_SUCCESS;
}

// How many of the records that the device counts lie in its answer.
UINT32 CompleteRecords(const CXL_GET_EVENT_RECORDS_OUTPUT& Output, UINT32 OutputLength) {
    const UINT32 Room = (OutputLength - sizeof(Output)) / sizeof(CXL_EVENT_RECORD);
    const UINT32 Counted = Output.EventRecordCount;
    if (Counted <= Room) {
        return Counted;
    }
    TraceAs(OPERATION, DEBUG_ERROR, "%a: ERROR Event Record Count %d, but the output holds %d\n", Counted, Room);
    return Room;
}

// Reports Count events, which follow one another, and clears them.
EFI_STATUS ReportAndClear(const EVENT_SOURCE& Source, UINT8 EventLog, const UINT8* pEvents, UINT32 Count) {
    UINT16* pHandles = nullptr;
    EFI_STATUS Status = AllocateRuntimeData(Count * sizeof(UINT16), &pHandles);
    if (EFI_ERROR(Status)) {
        TraceAs(OPERATION, DEBUG_ERROR,
                "%a: ERROR %r Unable to allocate EfiRuntimeServicesData memory for event record handles, "
                "aborting...\n",
                Status);
        return EFI_OUT_OF_RESOURCES;
    }
    for (UINT32 At = 0; At < Count && !EFI_ERROR(Status); At++) {
        CXL_EVENT_RECORD Event;
        CopyMem(&Event, pEvents + At * sizeof(Event), sizeof(Event));
        pHandles[At] = Event.Handle;
        Status = ReportEvent(Source, Event);
    }
    if (!EFI_ERROR(Status)) {
        Status = VornElogCxlMbCmdClearEventRecords(Source.pPciDeviceState, EventLog, pHandles, Count);
    }
    FreeRuntimeData(pHandles);
    return Status;
}

// Reads, reports and clears one log until the device has no more records. EFI_OUT_OF_RESOURCES when the pool is
// empty, or the status of the command that failed.
EFI_STATUS HandleEventLog(const EVENT_SOURCE& Source, UINT8 EventLog) {
    UINT32 Handled = 0;
    for (bool More = true; More && Handled < EVENTS_PER_LOG_MAX;) {
        UINT32 OutputLength = 0;
        CXL_GET_EVENT_RECORDS_OUTPUT* pOutput = nullptr;
        EFI_STATUS Status =
            VornElogCxlMbCmdGetEventRecords(Source.pPciDeviceState, EventLog, &OutputLength, &pOutput);
        if (EFI_ERROR(Status)) {
            return Status;
        }
        const UINT32 Count = CompleteRecords(*pOutput, OutputLength);
        if (CxlGetEventRecordsFlags::Overflow::Get(pOutput->Flags)) {
            TraceAs(OPERATION, DEBUG_ERROR, "%a: event log %d overflowed, %d events lost\n", EventLog,
                    pOutput->OverflowErrorCount);
        }
        More = Count != 0 && CxlGetEventRecordsFlags::MoreEventRecords::Get(pOutput->Flags);
        if (Count != 0) {
            Status = ReportAndClear(Source, EventLog, reinterpret_cast<const UINT8*>(pOutput + 1), Count);
        }
        FreeRuntimeData(pOutput);
        if (EFI_ERROR(Status)) {
            return Status;
        }
        Handled += Count;
    }
    return EFI_SUCCESS;
}

void HandleEventLogs(const EVENT_SOURCE& Source) {
    const UINT64 Logs = CxlEventStatus::Logs::Get(Source.pPciDeviceState->Cxl.DeviceEventStatus);
    for (UINT8 EventLog = 0; EventLog < CXL_EVENT_LOGS; EventLog++) {
        if ((Logs >> EventLog & 1) == 0) {
            continue;
        }
        const EFI_STATUS Status = HandleEventLog(Source, EventLog);
        if (EFI_ERROR(Status)) {
            TraceAs(OPERATION, DEBUG_ERROR, "%a: ERROR %r from event log %d of SBDF %04X:%02X:%02X.%1X\n", Status,
                    EventLog, Source.Where.Seg, Source.Where.Bus, Source.Where.Dev, Source.Where.Func);
        }
        if (Status == EFI_OUT_OF_RESOURCES) {
            return;
        }
    }
}

}  // namespace

void VornElogSmmHandleCxlComponentError(const PCI_DEVICE_STATE* pPciDeviceState) {
    if (pPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pPciDeviceState == NULL, aborting...\n");
        return;
    }
    if (!pPciDeviceState->Cxl.IsCxl || !pPciDeviceState->Cxl.ErrorStatus.ComponentDetected) {
        return;
    }
    EVENT_SOURCE Source = {pPciDeviceState, SbdfOf(pPciDeviceState->PciAddress), {}, nullptr};
    const PCI_SBDF& Where = Source.Where;
    if (pPciDeviceState->Cxl.SecondaryMailbox.Offset == 0) {
        Trace(DEBUG_ERROR, "%a: SBDF %04X:%02X:%02X.%1X ERROR unable to get mailbox address offset, exiting...\n",
              Where.Seg, Where.Bus, Where.Dev, Where.Func);
        return;
    }
    const EFI_STATUS Status =
        AllocateZeroedRuntimeData(sizeof(KYR_CHIPSET_SUPPORT_DATA), &Source.pKyrChipsetSupportData);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r Unable to allocate EfiRuntimeServicesData memory for chipset support data, aborting...\n",
              Status);
        return;
    }
    Source.Slot = SlotDataOf(Where);
    CopyChipsetDataOfFunction(*pPciDeviceState, Source.pKyrChipsetSupportData);
    HandleEventLogs(Source);
    FreeRuntimeData(Source.pKyrChipsetSupportData);
}
