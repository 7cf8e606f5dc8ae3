#include "PlatformRas/Qtz/Smm/PcieErrorSmi.h"

#include "Include/IohcRegisters.h"
#include "Library/RasLib/FabricTopology.h"
#include "Library/RasLib/Globals.h"
#include "Library/RasLib/PciePortMap.h"
#include "Library/RasLib/Smn.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/SelTransport.h"
#include "Library/VornElogPolicyLib/ErrorRecordBuffers.h"
#include "Library/VornElogPolicyLib/Notification/Cleanup.h"
#include "Library/VornElogPolicyLib/Pcie/DeviceState.h"
#include "Library/VornElogPolicyLib/Pcie/ErrorScan.h"
#include "Library/VornElogPolicyLib/Pcie/PostProcessPcie.h"
#include "Platform/State.h"
#include "PlatformRas/Qtz/Smm/DriverInit.h"
#include "PlatformRas/Qtz/Smm/Registration.h"

KYR_STATE UINT64 NumPcieRbCallbacksProcessed = 0;
KYR_STATE UINT8 PciErrorsDetected = 0;

namespace {

constexpr const CHAR8* CALLBACK = "KyrPcieLegacyRasSmiCallback";
using ErrorFound = Field<UINT8, 0>;  // of PciErrorsDetected

// The registers of one root complex.
class Iohc {
 public:
    explicit Iohc(const RB_BUS_ENTRY& Entry)
        : SegBus(SmnSegBus(Entry.RbSeg, Entry.RbBusBase)), NbioId(Entry.Nbio), IohcId(Entry.Iohc) {}

    UINT32 Read(const IOHC_REGISTER& Register) const {
        UINT32 Value = 0;
        RasSmnRead(SegBus, Register.SmnAddress(NbioId, IohcId), &Value);
        return Value;
    }
    void Write(const IOHC_REGISTER& Register, UINT32 Value) const {
        RasSmnWrite(SegBus, Register.SmnAddress(NbioId, IohcId), &Value);
    }
    // Reads the register and writes back what Mask selects of it.
    void WriteBack(const IOHC_REGISTER& Register, UINT32 Mask) const {
        RasSmnRW(SegBus, Register.SmnAddress(NbioId, IohcId), Mask, 0);
    }

