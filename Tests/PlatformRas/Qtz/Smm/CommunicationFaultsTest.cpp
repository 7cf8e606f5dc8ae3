// Bad communication buffers: each GUID-addressed handler refuses them, changes nothing and stays for a good one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tests/Support/BootedSimulation.h"
#include "Tests/Support/SmbiosHandover.h"

namespace {

using Call = Simulator::Simulation::CommunicationCall;

struct HandlerCase {
    const char* Name;
    const char* Guid;
    std::uint64_t Needed;  // bytes that the handler takes
};
void PrintTo(const HandlerCase& One, std::ostream* Out) {
    *Out << One.Guid;
}

const HandlerCase HANDLERS[] = {
    // The byte that is skipped, and one of message codes.
    {"PostErrors", "gElogLogPOSTErrorToBMCGuid", 2},
    {"SmbiosType16", SmbiosType16Handler, sizeof(ELOG_SMBIOS_TYPE16_PAYLOAD)},
    {"SmbiosType17", SmbiosType17Handler, sizeof(ELOG_SMBIOS_TYPE17_PAYLOAD)},
};

class Communication : public testing::TestWithParam<HandlerCase> {
 protected:
    static Call GoodCall() {
        Call Good;
        Good.Handler = GetParam().Guid;
        Good.Data.assign(GetParam().Needed, 0);
        return Good;
    }
    // Nothing but the SMI itself and the refusal.
    static void ExpectRefused(BootedSimulation& Sim, const Call& Bad, const char* Why) {
        Sim.Forget();
        EXPECT_EQ(Sim->CallCommunicationHandler(Bad), EFI_INVALID_PARAMETER) << Why;
        EXPECT_THAT(Sim.Kinds(), testing::ElementsAre("smi-enter", "comm", "smi-exit")) << Why;
    }
};

TEST_P(Communication, BadBuffersAreRefusedAndChangeNothing) {
    Simulator::Configuration Settings;
    Settings.Attributes["SmmSecurityMitigation"] = "Enabled";
    BootedSimulation Sim(Settings);
    const struct {
        const char* Why;
        Call::Place Where;
        bool NullSize;
        std::optional<std::uint64_t> Size;
    } Cases[] = {
        {"no buffer", Call::Place::Null, false, {}},
        {"no size", Call::Place::Region, true, {}},
        {"size 0", Call::Place::Region, false, 0},
        {"a byte too short", Call::Place::Region, false, GetParam().Needed - 1},
        {"in SMRAM", Call::Place::Smram, false, {}},
        {"half in SMRAM", Call::Place::Straddling, false, {}},
        {"outside of the valid regions", Call::Place::Outside, false, {}},
        {"longer than memory", Call::Place::Region, false, UINT64_MAX},
    };
    for (const auto& Case : Cases) {
        Call Bad = GoodCall();
        Bad.Where = Case.Where;
        Bad.NullSize = Case.NullSize;
        Bad.Size = Case.Size;
        ExpectRefused(Sim, Bad, Case.Why);
    }
    Sim.Forget();
    EXPECT_NE(Sim->CallCommunicationHandler(GoodCall()), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Sim.Count("unregister", {{"guid", GetParam().Guid}}), 1u);
}

// Only the setting confines buffers to the regions; SMRAM is never allowed.
TEST_P(Communication, WithoutTheMitigationAnyMemoryButSmramWillDo) {
    BootedSimulation Sim;
    Call Straddling = GoodCall();
    Straddling.Where = Call::Place::Straddling;
    ExpectRefused(Sim, Straddling, "half in SMRAM");
    Call Outside = GoodCall();
    Outside.Where = Call::Place::Outside;
    EXPECT_NE(Sim->CallCommunicationHandler(Outside), EFI_INVALID_PARAMETER);
}

TEST_P(Communication, WithoutAMemoryMapNothingIsAccepted) {
    Simulator::Configuration Settings;
    Settings.Missing.insert("gKyrSmmMemoryMapProtocolGuid");
    BootedSimulation Sim(Settings);
    ExpectRefused(Sim, GoodCall(), "no memory map");
}

INSTANTIATE_TEST_SUITE_P(Each, Communication, testing::ValuesIn(HANDLERS),
                         [](const auto& Case) { return std::string(Case.param.Name); });

// What fails on the way to the BMC, and whether the handler stays for another try.
TEST(PostErrors, TheHandlerGoesOnceTheErrorsWereCounted) {
    const struct {
        const char* Failing;
        EFI_STATUS Status;
        std::size_t Sel, Sent, Unregistered;
    } Cases[] = {
        {"SmmLocateProtocol", EFI_DEVICE_ERROR, 0, 0, 0},
        {"GetPostMessageCodes", EFI_SUCCESS, 1, 1, 1},  // goes on without codes
        {"GetIpmiTransportProtocol", EFI_DEVICE_ERROR, 0, 0, 0},
        {"GetBmcErrorCount", EFI_DEVICE_ERROR, 0, 0, 0},
        {"SendBmcData", EFI_DEVICE_ERROR, 1, 0, 1},
        {"SmiHandlerUnRegister", EFI_SUCCESS, 1, 1, 0},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Failing);
        BootedSimulation Sim;
        Sim->SetFailure(Case.Failing, Simulator::Failure{});
        Sim.Forget();
        EXPECT_EQ(Sim->HandOverPostErrors(3, {0x11}), Case.Status);
        EXPECT_EQ(Sim.Count("sel", {{"bytes", "C1 2E 72 A2 01 00"}}), Case.Sel);
        EXPECT_EQ(Sim.Count("post-errors"), Case.Sent);
        EXPECT_EQ(Sim.Count("unregister"), Case.Unregistered);
        Sim->SetFailure(Case.Failing, std::nullopt);
        EXPECT_EQ(Sim->HandOverPostErrors(2, {}), Case.Unregistered == 0 ? EFI_SUCCESS : EFI_NOT_FOUND);
    }
}

}  // namespace
