// Register records of AER and of the CXL RAS capability, against hand-worked bodies.
#include "Library/VornElogPolicyLib/Pcie/AerLogging.h"

#include <gtest/gtest.h>

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
    void Aer(UINTN Register, UINT32 Value) {
        SetCapturedRegister32(State.AerCapability, Register, Value);
    }
    void Header(UINT32 First, UINT32 Second = 0, UINT32 Third = 0, UINT32 Fourth = 0) {
        const UINT32 Log[] = {First, Second, Third, Fourth};
        for (UINTN Index = 0; Index < 4; Index++) {
            Aer(AER_HEADER_LOG + 4 * Index, Log[Index]);
        }
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
    void (*Set)(Below& Function);
    Bodies Expected;
};

// A register's non-zero bytes: C1 1A 7E, the byte's offset, the byte. The chipset event of 0002:4E:0A.1.
const char* const ChipsetEvent = "DD 17 74 20 51 4E";

const Case Cases[] = {
    {"nothing", [](Below&) {}, {}},
    {"masked errors only",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00041000);
         It.Aer(AER_UNCORRECTABLE_MASK, 0x00041000);
         It.Aer(AER_CORRECTABLE_STATUS, 0x00002000);
         It.Aer(AER_CORRECTABLE_MASK, 0x00002000);
         It.Header(0x40000001);
     },
     {}},
    // Status 154, one error: no Advanced Error Capabilities (168). Header log from 16C on, zeros left out.
    {"one error with a header",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00001020);
         It.Aer(AER_UNCORRECTABLE_MASK, 0x00000020);
         It.Aer(AER_CAPABILITIES_CONTROL, 0x000000AC);
         It.Header(0x40000001, 0, 0xFE000010, 0x000000AA);
     },
     {"C1 1A 7E 01 55 10", "C1 1A 7E 01 6C 01", "C1 1A 7E 01 6F 40", "C1 1A 7E 01 74 10", "C1 1A 7E 01 77 FE",
      "C1 1A 7E 01 78 AA"}},
    {"several errors tell which came first",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00045000);
         It.Aer(AER_CAPABILITIES_CONTROL, 0x0000000E);
     },
     {"C1 1A 7E 01 55 50", "C1 1A 7E 01 56 04", "C1 1A 7E 01 68 0E"}},
    // A header that begins with zero is none.
    {"no valid header",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00001000);
         It.Header(0, 0x11223344);
     },
     {"C1 1A 7E 01 55 10"}},
    // Command (4), then the status.
    {"unsupported request",
     [](Below& It) { It.Aer(AER_UNCORRECTABLE_STATUS, 0x00100000); },
     {"C1 1A 7E 00 04 46", "C1 1A 7E 00 05 01", "C1 1A 7E 01 56 10"}},
    {"masked unsupported request beside another error",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00101000);
         It.Aer(AER_UNCORRECTABLE_MASK, 0x00100000);
     },
     {"C1 1A 7E 01 55 10"}},
    // Prefixes (188 on) of the first error, bit 12; the second is zero and ends them.
    {"prefix log",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00001000);
         It.Aer(AER_CAPABILITIES_CONTROL, 0x0000080C);
         It.Header(0x00000001);
         It.Aer(AER_TLP_PREFIX_LOG, 0x80000000);
         It.Aer(AER_TLP_PREFIX_LOG + 8, 0x91000000);
     },
     {"C1 1A 7E 01 55 10", "C1 1A 7E 01 68 0C", "C1 1A 7E 01 69 08", "C1 1A 7E 01 6C 01", "C1 1A 7E 01 8B 80"}},
    {"prefix log of an error that is gone",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00001000);
         It.Aer(AER_CAPABILITIES_CONTROL, 0x0000080D);
         It.Header(0x00000001);
         It.Aer(AER_TLP_PREFIX_LOG, 0x80000000);
     },
     {"C1 1A 7E 01 55 10", "C1 1A 7E 01 68 0D", "C1 1A 7E 01 69 08", "C1 1A 7E 01 6C 01"}},
    // 65 doublewords are 260 bytes, 4 more than the function takes: Device Control (60).
    {"malformed TLP that is too long",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00040000);
         It.Header(0x60000041);
     },
     {"C1 1A 7E 01 56 04", "C1 1A 7E 01 6C 41", "C1 1A 7E 01 6F 60", ChipsetEvent, "C1 1A 7E 00 60 2F",
      "C1 1A 7E 00 61 20"}},
    {"malformed TLP of the largest payload",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00040000);
         It.Header(0x60000040);
     },
     {"C1 1A 7E 01 56 04", "C1 1A 7E 01 6C 40", "C1 1A 7E 01 6F 60"}},
    {"masked malformed TLP",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00041000);
         It.Aer(AER_UNCORRECTABLE_MASK, 0x00040000);
         It.Header(0x60000041);
     },
     {"C1 1A 7E 01 55 10", "C1 1A 7E 01 6C 41", "C1 1A 7E 01 6F 60"}},
    {"malformed TLP without a header",
     [](Below& It) { It.Aer(AER_UNCORRECTABLE_STATUS, 0x00040000); },
     {"C1 1A 7E 01 56 04"}},
    {"correctable",
     [](Below& It) {
         It.Aer(AER_CORRECTABLE_STATUS, 0x000020C1);
         It.Aer(AER_CORRECTABLE_MASK, 0x00002000);
     },
     {"C1 1A 7E 01 60 C1"}},
    // Secondary status 17C, header log from 18C on.
    {"PCIe-to-PCI bridge",
     [](Below& It) {
         It.State.Pcie.IsPcieToPciBridge = TRUE;
         It.Aer(AER_SECONDARY_UNCORRECTABLE_STATUS, 0x00000180);
         It.Aer(AER_SECONDARY_UNCORRECTABLE_MASK, 0x00000100);
         It.Aer(AER_SECONDARY_HEADER_LOG + 12, 0x0000AB00);
     },
     {"C1 1A 7E 01 7C 80", "C1 1A 7E 01 99 AB"}},
    {"what only a bridge has there", [](Below& It) { It.Aer(AER_SECONDARY_UNCORRECTABLE_STATUS, 0x00000180); }, {}},
    // 4E:0A.1 is 4E51. The root port's AER lies at 370, its header log from 38C on.
    {"the root port's header for an uncorrectable source",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00004000);
         It.RootPortLog(0x4E510000, 0x20000001, 0x00000012);
     },
     {"C1 1A 7E 01 55 40", ChipsetEvent, "C1 1A 7E 03 8C 01", "C1 1A 7E 03 8F 20", "C1 1A 7E 03 94 12"}},
    {"the root port's header for a correctable source",
     [](Below& It) { It.RootPortLog(0x00004E51, 0, 0x00000012); },
     {ChipsetEvent, "C1 1A 7E 03 94 12"}},
    {"the root port names another", [](Below& It) { It.RootPortLog(0x4E504E52, 0x20000001, 0); }, {}},
    {"the root port has no header", [](Below& It) { It.RootPortLog(0x4E514E51, 0, 0); }, {}},
    {"its own header is enough",
     [](Below& It) {
         It.Header(0x40000001);
         It.RootPortLog(0x4E510000, 0x20000001, 0);
     },
     {}},
    {"root ports have no port above",
     [](Below& It) {
         It.State.Pcie.Characteristics.IsRootPort = TRUE;
         It.RootPortLog(0x4E510000, 0x20000001, 0);
     },
     {}},
    {"no link to the root port",
     [](Below& It) {
         It.Aer(AER_CORRECTABLE_STATUS, 0x00000001);
         It.State.PcieRootPortData.pPciDeviceStateUpstreamRootPort = nullptr;
     },
     {"C1 1A 7E 01 60 01"}},
    {"no AER",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00001000);
         It.State.AerOffset = 0;
     },
     {}},
    {"no PCI Express capability",
     [](Below& It) {
         It.Aer(AER_UNCORRECTABLE_STATUS, 0x00001000);
         It.State.PcieCapabilityOffset = 0;
     },
     {}},
};

