#include "Simulator/Firmware/PlatformData.h"

#include <fmt/format.h>

#include <cstring>
#include <stdexcept>

#include "Include/PciDeviceState.h"
#include "Simulator/Firmware/DriverImage.h"
#include "Simulator/Firmware/MemoryLayout.h"

namespace Simulator {

namespace {

struct ApeiField {
    const char* Name;
    std::size_t Offset;
    std::size_t Size;
};

#define FIELD(Name) \
    { #Name, offsetof(KYR_PLATFORM_APEI_DATA, Name), sizeof(KYR_PLATFORM_APEI_DATA::Name) }
constexpr ApeiField APEI_FIELDS[] = {
    FIELD(PFEHEnable),
    FIELD(PcieLegacyRasSmiEn),
    FIELD(SwSmiCmdPortAddr),
    FIELD(MceSwSmiData),
    FIELD(McaErrThreshEn),
    FIELD(McaErrThreshCount),
    FIELD(PcieErrorHandlingMode),
    FIELD(CxlRasSmiEn),
    FIELD(CxlErrorHandlingMode),
    FIELD(CxlAllDevicesHaveSecondaryMailbox),
    FIELD(DdrEccErrorCounterStartCount),
    FIELD(CxlIsolationEnable),
    FIELD(RuntimePprEnable),  // both switches, the first in the low byte
    FIELD(MemoryErrorCounterEnable),
    FIELD(MemoryErrorCounterMode),
    FIELD(PciMapValid),
};
#undef FIELD
constexpr char CXL_SW_SMI_FIELD[] = "CxlSwSmiValue";  // lies in the CXL policy data

constexpr std::size_t RAS_ACPI_DATA_SIZE = 4096;
constexpr std::size_t PSP_MAILBOX_BUFFER_SIZE = 4096;

}  // namespace

PlatformData::PlatformData(const Configuration& Settings, const Machine& Hardware)
    : Arena(Memory().FirmwareData),
      Apei(Place<KYR_PLATFORM_APEI_DATA>()),
      RasPolicy(Place<KYR_RAS_POLICY>()),
      MemoryArray(Place<VORN_MEMORY_ARRAY>()),
      PspMailbox(Place<PSP_MBOX_SMM_BUFFER_ADDRESS_PROTOCOL>()),
      MemoryMap(Place<KYR_SMM_MEMORY_MAP_PROTOCOL>()),
      CxlPolicy(Place<CXL_POLICY_DATA>()),
      ThresholdTable(Place<OEM_MCA_THRESHOLD_MAP_TABLE>()),
      PspMailboxFlag(Place<UINT8>()) {
    RasAcpiData.resize(RAS_ACPI_DATA_SIZE);
    SetApeiFields(Settings);
    BuildProcessorMap(Hardware);
    BuildBusMap(Hardware);
    BuildPortMap(Settings, Hardware);
    ListRestrictedPorts(Hardware);
    BuildThresholdMap(Settings);
    BuildSlots(Settings);
    BuildMemoryMap();
}

void PlatformData::SetApeiFields(const Configuration& Settings) {
    Apei.PFEHEnable = 1;
    Apei.PcieLegacyRasSmiEn = 1;
    Apei.SwSmiCmdPortAddr = 0xB2;
    Apei.MceSwSmiData = 0x80;
    Apei.McaErrThreshEn = 1;
    Apei.McaErrThreshCount = 0xFF5;  // the tenth error overflows the counter
    Apei.PcieErrorHandlingMode = 2;
    Apei.CxlRasSmiEn = 1;
    CxlPolicy.SwSmiValue = 0xD2;
    Apei.CxlPolicyData = &CxlPolicy;
    Apei.RasAcpiSmmData = reinterpret_cast<RAS_ACPI_SMM_DATA*>(RasAcpiData.data());
    for (const auto& [Name, Value] : Settings.Apei) {
        UINT8* Target = nullptr;
        std::size_t Size = 0;
        for (const ApeiField& One : APEI_FIELDS) {
            if (Name == One.Name) {
                Target = reinterpret_cast<UINT8*>(&Apei) + One.Offset;
                Size = One.Size;
            }
        }
        if (Name == CXL_SW_SMI_FIELD) {
            Target = &CxlPolicy.SwSmiValue;
            Size = sizeof(CxlPolicy.SwSmiValue);
        }
        if (Target == nullptr) {
            throw std::invalid_argument(fmt::format("the platform APEI data has no field \"{}\"", Name));
        }
        if (Value >> 8 * Size != 0) {
            throw std::invalid_argument(fmt::format("{} is {} bytes wide; 0x{:X} does not fit", Name, Size, Value));
        }
        std::memcpy(Target, &Value, Size);
    }
}

void PlatformData::BuildProcessorMap(const Machine& Hardware) {
    ProcessorMap.resize(Hardware.ProcessorCount());
    for (unsigned Number = 0; Number < Hardware.ProcessorCount(); Number++) {
        const ProcessorLocation& Where = Hardware.ProcessorAt(Number).Location();
        CPU_INFO& Info = ProcessorMap[Number].CpuInfo;
        Info.ProcessorNumber = Number;
        Info.SocketId = static_cast<UINT8>(Where.Socket);
        Info.CcxId = static_cast<UINT8>(Where.Ccx);
        Info.CoreId = static_cast<UINT8>(Where.Core);
        Info.ThreadId = static_cast<UINT8>(Where.Thread);
    }
    RasPolicy.TotalNumberOfProcessors = ProcessorMap.size();
    RasPolicy.RasCpuMap = ProcessorMap.data();
}

void PlatformData::BuildBusMap(const Machine& Hardware) {
    const auto& Complexes = Hardware.RootComplexes();
    const std::size_t Bytes = sizeof(RB_BUS_MAP) + Complexes.size() * sizeof(RB_BUS_ENTRY);
    BusMap.resize((Bytes + sizeof(UINT64) - 1) / sizeof(UINT64));
    auto* Map = reinterpret_cast<RB_BUS_MAP*>(BusMap.data());
    Map->RbCount = Complexes.size();
    auto* Entries = reinterpret_cast<RB_BUS_ENTRY*>(Map + 1);
    for (std::size_t Index = 0; Index < Complexes.size(); Index++) {
        const RootComplex& Complex = Complexes[Index];
        RB_BUS_ENTRY& Entry = Entries[Index];
        Entry.Socket = static_cast<UINT8>(Complex.Socket);
        Entry.RbIndex = static_cast<UINT8>(Complex.Index);
        Entry.RbBusBase = static_cast<UINT8>(Complex.BusBase);
        Entry.Nbio = static_cast<UINT8>(Complex.Nbio);
        Entry.Iohc = static_cast<UINT8>(Complex.Iohc);
        Entry.RbSeg = static_cast<UINT8>(Complex.Segment);
    }
    Apei.RbBusMap = Map;
}

void PlatformData::BuildPortMap(const Configuration& Settings, const Machine& Hardware) {
    const auto& Ports = Hardware.Pcie().RootPorts();
    PortMap.resize(sizeof(KYR_PCIE_PORT_MAP) + Ports.size() * sizeof(KYR_PCIE_PORT_MAP_ENTRY));
    auto* Map = reinterpret_cast<KYR_PCIE_PORT_MAP*>(PortMap.data());
    Map->PortCount = static_cast<UINT16>(Ports.size());
    auto* Entries = reinterpret_cast<KYR_PCIE_PORT_MAP_ENTRY*>(Map + 1);
    for (std::size_t Index = 0; Index < Ports.size(); Index++) {
        const PcieFunction& Port = *Ports[Index].Function;
        KYR_PCIE_PORT_MAP_ENTRY& Entry = Entries[Index];
        Entry.PortNumber = static_cast<UINT8>(Port.HubPort);
        Entry.DeviceCount = static_cast<UINT8>(Port.Below.size());
        Entry.RpPciAddr = PackPciAddress(static_cast<UINT8>(Port.Segment), static_cast<UINT8>(Port.RootBus),
                                         static_cast<UINT8>(Port.Device), static_cast<UINT8>(Port.Function));
        Entry.PhysicalBridgePciAddr = Entry.RpPciAddr;
        Entry.CxlCapable = Ports[Index].CxlCapable ? 1 : 0;
        Entry.CxlMode = static_cast<UINT8>(Ports[Index].CxlMode);
    }
    Apei.KyrPciePortMap = Map;
    if (!Settings.Apei.contains("PciMapValid")) {
        Apei.PciMapValid = 1;
    }
}

void PlatformData::ListRestrictedPorts(const Machine& Hardware) {
    const std::vector<CXL_RCRB_ENTRY> Listed = Hardware.Cxl().RegisterBlocks();
    RestrictedPorts.assign(Listed.begin(), Listed.end());
    CxlPolicy.RcrbEntries = RestrictedPorts.empty() ? nullptr : RestrictedPorts.data();
    CxlPolicy.RcrbCount = static_cast<UINT32>(RestrictedPorts.size());
}

void PlatformData::BuildThresholdMap(const Configuration& Settings) {
    if (!Settings.OemThresholdMap) {
        return;
    }
    for (const OemThresholdEntry& One : *Settings.OemThresholdMap) {
        ThresholdEntries.push_back({One.HardwareId, One.McaType, One.Misc0, One.Misc1});
    }
    ThresholdTable.TableEntryNum = static_cast<UINT32>(ThresholdEntries.size());
    ThresholdTable.OemMcaThresholdMapTotalSize =
        static_cast<UINT32>(sizeof(ThresholdTable) + ThresholdEntries.size() * sizeof(McaThresholdTableEntry));
    ThresholdTable.Entries = ThresholdEntries.data();
    Apei.OemMcaThresholdMapTable = &ThresholdTable;
}

// Labels count a socket's slots by channel, then by DIMM on it: A1 to A24 on the first socket, B1 to B24 on the
// second.
void PlatformData::BuildSlots(const Configuration& Settings) {
    Labels.reserve(Settings.Sockets * Settings.ChannelsPerSocket * Settings.DimmsPerChannel);
    for (unsigned Socket = 0; Socket < Settings.Sockets; Socket++) {
        for (unsigned Channel = 0; Channel < Settings.ChannelsPerSocket; Channel++) {
            for (unsigned Dimm = 0; Dimm < Settings.DimmsPerChannel; Dimm++) {
                const DimmSlotSetting Wanted = SlotSetting(Settings, Socket, Channel, Dimm);
                const std::string Label = Wanted.Label.value_or(
                    fmt::format("{}{}", "AB"[Socket], Channel * Settings.DimmsPerChannel + Dimm + 1));
                Labels.emplace_back(Label.begin(), Label.end());
                DIMM_MAP_ENTRY Entry{};
                Entry.Socket = static_cast<UINT8>(Socket);
                Entry.UmcChannel = static_cast<UINT8>(Channel);
                Entry.Dimm = static_cast<UINT8>(Dimm);
                Entry.Label = Labels.back().c_str();
                DimmMap.push_back(Entry);
                VORN_MEMORY_SLOT_INFO Slot{};
                Slot.Populated = Wanted.Populated ? 1 : 0;
                Slot.Enabled = Wanted.Populated && Wanted.Enabled ? 1 : 0;
                Slot.Socket = Entry.Socket;
                Slot.UmcChannel = Entry.UmcChannel;
                Slot.Dimm = Entry.Dimm;
                Slot.ThresholdCount = *Wanted.Threshold;
                SlotInfo.push_back(Slot);
            }
        }
    }
    MemoryArray.NumDimmSlot = static_cast<UINT16>(DimmMap.size());
    MemoryArray.DimmMap = DimmMap.data();
}

void PlatformData::BuildMemoryMap() {
    const auto Region = [](const MemoryArea& Area) {
        return KYR_MEMORY_REGION{reinterpret_cast<UINT64>(Area.Base), Area.Size};
    };
    const MemoryLayout& Layout = Memory();
    Smram = {Region(Layout.SmramFront), Region(Layout.FirmwareData), Region(Layout.Pool)};
    const MemoryArea State = DriverStateSection();
    if (State.Size != 0) {
        Smram.push_back(Region(State));
    }
    CommunicationRegions = {Region(Layout.Communication)};
    MemoryMap = {Smram.data(), Smram.size(), CommunicationRegions.data(), CommunicationRegions.size()};
    PspMailboxBuffer.resize(PSP_MAILBOX_BUFFER_SIZE);
    PspMailbox.PspMboxSmmBuffer = PspMailboxBuffer.data();
    PspMailbox.PspMboxSmmFlagAddr = &PspMailboxFlag;
}

std::vector<std::string> ApeiFieldNames() {
    std::vector<std::string> Names;
    for (const ApeiField& One : APEI_FIELDS) {
        Names.emplace_back(One.Name);
    }
    Names.emplace_back(CXL_SW_SMI_FIELD);
    return Names;
}

}  // namespace Simulator
