#include "Library/VornElogPolicyLib/Cxl/CxlDeviceState.h"

#include "Library/RasLib/CxlRegisters.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/PciSegment.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogBaseLib/PciConfiguration.h"
#include "Library/VornElogPolicyLib/PrivateData.h"
#include "Platform/Hardware.h"

namespace {

constexpr const CHAR8* OPERATION = "VornElogGetCxlDeviceState";
constexpr UINT32 CONFIGURATION_SPACE_SIZE = 0x1000;

// Device Serial Number extended capability: its header, then the number.
struct SERIAL_NUMBER_CAPABILITY {
    UINT32 Header;
    UINT32 Low;
    UINT32 High;
};

UINT64 Level() {
    return mPrivateDataVornElogPolicyLib.SerDbgLevel;
}

// Finds a capability of the memory device registers with at least LeastLength bytes. What the device tells of it must
// lie inside its register block and be aligned for 64-bit registers.
bool FindDeviceCapability(const CXL_REGISTER_BLOCK& Block, UINT16 DeviceCapId, UINT64 LeastLength,
                          CXL_MAILBOX_LOCATION* pLocation) {
    UINT32 Length = 0;
    const UINT64 Offset = RasGetCxlDeviceCapabilityPointer(Block.Base, DeviceCapId, &Length);
    if (Offset == 0) {
        return false;
    }
    if (Offset % sizeof(UINT64) != 0 || Length < LeastLength || Offset > Block.Size || Block.Size - Offset < Length) {
        TraceAs(
            OPERATION, DEBUG_ERROR,
            "%a: CXL device capability %d offset 0x%lx length 0x%x does not lie in the 0x%lx bytes of its register "
            "block, not used\n",
            DeviceCapId, Offset, Length, Block.Size);
        return false;
    }
    *pLocation = {Offset, Length, Block.Base + Offset};
    return true;
}

void CaptureMemoryDevice(const PCI_SBDF& Where, PCI_DEVICE_STATE* pPciDeviceState) {
    auto& Cxl = pPciDeviceState->Cxl;
    CXL_REGISTER_BLOCK Block;
    if (!FindCxlRegisterBlock(PackPciAddress(Where.Seg, Where.Bus, Where.Dev, Where.Func),
                              CxlBlockMemoryDeviceRegisters, &Block)) {
        TraceAs(OPERATION, Level(), "%a: SBDF %04X:%02X:%02X.%1X has no CXL memory device registers\n", Where.Seg,
                Where.Bus, Where.Dev, Where.Func);
        return;
    }
    Cxl.MemoryDeviceRegisterBlock = Block.Base;
    FindDeviceCapability(Block, CxlDeviceCapabilityPrimaryMailbox, CXL_MAILBOX_PAYLOAD, &Cxl.PrimaryMailbox);
    FindDeviceCapability(Block, CxlDeviceCapabilitySecondaryMailbox, CXL_MAILBOX_PAYLOAD, &Cxl.SecondaryMailbox);
    CXL_MAILBOX_LOCATION DeviceStatus;
    if (FindDeviceCapability(Block, CxlDeviceCapabilityStatus, CXL_EVENT_STATUS_SIZE, &DeviceStatus)) {
        Cxl.DeviceEventStatus = MmioRead64(DeviceStatus.Address);
    }
    TraceAs(OPERATION, Level(),
            "%a: SBDF %04X:%02X:%02X.%1X primary mailbox offset 0x%lx, secondary 0x%lx, Event Status 0x%lx\n",
            Where.Seg, Where.Bus, Where.Dev, Where.Func, Cxl.PrimaryMailbox.Offset, Cxl.SecondaryMailbox.Offset,
            Cxl.DeviceEventStatus);
}

// A bridge that is no CXL port stays CxlAgentRcdDevice, which the DVSEC step does not know.
UINT32 AgentType(const PCI_DEVICE_STATE& Device) {
    const PCIE_CHARACTERISTICS& Is = Device.Pcie.Characteristics;
    if (Is.IsRootPort) {
        return CxlAgentRootPort;
    }
    if (Is.IsSwitchDownstreamPort) {
        return CxlAgentSwitchDownstreamPort;
    }
    if (Is.IsSwitchUpstreamPort) {
        return CxlAgentSwitchUpstreamPort;
    }
    return Device.IsPciBridgeDevice ? CxlAgentRcdDevice : CxlAgentDevice;
}

// More than the capability holds is read on purpose: the error log of a record has a fixed size, and the block goes
// on.
void CaptureRasCapability(PCI_DEVICE_STATE* pPciDeviceState) {
    auto& Cxl = pPciDeviceState->Cxl;
    for (UINTN At = 0; At < CXL_RAS_CAPABILITY_DWORDS; At++) {
        Cxl.RasCapability[At] = MmioRead32(Cxl.RasCapabilityAddress + At * sizeof(UINT32));
    }
    Cxl.RasCapabilityValid = TRUE;
}

void CaptureDvsec(const PCI_SBDF& Where, UINT16 DvsecId, UINTN Dwords, PCI_DEVICE_STATE* pPciDeviceState) {
    auto& Cxl = pPciDeviceState->Cxl;
    const UINT16 Offset =
        RasFindCxlDvsecCapability(PackPciAddress(Where.Seg, Where.Bus, Where.Dev, Where.Func), DvsecId);
    if (Offset == 0) {
        TraceAs(OPERATION, DEBUG_ERROR, "%a: SBDF %04X:%02X:%02X.%1X has no CXL DVSEC with ID %d\n", Where.Seg,
                Where.Bus, Where.Dev, Where.Func, DvsecId);
        return;
    }
    const UINTN Wanted = Dwords * sizeof(UINT32);
    const UINTN Room = CONFIGURATION_SPACE_SIZE - Offset;
    Cxl.DvsecAddress = PciFunctionAddress(Where, Offset);
    Cxl.DvsecId = DvsecId;
    PciSegmentReadBuffer(Cxl.DvsecAddress, Wanted < Room ? Wanted : Room, Cxl.Dvsec);
    Cxl.DvsecValid = TRUE;
}

void CaptureDvsecOfAgent(const PCI_SBDF& Where, PCI_DEVICE_STATE* pPciDeviceState) {
    switch (pPciDeviceState->Cxl.CxlAgentType) {
        case CxlAgentDevice:
        case CxlAgentLogicalDevice:
        case CxlAgentFabricManagedDevice:
            CaptureDvsec(Where, CxlDvsecDevice, CXL_DVSEC_DWORDS, pPciDeviceState);
            break;
        case CxlAgentRootPort:
        case CxlAgentSwitchDownstreamPort:
        case CxlAgentSwitchUpstreamPort:
            CaptureDvsec(Where, CxlDvsecFlexBusPort, CXL_FLEX_BUS_PORT_DVSEC_DWORDS, pPciDeviceState);
            break;
        default:
            TraceAs(OPERATION, DEBUG_ERROR, "%a: SBDF %04X:%02X:%02X.%1X CXL Agent Type %d not recognized\n",
                    Where.Seg, Where.Bus, Where.Dev, Where.Func, pPciDeviceState->Cxl.CxlAgentType);
            break;
    }
}

// EFI_SUCCESS for a function that has no serial number too.
EFI_STATUS CaptureSerialNumber(const PCI_SBDF& Where, PCI_DEVICE_STATE* pPciDeviceState) {
    UINT16 Offset = 0;
    SERIAL_NUMBER_CAPABILITY Serial = {};
    const EFI_STATUS Status = VornGetPcieExtendedCapabilityStructure(Where.Seg, Where.Bus, Where.Dev, Where.Func,
                                                                     PcieExtendedCapabilityDeviceSerialNumber,
                                                                     sizeof(Serial), &Offset, &Serial);
    if (Status == EFI_UNSUPPORTED) {
        return EFI_SUCCESS;
    }
    if (EFI_ERROR(Status)) {
        TraceAs(OPERATION, DEBUG_ERROR, "%a: ERROR %r reading serial number of SBDF %04X:%02X:%02X.%1X\n", Status,
                Where.Seg, Where.Bus, Where.Dev, Where.Func);
        return Status;
    }
    pPciDeviceState->Cxl.DeviceSerialNumber = static_cast<UINT64>(Serial.High) << 32 | Serial.Low;
    return EFI_SUCCESS;
}

void FillIdentification(const PCI_SBDF& Where, PCI_DEVICE_STATE* pPciDeviceState) {
    auto& Cxl = pPciDeviceState->Cxl;
    const UINT8* Header = pPciDeviceState->PciHeader;
    Cxl.CxlAgentAddress = {Where.Func, Where.Dev, Where.Bus, Where.Seg, {}};
    Cxl.CxlDeviceId.VendorId = CapturedRegister16(Header, PCI_VENDOR_ID);
    Cxl.CxlDeviceId.DeviceId = CapturedRegister16(Header, PCI_DEVICE_ID);
    if (!pPciDeviceState->IsPciBridgeDevice) {
        Cxl.CxlDeviceId.SubsystemVendorId = CapturedRegister16(Header, PCI_SUBSYSTEM_VENDOR_ID);
        Cxl.CxlDeviceId.SubsystemId = CapturedRegister16(Header, PCI_SUBSYSTEM_ID);
    }
    Cxl.CxlDeviceId.ClassCode = CapturedRegister16(Header, PCI_CLASS_SUBCLASS);
}

}  // namespace