TEST(AerLogging, SendsTheRegistersThatTellSomething) {
    for (const Case& Test : Cases) {
        SCOPED_TRACE(Test.Name);
        PolicyMachine Machine;
        Below Function;
        Test.Set(Function);
        const CPER_RECORD Record{};
        const PCIE_SEL_DATA SelData{SbdfOf(Function.State.PciAddress), 3, 1};
        VornElogSmmCheckAndLogPcieAerRegs(&Record, &Function.State, &SelData);
        EXPECT_EQ(Machine.Sel(), Test.Expected);
        Machine.Forget();
        VornElogSmmCheckAndLogPcieAerRegs(nullptr, &Function.State, &SelData);
        VornElogSmmCheckAndLogPcieAerRegs(&Record, nullptr, &SelData);
        VornElogSmmCheckAndLogPcieAerRegs(&Record, &Function.State, nullptr);
        EXPECT_EQ(Machine.Sel(), Bodies{});
    }
}

// CXL: C1 57 7E, the offset in the capability, the low half; a second body for a high half that is not zero.
const Case CxlCases[] = {
    {"nothing", [](Below&) {}, {}},
    {"masked errors only",
     [](Below& It) {
         It.State.Cxl.RasCapability[0] = It.State.Cxl.RasCapability[1] = 0x00000400;
         It.State.Cxl.RasCapability[3] = It.State.Cxl.RasCapability[4] = 0x00000002;
         It.State.Cxl.RasCapability[6] = 0x12345678;
     },
     {}},
    {"uncorrectable with its header log of sixteen doublewords",
     [](Below& It) {
         It.State.Cxl.RasCapability[0] = 0x00010403;
         It.State.Cxl.RasCapability[1] = 0x00000002;
         It.State.Cxl.RasCapability[6] = 0x0000ABCD;
         It.State.Cxl.RasCapability[8] = 0x12340000;
         It.State.Cxl.RasCapability[21] = 0x00000001;
         It.State.Cxl.RasCapability[22] = 0xFFFFFFFF;  // no longer the header log's
     },
     {"C1 57 7E 00 01 04", "C1 57 7E 02 01 00", "C1 57 7E 18 CD AB", "C1 57 7E 20 00 00", "C1 57 7E 22 34 12",
      "C1 57 7E 54 01 00"}},
    {"no valid header",
     [](Below& It) {
         It.State.Cxl.RasCapability[0] = 0x00000001;
         It.State.Cxl.RasCapability[7] = 0x12345678;
     },
     {"C1 57 7E 00 01 00"}},
    {"correctable",
     [](Below& It) {
         It.State.Cxl.RasCapability[3] = 0x0000000F;
         It.State.Cxl.RasCapability[4] = 0x00000008;
     },
     {"C1 57 7E 0C 07 00"}},
    {"the root port's header log",
     [](Below& It) {
         It.State.Cxl.RasCapability[0] = 0x00000001;
         It.RootPortLog(0x4E510000, 0, 0);
         It.RootPort.Cxl.RasCapability[6] = 0x00000077;
         It.RootPort.Cxl.RasCapability[9] = 0x00000088;
     },
     {"C1 57 7E 00 01 00", ChipsetEvent, "C1 57 7E 18 77 00", "C1 57 7E 24 88 00"}},
    {"the root port names another",
     [](Below& It) {
         It.RootPortLog(0x4E500000, 0, 0);
         It.RootPort.Cxl.RasCapability[6] = 0x00000077;
     },
     {}},
    {"a root port without CXL",
     [](Below& It) {
         It.RootPortLog(0x4E510000, 0, 0);
         It.RootPort.Cxl.IsCxl = FALSE;
         It.RootPort.Cxl.RasCapability[6] = 0x00000077;
     },
     {}},
    {"nothing was captured",
     [](Below& It) {
         It.State.Cxl.RasCapabilityValid = FALSE;
         It.State.Cxl.RasCapability[0] = 0x00000001;
     },
     {}},
};

TEST(CxlRegisterLogging, SendsTheRegistersThatTellSomething) {
    for (const Case& Test : CxlCases) {
        SCOPED_TRACE(Test.Name);
        PolicyMachine Machine;
        Below Function;
        for (PCI_DEVICE_STATE* State : {&Function.State, &Function.RootPort}) {
            State->Cxl.IsCxl = State->Cxl.RasCapabilityValid = TRUE;
        }
        Test.Set(Function);
        const CPER_RECORD Record{};
        const PCIE_SEL_DATA SelData{SbdfOf(Function.State.PciAddress), 3, 4};
        VornElogSmmCheckAndLogCxlProtocolRegs(&Record, &Function.State, &SelData);
        EXPECT_EQ(Machine.Sel(), Test.Expected);
        Machine.Forget();
        VornElogSmmCheckAndLogCxlProtocolRegs(nullptr, &Function.State, &SelData);
        VornElogSmmCheckAndLogCxlProtocolRegs(&Record, nullptr, &SelData);
        VornElogSmmCheckAndLogCxlProtocolRegs(&Record, &Function.State, nullptr);
        EXPECT_EQ(Machine.Sel(), Bodies{});
    }
}

}  // namespace
