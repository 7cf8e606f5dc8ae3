// What each shutdown leaves in each register.
#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/Storm/ShutdownCxl.h"
#include "Library/VornElogPolicyLib/Storm/ShutdownPcie.h"
#include "Simulator/Machine/Machine.h"
#include "Tests/Library/VornElogPolicyLib/Cxl/CxlMachine.h"
#include "Tests/Library/VornElogPolicyLib/Storm/StormMachine.h"

namespace {

constexpr UINT8 BUS = 0x41, DEVICE = 3;
constexpr unsigned PCIE = 0x60, DPC = 0x200;
constexpr UINT16 DEVICE_CONTROL = 0x2957, ROOT_CONTROL = 0x001F;

enum PortType { Endpoint = 0, RootPort = 4, SwitchDownstreamPort = 6, EventCollector = 10 };

// A function with the PCI Express capability, every error reported, and a DPC capability with RP PIO registers.
Simulator::PciFunction& AddFunction(StormMachine& Machine, unsigned Function, PortType Type) {
    auto& Made =
        Machine.Sim.Machine().Pci().Add({0, BUS, DEVICE, Function}, std::make_unique<Simulator::PciFunction>());
    Made.Poke(0x00, 4, 0x1234ABCD);
    Made.Poke(0x06, 2, 0x0010);
    Made.Poke(0x34, 1, PCIE);
    Made.Poke(PCIE, 2, 0x0010);
    Made.Poke(PCIE + 2, 2, Type << 4 | 2);
    Made.Poke(PCIE + 0x08, 2, DEVICE_CONTROL | 0xF);
    Made.SetWritable(PCIE + 0x08, 2, 0xFFFF);
    Made.Poke(PCIE + 0x1C, 2, ROOT_CONTROL);
    Made.SetWritable(PCIE + 0x1C, 2, 0xFFFF);
    for (const unsigned Register : {0x10, 0x14, 0x18}) {
        Made.SetWritable(DPC + Register, 4, 0x00070707);
    }
    return Made;
}

PCI_DEVICE_STATE State(PortType Type, unsigned Function = 0) {
    PCI_DEVICE_STATE Captured = EndpointState(BUS, DEVICE, static_cast<UINT8>(Function));
    Captured.PcieCapabilityOffset = PCIE;
    Captured.Pcie.Characteristics.IsRootPort = Type == RootPort;
    Captured.Pcie.Characteristics.IsSwitchDownstreamPort = Type == SwitchDownstreamPort;
    Captured.Pcie.Characteristics.IsRootComplexEventCollector = Type == EventCollector;
    Captured.Pcie.SmiStorm.Pcie = TRUE;
    return Captured;
}

// Writes of the driver since the last Forget().
std::vector<std::string> Writes(StormMachine& Machine, const char* Field) {
    return Machine.Events("write", Field);
}

TEST(StormShutdown, AllFunctionsOfTheDeviceWhenTheyWereCountedTogether) {
    StormMachine Machine;
    Simulator::PciFunction* Functions[] = {&AddFunction(Machine, 0, Endpoint), &AddFunction(Machine, 1, Endpoint),
                                           &AddFunction(Machine, 5, RootPort), &AddFunction(Machine, 7, Endpoint)};
    Functions[3]->Poke(0x06, 2, 0);  // no capabilities
    PCI_DEVICE_STATE Storming = State(Endpoint, 1);
    Storming.Pcie.SmiStorm.Fatal = Storming.Pcie.SmiStorm.AllFunctions = TRUE;
    Machine.Forget();
    EXPECT_EQ(VornElogSmmDisablePcieErrorGeneration(&Storming), EFI_SUCCESS);
    const unsigned Expected[] = {0x295B, 0x295B, 0x295B, 0x295F};
    for (unsigned At = 0; At < 4; At++) {
        EXPECT_EQ(Functions[At]->Peek(PCIE + 0x08, 2), Expected[At]) << At;
    }
    EXPECT_EQ(Functions[2]->Peek(PCIE + 0x1C, 2), 0x001Bu);
    EXPECT_EQ(Writes(Machine, "address").size(), 4u);
}

TEST(StormShutdown, RpPioErrorsThatAreSetAreMaskedAndMadeHarmless) {
    StormMachine Machine;
    auto& Port = AddFunction(Machine, 0, RootPort);
    Port.Poke(DPC + 0x0C, 4, 0x00010400);  // memory UR, IO completion timeout
    PCI_DEVICE_STATE Storming = State(RootPort);
    Storming.Pcie.SmiStorm.DpcRpPio = TRUE;
    Storming.DpcOffset = DPC;
    Put32(Storming.DpcCapability, 0x10, 0x00000004);
    Put32(Storming.DpcCapability, 0x14, 0x00070701);
    Put32(Storming.DpcCapability, 0x18, 0x00050403);
    Machine.Forget();
    EXPECT_EQ(VornElogSmmDisablePcieErrorGeneration(&Storming), EFI_SUCCESS);
    EXPECT_EQ(Port.Peek(DPC + 0x0C, 4), 0x00010400u) << "the status is left for others";
    EXPECT_EQ(Port.Peek(DPC + 0x10, 4), 0x00010404u);
    EXPECT_EQ(Port.Peek(DPC + 0x14, 4), 0x00060301u);
    EXPECT_EQ(Port.Peek(DPC + 0x18, 4), 0x00040003u);
    EXPECT_EQ(Port.Peek(PCIE + 0x08, 2), DEVICE_CONTROL | 0xFu);
    EXPECT_EQ(Writes(Machine, "address").size(), 3u);

    // Without the capability nothing further is done.
    Storming.DpcOffset = 0;
    Storming.Pcie.SmiStorm.Fatal = TRUE;
    Machine.Forget();
    EXPECT_EQ(VornElogSmmDisablePcieErrorGeneration(&Storming), EFI_UNSUPPORTED);
    EXPECT_EQ(Writes(Machine, "address").size(), 0u);
}

TEST(StormShutdown, CxlProtocolErrorsThatAreSetAreMasked) {
    constexpr std::uint64_t RAS = 0xD0011000;
    struct Case {
        const char* Name;
        bool Fatal, NonFatal, Correctable;
        UINT32 UncorrectableMask, CorrectableMask;
        std::size_t Writes;
    };
    for (const Case& Test : {
             Case{"fatal", true, false, false, 0x0001C006, 0x10, 1},
             Case{"non-fatal", false, true, false, 0x0001C006, 0x10, 1},
             Case{"fatal and non-fatal", true, true, false, 0x0001C006, 0x10, 1},
             Case{"correctable", false, false, true, 0x00018002, 0x53, 1},
             Case{"all", true, true, true, 0x0001C006, 0x53, 2},
         }) {
        SCOPED_TRACE(Test.Name);
        StormMachine Machine;
        auto& Registers = Machine.Sim.Machine().Mmio();
        Registers.Map(RAS, 0x58, "CXL RAS capability");
        const UINT32 Values[] = {0x00004004, 0x00018002, 0x00004000, 0x43, 0x10};
        for (unsigned At = 0; At < 5; At++) {
            Registers.Write(RAS + 4 * At, 4, Values[At]);
        }
        PCI_DEVICE_STATE Storming = EndpointState(BUS, DEVICE);
        Storming.Cxl.IsCxl = TRUE;
        Storming.Cxl.RasCapabilityAddress = RAS;
        Storming.Cxl.SmiStorm.Protocol = TRUE;
        Storming.Cxl.SmiStorm.ProtocolFatal = Test.Fatal;
        Storming.Cxl.SmiStorm.ProtocolNonFatal = Test.NonFatal;
        Storming.Cxl.SmiStorm.ProtocolCorrectable = Test.Correctable;
        Machine.Forget();
        EXPECT_EQ(VornElogSmmDisableCxlProtocolErrorGeneration(&Storming), EFI_SUCCESS);
        EXPECT_EQ(Registers.Read(RAS + 0x00, 4), 0x00004004u);
        EXPECT_EQ(Registers.Read(RAS + 0x04, 4), Test.UncorrectableMask);
        EXPECT_EQ(Registers.Read(RAS + 0x08, 4), 0x00004000u);
        EXPECT_EQ(Registers.Read(RAS + 0x0C, 4), 0x43u);
        EXPECT_EQ(Registers.Read(RAS + 0x10, 4), Test.CorrectableMask);
        EXPECT_EQ(Writes(Machine, "address").size(), Test.Writes);
        EXPECT_TRUE(Machine.Traced("Rd Vrfy"));
    }

    StormMachine Machine;
    PCI_DEVICE_STATE Calm = EndpointState(BUS, DEVICE);
    EXPECT_EQ(VornElogSmmDisableCxlProtocolErrorGeneration(nullptr), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogSmmDisableCxlProtocolErrorGeneration(&Calm), EFI_UNSUPPORTED);
    EXPECT_TRUE(
        Machine.Traced("VornElogSmmDisableCxlProtocolErrorGeneration: ERROR No CXL Protocol error SMI storm "
                       "reported, aborting..."));
    Calm.Cxl.SmiStorm.Protocol = Calm.Cxl.SmiStorm.ProtocolFatal = TRUE;
    EXPECT_EQ(VornElogSmmDisableCxlProtocolErrorGeneration(&Calm), EFI_UNSUPPORTED);
}

TEST(StormShutdown, TheInterruptOfTheStormingEventLogIsSwitchedOff) {
    for (unsigned Severity = 0; Severity < 4; Severity++) {
        SCOPED_TRACE(Severity);
        CxlMachine Machine;
        auto& Logs = Machine.Function.Device.Logs();
        // To the firmware, each with a message number of its own.
        Logs.SetPolicy({{0x12, 0x22, 0x32, 0x42}});
        PCI_DEVICE_STATE Storming = Machine.Signaled();
        Storming.Cxl.SmiStorm.ComponentSeverities = static_cast<UINT8>(1 << Severity);
        EXPECT_EQ(VornElogSmmDisableCxlComponentErrorGeneration(&Storming, Severity), EFI_SUCCESS);
        for (unsigned Log = 0; Log < 4; Log++) {
            EXPECT_EQ(Logs.Policy().Settings[Log], 0x10 * (Log + 1) + (Log == Severity ? 0 : 2)) << Log;
            Machine.Function.AddEvents(Log, 1);
        }
        EXPECT_EQ(Machine.Function.Signals.size(), 3u) << "the storming log signals nothing any more";

        const std::uint64_t Commands = Machine.Function.Device.Secondary()->Commands();
        EXPECT_EQ(VornElogSmmDisableCxlComponentErrorGeneration(&Storming, (Severity + 1) % 4), EFI_UNSUPPORTED);
        EXPECT_EQ(VornElogSmmDisableCxlComponentErrorGeneration(&Storming, 4), EFI_INVALID_PARAMETER);
        EXPECT_EQ(VornElogSmmDisableCxlComponentErrorGeneration(nullptr, Severity), EFI_INVALID_PARAMETER);
        PCI_DEVICE_STATE Port = Storming;
        Port.Cxl.MemoryDeviceRegisterBlock = 0;
        EXPECT_EQ(VornElogSmmDisableCxlComponentErrorGeneration(&Port, Severity), EFI_UNSUPPORTED);
        EXPECT_EQ(Machine.Function.Device.Secondary()->Commands(), Commands);
    }
}

}  // namespace
