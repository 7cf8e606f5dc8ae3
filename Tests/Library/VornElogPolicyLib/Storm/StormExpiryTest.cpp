// How long records of the two domains are remembered, and the boot firmware's word on it.
#include <gtest/gtest.h>

#include "Library/VornElogChipsetLib/SmiStormScaling.h"
#include "Tests/Library/VornElogPolicyLib/Storm/StormMachine.h"

namespace {

// CxlEndpointDevCntSystemWide lies behind one byte.
EFI_STATUS HandOver(StormMachine& Machine, UINT32 Endpoints) {
    Simulator::Simulation::CommunicationCall Call;
    Call.Handler = "gVornRasDxeSmiStormScalingDataHoistToSmram";
    Call.Data = {0xEE};
    for (unsigned Shift = 0; Shift < 32; Shift += 8) {
        Call.Data.push_back(static_cast<UINT8>(Endpoints >> Shift));
    }
    return Machine.Sim.CallCommunicationHandler(Call);
}

void Register() {
    UnregisterSmiStormScalingHandler();
    ASSERT_EQ(RegisterSmiStormScalingHandler(), EFI_SUCCESS);
}

UINT32 StopTime() {
    UINT32 Count = 0, Seconds = 0;
    EXPECT_EQ(VornElogPolicyLibGetSmiStormPciThresholdData(&Count, &Seconds), EFI_SUCCESS);
    EXPECT_EQ(Count, 10u);
    return Seconds;
}

TEST(StormExpiry, TheNumberOfCxlEndpointsScalesThePcieTimeOnce) {
    StormMachine Machine;
    Register();
    EXPECT_EQ(StopTime(), 10u);
    const std::uint64_t Blocks = Machine.Blocks();
    EXPECT_EQ(HandOver(Machine, 4), EFI_SUCCESS);
    EXPECT_EQ(Machine.Blocks(), Blocks + 1);
    EXPECT_EQ(Policy.SmiStormPcieStopTimeThresholdInSeconds, 10u) << "not before it is needed";
    EXPECT_EQ(StopTime(), 40u);
    EXPECT_TRUE(Machine.Traced("SmiStormPcieStopTimeThresholdInSeconds scaled to 40 seconds"));
    EXPECT_EQ(StopTime(), 40u);
    EXPECT_EQ(Policy.SmiStormPciStopTimeThresholdScalingFactor, 4u);
    EXPECT_EQ(Policy.SmiStormMcaStopTimeThresholdInSeconds, 10u);
    // It was handed over once: nobody listens any more.
    EXPECT_NE(HandOver(Machine, 5), EFI_SUCCESS);
    EXPECT_EQ(StopTime(), 40u);

    UINT32 Value = 7;
    EXPECT_EQ(VornElogPolicyLibGetSmiStormPciThresholdData(nullptr, &Value), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogPolicyLibGetSmiStormPciThresholdData(&Value, nullptr), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Value, 7u);
}

TEST(StormExpiry, WithoutEndpointsTheTimeStaysAndTheNumberIsLookedForAgain) {
    StormMachine Machine;
    Register();
    EXPECT_EQ(HandOver(Machine, 0), EFI_SUCCESS);
    EXPECT_EQ(StopTime(), 10u);
    EXPECT_EQ(Policy.SmiStormPciStopTimeThresholdScalingFactor, 0u);
    Register();
    EXPECT_EQ(HandOver(Machine, 3), EFI_SUCCESS);
    EXPECT_EQ(StopTime(), 30u);
}

TEST(StormExpiry, AHandOverThatFailsLeavesTheHandlerWhereItWas) {
    using Place = Simulator::Simulation::CommunicationCall::Place;
    StormMachine Machine;
    Register();
    const std::uint64_t Blocks = Machine.Blocks();
    const struct {
        Place Where;
        std::size_t Bytes;
    } Bad[] = {{Place::Region, 4}, {Place::Smram, 5}, {Place::Straddling, 5}, {Place::Null, 5}};
    for (const auto& Test : Bad) {
        Simulator::Simulation::CommunicationCall Call;
        Call.Handler = "gVornRasDxeSmiStormScalingDataHoistToSmram";
        Call.Data.resize(Test.Bytes, 1);
        Call.Where = Test.Where;
        EXPECT_EQ(Machine.Sim.CallCommunicationHandler(Call), EFI_INVALID_PARAMETER) << Test.Bytes;
    }
    Machine.Fail("SmmAllocatePool", EFI_OUT_OF_RESOURCES, 1);
    EXPECT_EQ(HandOver(Machine, 4), EFI_OUT_OF_RESOURCES);
    EXPECT_EQ(Machine.Blocks(), Blocks);
    EXPECT_EQ(StopTime(), 10u);
    Machine.Fail("SmiHandlerUnRegister", EFI_NOT_FOUND, 1);
    EXPECT_EQ(HandOver(Machine, 4), EFI_NOT_FOUND);
    // A second call finds its block there.
    EXPECT_EQ(HandOver(Machine, 6), EFI_SUCCESS);
    EXPECT_EQ(Machine.Blocks(), Blocks + 1);
    EXPECT_EQ(StopTime(), 60u);
}

// One queue for both domains, oldest first: what is live in front keeps what has expired behind it.
TEST(StormExpiry, StopsAtTheFirstLiveEntry) {
    const PCI_DEVICE_STATE Endpoint = EndpointState(0x41);
    const BankRecord Bank(0, 5, 0);
    struct Step {
        unsigned Second;
        enum { MachineCheck, Pcie, CxlProtocol, CxlComponent, PciComponent } Kind;
        UINT32 EntriesAfter;
    };
    struct Case {
        const char* Name;
        UINT32 Endpoints;
        std::vector<Step> Steps;
    };
    for (const Case& Test : {
             Case{"a live PCIe entry in front",
                  4,
                  {{0, Step::Pcie, 1},
                   {1, Step::MachineCheck, 2},
                   {20, Step::MachineCheck, 3},
                   {39, Step::MachineCheck, 4},
                   {40, Step::MachineCheck, 2}}},
             Case{"without endpoints both live equally long",
                  0,
                  {{0, Step::MachineCheck, 1},
                   {0, Step::CxlProtocol, 2},
                   {9, Step::MachineCheck, 3},
                   {10, Step::MachineCheck, 2}}},
             Case{"an expired machine check in front",
                  4,
                  {{0, Step::MachineCheck, 1}, {1, Step::CxlComponent, 2}, {30, Step::Pcie, 2}, {41, Step::Pcie, 2}}},
             Case{"a PCI component entry lives as long as a machine check",
                  4,
                  {{0, Step::PciComponent, 1}, {9, Step::Pcie, 2}, {10, Step::Pcie, 2}}},
         }) {
        SCOPED_TRACE(Test.Name);
        StormMachine Machine;
        if (Test.Endpoints != 0) {
            Register();
            HandOver(Machine, Test.Endpoints);
        }
        PCI_DEVICE_STATE State = Endpoint;
        State.Cxl.IsCxl = TRUE;
        Machine.Capture({&State});
        for (const Step& At : Test.Steps) {
            TestRecord Record = At.Kind == Step::MachineCheck   ? TestRecord(Bank)
                                : At.Kind == Step::Pcie         ? TestRecord(PcieStormRecord(0x41))
                                : At.Kind == Step::CxlProtocol  ? TestRecord(CxlProtocolStormRecord(0x41))
                                : At.Kind == Step::CxlComponent ? TestRecord(CxlComponentStormRecord(0x41, 1))
                                                                : TestRecord(PciComponentStormRecord(0x41));
            EXPECT_FALSE(Machine.IsStorm(Record, At.Second));
            EXPECT_EQ(Machine.Entries(), At.EntriesAfter) << At.Second << " s";
        }
    }

    StormMachine Machine;
    Machine.IsStorm(BankRecord(0, 5, 0), 0);
    VornElogSmmCheckSmiStormPreProcess(nullptr);
    EXPECT_EQ(Machine.Entries(), 1u);
}

}  // namespace
