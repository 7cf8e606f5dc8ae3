// The PCIe hierarchy of the default machine: a network card with two functions, the platform's NVMe switch with two
// drives, an empty hot-plug slot, and a card of the second root complex.
#include "Simulator/Machine/PcieSettings.h"

namespace Simulator {

namespace {

constexpr std::uint32_t CLASS_NVME = 0x010802, CLASS_ACCELERATOR = 0x120000;

DpcSetting Disabled() {
    DpcSetting Dpc;
    Dpc.Trigger = 0;
    return Dpc;
}

PciePortSetting Port(unsigned RootComplex, std::string Name) {
    PciePortSetting Result;
    Result.RootComplex = RootComplex;
    Result.Function.Name = std::move(Name);
    Result.Function.Kind = PcieKind::RootPort;
    Result.Function.Dpc = Disabled();
    return Result;
}

PcieFunctionSetting Endpoint(std::string Name) {
    PcieFunctionSetting Result;
    Result.Name = std::move(Name);
    return Result;
}

PcieFunctionSetting DrivePort(unsigned Bay) {
    PcieFunctionSetting Drive = Endpoint("nvme" + std::to_string(Bay));
    Drive.ClassCode = CLASS_NVME;
    Drive.SerialNumber = 0x0011223344556600 + Bay;
    PcieFunctionSetting Result = Endpoint("bay" + std::to_string(Bay));
    Result.Kind = PcieKind::SwitchDownstreamPort;
    Result.Slot = PcieSlotSetting{};
    Result.Slot->Number = 16 + Bay;
    Result.Slot->IsNvmeBay = true;
    Result.Slot->Bay = 1;
    Result.Slot->BaySlot = Bay;
    Result.Dpc = Disabled();
    Result.NvmeSwitchMode = 0;
    Result.Below = {Drive};
    return Result;
}

}  // namespace

std::vector<PciePortSetting> DefaultPciePorts() {
    PciePortSetting Network = Port(0, "port0");
    Network.Function.Below = {Endpoint("nic0"), Endpoint("nic1")};
    Network.Function.Below[1].Function = 1;

    PciePortSetting Drives = Port(0, "port1");
    PcieFunctionSetting Switch = Endpoint("switch");
    Switch.Kind = PcieKind::SwitchUpstreamPort;
    Switch.NvmeSwitchMode = 0;
    Switch.Below = {DrivePort(0), DrivePort(1)};
    Drives.Function.Below = {Switch};

    PciePortSetting Empty = Port(0, "port2");
    Empty.Function.Slot = PcieSlotSetting{};
    Empty.Function.Slot->Number = 3;
    Empty.Function.Slot->Occupied = false;

    PciePortSetting Card = Port(1, "port3");
    Card.Function.Slot = PcieSlotSetting{};
    Card.Function.Slot->Number = 4;
    Card.Function.Slot->HotPlugCapable = false;
    Card.Function.Below = {Endpoint("accelerator")};
    Card.Function.Below[0].ClassCode = CLASS_ACCELERATOR;
    return {Network, Drives, Empty, Card};
}

}  // namespace Simulator
