#include "Library/VornCperCreateLib/CxlSections.h"

#include "Include/CxlEventUuids.h"
#include "Include/CxlRegisters.h"
#include "Library/RasLib/Memory.h"
#include "Library/RasLib/Trace.h"
#include "Library/VornCperCreateLib/CperRecord.h"
#include "Library/VornCperCreateLib/PcieSection.h"

namespace {

// Bytes of a component event section that has no room for an event.
constexpr UINT64 COMPONENT_SECTION_FRONT_SIZE = offsetof(CPER_CXL_COMPONENT_SECTION, ComponentEventLog);
static_assert(COMPONENT_SECTION_FRONT_SIZE == 32);

constexpr UINT16 DEVICE_DVSEC_LENGTH = 60;
constexpr UINT16 FLEX_BUS_PORT_DVSEC_LENGTH = 32;
static_assert(DEVICE_DVSEC_LENGTH == sizeof(PCI_DEVICE_STATE::Cxl.Dvsec));
constexpr UINT16 ERROR_LOG_LENGTH = 536;
static_assert(ERROR_LOG_LENGTH == sizeof(PCI_DEVICE_STATE::Cxl.RasCapability));

// What a section of an agent has room for: the restricted downstream port and kinds that a section length is never
// asked for have none.
struct AGENT_ROOM {
    UINT16 Dvsec;
    UINT16 ErrorLog;
};
constexpr AGENT_ROOM RoomOf(UINT32 AgentType) {
    switch (AgentType) {
        case CxlAgentRcdDevice:
        case CxlAgentDevice:
            return {DEVICE_DVSEC_LENGTH, ERROR_LOG_LENGTH};
        case CxlAgentRootPort:
        case CxlAgentSwitchDownstreamPort:
        case CxlAgentSwitchUpstreamPort:
            return {FLEX_BUS_PORT_DVSEC_LENGTH, ERROR_LOG_LENGTH};
        default:
            return {0, 0};
    }
}

// Bytes of the DVSEC that a record of an agent carries.
constexpr UINT16 DvsecLengthOf(UINT32 AgentType) {
    const bool IsDeviceOfOtherKind = AgentType == CxlAgentLogicalDevice || AgentType == CxlAgentFabricManagedDevice;
    return IsDeviceOfOtherKind ? DEVICE_DVSEC_LENGTH : RoomOf(AgentType).Dvsec;
}

// Agents that have a configuration space: all but the restricted downstream port.
constexpr bool IsFunction(UINT32 AgentType) {
    return AgentType <= CxlAgentSwitchUpstreamPort && AgentType != CxlAgentRchDownstreamPort;
}

struct HANDLED_CLASS {
    UINT8 CXL_ERROR_STATUS::*Handle;
    CPER_IO_CLASS Class;
};
constexpr HANDLED_CLASS HandledClasses[] = {
    {&CXL_ERROR_STATUS::HandleFatal, {CperSeverityRecoverable, CperSeverityFatal, "CXL Fatal"}},
    {&CXL_ERROR_STATUS::HandleNonFatal, {CperSeverityRecoverable, CperSeverityRecoverable, "CXL Non-Fatal"}},
    {&CXL_ERROR_STATUS::HandleCorrectable, {CperSeverityCorrected, CperSeverityCorrected, "CXL Correctable"}},
};

// By the severity of the event record; whatever lies above failure is fatal.
constexpr CPER_IO_CLASS EventClasses[] = {
    {CperSeverityCorrected, CperSeverityCorrected, "CXL Informational"},
    {CperSeverityCorrected, CperSeverityCorrected, "CXL Warning"},
    {CperSeverityCorrected, CperSeverityCorrected, "CXL Failure"},
    {CperSeverityFatal, CperSeverityFatal, "CXL Fatal"},
};

const CPER_IO_CLASS* ClassOf(const CXL_ERROR_STATUS& ErrorStatus) {
    for (const HANDLED_CLASS& Row : HandledClasses) {
        if (ErrorStatus.*Row.Handle != FALSE) {
            return &Row.Class;
        }
    }
    return nullptr;
}

bool IsRoomy(UINT32 CperLength, UINT64 Needed, const CHAR8* Caller) {
    if (CperLength < Needed) {
        TraceAs(Caller, DEBUG_ERROR, "%a: ERROR CperLength %d < %d, aborting...\n", CperLength, Needed);
        return false;
    }
    return true;
}

void FillAgent(const PCI_DEVICE_STATE& State, const PCI_SLOT_NUMBER_DATA& SlotNumberData,
               CPER_CXL_PROTOCOL_SECTION* Section) {
    const auto& Cxl = State.Cxl;
    Section->CxlAgentType = static_cast<UINT8>(Cxl.CxlAgentType);
    Section->ValidationBits |= CperCxlProtocolValid::CxlAgentType::Mask;
    if (Cxl.CxlAgentType == CxlAgentRchDownstreamPort) {
        CopyMem(Section->CxlAgentAddress, &Cxl.CxlAgentAddress, sizeof(Section->CxlAgentAddress));
        Section->ValidationBits |= CperCxlProtocolValid::CxlAgentAddress::Mask;
    }
    if (!IsFunction(Cxl.CxlAgentType)) {
        return;
    }
    const CXL_AGENT_ADDRESS& From = Cxl.CxlAgentAddress;
    const CXL_AGENT_ADDRESS Address{From.Function, From.Device, From.Bus, From.Segment, {}};
    static_assert(sizeof(Address) == sizeof(Section->CxlAgentAddress));
    CopyMem(Section->CxlAgentAddress, &Address, sizeof(Address));
    const CXL_DEVICE_ID& Id = Cxl.CxlDeviceId;
    Section->DeviceId = {Id.VendorId,
                         Id.DeviceId,
                         Id.SubsystemVendorId,
                         Id.SubsystemId,
                         Id.ClassCode,
                         VornCperGetSlotNumber(SlotNumberData),
                         0};
    Section->ValidationBits |= CperCxlProtocolValid::CxlAgentAddress::Mask | CperCxlProtocolValid::DeviceId::Mask;
}

void FillSerialNumberAndCapability(const PCI_DEVICE_STATE& State, CPER_CXL_PROTOCOL_SECTION* Section) {
    if (State.Cxl.DeviceSerialNumber != 0) {
        Section->DeviceSerialNumber = State.Cxl.DeviceSerialNumber;
        Section->ValidationBits |= CperCxlProtocolValid::DeviceSerialNumber::Mask;
    }
    if (State.PcieCapabilityOffset != 0 && IsFunction(State.Cxl.CxlAgentType)) {
        static_assert(sizeof(Section->CapabilityStructure) == sizeof(State.PcieCapability));
        CopyMem(Section->CapabilityStructure, State.PcieCapability, sizeof(State.PcieCapability));
        Section->ValidationBits |= CperCxlProtocolValid::CapabilityStructure::Mask;
    }
}

// What was captured of the function's registers: bytes of each, 0 for none.
AGENT_ROOM CapturedOf(const PCI_DEVICE_STATE& State) {
    return {State.Cxl.DvsecValid != FALSE ? DvsecLengthOf(State.Cxl.CxlAgentType) : UINT16{0},
            State.Cxl.RasCapabilityValid != FALSE ? ERROR_LOG_LENGTH : UINT16{0}};
}

// The DVSEC follows the section's front, the error log follows the DVSEC.
void FillRegisters(const PCI_DEVICE_STATE& State, AGENT_ROOM Captured, CPER_CXL_PROTOCOL_SECTION* Section) {
    auto* Next = reinterpret_cast<UINT8*>(Section + 1);
    if (Captured.Dvsec != 0) {
        Section->CxlDvsecLength = Captured.Dvsec;
        CopyMem(Next, State.Cxl.Dvsec, Captured.Dvsec);
        Next += Captured.Dvsec;
        Section->ValidationBits |= CperCxlProtocolValid::CxlDvsec::Mask;
    }
    if (Captured.ErrorLog != 0) {
        Section->CxlErrorLogLength = Captured.ErrorLog;
        CopyMem(Next, State.Cxl.RasCapability, Captured.ErrorLog);
        Section->ValidationBits |= CperCxlProtocolValid::CxlErrorLog::Mask;
    }
}

const CXL_EVENT_RECORD_UUID* FindEventRecordUuid(const EFI_GUID* pUuid) {
    for (const CXL_EVENT_RECORD_UUID& Known : CxlEventRecordUuids) {
        if (pUuid != nullptr && SameMem(pUuid, Known.Bytes, sizeof(Known.Bytes))) {
            return &Known;
        }
    }
    return nullptr;
}

// The UUID as it is written: its bytes in their order.
struct UUID_TEXT {
    CHAR8 Text[37];
};
UUID_TEXT UuidText(const EFI_GUID& Uuid) {
    constexpr CHAR8 Digits[] = "0123456789abcdef";
    UUID_TEXT Written{};
    CHAR8* Next = Written.Text;
    const auto* Bytes = reinterpret_cast<const UINT8*>(&Uuid);
    for (UINTN At = 0; At < sizeof(Uuid); At++) {
        if (At == 4 || At == 6 || At == 8 || At == 10) {
            *Next++ = '-';
        }
        *Next++ = Digits[Bytes[At] >> 4];
        *Next++ = Digits[Bytes[At] & 0xF];
    }
    return Written;
}

void FillComponentSection(const PCI_DEVICE_STATE& State, PCI_SBDF Sbdf, const PCI_SLOT_NUMBER_DATA& SlotNumberData,
                          const void* pEventRecord, CPER_CXL_COMPONENT_SECTION* Section) {
    // The section's own length stays zero on purpose: the descriptor carries it.
    if (IsFunction(State.Cxl.CxlAgentType)) {
        Section->VendorId = State.Cxl.CxlDeviceId.VendorId;
        Section->DeviceId = State.Cxl.CxlDeviceId.DeviceId;
        Section->Function = Sbdf.Func;
        Section->Device = Sbdf.Dev;
        Section->Bus = Sbdf.Bus;
        Section->Segment = Sbdf.Seg;
        Section->SlotNumber = VornCperGetSlotNumber(SlotNumberData);
        Section->ValidationBits |= CperCxlComponentValid::DeviceId::Mask;
    }
    if (State.Cxl.DeviceSerialNumber != 0) {
        Section->DeviceSerialNumber = State.Cxl.DeviceSerialNumber;
        Section->ValidationBits |= CperCxlComponentValid::DeviceSerialNumber::Mask;
    }
    CopyMem(Section->ComponentEventLog, pEventRecord, sizeof(Section->ComponentEventLog));
    Section->ValidationBits |= CperCxlComponentValid::ComponentEventLog::Mask;
}

}  // namespace

