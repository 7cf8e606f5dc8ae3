#include "Library/VornElogPolicyLib/Storm/StormQueue.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/Queue.h"
#include "Library/VornElogBaseLib/RealTimeClock.h"
#include "Library/VornElogChipsetLib/SmiStormScaling.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/Storm/StormRecord.h"

EFI_STATUS VornElogPolicyLibGetSmiStormPciThresholdData(UINT32* pStopCount, UINT32* pStopTimeInSeconds) {
    if (pStopCount == nullptr || pStopTimeInSeconds == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    if (Data.SmiStormPciStopTimeThresholdScalingFactor == 0) {
        Data.SmiStormPciStopTimeThresholdScalingFactor = CxlEndpointDevCntSystemWide();
        if (Data.SmiStormPciStopTimeThresholdScalingFactor != 0) {
            Data.SmiStormPcieStopTimeThresholdInSeconds *= Data.SmiStormPciStopTimeThresholdScalingFactor;
            Trace(Data.SerDbgLevel, "%a: SmiStormPcieStopTimeThresholdInSeconds scaled to %d seconds\n",
                  Data.SmiStormPcieStopTimeThresholdInSeconds);
        }
    }
    *pStopCount = Data.SmiStormPciStopCountThreshold;
    *pStopTimeInSeconds = Data.SmiStormPcieStopTimeThresholdInSeconds;
    return EFI_SUCCESS;
}

// A PCI component record expires with the machine checks, though it is counted with the PCIe records; that is meant.
static bool LivesAsPcie(STORM_RECORD_KIND Kind) {
    return Kind == StormRecordPcie || Kind == StormRecordCxlProtocol || Kind == StormRecordCxlComponent;
}

void VornElogSmmCheckSmiStormPreProcess(const CPER_TIMESTAMP* pNewTimeStamp) {
    VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    if (pNewTimeStamp == nullptr || Data.SmiStormQueue == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR no time stamp or no SMI storm queue, aborting...\n");
        return;
    }
    UINT32 StopCount = 0;
    UINT32 PcieStopTime = 0;
    const EFI_STATUS Status = VornElogPolicyLibGetSmiStormPciThresholdData(&StopCount, &PcieStopTime);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r unable to retrieve SMI Storm PCI threshold scaling data, aborting...\n",
              Status);
        return;
    }
    while (QueueIsEmpty(Data.SmiStormQueue) == FALSE) {
        const CPER_RECORD* pOldest =
            EntryRecord(*static_cast<const SMI_STORM_QUEUE_ENTRY*>(QueueHeadData(Data.SmiStormQueue)));
        const UINT32 Elapsed = CperGetNoofSecondsPast(pNewTimeStamp, &pOldest->Header.TimeStamp);
        const UINT32 StopTime =
            LivesAsPcie(StormRecordKind(pOldest)) ? PcieStopTime : Data.SmiStormMcaStopTimeThresholdInSeconds;
        if (Elapsed < StopTime) {
            Trace(Data.SerDbgLevelDetailed, "%a: Reached first non-expired entry\n");
            return;
        }
        const EFI_STATUS RemoveStatus = QueueRemove(Data.SmiStormQueue);
        if (EFI_ERROR(RemoveStatus)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r removing an expired entry from SMI storm queue\n", RemoveStatus);
        }
    }
}
