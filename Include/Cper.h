// Common Platform Error Records (UEFI 2.10, appendix N). The driver's records hold one header, one section
// descriptor and one section.
#pragma once

#include "Include/Field.h"
#include "Include/Layout.h"

// Plain numbers, not BCD. A time stamp whose Year is 0 was never set.
struct CPER_TIMESTAMP {
    UINT8 Seconds;
    UINT8 Minutes;
    UINT8 Hours;
    UINT8 Flags;  // bit 0: precise
    UINT8 Day;
    UINT8 Month;
    UINT8 Year;
    UINT8 Century;
};
KYR_RECORD(CPER_TIMESTAMP, 8);

#pragma pack(push, 1)
struct CPER_RECORD_HEADER {
    CHAR8 SignatureStart[4];
    UINT16 Revision;
    UINT32 SignatureEnd;
    UINT16 SectionCount;
    UINT32 ErrorSeverity;
    UINT32 ValidationBits;
    UINT32 RecordLength;
    CPER_TIMESTAMP TimeStamp;
    EFI_GUID PlatformId;
    EFI_GUID PartitionId;
    EFI_GUID CreatorId;
    EFI_GUID NotificationType;
    UINT64 RecordId;
    UINT32 Flags;
    UINT64 PersistenceInfo;
    UINT8 Reserved116[12];
};
KYR_RECORD(CPER_RECORD_HEADER, 128);
KYR_FIELD(CPER_RECORD_HEADER, Revision, 4);
KYR_FIELD(CPER_RECORD_HEADER, SignatureEnd, 6);
KYR_FIELD(CPER_RECORD_HEADER, SectionCount, 10);
KYR_FIELD(CPER_RECORD_HEADER, ErrorSeverity, 12);
KYR_FIELD(CPER_RECORD_HEADER, ValidationBits, 16);
KYR_FIELD(CPER_RECORD_HEADER, RecordLength, 20);
KYR_FIELD(CPER_RECORD_HEADER, TimeStamp, 24);
KYR_FIELD(CPER_RECORD_HEADER, PlatformId, 32);
KYR_FIELD(CPER_RECORD_HEADER, NotificationType, 80);
KYR_FIELD(CPER_RECORD_HEADER, RecordId, 96);
KYR_FIELD(CPER_RECORD_HEADER, Flags, 104);
KYR_FIELD(CPER_RECORD_HEADER, PersistenceInfo, 108);

inline constexpr UINTN CPER_FRU_STRING_SIZE = 20;

struct CPER_SECTION_DESCRIPTOR {
    UINT32 SectionOffset;
    UINT32 SectionLength;
    UINT16 Revision;
    UINT8 SecValidMask;
    UINT8 Reserved11;
    UINT32 Flags;
    EFI_GUID SectionType;
    EFI_GUID FruId;
    UINT32 Severity;
    CHAR8 FruString[CPER_FRU_STRING_SIZE];
};
KYR_RECORD(CPER_SECTION_DESCRIPTOR, 72);
KYR_FIELD(CPER_SECTION_DESCRIPTOR, SecValidMask, 10);
KYR_FIELD(CPER_SECTION_DESCRIPTOR, Flags, 12);
KYR_FIELD(CPER_SECTION_DESCRIPTOR, SectionType, 16);
KYR_FIELD(CPER_SECTION_DESCRIPTOR, FruId, 32);
KYR_FIELD(CPER_SECTION_DESCRIPTOR, Severity, 48);
KYR_FIELD(CPER_SECTION_DESCRIPTOR, FruString, 52);

// The front that all of the driver's records share; the section follows.
struct CPER_RECORD {
    CPER_RECORD_HEADER Header;
    CPER_SECTION_DESCRIPTOR Descriptor;
};
KYR_RECORD(CPER_RECORD, 200);
KYR_FIELD(CPER_RECORD, Descriptor, 128);

struct EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION {
    EFI_GUID ErrorType;
    UINT64 ValidFields;
    UINT64 CheckInfo;
    UINT64 TargetId;
    UINT64 RequesterId;
    UINT64 ResponderId;
    UINT64 InstructionIP;
};
KYR_RECORD(EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION, 64);
KYR_FIELD(EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION, ValidFields, 16);
KYR_FIELD(EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION, CheckInfo, 24);
KYR_FIELD(EFI_IA32_X64_PROCESSOR_ERROR_INFORMATION, InstructionIP, 56);

