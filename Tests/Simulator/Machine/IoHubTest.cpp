// The hubs' registers on the system management network: where they lie, what sets them, what clears them, what locks.
#include "Simulator/Machine/IoHub.h"

#include <gtest/gtest.h>

#include "Tests/Support/PcieWorld.h"

namespace Simulator {
namespace {

constexpr TlpWords WRITE{0x40000001, 0x0100000F, 0xC0001000, 0};

TEST(IoHub, RegistersLieWhereTheirHubPutsThem) {
    struct Place {
        unsigned Nbio, Iohc;
        std::uint32_t Status, SoftwareSmi, BridgeMap, External, Internal, CoreControl, ErrorControl;
    };
    const Place Places[] = {
        {0, 0, 0x13B20020, 0x13B1010C, 0x13B100B8, 0x13B2027C, 0x13B20270, 0x1A380040, 0x1A3401A8},
        {0, 1, 0x1D420020, 0x1D41010C, 0x1D4100B8, 0x1D420124, 0x1D420118, 0x1A480040, 0x1A4401A8},
        {0, 2, 0x13C20020, 0x13C1010C, 0x13C100B8, 0x13C2027C, 0x13C20270, 0x1A780040, 0x1A7401A8},
        {0, 3, 0x1D520020, 0x1D51010C, 0x1D5100B8, 0x1D520124, 0x1D520118, 0x1A880040, 0x1A8401A8},
        {1, 0, 0x13D20020, 0x13D1010C, 0x13D100B8, 0x13D2027C, 0x13D20270, 0x1A580040, 0x1A5401A8},
        {1, 3, 0x1D720020, 0x1D71010C, 0x1D7100B8, 0x1D720124, 0x1D720118, 0x1AA80040, 0x1AA401A8},
    };
    for (const Place& Where : Places) {
        SCOPED_TRACE(testing::Message() << Where.Nbio << "/" << Where.Iohc);
        IoHub Hub({0, 0, Where.Nbio, Where.Iohc, 0, 0, 31});
        SmnSpace Smn;
        Hub.MapInto(Smn);
        Hub.FirmwareEvent(3);
        Hub.CxlEvent();
        EXPECT_EQ(Smn.Read(Where.Status), 0x200u) << "MPIO interrupt";
        EXPECT_EQ(Smn.Read(Where.Status + 4), 0x8u);
        EXPECT_EQ(Smn.Read(Where.SoftwareSmi), 0x2u);
        EXPECT_TRUE(Smn.Write(Where.External + 0x60, 0x6));
        EXPECT_EQ(Hub.CorrectedAction(3, false), 3u);
        EXPECT_EQ(Hub.CorrectedAction(3, true), 0u);
        EXPECT_TRUE(Smn.Write(Where.Internal + 0x60, 0x2));
        EXPECT_EQ(Hub.CorrectedAction(3, true), 1u);
        EXPECT_TRUE(Hub.IsHwInitLocked(3));
        EXPECT_TRUE(Smn.Write(Where.CoreControl, 0));
        EXPECT_FALSE(Hub.IsHwInitLocked(3));
        EXPECT_TRUE(Smn.Write(Where.ErrorControl + 0x3000, 0x26000001));
        EXPECT_TRUE(Hub.ReportsSurpriseDown(3));
        EXPECT_FALSE(Smn.Read(Where.ErrorControl + 4));
        EXPECT_FALSE(Smn.Read(Where.External + 4));
        const bool HasSecondCore = Where.Iohc == 2;
        EXPECT_EQ(Hub.PortCount(), HasSecondCore ? 17u : 9u);
        EXPECT_EQ(Smn.Read(Where.BridgeMap + 4 * 16).has_value(), HasSecondCore);
        EXPECT_EQ(Smn.Read(0x1AB80040 + (Where.Nbio << 21)).has_value(), HasSecondCore);
    }
}

TEST(IoHub, BridgeMapNamesTheFunctionsOfItsPorts) {
    PcieSettings Settings = OnePort(Described("port", PcieKind::RootPort));
    Settings.Ports[0].RootComplex = 2;
    Settings.Ports[0].Port = 11;
    Settings.Ports[0].Function.Device = 5;
    Settings.Ports[0].Function.Function = 3;
    PcieWorld World(Settings);
    SmnSpace Smn;
    World.Fabric.Hub(2).MapInto(Smn);
    EXPECT_EQ(Smn.Read(0x13C100B8 + 4 * 11), 0x2Bu);
    // A port of the second core.
    EXPECT_TRUE(Smn.Write(0x1AB401A8 + 0x2000, 0x26000000));
    EXPECT_EQ(World.Read(World["port"], 0x54) & 0x80000, 0x80000u) << "surprise down is reported";
    EXPECT_TRUE(Smn.Write(0x1AB401A8 + 0x2000, 0));
    EXPECT_EQ(World.Read(World["port"], 0x54) & 0x80000, 0u);
}

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

TEST(IoHub, CxlEventIsAcknowledgedByWritingItBack) {
    PcieWorld World;
    SmnSpace Smn;
    World.Fabric.Hub(1).MapInto(Smn);
    World.Fabric.Hub(1).CxlEvent();
    EXPECT_TRUE(World.Fabric.HasSmiPending());
    Smn.Write(0x1D420020, 0xFFFFFFFF);
    EXPECT_EQ(Smn.Read(0x1D420020), 0x200u);
    Smn.Write(0x1D41010C, 0x2);
    EXPECT_FALSE(World.Fabric.HasSmiPending());
}

TEST(IoHub, HwInitLockKeepsSlotCapabilities) {
    PcieWorld World;
    SmnSpace Smn;
    World.Fabric.Hub(0).MapInto(Smn);
    PcieFunction& Port = World["port2"];
    const std::uint32_t Before = World.Read(Port, 0x5C);
    World.Write(Port, 0x5C, Before ^ 0x20);
    EXPECT_EQ(World.Read(Port, 0x5C), Before);
    Smn.Write(0x1A380040, 0);
    World.Write(Port, 0x5C, Before ^ 0x20);
    EXPECT_EQ(World.Read(Port, 0x5C), Before ^ 0x20);
    Smn.Write(0x1A380040, 1);
    World.Write(Port, 0x5C, Before);
    EXPECT_EQ(World.Read(Port, 0x5C), Before ^ 0x20);
}

}  // namespace
}  // namespace Simulator
