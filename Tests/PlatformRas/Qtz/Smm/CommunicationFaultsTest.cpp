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

}  // namespace
