// What the initialiser leaves in the south bridge and the PSP.
#include "PlatformRas/Qtz/Smm/DriverInit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/Constants.h"
#include "Simulator/Machine/Machine.h"
#include "Tests/Support/BootedSimulation.h"

namespace {

TEST(SciEvent, IsWithdrawnThenEnabledAndNoOtherEventTouched) {
    Simulator::Simulation Sim{Simulator::Configuration{}};
    Sim.Machine().Mmio().Write(FCH_SMI_SOFTWARE_SCI_DATA, 4, 0xFFFFFFFF);
    Sim.Machine().Mmio().Write(FCH_SMI_SOFTWARE_SCI_EN, 4, 0x80000001);
    ASSERT_EQ(Sim.Boot(), EFI_SUCCESS);
    EXPECT_EQ(Sim.Machine().Mmio().Read(0xFED8021C, 4), 0xFFBFFFFFu);
    EXPECT_EQ(Sim.Machine().Mmio().Read(0xFED80218, 4), 0x80400001u);
    std::vector<std::string> Order;
    for (const Simulator::Event& One : Sim.Events().Events()) {
        if (One.Kind == "write" && One.Fields.at("space") == "mmio") {
            Order.push_back(One.Fields.at("address"));
        }
    }
    EXPECT_THAT(Order, testing::ElementsAre("0xFED8021C", "0xFED80218"));
}

}  // namespace
