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

// Support and mode are the platform's; the mailbox is the SMM core's.
TEST(PspErrorInjection, IsEnabledWhereThePlatformWantsIt) {
    const struct {
        const char* Why;
        std::uint64_t Supported, Mode;
        const char* Missing;
        EFI_STATUS Command;  // how the PSP answers
        std::size_t Sent;
        const char* Text;
    } Cases[] = {
        {"not supported", 0, 1, "", EFI_SUCCESS, 0, "RasEnablePspEinj: PSP error injection support is disabled\n"},
        {"no mailbox", 1, 1, "gPspMboxSmmBufferAddressProtocolGuid", EFI_SUCCESS, 0,
         "KyrPlatformRasQtzSmmInit: ERROR Not Found from RasEnablePspEinj\n"},
        {"mode off", 1, 0, "", EFI_SUCCESS, 0,
         "RasEnablePspEinj: ERROR unable to enable PSP EINJ feature. PcdJrvRasEinjMode = 0x0, \n"},
        {"wanted", 1, 1, "", EFI_SUCCESS, 1, ""},
        {"refused", 1, 1, "", EFI_DEVICE_ERROR, 1,
         "KyrPlatformRasQtzSmmInit: ERROR Device Error from RasEnablePspEinj\n"},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Why);
        Simulator::Configuration Settings;
        Settings.Pcd = {{0x37D, Case.Supported}, {0x2BD, Case.Mode}};
        if (*Case.Missing != 0) {
            Settings.Missing.insert(Case.Missing);
        }
        if (EFI_ERROR(Case.Command)) {
            Settings.Failing["PspMboxRasEinj"] = {Case.Command};
        }
        BootedSimulation Sim(Settings);
        EXPECT_EQ(Sim.EntryStatus(), EFI_SUCCESS) << "no failure here stops the start";
        EXPECT_EQ(
            Sim.Calls("SetTalvoCfg8", {{"uid", "0x70E48CB1"}, {"value", Case.Supported ? "0x1" : "0x0"}}).size(), 1u);
        EXPECT_EQ(Sim.Calls("PspMboxRasEinj", {{"action", "0x410001"}, {"structure", "none"}}).size(), Case.Sent);
        EXPECT_TRUE(Sim.Traced(Case.Text));
        EXPECT_EQ(Sim.Count("write", {{"space", "mmio"}}), 2u) << "the SCI is armed in every case";
    }
}

}  // namespace
