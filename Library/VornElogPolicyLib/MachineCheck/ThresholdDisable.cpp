#include "Library/VornElogPolicyLib/MachineCheck/ThresholdDisable.h"

#include "Library/RasLib/Memory.h"

MCA_THRESHOLD_DISABLE_REQUEST VornElogSmmThresholdDisableRequest(const KYR_CHIPSET_SUPPORT_DATA& ChipsetData,
                                                                 UINT32 ThresholdType) {
    MCA_THRESHOLD_DISABLE_REQUEST Request{};
    CopyMem(&Request, &ChipsetData.MachineCheck.RasMcaErrorInfo,
            offsetof(MCA_THRESHOLD_DISABLE_REQUEST, McaBankNumber));
    Request.McaBankNumber = static_cast<UINT32>(RecordBank(ChipsetData).McaBankNumber);
    Request.ThresholdType = ThresholdType;
    return Request;
}
