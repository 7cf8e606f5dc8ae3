#include "Library/VornElogPolicyLib/MachineCheck/ThresholdDisable.h"

#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Protocol/RasService.h"

MCA_THRESHOLD_DISABLE_REQUEST VornElogSmmThresholdDisableRequest(const KYR_CHIPSET_SUPPORT_DATA& ChipsetData,
                                                                 UINT32 ThresholdType) {
    MCA_THRESHOLD_DISABLE_REQUEST Request{};
    CopyMem(&Request, &ChipsetData.MachineCheck.RasMcaErrorInfo,
            offsetof(MCA_THRESHOLD_DISABLE_REQUEST, McaBankNumber));
    Request.McaBankNumber = static_cast<UINT32>(RecordBank(ChipsetData).McaBankNumber);
    Request.ThresholdType = ThresholdType;
    return Request;
}

static EFI_STATUS Disable(EFI_STATUS (*Member)(const MCA_THRESHOLD_DISABLE_REQUEST*),
                          const KYR_CHIPSET_SUPPORT_DATA& ChipsetData, UINT32 ThresholdType,
                          TraceFormat<EFI_STATUS, UINT64, UINT32, UINT8, UINT64> FailureText, const CHAR8* Caller) {
    const MCA_THRESHOLD_DISABLE_REQUEST Request = VornElogSmmThresholdDisableRequest(ChipsetData, ThresholdType);
    const EFI_STATUS Status = Member(&Request);
    if (EFI_ERROR(Status)) {
        TraceAs(Caller, DEBUG_ERROR, FailureText, Status, Request.CpuInfo.ProcessorNumber,
                Request.CpuInfo.LocalApicId, ChipsetData.MachineCheck.McaBankIndex,
                RecordBank(ChipsetData).McaBankNumber);
    }
    return Status;
}

EFI_STATUS VornElogSmmDisableThreshold(const KYR_CHIPSET_SUPPORT_DATA& ChipsetData, UINT32 ThresholdType,
                                       const CHAR8* Caller) {
    return Disable(mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol->DisableMcaThreshold, ChipsetData,
                   ThresholdType,
                   "%a: ERROR %r from mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol->DisableMcaThreshold "
                   "for ProcNum %d APIC 0x%08x McaBankIndex %d McBankNumber %d\n",
                   Caller);
}

EFI_STATUS VornElogSmmDisableTransparentErrorLogging(const KYR_CHIPSET_SUPPORT_DATA& ChipsetData,
                                                     const CHAR8* Caller) {
    return Disable(mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol->DisableMcaTransparentErrorLogging,
                   ChipsetData, 0,
                   "%a: ERROR %r from mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol->"
                   "DisableMcaTransparentErrorLogging for ProcNum %d APIC 0x%08x McaBankIndex %d McBankNumber %d\n",
                   Caller);
}