// The register array follows.
struct EFI_IA32_X64_PROCESSOR_CONTEXT_INFO {
    UINT16 RegisterContextType;
    UINT16 RegisterArraySize;  // bytes
    UINT32 MsrAddress;
    UINT64 MmRegisterAddress;
};
KYR_RECORD(EFI_IA32_X64_PROCESSOR_CONTEXT_INFO, 16);
KYR_FIELD(EFI_IA32_X64_PROCESSOR_CONTEXT_INFO, MsrAddress, 4);
KYR_FIELD(EFI_IA32_X64_PROCESSOR_CONTEXT_INFO, MmRegisterAddress, 8);

// Front of the IA32/X64 processor error section; error information and context structures follow.
struct CPER_PROCESSOR_SECTION {
    UINT64 ValidFields;
    UINT64 LocalApicId;
    UINT64 CpuIdInfo[6];
};
KYR_RECORD(CPER_PROCESSOR_SECTION, 64);
KYR_FIELD(CPER_PROCESSOR_SECTION, LocalApicId, 8);
KYR_FIELD(CPER_PROCESSOR_SECTION, CpuIdInfo, 16);

struct CPER_MEMORY_SECTION {
    UINT64 ValidationBits;
    UINT64 ErrorStatus;
    UINT64 PhysicalAddress;
    UINT64 PhysicalAddressMask;
    UINT16 Node;
    UINT16 Card;
    UINT16 Module;
    UINT16 Bank;
    UINT16 Device;
    UINT16 Row;
    UINT16 Column;
    UINT16 BitPosition;
    UINT64 RequestorId;
    UINT64 ResponderId;
    UINT64 TargetId;
    UINT8 MemoryErrorType;
    UINT8 Extended;
    UINT16 RankNumber;
    UINT16 CardHandle;
    UINT16 ModuleHandle;
};
KYR_RECORD(CPER_MEMORY_SECTION, 80);
KYR_FIELD(CPER_MEMORY_SECTION, PhysicalAddress, 16);
KYR_FIELD(CPER_MEMORY_SECTION, PhysicalAddressMask, 24);
KYR_FIELD(CPER_MEMORY_SECTION, Node, 32);
KYR_FIELD(CPER_MEMORY_SECTION, Module, 36);
KYR_FIELD(CPER_MEMORY_SECTION, Row, 42);
KYR_FIELD(CPER_MEMORY_SECTION, Column, 44);
KYR_FIELD(CPER_MEMORY_SECTION, MemoryErrorType, 72);
KYR_FIELD(CPER_MEMORY_SECTION, RankNumber, 74);
KYR_FIELD(CPER_MEMORY_SECTION, ModuleHandle, 78);

struct CPER_PCIE_DEVICE_ID {
    UINT16 VendorId;
    UINT16 DeviceId;
    UINT8 ClassCode[3];
    UINT8 Function;
    UINT8 Device;
    UINT16 Segment;
    UINT8 Bus;
    UINT8 SecondaryBus;
    UINT8 SlotNumber[2];
    UINT8 Reserved15;
};
KYR_RECORD(CPER_PCIE_DEVICE_ID, 16);
KYR_FIELD(CPER_PCIE_DEVICE_ID, Function, 7);
KYR_FIELD(CPER_PCIE_DEVICE_ID, Segment, 9);
KYR_FIELD(CPER_PCIE_DEVICE_ID, Bus, 11);
KYR_FIELD(CPER_PCIE_DEVICE_ID, SlotNumber, 13);

// PCI Express error section (appendix N.2.7).
struct CPER_PCIE_SECTION {
    UINT64 ValidationBits;  // CperPcieValid
    UINT32 PortType;
    UINT32 Version;
    UINT32 CommandStatus;
    UINT32 Reserved20;
    CPER_PCIE_DEVICE_ID DeviceId;
    UINT64 DeviceSerialNumber;
    UINT32 BridgeControlStatus;
    UINT8 CapabilityStructure[60];
    UINT8 AerInfo[96];
};
KYR_RECORD(CPER_PCIE_SECTION, 208);
KYR_FIELD(CPER_PCIE_SECTION, PortType, 8);
KYR_FIELD(CPER_PCIE_SECTION, Version, 12);
KYR_FIELD(CPER_PCIE_SECTION, CommandStatus, 16);
KYR_FIELD(CPER_PCIE_SECTION, DeviceId, 24);
KYR_FIELD(CPER_PCIE_SECTION, DeviceSerialNumber, 40);
KYR_FIELD(CPER_PCIE_SECTION, BridgeControlStatus, 48);
KYR_FIELD(CPER_PCIE_SECTION, CapabilityStructure, 52);
KYR_FIELD(CPER_PCIE_SECTION, AerInfo, 112);

