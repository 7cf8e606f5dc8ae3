// What the platform's firmware tells the driver of PCI Express, byte for byte.
#include <gtest/gtest.h>

#include "Include/PciDeviceState.h"
#include "Simulator/Firmware/Firmware.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/BootedSimulation.h"

namespace {

using namespace Simulator;

TEST(PciePlatform, PortMapHoldsAnEntryOf34BytesForEachRootPort) {
    Configuration Settings;
    Settings.Pcie.IsDefault = false;
    Settings.Pcie.Ports.resize(2);
    Settings.Pcie.Ports[0].Function.Kind = PcieKind::RootPort;
    Settings.Pcie.Ports[0].Function.Below.resize(1);
    PciePortSetting& Second = Settings.Pcie.Ports[1];
    Second.RootComplex = 3;
    Second.Port = 8;
    Second.Function.Kind = PcieKind::RootPort;
    Second.Function.Device = 5;
    Second.Function.Function = 2;
    Second.CxlCapable = true;
    Second.CxlMode = 2;
    Simulation Run(Settings);
    const auto& Apei = Run.Firmware().Data.Apei;
    EXPECT_EQ(Apei.PciMapValid, 1);
    const auto* Bytes = reinterpret_cast<const std::uint8_t*>(Apei.KyrPciePortMap);
    EXPECT_TRUE(BytesAre({Bytes, Bytes + 2 + 2 * 34},
                         "02 00 "
                         "00 00 00 00 00 00 00 01 00 80 00 00 00 00 00 80 00 00 "
                         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
                         "00 00 00 00 00 00 08 00 00 A0 02 06 01 02 00 A0 02 06 "
                         "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"));
}

}  // namespace
