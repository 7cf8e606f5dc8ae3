// Register records of AER and of the CXL RAS capability, against hand-worked bodies.
#include "Library/VornElogPolicyLib/Pcie/AerLogging.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Include/CxlRegisters.h"
#include "Library/VornElogPolicyLib/Cxl/CxlRegisterLogging.h"
#include "Tests/Library/VornElogPolicyLib/PolicyMachine.h"

namespace {

using Bodies = std::vector<std::string>;

// A function at 0002:4E:0A.1 with its PCI Express capability at 58 and AER at 150, below a root port.
struct Below {
    Below() {
        State.PciAddress = PackPciAddress(2, 0x4E, 0x0A, 1);
        State.IsPcie = TRUE;
        State.PcieCapabilityOffset = 0x58;
        State.AerOffset = 0x150;
        SetCapturedRegister16(State.PciHeader, PCI_COMMAND, 0x0146);
        SetCapturedRegister16(State.PcieCapability, PCIE_DEVICE_CONTROL, 0x202F);  // payloads of 256 bytes
        State.PcieRootPortData.pPciDeviceStateUpstreamRootPort = &RootPort;
        RootPort.PciAddress = PackPciAddress(2, 0x40, 1, 1);
        RootPort.AerOffset = 0x370;
        RootPort.Pcie.Characteristics.IsRootPort = TRUE;
    }
    void RootPortLog(UINT32 Sources, UINT32 First, UINT32 Third) {
        SetCapturedRegister32(RootPort.AerCapability, AER_ERROR_SOURCE_ID, Sources);
        SetCapturedRegister32(RootPort.AerCapability, AER_HEADER_LOG, First);
        SetCapturedRegister32(RootPort.AerCapability, AER_HEADER_LOG + 8, Third);
    }