UINT64 VornCperGetCxlProtocolSectionLength(UINT32 AgentType, BOOLEAN DvsecPresent, BOOLEAN ErrorLogPresent) {
    const AGENT_ROOM Room = RoomOf(AgentType);
    return sizeof(CPER_CXL_PROTOCOL_SECTION) + (DvsecPresent != FALSE ? Room.Dvsec : 0) +
           (ErrorLogPresent != FALSE ? Room.ErrorLog : 0);
}

UINT64 VornCperGetCxlProtocolRecordLength(UINT32 AgentType, BOOLEAN DvsecPresent, BOOLEAN ErrorLogPresent) {
    return sizeof(CPER_RECORD) + VornCperGetCxlProtocolSectionLength(AgentType, DvsecPresent, ErrorLogPresent);
}

EFI_STATUS VornCperCreateCxlProtocol(UINT64 Level, UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                     const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
                                     const PCI_DEVICE_STATE* pPciDeviceState, BOOLEAN PreviousError,
                                     UINT32 CperLength, CPER_RECORD* pCper) {
    if (pCper == nullptr || pSlotNumberData == nullptr || pPciDeviceState == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input pointers are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const CPER_IO_CLASS* Class = ClassOf(pPciDeviceState->Cxl.ErrorStatus);
    if (Class == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR CXL device not requiring error reporting, aborting...\n");
        return EFI_UNSUPPORTED;
    }
    const AGENT_ROOM Captured = CapturedOf(*pPciDeviceState);
    if (!IsRoomy(CperLength,
                 sizeof(CPER_RECORD) + sizeof(CPER_CXL_PROTOCOL_SECTION) + Captured.Dvsec + Captured.ErrorLog,
                 __func__)) {
        return EFI_BUFFER_TOO_SMALL;
    }
    // Meant: the descriptor claims room for DVSEC and error log, whether or not they were captured.
    FillCperRecordFrontIo(Level, *Class, gCperSectionCxlProtocolGuid,
                          VornCperGetCxlProtocolSectionLength(pPciDeviceState->Cxl.CxlAgentType, TRUE, TRUE),
                          CperLength, PreviousError, pCper);
    auto* Section = CperSection<CPER_CXL_PROTOCOL_SECTION>(pCper);
    FillAgent(*pPciDeviceState, *pSlotNumberData, Section);
    FillSerialNumberAndCapability(*pPciDeviceState, Section);
    FillRegisters(*pPciDeviceState, Captured, Section);
    Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X agent type %d DVSEC length %d error log length %d valid 0x%lx\n", Seg,
          Bus, Dev, Func, Section->CxlAgentType, Section->CxlDvsecLength, Section->CxlErrorLogLength,
          Section->ValidationBits);
    return EFI_SUCCESS;
}

