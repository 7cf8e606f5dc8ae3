// Dumps in the format of lspci -xxxx: read, built into machines, and written back.
#include "Simulator/Machine/PciDump.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "Tests/Support/PcieWorld.h"

namespace Simulator {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

PcieSettings FromDump(std::string Text) {
    PcieSettings Settings;
    Settings.Dump = PciDumpSetting{std::move(Text), true};
    return Settings;
}

// A function as text: its first 64 bytes, and the PCI Express capability at 0x40 with the given port type.
std::string Function(const char* Address, unsigned PortType, unsigned HeaderType, const char* Buses = "00 00 00") {
    return fmt::format(
        "{} some function\n"
        "00: 57 19 70 00 06 00 10 00 21 00 04 06 08 00 {:02x} 00\n"
        "10: 04 00 f0 a1 00 00 00 00 {} 00 00 00 00 00\n"
        "30: 00 00 00 00 40 00 00 00 00 00 00 00 ff 01 00 00\n"
        "40: 10 00 {:02x} 00 00 80 00 00 00 00 00 00 00 00 00 00\n\n",
        Address, HeaderType, Buses, PortType << 4 | 2);
}

TEST(PciDump, ReadsWhatLspciWrites) {
    const std::vector<DumpedFunction> All = ReadPciDump(
        "00:1c.0 PCI bridge: Somebody's Port [Normal decode]\n"
        "00: 57 19 70 00 06 01 10 00 21 00 04 06 08 00 01 00\n"
        "100: 01 00 01 14 00 00 00 00 00 00 00 00 30 20 06 00\r\n"
        "\n"
        "0002:01:00.7 function\n"
        "ff0: aa bb cc dd ee ff 00 11 22 33 44 55 66 77 88 99");
    ASSERT_EQ(All.size(), 2u);
    EXPECT_EQ(All[0].Where, (PciAddress{0, 0, 0x1C, 0}));
    EXPECT_EQ(All[0].Register(0, 4), 0x00701957u);
    EXPECT_EQ(All[0].Register(0x10C, 4), 0x00062030u);
    EXPECT_TRUE(All[0].IsBridge());
    EXPECT_EQ(All[1].Where, (PciAddress{2, 1, 0, 7}));
    EXPECT_EQ(All[1].Register(0xFFC, 4), 0x99887766u);
}

TEST(PciDump, TellsTheLineThatCannotBeRead) {
    const struct {
        const char* Text;
        const char* Message;
    } Cases[] = {
        {"", "holds no function"},
        {"00: 57 19\n", "line 1: neither"},
        {"00:1c.0 a\n00: 57 1\n", "line 2: neither"},
        {"00:1c.0 a\n05: 57 19\n", "line 2: neither"},
        {"00:1c.0 a\n1000: 57 19\n", "line 2: neither"},
        {"00:1c.0 a\nsomething\n", "line 2: neither"},
        {"00:1c.0 a\n00: 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11\n", "line 2: neither"},
        {"00:1c.0 a\n\n00:1c.0 b\n", "line 3: 00:1c.0 stands there twice"},
        {"00:20.0 a\n", "line 1: neither"},
        {"00:1c.8 a\n", "line 1: neither"},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Text);
        try {
            ReadPciDump(Case.Text);
            ADD_FAILURE() << "taken";
        } catch (const std::invalid_argument& Error) {
            EXPECT_THAT(Error.what(), HasSubstr(Case.Message));
        }
    }
}

TEST(PciDump, FunctionsKeepTheirPlacesAndGetAPortWhereNoneIsShown) {
    PcieWorld World(FromDump(Function("00:1c.0", 4, 1, "00 02 04") + Function("02:00.0", 5, 1, "02 03 04") +
                             Function("03:08.0", 6, 1, "03 04 04") + Function("04:00.0", 0, 0) +
                             Function("2e:00.0", 0, 0) + Function("0001:07:00.0", 5, 1, "07 08 13")));
    for (const PciAddress& Where :
         {PciAddress{0, 0, 0x1C, 0}, {0, 2, 0, 0}, {0, 3, 8, 0}, {0, 4, 0, 0}, {0, 0x2E, 0, 0}}) {
        SCOPED_TRACE(PciAddressText(Where));
        PciFunction* Found = World.Space.Find(Where);
        ASSERT_NE(Found, nullptr);
        EXPECT_EQ(Found->Peek(0, 4), 0x00701957u);
    }
    EXPECT_EQ(World.Fabric.RootPorts().size(), 3u);
    // The endpoint that stood alone lies below a port of the root complex that has its bus.
    PcieFunction* Orphan = World.Fabric.Find(PciAddress{0, 0x2E, 0, 0});
    ASSERT_NE(Orphan->Above, nullptr);
    EXPECT_TRUE(Orphan->Above->IsRootPort());
    EXPECT_EQ(Orphan->Above->Where(), (PciAddress{0, 0x20, 1, 0}));
    EXPECT_EQ(Orphan->Above->Peek(0x18, 4) & 0xFFFFFF, 0x2E2E20u);
    // Its registers behave.
    Orphan->Poke(0x4A, 2, 0x5);
    World.Write(*Orphan, 0x4A, 0x1, 2);
    EXPECT_EQ(World.Read(*Orphan, 0x4A, 2), 0x4u);
    World.Write(*Orphan, 0x10, 0xFFFFFFFF);
    EXPECT_EQ(World.Read(*Orphan, 0x10), 0xFFFF0004u);
}

TEST(PciDump, WrittenDumpsAreReadAsTheSameMachine) {
    PcieWorld World;
    World.Fail("nic0", "bad-tlp");
    const std::vector<DumpedFunction> All = ReadPciDump(WritePciDump(World.Space));
    ASSERT_EQ(All.size(), World.Space.Functions().size());
    for (const DumpedFunction& One : All) {
        PciFunction* Function = World.Space.Find(One.Where);
        ASSERT_NE(Function, nullptr);
        for (unsigned Offset = 0; Offset < 4096; Offset += 4) {
            ASSERT_EQ(One.Register(Offset, 4), Function->Peek(Offset, 4)) << PciAddressText(One.Where) << Offset;
        }
    }
    PcieSettings Again = FromDump(WritePciDump(World.Space));
    Again.Dump->Reporting = false;
    PcieWorld Second(Again);
    EXPECT_EQ(WritePciDump(Second.Space), WritePciDump(World.Space));
}

}  // namespace
}  // namespace Simulator
