#include "Simulator/Firmware/Firmware.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "Platform/Guids.h"
#include "Platform/Protocol/RuntimePpr.h"
#include "Simulator/Firmware/DriverImage.h"
#include "Simulator/Firmware/Names.h"
#include "Simulator/Firmware/ServiceTables.h"
#include "Simulator/Firmware/SystemTables.h"

namespace Simulator {

namespace {

Firmware* TheFirmware = nullptr;

// When a protocol appears, and in which database.
enum class Stage { BeforeDriver, AfterDriver };
enum class Database { Boot, Smm };

struct ProtocolRow {
    const EFI_GUID& Guid;
    Database Where;
    Stage When;
    void* (*Interface)(Firmware&);
};

template <auto Table>
void* FromTable(Firmware&) {
    return Table();
}

// Two GUIDs only say that a point of the boot was reached.
void* NoInterface(Firmware&) {
    return nullptr;
}

const ProtocolRow PROTOCOLS[] = {
    {gEfiSmmBase2ProtocolGuid, Database::Boot, Stage::BeforeDriver, FromTable<SmmBase2Table>},
    {gVornManufacturingModeProtocolGuid, Database::Boot, Stage::BeforeDriver, FromTable<ManufacturingModeTable>},
    {gKyrPlatformApeiDataProtocolGuid, Database::Boot, Stage::BeforeDriver,
     [](Firmware& Here) -> void* { return &Here.Data.Apei; }},
    {gEfiSmmSwDispatch2ProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<SwDispatchTable>},
    {gFchSmmSwDispatch2ProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<FchSwDispatchTable>},
    {gFchSmmApuRasDispatchProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<ApuRasDispatchTable>},
    {gEfiSmmCpuServiceProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<SmmCpuServiceTable>},
    {gEfiSmmVariableProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<SmmVariableTable>},
    {gKyrRasServiceSmmProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<RasServiceTable>},
    {gKyrRasInitDataSmmProtocolGuid, Database::Smm, Stage::BeforeDriver,
     [](Firmware& Here) -> void* { return &Here.Data.RasPolicy; }},
    {gPspMboxSmmBufferAddressProtocolGuid, Database::Smm, Stage::BeforeDriver,
     [](Firmware& Here) -> void* { return &Here.Data.PspMailbox; }},
    {gKyrSmmMemoryMapProtocolGuid, Database::Smm, Stage::BeforeDriver,
     [](Firmware& Here) -> void* { return &Here.Data.MemoryMap; }},
    {gKyrTalvoConfigSmmProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<TalvoConfigTable>},
    {gKyrPspRasEinjSmmProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<PspRasEinjTable>},
    {gKyrFabricRegisterSmmProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<FabricRegisterTable>},
    {gKyrPcdSmmProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<PcdTable>},
    {gVornAttributeSmmProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<AttributeTable>},
    {gVornElogIpmiSmmProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<ElogIpmiTable>},
    {gVornSmmSelRecordProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<SelRecordTable>},
    {gVornSmmIpmiSelSupportProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<SelSupportTable>},
    {gVornMemoryInterfaceMemorySmmProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<MemoryInterfaceTable>},
    {gEfiVornApeiLoggingSmmProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<ApeiLoggingTable>},
    {gVornKyrMemoryPPRSmmProtocolGuid, Database::Smm, Stage::BeforeDriver, FromTable<MemoryPprTable>},
    {gVornPciSlotDataSmmProtocolGuid, Database::Smm, Stage::AfterDriver, FromTable<PciSlotDataTable>},
    {gEfiSmmEndOfDxeProtocolGuid, Database::Smm, Stage::AfterDriver, NoInterface},
    {gEdkiiSmmReadyToBootProtocolGuid, Database::Smm, Stage::AfterDriver, NoInterface},
};

void InstallStage(Firmware& Here, Stage When) {
    for (const ProtocolRow& Row : PROTOCOLS) {
        if (Row.When != When || Here.Settings.Missing.contains(GuidName(Row.Guid))) {
            continue;
        }
        EFI_HANDLE Handle = nullptr;
        auto& Target = Row.Where == Database::Boot ? Here.BootProtocols : Here.SmmProtocols;
        Target.Install(&Handle, Row.Guid, Row.Interface(Here));
    }
    if (When == Stage::BeforeDriver && !Here.Settings.Missing.contains(GuidName(gKyrJrvRasOemSmmProtocolGuid))) {
        for (unsigned Instance = 0; Instance < Here.Settings.OemRasInstances; Instance++) {
            EFI_HANDLE Handle = nullptr;
            Here.SmmProtocols.Install(&Handle, gKyrJrvRasOemSmmProtocolGuid, OemRasTable(Instance));
        }
    }
}

bool IsInstallable(const std::string& Name) {
    if (GuidName(gKyrJrvRasOemSmmProtocolGuid) == Name) {
        return true;
    }
    for (const ProtocolRow& Row : PROTOCOLS) {
        if (GuidName(Row.Guid) == Name) {
            return true;
        }
    }
    return false;
}

}  // namespace

struct Firmware::Tables {
    explicit Tables(Machine& Hardware)
        : SaveStateSizes(Hardware.ProcessorCount()),
          SaveStates(Hardware.ProcessorCount()),
          System(SaveStateSizes.data(), SaveStates.data(), Hardware.ProcessorCount()) {
        for (unsigned Number = 0; Number < Hardware.ProcessorCount(); Number++) {
            auto& State = Hardware.ProcessorAt(Number).SaveState;
            SaveStateSizes[Number] = State.size();
            SaveStates[Number] = State.data();
        }
    }
    std::vector<UINTN> SaveStateSizes;
    std::vector<void*> SaveStates;
    SystemTables System;
};

Firmware::Firmware(const Configuration& Configured, Simulator::Machine& Machine)
    : Settings(Configured),
      Hardware(Machine),
      SmmPool(Configured.FailAllocation, Configured.CheckPool),
      Data(Configured, Machine),
      Ras(Machine, Data.Apei),
      Dram(Machine),
      Repair(Machine),
      Events(Machine),
      Apei(Machine),
      SilentProcessors(Configured.SilentProcessors),
      Published(std::make_unique<Tables>(Machine)) {
    if (Settings.OemRasInstances > OEM_RAS_INSTANCES_MAX) {
        throw std::invalid_argument("at most 4 OEM RAS instances");
    }
    for (const std::string& Name : Settings.Missing) {
        if (!IsInstallable(Name)) {
            throw std::invalid_argument("\"" + Name + "\" is no protocol of the firmware");
        }
    }
    for (const unsigned Number : Settings.SilentProcessors) {
        if (Number >= Hardware.ProcessorCount()) {
            throw std::invalid_argument(fmt::format("silent processor {} does not exist; the machine has {}", Number,
                                                    Hardware.ProcessorCount()));
        }
    }
    for (const auto& [Name, How] : Settings.Failing) {
        Faults.Set(Name, How);
    }
    Hardware.Pcie().EnableReporting(IsPcieFirmwareFirst(Data.Apei.PcieErrorHandlingMode));
    TheFirmware = this;
    InstallStage(*this, Stage::BeforeDriver);
}

Firmware::~Firmware() {
    TheFirmware = nullptr;
}

Firmware& Firmware::Current() {
    if (TheFirmware == nullptr) {
        std::fputs("a firmware service was called without a simulation\n", stderr);
        std::abort();
    }
    return *TheFirmware;
}

EFI_SYSTEM_TABLE* Firmware::SystemTable() {
    return &Published->System.System;
}

EFI_SMM_SYSTEM_TABLE2* Firmware::SmmSystemTable() {
    return &Published->System.Smm;
}

void Firmware::LoadImage() {
    RestoreDriverState();
    SmmProtocols.SetOwner(true);
}

void Firmware::UnloadImage() {
    DanglingRegistrations = Dispatch.AbandonImage();
    for (std::string& One : SmmProtocols.AbandonImage()) {
        DanglingRegistrations.push_back(std::move(One));
    }
    for (const std::string& One : DanglingRegistrations) {
        Hardware.Note("dangling", [&] { return nlohmann::ordered_json{{"what", One}}; });
    }
}

void Firmware::FinishBoot() {
    SmmProtocols.SetOwner(false);
    InstallStage(*this, Stage::AfterDriver);
    CheckPool();
}

std::uint64_t Firmware::MachineCheckSmiValue() const {
    constexpr std::uint32_t CYCLE_ENABLED = 0x2000000;
    const std::uint32_t Cycle = Ras.SmiTrigIoCycle();
    const bool ReachesFch = (Cycle & CYCLE_ENABLED) != 0 && (Cycle & 0xFFFF) == Data.Apei.SwSmiCmdPortAddr;
    return ReachesFch ? Cycle >> 16 & 0xFF : 0x100;
}

EFI_STATUS Firmware::RaisePspSmi(UINT32 RepairStatus) {
    return RunSmi("psp", [&] {
        void* Interface = nullptr;
        DispatchResult Result;
        if (SmmProtocols.Locate(gKyrRuntimePprServiceSmmProtocolGuid, &Interface) == EFI_SUCCESS) {
            Result.Handlers = 1;
            Result.Status =
                static_cast<KYR_RUNTIME_PPR_SERVICE_SMM_PROTOCOL*>(Interface)->PspRuntimePprCompletion(&RepairStatus);
        }
        return Result;
    });
}

void Firmware::EnterSmm(std::string_view Kind) {
    Smis++;
    SmmPool.BeginSmi(Smis);
    Hardware.Note("smi-enter", [&] {
        nlohmann::ordered_json Sources = nlohmann::ordered_json::array();
        for (unsigned Number = 0; Number < Hardware.ProcessorCount(); Number++) {
            const std::uint64_t Pending = Hardware.ProcessorAt(Number).SmiSources;
            if (Pending != 0) {
                Sources.push_back({{"processor", Hex(Number)}, {"status", Hex(Pending)}});
            }
        }
        for (std::size_t Index = 0; Index < Hardware.RootComplexes().size(); Index++) {
            const IoHub& Hub = Hardware.Pcie().Hub(Index);
            if (Hub.HasSmiPending()) {
                Sources.push_back({{"root-complex", Hex(Index)},
                                   {"status", Hex(Hub.GlobalStatus())},
                                   {"ports", Hex(Hub.GlobalStatusHi())}});
            }
        }
        return nlohmann::ordered_json{{"kind", Kind}, {"sources", Sources}};
    });
}

void Firmware::ExitSmm(std::string_view Kind, const DispatchResult& Result) {
    Hardware.Note("smi-exit", [&] {
        return nlohmann::ordered_json{
            {"kind", Kind}, {"handlers", Hex(Result.Handlers)}, {"status", StatusName(Result.Status)}};
    });
    CheckPool();
    Hardware.LeaveSmm();
    Apei.OperatingSystemRuns();
}

void Firmware::CheckPool() {
    for (std::string& One : SmmPool.TakeDamageSeenAtFree()) {
        Hardware.ReportFault(std::move(One));
    }
    for (std::string& One : SmmPool.DamagedBlocks()) {
        Hardware.ReportFault(std::move(One));
    }
}

}  // namespace Simulator