// Front of the PCI component error section.
struct CPER_PCI_COMPONENT_SECTION {
    UINT64 ValidationBits;
    UINT64 ErrorStatus;
    UINT16 VendorId;
    UINT16 DeviceId;
    UINT8 ClassCode[3];
    UINT8 Function;
    UINT8 Device;
    UINT8 Bus;
    UINT8 Segment;
    UINT8 Reserved27[5];
    UINT32 MemoryNumber;
    UINT32 IoNumber;
};
KYR_RECORD(CPER_PCI_COMPONENT_SECTION, 40);
KYR_FIELD(CPER_PCI_COMPONENT_SECTION, Function, 23);
KYR_FIELD(CPER_PCI_COMPONENT_SECTION, Segment, 26);

struct CPER_CXL_DEVICE_ID {
    UINT16 VendorId;
    UINT16 DeviceId;
    UINT16 SubsystemVendorId;
    UINT16 SubsystemId;
    UINT16 ClassCode;   // base class << 8 | subclass
    UINT16 SlotNumber;  // CperSlotNumber
    UINT32 Reserved12;
};
KYR_RECORD(CPER_CXL_DEVICE_ID, 16);
KYR_FIELD(CPER_CXL_DEVICE_ID, ClassCode, 8);
KYR_FIELD(CPER_CXL_DEVICE_ID, SlotNumber, 10);

// Front of the CXL protocol error section (appendix N.2.13). The DVSEC follows, then the error log.
struct CPER_CXL_PROTOCOL_SECTION {
    UINT64 ValidationBits;  // CperCxlProtocolValid
    UINT8 CxlAgentType;     // CXL_AGENT_TYPE
    UINT8 Reserved9[7];
    UINT8 CxlAgentAddress[8];  // CXL_AGENT_ADDRESS, or the RCRB base of a restricted downstream port
    CPER_CXL_DEVICE_ID DeviceId;
    UINT64 DeviceSerialNumber;
    UINT8 CapabilityStructure[60];
    UINT16 CxlDvsecLength;     // bytes
    UINT16 CxlErrorLogLength;  // bytes
    UINT32 Reserved112;
};
KYR_RECORD(CPER_CXL_PROTOCOL_SECTION, 116);
KYR_FIELD(CPER_CXL_PROTOCOL_SECTION, CxlAgentType, 8);
KYR_FIELD(CPER_CXL_PROTOCOL_SECTION, CxlAgentAddress, 16);
KYR_FIELD(CPER_CXL_PROTOCOL_SECTION, DeviceId, 24);
KYR_FIELD(CPER_CXL_PROTOCOL_SECTION, DeviceSerialNumber, 40);
KYR_FIELD(CPER_CXL_PROTOCOL_SECTION, CapabilityStructure, 48);
KYR_FIELD(CPER_CXL_PROTOCOL_SECTION, CxlDvsecLength, 108);
KYR_FIELD(CPER_CXL_PROTOCOL_SECTION, CxlErrorLogLength, 110);

// CXL component events section (appendix N.2.14); its type is the event record's UUID.
struct CPER_CXL_COMPONENT_SECTION {
    UINT32 Length;
    UINT64 ValidationBits;  // CperCxlComponentValid
    UINT16 VendorId;
    UINT16 DeviceId;
    UINT8 Function;
    UINT8 Device;
    UINT8 Bus;
    UINT16 Segment;
    UINT16 SlotNumber;  // CperSlotNumber
    UINT8 Reserved23;
    UINT64 DeviceSerialNumber;
    UINT8 ComponentEventLog[128];
};
KYR_RECORD(CPER_CXL_COMPONENT_SECTION, 160);
KYR_FIELD(CPER_CXL_COMPONENT_SECTION, ValidationBits, 4);
KYR_FIELD(CPER_CXL_COMPONENT_SECTION, VendorId, 12);
KYR_FIELD(CPER_CXL_COMPONENT_SECTION, Function, 16);
KYR_FIELD(CPER_CXL_COMPONENT_SECTION, Segment, 19);
KYR_FIELD(CPER_CXL_COMPONENT_SECTION, SlotNumber, 21);
KYR_FIELD(CPER_CXL_COMPONENT_SECTION, DeviceSerialNumber, 24);
KYR_FIELD(CPER_CXL_COMPONENT_SECTION, ComponentEventLog, 32);
#pragma pack(pop)

// Severities. CperSeverityUnset never reaches a record.
enum CPER_SEVERITY : UINT16 {
    CperSeverityRecoverable = 0,
    CperSeverityFatal = 1,
    CperSeverityCorrected = 2,
    CperSeverityNone = 3,
    CperSeverityUnset = 0xFFFF,
};

