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

}  // namespace
