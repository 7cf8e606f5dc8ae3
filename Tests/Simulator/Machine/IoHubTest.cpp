// The hubs' registers on the system management network: where they lie, what sets them, what clears them, what locks.
#include "Simulator/Machine/IoHub.h"

#include <gtest/gtest.h>

#include "Tests/Support/PcieWorld.h"

namespace Simulator {
namespace {

constexpr TlpWords WRITE{0x40000001, 0x0100000F, 0xC0001000, 0};

TEST(IoHub, StatusStaysWhileThePortAsserts) {
    PcieWorld World;
    SmnSpace Smn;
    World.Fabric.Hub(0).MapInto(Smn);
    World.Fail("nic0", "malformed-tlp", WRITE);
    World.Fail("nvme0", "poisoned-tlp", WRITE);
    EXPECT_EQ(Smn.Read(0x13B20024), 0x3u);
    Smn.Write(0x13B20024, 0x0);
    EXPECT_EQ(Smn.Read(0x13B20024), 0x3u);
    Smn.Write(0x13B20024, 0x3);
    EXPECT_EQ(Smn.Read(0x13B20024), 0x3u) << "both root ports still show it";
    World.Write(World["port0"], 0x130, 0x7F);
    EXPECT_TRUE(World.Fabric.HasSmiPending()) << "latched";
    Smn.Write(0x13B20024, 0x3);
    EXPECT_EQ(Smn.Read(0x13B20024), 0x2u);
    World.Write(World["port1"], 0x64, 0x5, 2);  // no system error on non-fatal ones
    Smn.Write(0x13B20024, 0x2);
    EXPECT_FALSE(World.Fabric.HasSmiPending());
}

TEST(IoHub, CorrectedErrorsRaiseWhatTheirActionSays) {
    const struct {
        const char* What;
        const char* At;
        const char* Error;
        std::uint32_t External, Internal;
        bool Smi;
    } Cases[] = {
        {"nothing is set", "nic0", "bad-tlp", 0, 0, false},
        {"received", "nic0", "bad-tlp", 6, 0, true},
        {"received, but only own ones are wanted", "nic0", "bad-tlp", 0, 6, false},
        {"own", "port0", "corrected-internal", 0, 6, true},
        {"another interrupt", "nic0", "bad-tlp", 4, 4, false},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        PcieWorld World;
        SmnSpace Smn;
        World.Fabric.Hub(0).MapInto(Smn);
        Smn.Write(0x13B2027C, Case.External);
        Smn.Write(0x13B20270, Case.Internal);
        World.Fail(Case.At, Case.Error);
        EXPECT_EQ(World.Fabric.HasSmiPending(), Case.Smi);
        Smn.Write(0x13B20024, 1);
        EXPECT_EQ(World.Fabric.HasSmiPending(), Case.Smi) << "as long as the root status shows it";
        World.Write(World["port0"], 0x130, 0x7F);
        Smn.Write(0x13B20024, 1);
        EXPECT_FALSE(World.Fabric.HasSmiPending());
    }
}

}  // namespace
}  // namespace Simulator
