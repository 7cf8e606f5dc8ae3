#include "Library/VornElogPolicyLib/Storm/StormCount.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Library/VornElogPolicyLib/Storm/StormRecord.h"

BOOLEAN VornElogSmmCheckMceSmiStormPostProcess(MCE_CLASS MceClass, UINT32 ApicId, UINT8 McaBankNumber) {
    const VORN_ELOG_POLICY_PRIVATE_DATA& Data = mPrivateDataVornElogPolicyLib;
    UINT32 Count = 0;
    // Entries are large and many: what rules most of them out lies on the fewest cache lines and is asked first.
    ForEachStormEntry(Data.SmiStormQueue, [&](const SMI_STORM_QUEUE_ENTRY& Entry) {
        const MACHINE_CHECK_SUPPORT_DATA& MachineCheck = Entry.KyrChipsetSupportData.MachineCheck;
        if (MachineCheck.RasMcaErrorInfo.CpuInfo.LocalApicId != ApicId ||
            StormRecordKind(EntryRecord(Entry)) != StormRecordMachineCheck) {
            return;
        }
        const MCA_BANK_ERROR_INFO& Bank = RecordBank(Entry.KyrChipsetSupportData);
        if (Bank.McaBankNumber == McaBankNumber && VornGetMceClass(Bank.McaStatus) == MceClass) {
            Count++;
        }
    });
    Trace(Data.SerDbgLevel, "%a: MceClass %d APIC 0x%08x McBankNumber %d count %d stop count %d\n", MceClass, ApicId,
          McaBankNumber, Count, Data.SmiStormMcaStopCountThreshold);
    return Count >= Data.SmiStormMcaStopCountThreshold ? TRUE : FALSE;
}
