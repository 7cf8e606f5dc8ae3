#include "Library/VornElogPolicyLib/MachineCheck/MachineCheckSel.h"

#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/SelMachineCheck.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Protocol/RasService.h"

void VornElogSmmMcBankData(const CPU_INFO* pCpuInfo, const MCA_BANK_ERROR_INFO* pMcaBankErrorInfo) {
    const UINT64 McaStatus = pMcaBankErrorInfo->McaStatus;
    const bool IsCorrected = McaStatus::UC::Get(McaStatus) == 0 && McaStatus::PCC::Get(McaStatus) == 0;
    // The event has one byte for the APIC ID: the low one, on purpose.
    ElogLogMachineCheckError(pCpuInfo->SocketId, static_cast<UINT8>(pCpuInfo->LocalApicId), IsCorrected);
    VornElogLogCpuThreadLocationData(pCpuInfo);
    VornELogLogMcBankRegisterData(pMcaBankErrorInfo);
}

void VornElogSmmLogMachineCheckData(const KYR_CHIPSET_SUPPORT_DATA* pKyrChipsetSupportData) {
    if (pKyrChipsetSupportData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pKyrChipsetSupportData == NULL, aborting...\n");
        return;
    }
    CPU_INFO CpuInfo{};
    CpuInfo.ProcessorNumber = pKyrChipsetSupportData->MachineCheck.RasMcaErrorInfo.CpuInfo.ProcessorNumber;
    const EFI_STATUS Status = mPrivateDataVornElogPolicyLib.pKyrRasServiceSmmProtocol->GetPhysicalCpuInfo(&CpuInfo);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from pKyrRasServiceSmmProtocol->GetPhysicalCpuInfo, skipping SEL logging\n",
              Status);
        return;
    }
    VornElogSmmMcBankData(&CpuInfo, &RecordBank(*pKyrChipsetSupportData));
}
