#include "PlatformRas/Qtz/Smm/Registration.h"

#include "Include/Field.h"
#include "Library/RasLib/Protocols.h"
#include "Library/RasLib/Trace.h"
#include "Platform/Guids.h"
#include "Platform/Protocol/RasService.h"
#include "Platform/Protocol/SwDispatch.h"
#include "Platform/State.h"
#include "PlatformRas/Qtz/Smm/CxlOsc.h"
#include "PlatformRas/Qtz/Smm/MceSwSmi.h"
#include "PlatformRas/Qtz/Smm/PcieErrorSmi.h"

KYR_STATE UINT64 NumPcieRbCallbacksRegistered = 0;

namespace {

constexpr UINT8 HANDLER_ORDER = 0x80;

// Format of the SMI trigger IO cycle: data in bits 23:16, IO port in bits 15:0.
constexpr UINT32 SMI_TRIG_IO_CYCLE_FORMAT = 0x2000000;
using SmiTrigData = Field<UINT32, 23, 16>;

}  // namespace

EFI_STATUS RasSmmRegisterMceSwSmi() {
    FCH_SMM_SW_DISPATCH2_PROTOCOL* SwDispatch = nullptr;
    EFI_STATUS Status = LocateSmmProtocol(gFchSmmSwDispatch2ProtocolGuid, &SwDispatch);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating gFchSmmSwDispatch2ProtocolGuid, aborting...\n", Status);
        return Status;
    }
    mKyrRasServiceSmmProtocol->SetSmiTrigIoCycle(SmiTrigData::Of(mPlatformApeiData->MceSwSmiData) |
                                                 SMI_TRIG_IO_CYCLE_FORMAT | mPlatformApeiData->SwSmiCmdPortAddr);
    const FCH_SMM_SW_REGISTER_CONTEXT Context = {mPlatformApeiData->MceSwSmiData, HANDLER_ORDER};
    EFI_HANDLE DispatchHandle = nullptr;
    Status = SwDispatch->Register(SwDispatch, KyrMcetoSmiCallback, &Context, &DispatchHandle);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r from SwDispatch->Register to register S/W SMI handler KyrMcetoSmiCallback for SwValue "
              "0x%016lx Order 0x%02x\n",
              Status, Context.SwValue, Context.Order);
    }
    return Status;
}

EFI_STATUS RasSmmRegisterPcieLegacyRasSmi() {
    FCH_SMM_APU_RAS_DISPATCH_PROTOCOL* RasDispatch = nullptr;
    EFI_STATUS Status = LocateSmmProtocol(gFchSmmApuRasDispatchProtocolGuid, &RasDispatch);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating gFchSmmApuRasDispatchProtocolGuid\n", Status);
        return Status;
    }
    if (mRbBusMap == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR mRbBusMap == NULL, aborting...\n");
        return EFI_NOT_FOUND;
    }
    const RB_BUS_ENTRY* Entries = RbBusEntries(mRbBusMap);
    for (UINT64 Index = 0; Index < mRbBusMap->RbCount; Index++) {
        // The segment stays 0 and the NBIO byte carries the root-bridge index: that is how the dispatcher of
        // this south bridge names a root complex.
        const FCH_SMM_APU_RAS_REGISTER_CONTEXT Context = {
            .Socket = Entries[Index].Socket,
            .Die = 0,
            .BusNumber = Entries[Index].RbBusBase,
            .Segment = 0,
            .Nbio = Entries[Index].RbIndex,
            .Order = HANDLER_ORDER,
        };
        EFI_HANDLE DispatchHandle = nullptr;
        Status = RasDispatch->Register(RasDispatch, KyrPcieLegacyRasSmiCallback, &Context, &DispatchHandle);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR,
                  "%a: ERROR %r from KyrApuRasDispatch->Register to register SMI handler KyrPcieLegacyRasSmiCallback "
                  "on Skt %d Die %d Nbio %d Seg 0x%02x Bus 0x%02x Order 0x%02x\n",
                  Status, Context.Socket, Context.Die, Context.Nbio, Context.Segment, Context.BusNumber,
                  Context.Order);
            return Status;
        }
        NumPcieRbCallbacksRegistered++;
    }
    Trace(DEBUG_INIT,
          "%a: Total number PCIe RB/Root Complex handlers registered -> NumPcieRbCallbacksRegistered = %d\n",
          NumPcieRbCallbacksRegistered);
    return EFI_SUCCESS;
}

