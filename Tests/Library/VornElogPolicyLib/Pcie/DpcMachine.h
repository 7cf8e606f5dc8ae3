// A booted machine with ports that can be contained, and the memory that the driver shares with the ACPI code.
#pragma once

#include "Include/RasAcpiSmmData.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"
#include "Tests/Support/BootedSimulation.h"
#include "Tests/Support/TestPortMap.h"

// Bits of DPC registers.
inline constexpr std::uint16_t TRIGGERED = 1, REASON_NON_FATAL = 1 << 1, REASON_FATAL = 2 << 1,
                               REASON_RP_PIO = 3 << 1, REASON_SOFTWARE = 3 << 1 | 1 << 5, DPC_ON = 1 << 4 | 1;

class DpcMachine : public PcieMachine {
 public:
    static constexpr UINT8 RP_BUS = 0x20;  // the second root complex's root bus
    static constexpr UINT8 SWITCH_BUS = 0x21, PORT_BUS = 0x22, DEVICE_BUS = 0x23;

    // A root port 20:01.0 with buses 21 to 24 below it. Events name functions: nobody tells their slots.
    explicit DpcMachine(Simulator::Configuration Settings = {}) : PcieMachine(WithoutSlots(std::move(Settings))) {
        RootPort = &MakePort(Add(RP_BUS, 1, 0, PcieRootPort), SWITCH_BUS, 0x24);
        Ports.Set({{PackPciAddress(0, RP_BUS, 1, 0), 2, 0, 0, PackPciAddress(0, RP_BUS, 3, 1)}});
        std::memset(&Shared(), 0, sizeof(RAS_ACPI_SMM_DATA));
    }
    // A contained port's registers obey: status bits clear by writing ones, control bits keep what is written.
    static TestFunction& MakePort(TestFunction& Port, unsigned Secondary, unsigned Subordinate) {
        Port.MakeBridge(Secondary, Subordinate).AddDpc(1 << 5);
        Port.Set(DPC + DPC_CONTROL, 2, DPC_ON);
        for (const unsigned Register : {DPC + DPC_CONTROL, PCIE + PCIE_DEVICE_CONTROL, PCIE + PCIE_ROOT_CONTROL}) {
            Port.SetWritable(Register, 2, 0xFFFF);
        }
        Port.SetWriteOneToClear(DPC + DPC_STATUS, 2, 0x0001);
        Port.SetWriteOneToClear(DPC + DPC_RP_PIO_STATUS, 4, 0x00070707);
        Port.SetWriteOneToClear(PCIE + PCIE_DEVICE_STATUS, 2, 0x000F);
        Port.SetWriteOneToClear(AER + AER_UNCORRECTABLE_STATUS, 4, 0xFFFFFFFF);
        return Port;
    }
    // A switch below the root port: its upstream port and a downstream port 22:04.0 with bus 23 below it.
    TestFunction& AddSwitch() {
        Add(SWITCH_BUS, 0, 0, PcieSwitchUpstreamPort).MakeBridge(PORT_BUS, 0x24);
        return MakePort(Add(PORT_BUS, 4, 0, PcieSwitchDownstreamPort), DEVICE_BUS, DEVICE_BUS);
    }
    TestFunction& AddDevice(UINT8 Function = 0) {
        TestFunction& Device = Add(DEVICE_BUS, 0, Function, PcieEndpoint);
        Device.Set(PCI_HEADER_TYPE, 1, 0x80);
        Device.SetWriteOneToClear(AER + AER_UNCORRECTABLE_STATUS, 4, 0xFFFFFFFF);
        Device.SetWriteOneToClear(PCIE + PCIE_DEVICE_STATUS, 2, 0x000F);
        return Device;
    }
    PCI_DEVICE_STATE CapturePort(UINT8 Bus, UINT8 Dev) {
        PCI_DEVICE_STATE State = Capture(Bus, Dev, 0);
        State.PcieRootPortData.IoHubData = {.SocketId = 0,
                                            .Valid = 1,
                                            .DieId = 0,
                                            .RbIndex = 1,
                                            .BusMapByte = 0,
                                            .IomLogicalId = 0,
                                            .IomPhysicalId = 0,
                                            .NbioId = 0,
                                            .IohcId = 1,
                                            .Segment = 0,
                                            .BusBase = RP_BUS};
        State.PcieRootPortData.LogicalBridgePciAddress = PackPciAddress(0, RP_BUS, 1, 0);
        State.PcieRootPortData.PhysicalBridgePciAddress = PackPciAddress(0, RP_BUS, 3, 1);
        return State;
    }
    static RAS_ACPI_SMM_DATA& Shared() {
        return *Policy.pKyrRasAcpiSmmData;
    }
    // The OS has taken the port over.
    static void TakeOver(UINT8 Bus, UINT8 Dev) {
        for (DPC_AWARE_OS_ENTRY& Entry : Shared().DpcAwareOs) {
            if (Entry.Bdf == 0) {
                Entry.Bdf = PackDpcPortBdf(Bus, Dev, 0);
                return;
            }
        }
    }
    // The nine bytes of an entry of the DPC_Triggered buffer.
    static ::testing::AssertionResult EntryIs(unsigned Index, std::string_view Expected) {
        const auto* First = reinterpret_cast<const std::uint8_t*>(&Shared()) + 0x4D1 + 9 * Index;
        return BytesAre(std::vector<std::uint8_t>(First, First + 9), Expected);
    }

    TestFunction* RootPort;

 private:
    static Simulator::Configuration WithoutSlots(Simulator::Configuration Settings) {
        Settings.Missing.insert("gVornPciSlotDataSmmProtocolGuid");
        return Settings;
    }

    TestPortMap Ports;
};