BOOLEAN VornElogCxlCheckComponentEventSectionType(const EFI_GUID* pSectionType) {
    return FindEventRecordUuid(pSectionType) != nullptr ? TRUE : FALSE;
}

UINT64 VornCperGetCxlComponentSectionLength(const EFI_GUID* pEventRecordUuid) {
    if (pEventRecordUuid == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR pEventRecordUuid == NULL, aborting...\n");
        return COMPONENT_SECTION_FRONT_SIZE;
    }
    if (FindEventRecordUuid(pEventRecordUuid) == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR CXL Component event record identifier UUID %a is not recognized\n",
              UuidText(*pEventRecordUuid).Text);
        return COMPONENT_SECTION_FRONT_SIZE;
    }
    return sizeof(CPER_CXL_COMPONENT_SECTION);
}

UINT64 VornCperGetCxlComponentRecordLength(const EFI_GUID* pEventRecordUuid) {
    return sizeof(CPER_RECORD) + VornCperGetCxlComponentSectionLength(pEventRecordUuid);
}

EFI_STATUS VornCperCreateCxlComponent(UINT64 Level, UINT8 Seg, UINT8 Bus, UINT8 Dev, UINT8 Func,
                                      const PCI_SLOT_NUMBER_DATA* pSlotNumberData,
                                      const PCI_DEVICE_STATE* pPciDeviceState, BOOLEAN PreviousError,
                                      const EFI_GUID* pEventRecordUuid, UINT8 EventSeverity, const void* pEventRecord,
                                      UINT32 CperLength, CPER_RECORD* pCper) {
    if (pCper == nullptr || pSlotNumberData == nullptr || pPciDeviceState == nullptr || pEventRecordUuid == nullptr ||
        pEventRecord == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR One or more input pointers are NULL, aborting...\n");
        return EFI_INVALID_PARAMETER;
    }
    const CXL_EVENT_RECORD_UUID* Kind = FindEventRecordUuid(pEventRecordUuid);
    if (Kind == nullptr) {
        Trace(DEBUG_ERROR, "%a: ERROR CXL Component event record identifier UUID %a is not recognized, aborting...\n",
              UuidText(*pEventRecordUuid).Text);
        return EFI_UNSUPPORTED;
    }
    const UINT64 SectionLength = VornCperGetCxlComponentSectionLength(pEventRecordUuid);
    if (!IsRoomy(CperLength, sizeof(CPER_RECORD) + SectionLength, __func__)) {
        return EFI_BUFFER_TOO_SMALL;
    }
    const CPER_IO_CLASS& Class =
        EventClasses[EventSeverity < CxlEventLogFatal ? EventSeverity : UINT8{CxlEventLogFatal}];
    // The UUID may lie unaligned inside the event record.
    EFI_GUID SectionType;
    CopyMem(&SectionType, pEventRecordUuid, sizeof(SectionType));
    FillCperRecordFrontIo(Level, Class, SectionType, SectionLength, CperLength, PreviousError, pCper);
    FillComponentSection(*pPciDeviceState, {Seg, Bus, Dev, Func}, *pSlotNumberData, pEventRecord,
                         CperSection<CPER_CXL_COMPONENT_SECTION>(pCper));
    Trace(Level, "%a: SBDF %04X:%02X:%02X.%1X %a severity %d => %a\n", Seg, Bus, Dev, Func, Kind->Name, EventSeverity,
          Class.FruText);
    return EFI_SUCCESS;
}
