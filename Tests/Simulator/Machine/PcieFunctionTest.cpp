// Configuration registers against the standard's tables: which bits software can write, clear or only read.
#include "Simulator/Machine/PcieFunction.h"

#include <gtest/gtest.h>

#include "Tests/Support/PcieWorld.h"

namespace Simulator {
namespace {

TEST(PcieFunction, RegistersTakeWhatTheStandardLetsSoftwareWrite) {
    PcieWorld World;
    PcieFunction& Endpoint = World["nic0"];
    PcieFunction& Port = World["port0"];
    PcieFunction& Drive = World["bay0"];
    const struct {
        const char* What;
        PcieFunction& Function;
        unsigned Offset, Width;
        std::uint32_t Held, Written, Reads;
    } Cases[] = {
        {"vendor ID is read-only", Endpoint, 0x00, 2, 0x1D9B, 0x1234, 0x1D9B},
        {"reserved command bits stay 0", Endpoint, 0x04, 2, 0x0000, 0xFFFF, 0x0547},
        {"status errors are cleared by a one", Endpoint, 0x06, 2, 0xF910, 0xC000, 0x3910},
        {"the capabilities bit of status stays", Endpoint, 0x06, 2, 0x0010, 0xFFFF, 0x0010},
        {"a zero clears nothing", Endpoint, 0x06, 2, 0xF910, 0x0000, 0xF910},
        {"secondary status", Port, 0x1E, 2, 0xF900, 0x2000, 0xD900},
        {"an endpoint has no secondary status", Endpoint, 0x1E, 2, 0xF900, 0xF900, 0xF900},
        {"bridge control", Port, 0x3E, 2, 0x0000, 0xFFBF, 0x001F},
        {"power state and PME enable", Endpoint, 0x44, 2, 0x8008, 0x0103, 0x810B},
        {"PME status is cleared by a one", Endpoint, 0x44, 2, 0x8008, 0x8000, 0x0008},
        {"device control, initiate reset apart", Endpoint, 0x50, 2, 0x0000, 0x7FFF, 0x7FFF},
        {"device status", Endpoint, 0x52, 2, 0x002F, 0x0005, 0x002A},
        {"a downstream port can disable its link", Drive, 0x58, 2, 0x0000, 0xFFEF, 0x0FCB},
        {"an endpoint cannot", Endpoint, 0x58, 2, 0x0000, 0xFFFF, 0x03CB},
        {"link status changes of a port", Port, 0x5A, 2, 0xC104, 0x8000, 0x4104},
        {"link status of an endpoint is read-only", Endpoint, 0x5A, 2, 0xC104, 0xC000, 0xC104},
        {"slot status", Drive, 0x62, 2, 0x0158, 0x0108, 0x0050},
        {"slot capabilities are hardware-initialised", Drive, 0x5C, 4, 0x00800040, 0, 0x00800040},
        {"root control", Port, 0x64, 2, 0, 0xFFFF, 0x001F},
        {"root status keeps all but PME", Port, 0x68, 4, 0x00030100, 0xFFFFFFFF, 0x00020100},
        {"uncorrectable status", Endpoint, 0x104, 4, 0x00144000, 0x00100000, 0x00044000},
        {"uncorrectable mask", Endpoint, 0x108, 4, 0, 0xFFFFFFFF, 0x07FFF030},
        {"uncorrectable severity", Endpoint, 0x10C, 4, 0, 0xFFFFFFFF, 0x07FFF030},
        {"correctable status", Endpoint, 0x110, 4, 0x00003041, 0x00002001, 0x00001040},
        {"correctable mask", Endpoint, 0x114, 4, 0, 0xFFFFFFFF, 0x0000F1C1},
        {"ECRC enables where ECRC can be done", Endpoint, 0x118, 4, 0x000000A0, 0xFFFFFFFF, 0x000001E0},
        {"the header log is read-only", Endpoint, 0x11C, 4, 0x40000001, 0, 0x40000001},
        {"root error command", Port, 0x12C, 4, 0, 0xFFFFFFFF, 0x7},
        {"root error status, message number apart", Port, 0x130, 4, 0x0800007F, 0x0000007F, 0x08000000},
        {"the error source is read-only", Port, 0x134, 4, 0x01000108, 0, 0x01000108},
        {"lane errors", Endpoint, 0x150, 4, 0x0000FFFF, 0x00000003, 0x0000FFFC},
        {"RP PIO status", Port, 0x180, 4, 0x00070707, 0x00010001, 0x00060706},
        {"RP PIO mask", Port, 0x184, 4, 0, 0xFFFFFFFF, 0x00070707},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        const std::uint32_t Before = Case.Function.Peek(Case.Offset, Case.Width);
        Case.Function.Poke(Case.Offset, Case.Width, Case.Held);
        World.Write(Case.Function, Case.Offset, Case.Written, Case.Width);
        EXPECT_EQ(Case.Function.Peek(Case.Offset, Case.Width), Case.Reads);
        Case.Function.Poke(Case.Offset, Case.Width, Before);
    }
}

TEST(PcieFunction, AccessesOfEveryWidthMeetTheSameBits) {
    PcieWorld World;
    PcieFunction& Endpoint = World["nic0"];
    Endpoint.Poke(0x50, 4, 0x000F2810);
    World.Write(Endpoint, 0x52, 0x01, 1);  // byte: correctable error detected
    EXPECT_EQ(World.Read(Endpoint, 0x50), 0x000E2810u);
    World.Write(Endpoint, 0x50, 0x000A0007);  // both registers at once
    EXPECT_EQ(World.Read(Endpoint, 0x50), 0x00040007u);
    EXPECT_EQ(World.Read(Endpoint, 0x52, 2), 0x0004u);
    EXPECT_EQ(World.Read(Endpoint, 0x51, 1), 0x00u);
}

TEST(PcieFunction, BaseAddressRegistersTellTheirSize) {
    PcieFunctionSetting Sized = Described("card", PcieKind::Endpoint);
    Sized.Bars = {{0, 0xA0000000, 0x1000, false, false, false},
                  {1, 0, 0x100, false, false, true},
                  {2, 0x1234500000, 0x100000, true, true, false},
                  {4, 0x5000, 0, false, false, false}};
    PcieWorld World(OnePort(Described("port", PcieKind::RootPort, {Sized})));
    PcieFunction& Card = World["card"];
    const struct {
        unsigned Index;
        std::uint32_t Holds, Sizes;
    } Cases[] = {
        {0, 0xA0000000, 0xFFFFF000}, {1, 0x00001001, 0xFFFFFF01}, {2, 0x3450000C, 0xFFF0000C},
        {3, 0x00000012, 0xFFFFFFFF}, {4, 0x00005000, 0x00005000}, {5, 0, 0},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.Index);
        const unsigned Register = 0x10 + 4 * Case.Index;
        EXPECT_EQ(World.Read(Card, Register), Case.Holds);
        World.Write(Card, Register, 0xFFFFFFFF);
        EXPECT_EQ(World.Read(Card, Register), Case.Sizes);
        World.Write(Card, Register, Case.Holds);
        EXPECT_EQ(World.Read(Card, Register), Case.Holds);
    }
    EXPECT_EQ(Card.BarBase(2), 0x1234500000u);
}

}  // namespace
}  // namespace Simulator