 private:
    UINT32 SegBus;
    UINT8 NbioId;
    UINT8 IohcId;
};

// What one root complex reports.
struct REPORTED {
    bool ProtocolError;
    bool CxlComponentEvent;
    UINT32 SwSmiCntl;  // read where a CXL component event may be pending
};

REPORTED ReadReported(const Iohc& Hub, const IO_HUB_DATA& Where) {
    REPORTED Reported = {};
    const UINT32 Status = Hub.Read(IOHC_RAS_GLOBAL_STATUS);
    const UINT32 StatusHi = Hub.Read(IOHC_RAS_GLOBAL_STATUS_HI);
    TraceAs(CALLBACK, mSerDbgLevel,
            "%a: PCIe root complex @ DfNode %d Nbio %d Iohc %d Seg 0x%02x Bus 0x%02x -> RAS_GLOBAL_STATUS 0x%08x "
            "RAS_GLOBAL_STATUS_HI 0x%08x, error pending on entry %d\n",
            Where.SocketId, Where.NbioId, Where.IohcId, Where.Segment, Where.BusBase, Status, StatusHi,
            Status != 0 || StatusHi != 0);
    if (RasGlobalStatus::MpioFirmwareInterrupt::Get(Status) != 0) {
        Reported.SwSmiCntl = Hub.Read(IOHC_SW_SMI_CNTL);
        if (SwSmiCntl::CxlEvent::Get(Reported.SwSmiCntl) != 0) {
            Reported.CxlComponentEvent = true;
            TraceAs(CALLBACK, mSerDbgLevel,
                    "%a: PCIe root complex @ DfNode %d Nbio %d Iohc %d Seg 0x%02x Bus 0x%02x -> CXL Component error "
                    "detected\n",
                    Where.SocketId, Where.NbioId, Where.IohcId, Where.Segment, Where.BusBase);
        }
    }
    if (RasGlobalStatusHi::PortErrors::Get(StatusHi) != 0) {
        Reported.ProtocolError = true;
        TraceAs(
            CALLBACK, mSerDbgLevel,
            "%a: PCIe root complex @ DfNode %d Nbio %d Iohc %d Seg 0x%02x Bus 0x%02x -> PCI or CXL Protocol error "
            "detected\n",
            Where.SocketId, Where.NbioId, Where.IohcId, Where.Segment, Where.BusBase);
    }
    return Reported;
}

// Finds what failed below the root complex, acknowledges the report so that the SMI does not re-enter, and dispatches
// what was found while the registers are fresh.
void ScanRootComplex(const Iohc& Hub, UINT8 IndexOfRbBusMap, const IO_HUB_DATA& Where) {
    const REPORTED Reported = ReadReported(Hub, Where);
    if (!Reported.ProtocolError && !Reported.CxlComponentEvent) {
        return;
    }
    PciErrorsDetected |= ErrorFound::Mask;
    const EFI_STATUS Status = PcieErrorScanHelper(IndexOfRbBusMap, &Where, SCAN_ALL_ROOT_PORTS);
    if (EFI_ERROR(Status)) {
        TraceAs(CALLBACK, DEBUG_ERROR,
                "%a: ERROR %r from PCIe error scan on PCIe root complex @ DfNode %d Nbio %d Iohc %d Seg 0x%02x Bus "
                "0x%02x\n",
                Status, Where.SocketId, Where.NbioId, Where.IohcId, Where.Segment, Where.BusBase);
    }
    if (Reported.ProtocolError) {
        Hub.WriteBack(IOHC_RAS_GLOBAL_STATUS_HI, RasGlobalStatusHi::PortErrors::Mask);
    }
    if (Reported.CxlComponentEvent) {
        // Its bits act when they are written: the value that was read acknowledges the event.
        Hub.Write(IOHC_SW_SMI_CNTL, Reported.SwSmiCntl);
    }
    VornElogSmmHandlePciErrors(Where.SocketId, Where.NbioId, Where.IohcId, Where.Segment, Where.BusBase);
}

// This platform has nothing to prepare before records are post-processed.
void PreparePostProcessing() {}

// One batch of records, events and signals for all root complexes of the SMI.
void PostProcess() {
    PreparePostProcessing();
    TraceAs(CALLBACK, mSerDbgLevel, "%a: Start Vorn PCI error record post-processing\n");
    VornElogSmmPostProcessErrorRecordsPci();
    TraceAs(CALLBACK, mSerDbgLevel, "%a: Start Vorn PCI error record buffer clearing prior to SMM exit\n");
    VornElogSmmClearErrorRecordBuffersPci();
    TraceAs(CALLBACK, mSerDbgLevel, "%a: Start Vorn BMC SEL reporting\n");
    ElogSendSelLog();
    VornElogSmmPostProcessCleanup();
    TraceAs(CALLBACK, mSerDbgLevel, "%a: PCIe post-processing complete\n");
}

// Counts the handler; the last one of the SMI ends it.
void CountHandler() {
    NumPcieRbCallbacksProcessed++;
    if (NumPcieRbCallbacksProcessed != NumPcieRbCallbacksRegistered) {
        return;
    }
    if (PciErrorsDetected != 0) {
        PostProcess();
        PciErrorsDetected = 0;
    }
    VornElogSmmClearPciDeviceStatusQueue();
    if (DebugPrintLevelEnabled(mSerDbgLevelDetailed)) {
        VornDisplayRasGlobalStatus(mSerDbgLevelDetailed);
    }
    NumPcieRbCallbacksProcessed = 0;
}

// Tells of a root complex that would raise its SMI again.
void VerifyBeforeExit(const Iohc& Hub, const IO_HUB_DATA& Where) {
    const UINT32 Status = Hub.Read(IOHC_RAS_GLOBAL_STATUS);
    const UINT32 StatusHi = Hub.Read(IOHC_RAS_GLOBAL_STATUS_HI);
    TraceAs(CALLBACK, Status != 0 || StatusHi != 0 ? DEBUG_ERROR : mSerDbgLevel,
            "%a: Read Verify Before Exit, PCIe root complex @ DfNode %d Nbio %d Iohc %d Seg 0x%02x Bus 0x%02x -> "
            "RAS_GLOBAL_STATUS 0x%08x RAS_GLOBAL_STATUS_HI 0x%08x\n",
            Where.SocketId, Where.NbioId, Where.IohcId, Where.Segment, Where.BusBase, Status, StatusHi);
}

}  // namespace

EFI_STATUS KyrPcieLegacyRasSmiCallback(EFI_HANDLE, const FCH_SMM_APU_RAS_REGISTER_CONTEXT* Context) {
    UINT8 Index = 0;
    const EFI_STATUS Status = GetIndexByIomFromRbBusMap(mRbBusMap, Context->Socket, Context->Nbio, &Index);
    if (EFI_ERROR(Status)) {
        Trace(DEBUG_ERROR, "%a: ERROR %r from GetIndexByIomFromRbBusMap for Socket %d Nbio %d, aborting...\n", Status,
              Context->Socket, Context->Nbio);
        CountHandler();
        return EFI_SUCCESS;
    }
    const RB_BUS_ENTRY& Entry = RbBusEntries(mRbBusMap)[Index];
    const Iohc Hub(Entry);
    const IO_HUB_DATA Where = IoHubDataOf(Entry);
    ScanRootComplex(Hub, Index, Where);
    CountHandler();
    VerifyBeforeExit(Hub, Where);
    return EFI_SUCCESS;
}

void VornDisplayRasGlobalStatus(UINT64 DebugLevel) {
    for (UINT64 Index = 0; mRbBusMap != nullptr && Index < mRbBusMap->RbCount; Index++) {
        const RB_BUS_ENTRY& Entry = RbBusEntries(mRbBusMap)[Index];
        const Iohc Hub(Entry);
        Trace(DebugLevel,
              "%a: Socket %d Nbio %d Iohc %d Seg 0x%02x Bus 0x%02x RAS_GLOBAL_STATUS 0x%08x RAS_GLOBAL_STATUS_HI "
              "0x%08x\n",
              Entry.Socket, Entry.Nbio, Entry.Iohc, Entry.RbSeg, Entry.RbBusBase, Hub.Read(IOHC_RAS_GLOBAL_STATUS),
              Hub.Read(IOHC_RAS_GLOBAL_STATUS_HI));
    }
}