EFI_STATUS RasSmmRegisterCxlRasSmi() {
    FCH_SMM_SW_DISPATCH2_PROTOCOL* SwDispatch = nullptr;
    EFI_STATUS Status = LocateSmmProtocol(gFchSmmSwDispatch2ProtocolGuid, &SwDispatch);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r locating SMM protocol gFchSmmSwDispatch2ProtocolGuid %g\n", Status,
              &gFchSmmSwDispatch2ProtocolGuid);
        return Status;
    }
    if (mPlatformApeiData->CxlPolicyData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR CxlPolicyData == NULL, aborting...\n");
        return EFI_NOT_FOUND;
    }
    const FCH_SMM_SW_REGISTER_CONTEXT Context = {mPlatformApeiData->CxlPolicyData->SwSmiValue, HANDLER_ORDER};
    EFI_HANDLE DispatchHandle = nullptr;
    Status = SwDispatch->Register(SwDispatch, KyrCxlOscCallback, &Context, &DispatchHandle);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r registering Soft SMI callback KyrCxlOscCallback for SW SMI 0x%02x\n", Status,
              Context.SwValue);
    }
    return Status;
}

EFI_STATUS RegisterCxlRasSmiCallback(const EFI_GUID*, void*, EFI_HANDLE) {
    return RasSmmRegisterCxlRasSmi();
}

EFI_STATUS PassOemMcaThresholdMapTableToTALVO(const OEM_MCA_THRESHOLD_MAP_TABLE* OemMcaThresholdMapTable) {
    const UINT64 Size = sizeof(McaThresholdTableEntry) * UINT64{OemMcaThresholdMapTable->TableEntryNum};
    Trace(DEBUG_INIT, "%a: OEM MCA threshold map table size 0x%08x entries %d\n",
          OemMcaThresholdMapTable->OemMcaThresholdMapTotalSize, OemMcaThresholdMapTable->TableEntryNum);
    McaThresholdTableEntry* Copy = nullptr;
    const EFI_STATUS Status = gBS->AllocatePool(EfiRuntimeServicesData, Size, reinterpret_cast<void**>(&Copy));
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR,
              "%a: ERROR %r allocating EfiRuntimeServicesData for OEM MCA threshold table length 0x%016lx, "
              "aborting...\n",
              Status, Size);
        return Status;
    }
    gBS->SetMem(Copy, Size, 0);
    for (UINT32 Index = 0; Index < OemMcaThresholdMapTable->TableEntryNum; Index++) {
        Copy[Index] = OemMcaThresholdMapTable->Entries[Index];
    }
    const MCA_THRESHOLD_SETTING Setting = {
        .Reserved0 = 0,
        .ThresholdControl = mPlatformApeiData->McaErrThreshEn,
        .ThresholdCount = mPlatformApeiData->McaErrThreshCount,
        .ThresholdIntType = THRESHOLD_INT_TYPE_SMI,
        .Reserved5 = 0,
    };
    const OEM_MCA_THRESHOLD_MAP Map = {static_cast<UINT32>(Size), OemMcaThresholdMapTable->TableEntryNum, Copy};
    mKyrRasServiceSmmProtocol->SetMcaThresholdMap(nullptr, nullptr, &Setting, FALSE, &Map);
    return EFI_SUCCESS;
}

EFI_STATUS RasSmmRegistrationCenter() {
    EFI_STATUS Status = EFI_SUCCESS;
    if (mPlatformApeiData->PFEHEnable) {
        Status = RasSmmRegisterMceSwSmi();
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r from RasSmmRegisterMceSwSmi\n", Status);
        }
    }
    const bool FirmwareFirst = IsPcieFirmwareFirst(mPlatformApeiData->PcieErrorHandlingMode);
    if (mPlatformApeiData->PcieLegacyRasSmiEn) {
        if (FirmwareFirst) {
            Trace(DEBUG_INIT, "%a: System running in PCIe FW First Mode\n");
            Status = RasSmmRegisterPcieLegacyRasSmi();
            if (EFI_ERROR(Status)) {
                Trace(DEBUG_ERROR, "%a: ERROR %r from RasSmmRegisterPcieLegacyRasSmi\n", Status);
            }
        } else {
            Trace(DEBUG_INIT, "%a: System running in OS First Mode. Skip registering PCIe Legacy RAS SMI.\n");
        }
    }
    if (mPlatformApeiData->CxlRasSmiEn) {
        if (FirmwareFirst) {
            void* Registration = nullptr;
            Status = gSmst->SmmRegisterProtocolNotify(&gEdkiiSmmReadyToBootProtocolGuid, RegisterCxlRasSmiCallback,
                                                      &Registration);
            if (EFI_ERROR(Status)) {
                Trace(DEBUG_ERROR,
                      "%a: ERROR %r registering SmmReadyToBoot callback for RegisterCxlRasSmiCallback procedure\n",
                      Status);
            }
        } else {
            Trace(DEBUG_INIT, "%a: System running in OS First Mode. Skip registering CXL SMI callback.\n");
        }
    }
    if (mPlatformApeiData->OemMcaThresholdMapTable != nullptr) {
        Status = PassOemMcaThresholdMapTableToTALVO(mPlatformApeiData->OemMcaThresholdMapTable);
        if (EFI_ERROR(Status)) {
            Trace(DEBUG_ERROR, "%a: ERROR %r passing OEM MCA THRESHOLD MAP TABLE to TALVO RAS\n", Status);
        }
    }
    return Status;
}