inline constexpr UINT16 CPER_REVISION = 0x0204;
inline constexpr UINT32 CPER_HEADER_TIME_STAMP_VALID = 0x2;
inline constexpr UINT8 CPER_DESCRIPTOR_FRU_STRING_VALID = 0x2;
inline constexpr UINT32 CPER_HEADER_FLAG_RECOVERED = 0x1;
inline constexpr UINT32 CPER_HEADER_FLAG_PREVIOUS_ERROR = 0x2;
inline constexpr UINT32 CPER_HEADER_FLAG_SIMULATED = 0x4;
inline constexpr UINT32 CPER_DESCRIPTOR_FLAG_PRIMARY = 0x1;
inline constexpr UINT32 CPER_DESCRIPTOR_FLAG_ERROR_THRESHOLD_EXCEEDED = 0x8;
inline constexpr UINT32 CPER_DESCRIPTOR_FLAG_LATENT = 0x20;
inline constexpr UINT32 CPER_DESCRIPTOR_FLAG_PROPAGATED = 0x40;
inline constexpr UINT32 CPER_DESCRIPTOR_FLAG_OVERFLOW = 0x80;

namespace CperProcessorValid {
using LocalApicId = Field<UINT64, 0>;
using CpuIdInfo = Field<UINT64, 1>;
using PROC_ERR_INFO_NUM = Field<UINT64, 7, 2>;
using PROC_CONTEXT_INFO_NUM = Field<UINT64, 13, 8>;
static_assert(FieldsDisjoint<LocalApicId, CpuIdInfo, PROC_ERR_INFO_NUM, PROC_CONTEXT_INFO_NUM>());
}  // namespace CperProcessorValid

namespace CperMemoryValid {
using ErrorStatus = Field<UINT64, 0>;
using PhysicalAddress = Field<UINT64, 1>;
using PhysicalAddressMask = Field<UINT64, 2>;
using Node = Field<UINT64, 3>;
using Card = Field<UINT64, 4>;
using Module = Field<UINT64, 5>;
using Column = Field<UINT64, 9>;
using MemoryErrorType = Field<UINT64, 14>;
using RankNumber = Field<UINT64, 15>;
using CardHandle = Field<UINT64, 16>;
using ModuleHandle = Field<UINT64, 17>;
using Extended = Field<UINT64, 18>;
using BankGroup = Field<UINT64, 19>;
using BankAddress = Field<UINT64, 20>;
}  // namespace CperMemoryValid

namespace CperPcieValid {
using PortType = Field<UINT64, 0>;
using Version = Field<UINT64, 1>;
using CommandStatus = Field<UINT64, 2>;
using DeviceId = Field<UINT64, 3>;
using DeviceSerialNumber = Field<UINT64, 4>;
using BridgeControlStatus = Field<UINT64, 5>;
using CapabilityStructure = Field<UINT64, 6>;
using AerInfo = Field<UINT64, 7>;
}  // namespace CperPcieValid

namespace CperCxlProtocolValid {
using CxlAgentType = Field<UINT64, 0>;
using CxlAgentAddress = Field<UINT64, 1>;
using DeviceId = Field<UINT64, 2>;
using DeviceSerialNumber = Field<UINT64, 3>;
using CapabilityStructure = Field<UINT64, 4>;
using CxlDvsec = Field<UINT64, 5>;
using CxlErrorLog = Field<UINT64, 6>;
}  // namespace CperCxlProtocolValid

namespace CperCxlComponentValid {
using DeviceId = Field<UINT64, 0>;
using DeviceSerialNumber = Field<UINT64, 1>;
using ComponentEventLog = Field<UINT64, 2>;
}  // namespace CperCxlComponentValid

// Slot number of a PCIe or CXL section; its low bits are reserved.
namespace CperSlotNumber {
using Slot = Field<UINT16, 15, 3>;
}

// ErrorStatus of a memory section.
namespace CperErrorStatus {
using Data = Field<UINT64, 18>;
using ErrorType = Field<UINT64, 15, 8>;
inline constexpr UINT64 ERR_MEM = 0x04;
inline constexpr UINT64 ERR_PARITY = 0x16;
inline constexpr UINT64 ERR_POISONED = 0x1A;
}  // namespace CperErrorStatus

// MemoryErrorType of a memory section.
namespace CperMemoryErrorType {
inline constexpr UINT8 UNKNOWN = 0;
inline constexpr UINT8 SINGLE_BIT_ECC = 2;
inline constexpr UINT8 MULTI_BIT_ECC = 3;
inline constexpr UINT8 PARITY = 8;
}  // namespace CperMemoryErrorType

