// CXL functions in whole SMIs that go wrong: devices that vanish, registers that say anything. What no machine could
// answer would be thrown as a fault, a run that does not end is given up by the test runner.
#include <gtest/gtest.h>

#include <random>

#include "Simulator/Machine/CxlFabric.h"
#include "Simulator/Machine/Machine.h"
#include "Simulator/Simulation.h"

namespace {

using Simulator::Configuration;
using Simulator::CxlSetting;
using Simulator::Simulation;

Configuration OneDevice(const CxlSetting& Setting) {
    Configuration Settings;
    Settings.TraceLevels = 0;
    Simulator::PciePortSetting Port;
    Port.CxlCapable = true;
    Port.CxlMode = 2;
    Port.Function.Kind = Simulator::PcieKind::RootPort;
    Port.Function.Cxl.emplace();
    Simulator::PcieFunctionSetting& Device = Port.Function.Below.emplace_back();
    Device.Name = "memory";
    Device.SerialNumber = 0x1122334455667788;
    Device.Cxl = Setting;
    Device.Cxl->IsMemoryDevice = true;
    Settings.Pcie.IsDefault = false;
    Settings.Pcie.Ports = {Port};
    return Settings;
}

// Errors and events of the device, then the SMI.
void Disturb(Simulation& Run) {
    Simulator::PcieFunction& Device = *Run.Machine().Pcie().Find("memory");
    CXL_EVENT_RECORD Record{};
    Record.Uuid = Simulator::CxlEventKinds().front().Uuid;
    Run.Machine().Cxl().AddEvent(Device, Record);
    Record.Flags[0] = CxlEventLogFatal;
    Run.Machine().Cxl().AddEvent(Device, Record);
    Run.Machine().Cxl().Inject(Device, {false, 7, {1, 2, 3}});
}

TEST(CxlHierarchy, ADeviceMayVanishAtAnyConfigurationRead) {
    std::uint64_t Number = 1;
    for (bool Died = true; Died; Number++) {
        Simulation Run(OneDevice({}));
        ASSERT_EQ(Run.Boot(), EFI_SUCCESS);
        Disturb(Run);
        const std::uint64_t Blocks = Run.Pool().LiveBlocks;
        Run.Machine().Pcie().DieAtRead(Number);
        ASSERT_NO_THROW(Run.RaiseSmi("root-complex")) << Number;
        // Storm control keeps an entry and a node of each record: of the port, of the device's PCIe and CXL protocol
        // errors and of its two events.
        EXPECT_LE(Run.Pool().LiveBlocks, Blocks + 10) << Number;
        Died = Run.Machine().Pcie().Find("memory")->IsDead() ||
               Run.Machine().Pcie().RootPorts().front().Function->IsDead();
    }
    EXPECT_GT(Number, 100u) << "the scan reads a device's configuration space often";
}

TEST(CxlHierarchy, RegistersMaySayAnything) {
    std::mt19937 Random(7);
    const auto Below = [&Random](std::uint32_t Limit) { return static_cast<std::uint32_t>(Random() % Limit); };
    const auto Anything = [&] {
        switch (Below(4)) {
            case 0:
                return std::uint32_t{0xFFFFFFFF};
            case 1:
                return std::uint32_t{1} << Below(32);
            case 2:
                return Below(0x400);
            default:
                return static_cast<std::uint32_t>(Random());
        }
    };
    for (unsigned Round = 0; Round < 300; Round++) {
        CxlSetting Setting;
        Setting.PayloadExponent = 8 + Below(4);
        if (Below(3) == 0) {
            Setting.LocatorLength = Below(0x1000);
        }
        if (Below(3) == 0) {
            Setting.Locator.emplace();
            for (unsigned Entries = Below(5); Entries > 0; Entries--) {
                const std::uint64_t Offset = (std::uint64_t{Anything()} << 32 | Anything()) >> Below(48);
                Setting.Locator->push_back({Below(8), 1 + 2 * Below(2), Below(2) == 0 ? Offset : 0});
            }
        }
        for (unsigned Patches = Below(3); Patches > 0; Patches--) {
            Setting.ComponentPatches.push_back({0x1000 + 4 * Below(8), Anything()});
        }
        for (unsigned Patches = Below(3); Patches > 0; Patches--) {
            Setting.DevicePatches.push_back({4 * Below(0x18), Anything()});
        }
        // Capabilities, command and status of the secondary mailbox, which lies behind the primary one.
        const std::uint64_t Mailbox =
            0x200 + ((std::uint64_t{1} << Setting.PayloadExponent) + 0x20 + 0xFF) / 0x100 * 0x100;
        for (unsigned Patches = Below(3); Patches > 0; Patches--) {
            Setting.DevicePatches.push_back({Mailbox + 4 * Below(12), Anything()});
        }
        SCOPED_TRACE(Round);
        Simulation Run(OneDevice(Setting));
        Run.Events().SetRecording(false);
        ASSERT_EQ(Run.Boot(), EFI_SUCCESS);
        Disturb(Run);
        const std::uint64_t Start = Run.Now();
        ASSERT_NO_THROW(Run.RaiseSmi("root-complex"));
        EXPECT_LE(Run.Now() - Start, 600'000'000u) << "virtual microseconds";
    }
}

}  // namespace
