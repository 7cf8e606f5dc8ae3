// What the registration of SMI sources hands to the platform, and which trapped write means which bank.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "Include/PlatformApeiData.h"
#include "Library/RasLib/Globals.h"
#include "PlatformRas/Qtz/Smm/ReCloak.h"
#include "PlatformRas/Qtz/Smm/Registration.h"
#include "Simulator/Machine/Machine.h"
#include "Tests/PlatformRas/Qtz/Smm/MachineCheckStory.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(Registration, TheIoCycleCarriesValueAndPort) {
    Simulator::Configuration Settings;
    Settings.Apei["MceSwSmiData"] = 0x7F;
    Settings.Apei["SwSmiCmdPortAddr"] = 0x1B0;
    BootedSimulation Sim(Settings);
    // Value in bits 23:16, the format's flag, port in bits 15:0.
    EXPECT_EQ(Sim.Calls("SetSmiTrigIoCycle", {{"cycle", "0x27F01B0"}}).size(), 1u);
    EXPECT_EQ(Sim.Count("register", {{"what", "fch-software-smi"}, {"value", "0x7F"}}), 1u);
    Sim.Fail(UncorrectedError());
    EXPECT_EQ(Sim.Count("mce"), 1u) << "the SMI arrives under the value";
}

TEST(Registration, ARefusedRootComplexLeavesTheLaterOnesOut) {
    Simulator::Configuration Settings;
    Settings.Failing["FchApuRasDispatch.Register"] = {EFI_OUT_OF_RESOURCES, 1, 3};
    BootedSimulation Sim(Settings);
    EXPECT_EQ(Sim.EntryStatus(), EFI_SUCCESS);
    std::vector<std::string> Contexts;
    for (const Simulator::Event& One : Sim.Events("register", {{"what", "root-complex-smi"}})) {
        Contexts.push_back(One.Fields.at("context"));
    }
    // Socket, die, bus, segment, root-bridge index, order.
    EXPECT_THAT(Contexts, ElementsAre("00 00 00 00 00 80", "00 00 20 00 01 80", "00 00 40 00 02 80"));
    EXPECT_EQ(NumPcieRbCallbacksRegistered, 3u);
    EXPECT_TRUE(Sim.Traced("on Skt 0 Die 0 Nbio 3 Seg 0x00 Bus 0x60 Order 0x80\n"));
    EXPECT_FALSE(Sim.Traced("from RasSmmRegistrationCenter")) << "the CXL notification came after it and succeeded";
    EXPECT_EQ(Sim.Count("register", {{"what", "fch-software-smi"}, {"value", "0xD2"}}), 1u);
}

TEST(Registration, WithoutRootBridgesOrCxlPolicyThereIsNothingToRegister) {
    BootedSimulation Sim;
    RB_BUS_MAP* const Map = std::exchange(mRbBusMap, nullptr);
    CXL_POLICY_DATA* const Policy = std::exchange(mPlatformApeiData->CxlPolicyData, nullptr);
    Sim.Forget();
    EXPECT_EQ(RasSmmRegisterPcieLegacyRasSmi(), EFI_NOT_FOUND);
    EXPECT_EQ(RasSmmRegisterCxlRasSmi(), EFI_NOT_FOUND);
    EXPECT_EQ(Sim.Count("register"), 0u);
    mRbBusMap = Map;
    mPlatformApeiData->CxlPolicyData = Policy;
}