EFI_STATUS VornElogGetCxlDeviceState(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, PCI_DEVICE_STATE* pPciDeviceState) {
    if (pPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pPciDeviceState == NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const UINT64 Component =
        RasGetRciepRegisterBlockAddress(PackPciAddress(Seg, Bus, Dev, Func), CxlBlockComponentRegisters);
    if (Component == 0) {
        Trace(Level(), "%a: SBDF %04X:%02X:%02X.%1X CXL component registers not supported, exiting...\n", Seg, Bus,
              Dev, Func);
        return EFI_UNSUPPORTED;
    }
    const UINT64 CacheMem = Component + CXL_CACHE_MEM_OFFSET;
    const UINT32 RasPointer = RasGetCxlCapabilityPointer(CacheMem, CxlCapabilityRas);
    if (RasPointer == 0) {
        Trace(Level(), "%a: SBDF %04X:%02X:%02X.%1X CXL RAS capability not supported, exiting...\n", Seg, Bus, Dev,
              Func);
        return EFI_UNSUPPORTED;
    }
    const PCI_SBDF Where = {Seg, Bus, Dev, Func};
    auto& Cxl = pPciDeviceState->Cxl;
    Cxl.IsCxl = TRUE;
    Cxl.CxlRevision = CXL_REVISION_2_0;
    Cxl.ComponentRegisterBlock = Component;
    Cxl.CacheMemRegisterBlock = CacheMem;
    Cxl.RasCapabilityAddress = CacheMem + RasPointer;

    CaptureMemoryDevice(Where, pPciDeviceState);
    Cxl.CxlAgentType = AgentType(*pPciDeviceState);
    CaptureRasCapability(pPciDeviceState);
    CaptureDvsecOfAgent(Where, pPciDeviceState);
    const EFI_STATUS Status = CaptureSerialNumber(Where, pPciDeviceState);
    FillIdentification(Where, pPciDeviceState);
    return Status;
}
