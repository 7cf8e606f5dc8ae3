// CXL functions in whole SMIs that go wrong: devices that vanish, registers that say anything. What no machine could
// answer would be thrown as a fault, a run that does not end is given up by the test runner.
#include <gtest/gtest.h>

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

}  // namespace