TEST(Registration, TheOemThresholdMapIsCopiedAndHandedOver) {
    const struct {
        std::vector<Simulator::OemThresholdEntry> Map;
        std::uint64_t Bytes;
    } Cases[] = {{{}, 0}, {{{0x96, 0, 0xF00, 0xE00}, {0xB0, 5, 0xFFE, 0}}, 16}};
    std::uint64_t BlocksWithoutMap = 0;
    {
        BootedSimulation Sim;
        BlocksWithoutMap = Sim->Pool().LiveBlocks;
    }
    for (const auto& Case : Cases) {
        Simulator::Configuration Settings;
        Settings.OemThresholdMap = Case.Map;
        BootedSimulation Sim(Settings);
        EXPECT_EQ(Sim.Calls("SetMcaThresholdMap", {{"status", "EFI_SUCCESS"}}).size(), 1u) << Case.Map.size();
        EXPECT_EQ(Sim->Pool().LiveBlocks, BlocksWithoutMap + 1) << "the RAS service keeps the copy";
        // A load-store unit's counter gets the platform's count, an execution unit's the map's.
        EXPECT_EQ(Sim->ReadMsrRaw(1, 0xC0002003) >> 32 & 0xFFF, 0xFF5u);
        EXPECT_EQ(Sim->ReadMsrRaw(1, 0xC0002053) >> 32 & 0xFFF, Case.Map.empty() ? 0xFF5u : 0xFFEu);
    }
}

// ECX at the trap, the bank that it means, whether to cloak it again, and the deferred status that is emptied.
struct TrapCase {
    std::uint32_t Ecx;
    UINT64 Bank;
    bool ReCloak;
    const char* Emptied = "";
};
const TrapCase TRAPS[] = {
    {0x000, 0, false},  // the address's oldest alias
    {0x001, 0, true, "0xC0002008"},
    {0x400, 0, false},
    {0x401, 0, true, "0xC0002008"},
    {0x402, 0, false},
    {0x415, 5, true, "0xC0002058"},
    {0x47D, 31, true, "0xC00021F8"},  // the last legacy status
    {0x47F, 31, false},
    // From here on as in the extended range, bits 11:4.
    {0x480, 72, false},
    {0x481, 72, true, "0xC0002488"},
    {0xC0002001, 0, true, "0xC0002008"},
    {0xC0002008, 0, true},  // the deferred status itself: STATUS is empty, nothing is written
    {0xC0002002, 0, false},
    {0xC00023F1, 63, true, "0xC00023F8"},
    {0xC0002401, 64, true, "0xC0002408"},
    {0xC0002FF1, 255, true, "0xC0002FF8"},
};

TEST(ReCloak, TheTrappedRegisterNamesTheBank) {
    BootedSimulation Sim;
    for (const TrapCase& Case : TRAPS) {
        SCOPED_TRACE(testing::Message() << std::hex << Case.Ecx);
        Sim->Machine().ProcessorAt(3).PendWriteTrap(Case.Ecx);
        Sim.Forget();
        UINT64 Bank = ~UINT64{0};
        EXPECT_EQ(ReCloakCheck(3, &Bank), Case.ReCloak);
        EXPECT_EQ(Bank, Case.Bank);
        std::vector<std::string> Emptied;
        for (const Simulator::Event& One : Sim.Events("write", {{"processor", "0x3"}, {"value", "0x0"}})) {
            Emptied.push_back(One.Fields.at("address"));
        }
        if (*Case.Emptied == 0) {
            EXPECT_THAT(Emptied, IsEmpty());
        } else {
            EXPECT_THAT(Emptied, ElementsAre(Case.Emptied));
        }
    }
}

// A mask has 64 bits; the machine has no such bank, and its service says so.
TEST(ReCloak, BanksAbove63HaveAnEmptyMaskAndAreCleared) {
    BootedSimulation Sim;
    for (const auto& [Ecx, Bank] : {std::pair{0x481u, "0x48"}, std::pair{0xC0002401u, "0x40"}}) {
        Sim->Machine().ProcessorAt(3).PendWriteTrap(Ecx);
        Sim.Forget();
        Sim->RaiseSmi("machine-check");
        EXPECT_EQ(Sim.Calls("SetMcaCloakCfg", {{"processor", "0x3"}, {"cloak", "0x0"}, {"uncloak", "0x0"}}).size(),
                  1u);
        EXPECT_EQ(Sim.Calls("ClrMcaStatus", {{"bank", Bank}, {"completing", "0x1"}}).size(), 1u);
        EXPECT_TRUE(
            Sim.Traced("from ClrMcaStatus on Processor 3 Bank " + std::to_string(std::stoul(Bank, nullptr, 16))));
    }
}

}  // namespace