// Notification types.
inline constexpr EFI_GUID gCperNotifyCorrectedMachineCheckGuid{
    0x2DCE8BB1, 0xBDD7, 0x450E, {0xB9, 0xAD, 0x9C, 0xF4, 0xEB, 0xD4, 0xF8, 0x90}};
inline constexpr EFI_GUID gCperNotifyMachineCheckExceptionGuid{
    0xE8F56FFE, 0x919C, 0x4CC5, {0xBA, 0x88, 0x65, 0xAB, 0xE1, 0x49, 0x13, 0xBB}};
inline constexpr EFI_GUID gCperNotifyPcieGuid{
    0xCF93C01F, 0x1A16, 0x4DFC, {0xB8, 0xBC, 0x9C, 0x4D, 0xAF, 0x67, 0xC1, 0x04}};

// Section types.
inline constexpr EFI_GUID gCperSectionProcessorGenericGuid{
    0x9876CCAD, 0x47B4, 0x4BDB, {0xB6, 0x5E, 0x16, 0xF1, 0x93, 0xC4, 0xF3, 0xDB}};
inline constexpr EFI_GUID gCperSectionProcessorSpecificGuid{
    0xDC3EA0B0, 0xA144, 0x4797, {0xB9, 0x5B, 0x53, 0xFA, 0x24, 0x2B, 0x6E, 0x1D}};
inline constexpr EFI_GUID gCperSectionPlatformMemoryGuid{
    0xA5BC1114, 0x6F64, 0x4EDE, {0xB8, 0x63, 0x3E, 0x83, 0xED, 0x7C, 0x83, 0xB1}};
inline constexpr EFI_GUID gCperSectionPcieGuid{
    0xD995E954, 0xBBC1, 0x430F, {0xAD, 0x91, 0xB4, 0x4D, 0xCB, 0x3C, 0x6F, 0x35}};
inline constexpr EFI_GUID gCperSectionPciComponentGuid{
    0xEB5E4685, 0xCA66, 0x4769, {0xB6, 0xA2, 0x26, 0x06, 0x8B, 0x00, 0x13, 0x26}};
inline constexpr EFI_GUID gCperSectionCxlProtocolGuid{
    0x80B9EFB4, 0x52B5, 0x4DE3, {0xA7, 0x77, 0x68, 0x78, 0x4B, 0x77, 0x10, 0x48}};

// Error types of the processor error information.
inline constexpr EFI_GUID gCperCacheCheckGuid{
    0xA55701F5, 0xE3EF, 0x43DE, {0xAC, 0x72, 0x24, 0x9B, 0x57, 0x3F, 0xAD, 0x2C}};
inline constexpr EFI_GUID gCperTlbCheckGuid{
    0xFC06B535, 0x5E1F, 0x4562, {0x9F, 0x25, 0x0A, 0x3B, 0x9A, 0xDB, 0x63, 0xC3}};
inline constexpr EFI_GUID gCperBusCheckGuid{
    0x1CF3F8B3, 0xC5B1, 0x49A2, {0xAA, 0x59, 0x5E, 0xEF, 0x92, 0xFF, 0xA6, 0x3C}};
inline constexpr EFI_GUID gCperMsCheckGuid{
    0x48AB7F57, 0xDC34, 0x4F6C, {0xA7, 0xD3, 0xB0, 0xB5, 0xB0, 0xA7, 0x43, 0x14}};

inline bool IsGuidEqual(const EFI_GUID& Left, const EFI_GUID& Right) {
    return __builtin_memcmp(&Left, &Right, sizeof(EFI_GUID)) == 0;
}

// Whether the record's only section is of this type. The field lies unaligned, so it is compared as bytes.
inline bool IsSectionType(const CPER_RECORD* Cper, const EFI_GUID& SectionType) {
    return __builtin_memcmp(reinterpret_cast<const UINT8*>(Cper) + offsetof(CPER_RECORD, Descriptor) +
                                offsetof(CPER_SECTION_DESCRIPTOR, SectionType),
                            &SectionType, sizeof(EFI_GUID)) == 0;
}

// The body of the record's only section.
template <class Section>
Section* CperSection(CPER_RECORD* Cper) {
    return reinterpret_cast<Section*>(Cper + 1);
}
template <class Section>
const Section* CperSection(const CPER_RECORD* Cper) {
    return reinterpret_cast<const Section*>(Cper + 1);
}
