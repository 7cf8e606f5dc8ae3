#include "Library/VornElogChipsetLib/SelPcie.h"

#include "Include/Cper.h"
#include "Include/SelData.h"
#include "Library/RasLib/Text.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornElogChipsetLib/SelRegisters.h"
#include "Library/VornElogChipsetLib/SelTransport.h"

namespace {

constexpr UINT8 SENSOR_PCI_PERR = 0x04;
constexpr UINT8 SENSOR_PCI_SERR = 0x05;
constexpr UINT8 SENSOR_PCIE = 0x16;
constexpr UINT8 SENSOR_CHIPSET = 0x17;
constexpr UINT8 SENSOR_CXL = 0x1D;
constexpr UINT8 EVENT_PCI_PERR = 0xA4;
constexpr UINT8 EVENT_PCI_SERR = 0xA5;

// Event data 1 of PCIe, CXL and chipset events.
namespace EventData1 {
using Segment = Field<UINT8, 7, 4>;
using Class = Field<UINT8, 3, 2>;  // SelDeviceClass within PCIe or CXL
using Severity = Field<UINT8, 1, 0>;
using ChipsetSeverity = Field<UINT8, 3, 0>;
static_assert(FieldsDisjoint<Segment, Class, Severity>());
}  // namespace EventData1

struct PCIE_SEL_MESSAGE_ENTRY {
    UINT32 Class;
    UINT32 Severity;
    CHAR8 Id[SEL_MESSAGE_ID_SIZE];
};

// The CXL identifiers are registered in mixed case.
constexpr PCIE_SEL_MESSAGE_ENTRY PcieSelMessages[] = {
    {SelDeviceClassPcieSlot, SelSeverityDpc, "PCI3043"},
    {SelDeviceClassPcieSlot, SelSeverityInformational, "CPU9000"},
    {SelDeviceClassPcieSlot, SelSeverityCorrectable, "PCI3036"},
    {SelDeviceClassPcieSlot, SelSeverityFatal, "PCI3039"},
    {SelDeviceClassPcieSbdf, SelSeverityDpc, "PCI3031"},
    {SelDeviceClassPcieSbdf, SelSeverityInformational, "CPU9000"},
    {SelDeviceClassPcieSbdf, SelSeverityCorrectable, "PCI3037"},
    {SelDeviceClassPcieSbdf, SelSeverityFatal, "PCI3040"},
    {SelDeviceClassPcieSsd, SelSeverityDpc, "PCI3032"},
    {SelDeviceClassPcieSsd, SelSeverityInformational, "CPU9000"},
    {SelDeviceClassPcieSsd, SelSeverityCorrectable, "PCI3038"},
    {SelDeviceClassPcieSsd, SelSeverityFatal, "PCI3041"},
    {SelDeviceClassCxlSlot, SelSeverityDpc, "Cxl1000"},
    {SelDeviceClassCxlSlot, SelSeverityInformational, "Cxl1010"},
    {SelDeviceClassCxlSlot, SelSeverityCorrectable, "Cxl1020"},
    {SelDeviceClassCxlSlot, SelSeverityFatal, "Cxl1030"},
    {SelDeviceClassCxlSbdf, SelSeverityDpc, "CXL1002"},
    {SelDeviceClassCxlSbdf, SelSeverityInformational, "CXL1012"},
    {SelDeviceClassCxlSbdf, SelSeverityCorrectable, "CXL1022"},
    {SelDeviceClassCxlSbdf, SelSeverityFatal, "CXL1032"},
    {SelDeviceClassCxlCmm, SelSeverityDpc, "Cxl1001"},
    {SelDeviceClassCxlCmm, SelSeverityInformational, "Cxl1011"},
    {SelDeviceClassCxlCmm, SelSeverityCorrectable, "Cxl1021"},
    {SelDeviceClassCxlCmm, SelSeverityFatal, "Cxl1031"},
};

struct CHIPSET_SEL_MESSAGE_ENTRY {
    UINT32 Severity;
    CHAR8 Id[SEL_MESSAGE_ID_SIZE];
};

constexpr CHIPSET_SEL_MESSAGE_ENTRY ChipsetSelMessages[] = {
    {SelChipsetSeverityInformational, "CPU9000"},
    {SelChipsetSeverityCorrectable, "CPU9000"},
    {SelChipsetSeverityFatal, "PCI3042"},
};

constexpr const CHAR8* SeverityTexts[] = {"DPC", "Informational", "Correctable Error", "Fatal Error"};
constexpr const CHAR8* DeviceTexts[] = {"Slot", "SBDF", "SSD", "Slot", "SBDF", "CMM"};
constexpr const CHAR8* ChipsetSeverityTexts[] = {"Informational Event", "Correctable Error", "Fatal Error"};

template <UINTN Length>
const CHAR8* TextOf(const CHAR8* const (&Texts)[Length], UINT32 Index, const CHAR8* Otherwise) {
    return Index < Length ? Texts[Index] : Otherwise;
}

template <UINTN Count>
void JoinTexts(CHAR8* Destination, UINTN Size, const CHAR8* const (&Pieces)[Count]) {
    UINTN Used = 0;
    for (const CHAR8* Piece : Pieces) {
        CopyTextCut(Destination + Used, Size - Used, Piece, Size);
        Used += TextLength(Destination + Used, Size - Used);
    }
}

constexpr bool IsCxlClass(UINT32 EventType) {
    return EventType >= SelDeviceClassCxlSlot && EventType <= SelDeviceClassCxlCmm;
}

// Traced for the message that the BMC will show.
void TraceMessage(UINT32 EventType, UINT32 Severity, const CHAR8* Caller = __builtin_FUNCTION()) {
    CHAR8 Id[SEL_MESSAGE_ID_SIZE] = "";
    CHAR8 Message[SEL_MESSAGE_TEXT_SIZE] = "";
    ElogGetPcieEventMessageString(EventType, Severity, Id, Message);
    TraceAs(Caller, mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Logging Message ID %a <= %a\n", Id, Message);
}

}  // namespace

void ElogLogPciSerr(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func) {
    Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: SBDF %04X:%02X:%02X.%1X\n", Seg, Bus, Dev, Func);
    Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Logging Message ID PCI1310 <= PCI SERR event\n");
    const ELOG_SEL_DATA Body{SEL_SENSOR_TYPE_CRITICAL_INTERRUPT, SENSOR_PCI_SERR,
                             SEL_EVENT_TYPE_SENSOR_SPECIFIC,     EVENT_PCI_SERR,
                             SelDeviceFunction(Dev, Func),       Bus};
    ElogBmcData(&Body);
}

void ElogLogPciPerr(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func) {
    Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: SBDF %04X:%02X:%02X.%1X\n", Seg, Bus, Dev, Func);
    Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Logging Message ID PCI1308 <= PCI PERR event\n");
    const ELOG_SEL_DATA Body{SEL_SENSOR_TYPE_CRITICAL_INTERRUPT, SENSOR_PCI_PERR,
                             SEL_EVENT_TYPE_SENSOR_SPECIFIC,     EVENT_PCI_PERR,
                             SelDeviceFunction(Dev, Func),       Bus};
    ElogBmcData(&Body);
}

void ElogLogPcieOrCxlAnyEvent(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT32 Severity, UINT32 EventType,
                              const PCI_SLOT_NUMBER_DATA* pSlotNumberData) {
    if (pSlotNumberData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pSlotNumberData is NULL, aborting...\n");
        return;
    }
    const bool Cxl = IsCxlClass(EventType);
    const UINT8 Sbdf =
        static_cast<UINT8>(EventData1::Segment::Of(Seg) | EventData1::Severity::Of(static_cast<UINT8>(Severity)));
    const UINT8 LocalClass = static_cast<UINT8>(Cxl ? EventType - SelDeviceClassCxlSlot : EventType);
    ELOG_SEL_DATA Body{};
    Body.SensorType = Cxl ? SEL_SENSOR_TYPE_OEM_CXL : SEL_SENSOR_TYPE_OEM_PCIE;
    Body.SensorNumber = Cxl ? SENSOR_CXL : SENSOR_PCIE;
    Body.EventDirType = SEL_EVENT_TYPE_OEM_ERROR;
    Body.EventData1 = Sbdf | EventData1::Class::Of(LocalClass);
    switch (EventType) {
        case SelDeviceClassPcieSlot:
        case SelDeviceClassCxlSlot:
            Body.EventData2 = SelByte(pSlotNumberData->SlotNumber, 0);
            Body.EventData3 = SelByte(pSlotNumberData->SlotNumber, 1);
            break;
        case SelDeviceClassPcieSbdf:
        case SelDeviceClassCxlSbdf:
            Body.EventData2 = SelDeviceFunction(Dev, Func);
            Body.EventData3 = Bus;
            break;
        case SelDeviceClassPcieSsd:
        case SelDeviceClassCxlCmm:
            Body.EventData2 = pSlotNumberData->Drive.SlotId;
            Body.EventData3 = pSlotNumberData->Drive.BayId;
            break;
        default:
            Trace(DEBUG_ERROR, "%a: ERROR EventType %d not recognized, aborting...\n", EventType);
            return;
    }
    ElogBmcData(&Body);
    TraceMessage(EventType, Severity);

    const UINT32 SbdfClass = Cxl ? SelDeviceClassCxlSbdf : SelDeviceClassPcieSbdf;
    if (EventType == SbdfClass) {
        return;
    }
    Body.EventData1 = Sbdf | EventData1::Class::Of(SelDeviceClassPcieSbdf);
    Body.EventData2 = SelDeviceFunction(Dev, Func);
    Body.EventData3 = Bus;
    ElogBmcData(&Body);
    TraceMessage(SbdfClass, Severity);
}

void ElogLogChipsetAnyEvent(UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func, UINT32 Severity) {
    const ELOG_SEL_DATA Body{SEL_SENSOR_TYPE_OEM_CHIPSET,
                             SENSOR_CHIPSET,
                             SEL_EVENT_TYPE_OEM_ERROR,
                             static_cast<UINT8>(EventData1::Segment::Of(Seg) |
                                                EventData1::ChipsetSeverity::Of(static_cast<UINT8>(Severity))),
                             SelDeviceFunction(Dev, Func),
                             Bus};
    ElogBmcData(&Body);
    CHAR8 Id[SEL_MESSAGE_ID_SIZE] = "";
    CHAR8 Message[SEL_MESSAGE_TEXT_SIZE] = "";
    ElogGetChipsetEventMessageString(Severity, Id, Message);
    Trace(mPrivateDataVornElogIpmi.SerDbgLevel, "%a: Logging Message ID %a <= %a\n", Id, Message);
}

void ElogGetPcieEventType(UINT32 IsCxl, const PCI_SLOT_NUMBER_DATA* pSlotNumberData, UINT32* pEventType) {
    if (pSlotNumberData == nullptr || pEventType == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return;
    }
    const bool Cxl = IsCxl == 1;
    if (pSlotNumberData->Valid == FALSE) {
        *pEventType = Cxl ? SelDeviceClassCxlSbdf : SelDeviceClassPcieSbdf;
    } else if (pSlotNumberData->DeviceType != PciSlotDeviceNvmeDrive) {
        *pEventType = Cxl ? SelDeviceClassCxlSlot : SelDeviceClassPcieSlot;
    } else {
        *pEventType = Cxl ? SelDeviceClassCxlCmm : SelDeviceClassPcieSsd;
    }
}

void ElogGetSelPcieEventSeverity(UINT32 CperSeverity, UINT32* pSelSeverity) {
    if (pSelSeverity == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pSelSeverity == NULL, aborting...\n");
        return;
    }
    switch (CperSeverity) {
        case CperSeverityRecoverable:
        case CperSeverityFatal:
            *pSelSeverity = SelSeverityFatal;
            break;
        case CperSeverityCorrected:
            *pSelSeverity = SelSeverityCorrectable;
            break;
        default:
            *pSelSeverity = SelSeverityNone;
            break;
    }
}

void ElogGetPcieEventMessageString(UINT32 EventType, UINT32 Severity, CHAR8* pMessageId, CHAR8* pMessage) {
    if (pMessageId == nullptr || pMessage == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return;
    }
    for (const PCIE_SEL_MESSAGE_ENTRY& Entry : PcieSelMessages) {
        if (Entry.Class == EventType && Entry.Severity == Severity) {
            CopyTextCut(pMessageId, SEL_MESSAGE_ID_SIZE, Entry.Id, sizeof(Entry.Id));
            const CHAR8* const Pieces[] = {IsCxlClass(EventType) ? "CXL " : "PCIe ",
                                           TextOf(SeverityTexts, Severity, "Unrecognized"), " Event On ",
                                           TextOf(DeviceTexts, EventType, "Unrecognized Device")};
            JoinTexts(pMessage, SEL_MESSAGE_TEXT_SIZE, Pieces);
            return;
        }
    }
}

void ElogGetChipsetEventMessageString(UINT32 Severity, CHAR8* pMessageId, CHAR8* pMessage) {
    if (pMessageId == nullptr || pMessage == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input parameters are NULL, aborting...\n");
        return;
    }
    for (const CHIPSET_SEL_MESSAGE_ENTRY& Entry : ChipsetSelMessages) {
        if (Entry.Severity == Severity) {
            CopyTextCut(pMessageId, SEL_MESSAGE_ID_SIZE, Entry.Id, sizeof(Entry.Id));
            const CHAR8* const Pieces[] = {"Chipset ", TextOf(ChipsetSeverityTexts, Severity, "Unrecognized Event")};
            JoinTexts(pMessage, SEL_MESSAGE_TEXT_SIZE, Pieces);
            return;
        }
    }
}

namespace {

// The root-port record travels as a register: where the root complex is in the address, its IO hub and the two
// bridges in the value.
namespace RootPortAddress {
using Mark = Field<UINT32, 31, 28>;
using Segment = Field<UINT32, 27, 24>;
using BusBase = Field<UINT32, 23, 16>;
using SocketId = Field<UINT32, 7, 6>;
using DieId = Field<UINT32, 5, 4>;
using RbIndex = Field<UINT32, 3, 0>;
static_assert(FieldsDisjoint<Mark, Segment, BusBase, SocketId, DieId, RbIndex>());
}  // namespace RootPortAddress

namespace RootPortValue {
using IomLogicalId = Field<UINT32, 31, 28>;
using IomPhysicalId = Field<UINT32, 27, 24>;
using NbioId = Field<UINT32, 23, 20>;
using IohcId = Field<UINT32, 19, 16>;
using LogicalDevice = Field<UINT32, 15, 11>;
using LogicalFunction = Field<UINT32, 10, 8>;
using PhysicalDevice = Field<UINT32, 7, 3>;
using PhysicalFunction = Field<UINT32, 2, 0>;
static_assert(FieldsDisjoint<IomLogicalId, IomPhysicalId, NbioId, IohcId, LogicalDevice, LogicalFunction,
                             PhysicalDevice, PhysicalFunction>());
}  // namespace RootPortValue

}  // namespace

void VornElogLogPcieRootPortData(const IO_HUB_DATA* pIoHubData, UINT32 LogicalBridgePciAddress,
                                 UINT32 PhysicalBridgePciAddress) {
    if (pIoHubData == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pIoHubData == NULL, aborting...\n");
        return;
    }
    const IO_HUB_DATA& Hub = *pIoHubData;
    const UINT32 Address = RootPortAddress::Mark::Of(0xA) | RootPortAddress::Segment::Of(Hub.Segment) |
                           RootPortAddress::BusBase::Of(Hub.BusBase) | RootPortAddress::SocketId::Of(Hub.SocketId) |
                           RootPortAddress::DieId::Of(Hub.DieId) | RootPortAddress::RbIndex::Of(Hub.RbIndex);
    const UINT32 Value =
        RootPortValue::IomLogicalId::Of(Hub.IomLogicalId) | RootPortValue::IomPhysicalId::Of(Hub.IomPhysicalId) |
        RootPortValue::NbioId::Of(Hub.NbioId) | RootPortValue::IohcId::Of(Hub.IohcId) |
        RootPortValue::LogicalDevice::Of(PackedPciAddress::Device::Get(LogicalBridgePciAddress)) |
        RootPortValue::LogicalFunction::Of(PackedPciAddress::Function::Get(LogicalBridgePciAddress)) |
        RootPortValue::PhysicalDevice::Of(PackedPciAddress::Device::Get(PhysicalBridgePciAddress)) |
        RootPortValue::PhysicalFunction::Of(PackedPciAddress::Function::Get(PhysicalBridgePciAddress));
    ElogLogMmioChipsetInfo(Address, Value);
}