    PCI_DEVICE_STATE State{}, RootPort{};
};

struct Case {
    const char* Name;
    std::vector<std::pair<UINTN, UINT32>> Set;  // registers that are not zero
    const char* Expected;
    void (*Also)(Below& Function) = [](Below&) {};
};

// What the BMC gets, as text: a register's non-zero bytes (C1 1A 7E, the byte's offset, the byte) as offset=byte; the
// halves of a CXL register (C1 57 7E, offset, low byte, high byte) as offset=half; the chipset event of 0002:4E:0A.1.
std::string TextOf(const Bodies& Sel) {
    std::string Text;
    for (const std::string& Body : Sel) {
        const auto Byte = [&](std::size_t At) { return Body.substr(3 * At, 2); };
        const bool IsCxl = Body.starts_with("C1 57 7E");
        const std::string Offset = IsCxl ? Byte(3) : Byte(3) + Byte(4);
        const std::size_t Digits = std::min(Offset.find_first_not_of('0'), Offset.size() - 1);
        Text += Text.empty() ? "" : " ";
        Text += Body == "DD 17 74 20 51 4E" ? "chipset"
                : !IsCxl && !Body.starts_with("C1 1A 7E")
                    ? Body
                    : Offset.substr(Digits) + "=" + (IsCxl ? Byte(5) + Byte(4) : Byte(5));
    }
    return Text;
}

constexpr UINTN UNC = AER_UNCORRECTABLE_STATUS, MASK = AER_UNCORRECTABLE_MASK, COR = AER_CORRECTABLE_STATUS,
                COR_MASK = AER_CORRECTABLE_MASK, CONTROL = AER_CAPABILITIES_CONTROL, HEADER = AER_HEADER_LOG,
                PREFIX = AER_TLP_PREFIX_LOG, SECONDARY = AER_SECONDARY_UNCORRECTABLE_STATUS,
                SECONDARY_MASK = AER_SECONDARY_UNCORRECTABLE_MASK;

const Case Cases[] = {
    {"nothing", {}, ""},
    {"masked errors only",
     {{UNC, 0x00041000}, {MASK, 0x00041000}, {COR, 0x00002000}, {COR_MASK, 0x00002000}, {HEADER, 0x40000001}},
     ""},
    // Status 154, one error: no Advanced Error Capabilities (168). Header log from 16C on, zeros left out.
    {"one error with a header",
     {{UNC, 0x00001020},
      {MASK, 0x00000020},
      {CONTROL, 0x000000AC},
      {HEADER, 0x40000001},
      {HEADER + 8, 0xFE000010},
      {HEADER + 12, 0x000000AA}},
     "155=10 16C=01 16F=40 174=10 177=FE 178=AA"},
    {"several errors tell which came first", {{UNC, 0x00045000}, {CONTROL, 0x0000000E}}, "155=50 156=04 168=0E"},
    // A header that begins with zero is none.
    {"no valid header", {{UNC, 0x00001000}, {HEADER + 4, 0x11223344}}, "155=10"},
    // Command (4), then the status.
    {"unsupported request", {{UNC, 0x00100000}}, "4=46 5=01 156=10"},
    {"masked unsupported request beside another error", {{UNC, 0x00101000}, {MASK, 0x00100000}}, "155=10"},
    // Prefixes (188 on) of the first error, bit 12; the second is zero and ends them.
    {"prefix log",
     {{UNC, 0x00001000}, {CONTROL, 0x0000080C}, {HEADER, 0x00000001}, {PREFIX, 0x80000000}, {PREFIX + 8, 0x91000000}},
     "155=10 168=0C 169=08 16C=01 18B=80"},
    {"prefix log of an error that is gone",
     {{UNC, 0x00001000}, {CONTROL, 0x0000080D}, {HEADER, 0x00000001}, {PREFIX, 0x80000000}},
     "155=10 168=0D 169=08 16C=01"},
    // 65 doublewords are 260 bytes, 4 more than the function takes: Device Control (60).
    {"malformed TLP that is too long",
     {{UNC, 0x00040000}, {HEADER, 0x60000041}},
     "156=04 16C=41 16F=60 chipset 60=2F 61=20"},
    {"malformed TLP of the largest payload", {{UNC, 0x00040000}, {HEADER, 0x60000040}}, "156=04 16C=40 16F=60"},
    {"masked malformed TLP", {{UNC, 0x00041000}, {MASK, 0x00040000}, {HEADER, 0x60000041}}, "155=10 16C=41 16F=60"},
    {"malformed TLP without a header", {{UNC, 0x00040000}}, "156=04"},
    {"correctable", {{COR, 0x000020C1}, {COR_MASK, 0x00002000}}, "160=C1"},
    // Secondary status 17C, header log from 18C on.
    {"PCIe-to-PCI bridge",
     {{SECONDARY, 0x00000180}, {SECONDARY_MASK, 0x00000100}, {AER_SECONDARY_HEADER_LOG + 12, 0x0000AB00}},
     "17C=80 199=AB",
     [](Below& It) { It.State.Pcie.IsPcieToPciBridge = TRUE; }},
    {"what only a bridge has there", {{SECONDARY, 0x00000180}}, ""},
    // 4E:0A.1 is 4E51. The root port's AER lies at 370, its header log from 38C on.
    {"the root port's header for an uncorrectable source",
     {{UNC, 0x00004000}},
     "155=40 chipset 38C=01 38F=20 394=12",
     [](Below& It) { It.RootPortLog(0x4E510000, 0x20000001, 0x00000012); }},
    {"the root port's header for a correctable source",
     {},
     "chipset 394=12",
     [](Below& It) { It.RootPortLog(0x00004E51, 0, 0x00000012); }},
    {"the root port names another", {}, "", [](Below& It) { It.RootPortLog(0x4E504E52, 0x20000001, 0); }},
    {"the root port has no header", {}, "", [](Below& It) { It.RootPortLog(0x4E514E51, 0, 0); }},
    {"its own header is enough",
     {{HEADER, 0x40000001}},
     "",
     [](Below& It) { It.RootPortLog(0x4E510000, 0x20000001, 0); }},
    {"root ports have no port above",
     {},
     "",
     [](Below& It) {
         It.State.Pcie.Characteristics.IsRootPort = TRUE;
         It.RootPortLog(0x4E510000, 0x20000001, 0);
     }},
    {"no link to the root port",
     {{COR, 0x00000001}},
     "160=01",
     [](Below& It) { It.State.PcieRootPortData.pPciDeviceStateUpstreamRootPort = nullptr; }},
    {"no AER", {{UNC, 0x00001000}}, "", [](Below& It) { It.State.AerOffset = 0; }},
    {"no PCI Express capability", {{UNC, 0x00001000}}, "", [](Below& It) { It.State.PcieCapabilityOffset = 0; }},
};

TEST(AerLogging, SendsTheRegistersThatTellSomething) {
    for (const Case& Test : Cases) {
        SCOPED_TRACE(Test.Name);
        PolicyMachine Machine;
        Below Function;
        for (const auto& [Register, Value] : Test.Set) {
            SetCapturedRegister32(Function.State.AerCapability, Register, Value);
        }
        Test.Also(Function);
        const CPER_RECORD Record{};
        const PCIE_SEL_DATA SelData{SbdfOf(Function.State.PciAddress), 3, 1};
        VornElogSmmCheckAndLogPcieAerRegs(&Record, &Function.State, &SelData);
        EXPECT_EQ(TextOf(Machine.Sel()), Test.Expected);
    }
}

// A second body for a high half that is not zero.
// Words of the RAS capability: status, mask, severity, correctable status and mask, control, header log from 6 on.
const Case CxlCases[] = {
    {"nothing", {}, ""},
    {"masked errors only", {{0, 0x00000400}, {1, 0x00000400}, {3, 0x00000002}, {4, 0x00000002}, {6, 0x12345678}}, ""},
    {"uncorrectable with its header log of sixteen doublewords",
     {{0, 0x00010403}, {1, 0x00000002}, {6, 0x0000ABCD}, {8, 0x12340000}, {21, 0x00000001}, {22, 0xFFFFFFFF}},
     "0=0401 2=0001 18=ABCD 20=0000 22=1234 54=0001"},
    {"no valid header", {{0, 0x00000001}, {7, 0x12345678}}, "0=0001"},
    {"correctable", {{3, 0x0000000F}, {4, 0x00000008}}, "C=0007"},
    {"the root port's header log",
     {{0, 0x00000001}},
     "0=0001 chipset 18=0077 24=0088",
     [](Below& It) {
         It.RootPortLog(0x4E510000, 0, 0);
         It.RootPort.Cxl.RasCapability[6] = 0x00000077;
         It.RootPort.Cxl.RasCapability[9] = 0x00000088;
     }},
    {"the root port names another",
     {},
     "",
     [](Below& It) {
         It.RootPortLog(0x4E500000, 0, 0);
         It.RootPort.Cxl.RasCapability[6] = 0x00000077;
     }},
    {"a root port without CXL",
     {},
     "",
     [](Below& It) {
         It.RootPortLog(0x4E510000, 0, 0);
         It.RootPort.Cxl.IsCxl = FALSE;
         It.RootPort.Cxl.RasCapability[6] = 0x00000077;
     }},
    {"nothing was captured", {{0, 0x00000001}}, "", [](Below& It) { It.State.Cxl.RasCapabilityValid = FALSE; }},
};

TEST(CxlRegisterLogging, SendsTheRegistersThatTellSomething) {
    for (const Case& Test : CxlCases) {
        SCOPED_TRACE(Test.Name);
        PolicyMachine Machine;
        Below Function;
        for (PCI_DEVICE_STATE* State : {&Function.State, &Function.RootPort}) {
            State->Cxl.IsCxl = State->Cxl.RasCapabilityValid = TRUE;
        }
        for (const auto& [Word, Value] : Test.Set) {
            Function.State.Cxl.RasCapability[Word] = Value;
        }
        Test.Also(Function);
        const CPER_RECORD Record{};
        const PCIE_SEL_DATA SelData{SbdfOf(Function.State.PciAddress), 3, 4};
        VornElogSmmCheckAndLogCxlProtocolRegs(&Record, &Function.State, &SelData);
        EXPECT_EQ(TextOf(Machine.Sel()), Test.Expected);
    }
}

}  // namespace
