#include "Library/VornElogBaseLib/PciConfiguration.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Library/VornElogBaseLib/NvmeSwitch.h"
#include "Platform/Constants.h"
#include "Tests/Support/BootedSimulation.h"
#include "Tests/Support/LaidFunction.h"

namespace {

constexpr UINT8 SEG = 0, BUS = 0x5C, DEV = 0x13, FUNC = 5;
constexpr const char* SBDF = "SBDF 0000:5C:13.5 ";

class PciConfiguration : public testing::Test {
 protected:
    // Another function takes the same place in the next row of a table.
    LaidFunction Lay(std::uint32_t VendorDevice = 0x12345678) {
        return LaidFunction(*Machine, {SEG, BUS, DEV, FUNC}, VendorDevice);
    }
    // What is traced from here on.
    void ForgetTrace() {
        Seen = Machine->TraceLog().size();
    }
    bool Traced(const std::string& Text) {
        return Machine->TraceLog().find(Text, Seen) != std::string::npos;
    }

    BootedSimulation Machine;
    std::size_t Seen = 0;
};

struct Entry {
    unsigned Offset;
    std::uint16_t Id;
    unsigned Next;
};

TEST_F(PciConfiguration, ClassicList) {
    struct Row {
        const char* What;
        bool HasList;
        std::uint8_t Pointer;
        std::vector<Entry> Entries;
        UINT8 Offset;  // of capability 0x10
        bool IsInvalid;
        std::uint64_t Reads;
    };
    const Row Rows[] = {
        {"no list", false, 0x40, {{0x40, 0x10, 0}}, 0, false, 1},
        {"pointer below the floor", true, 0x3C, {{0x3C, 0x10, 0}}, 0, true, 2},
        {"pointer 0xFF", true, 0xFF, {}, 0, true, 2},
        {"pointer 0xFE", true, 0xFE, {{0xFE, 0x10, 0}}, 0, true, 2},
        {"pointer 0xFC", true, 0xFC, {{0xFC, 0x10, 0}}, 0xFC, false, 3},
        {"first", true, 0x40, {{0x40, 0x10, 0x50}, {0x50, 0x10, 0}}, 0x40, false, 3},
        {"third", true, 0x80, {{0x80, 0x01, 0x50}, {0x50, 0x05, 0xA0}, {0xA0, 0x10, 0}}, 0xA0, false, 5},
        {"next is no multiple of 4", true, 0x80, {{0x80, 0x01, 0x52}, {0x52, 0x10, 0}}, 0, false, 3},
        {"next below the floor is followed", true, 0x80, {{0x80, 0x01, 0x14}, {0x14, 0x10, 0}}, 0x14, false, 4},
    };
    for (const Row& Row : Rows) {
        SCOPED_TRACE(Row.What);
        LaidFunction Function = Lay();
        Function.Put(0x34, 1, Row.Pointer).Put(0x06, 2, Row.HasList ? 0x0010 : 0xFFEF);
        for (const Entry& One : Row.Entries) {
            Function.Capability(One.Offset, static_cast<UINT8>(One.Id), static_cast<UINT8>(One.Next));
        }
        ForgetTrace();
        Machine->ResetAccesses();
        EXPECT_EQ(VornGetPciCapabilityOffset(SEG, BUS, DEV, FUNC, 0x10), Row.Offset);
        EXPECT_EQ(Machine->Accesses().PciReads, Row.Reads);
        char Message[160];
        std::snprintf(Message, sizeof(Message),
                      "VornGetPciCapabilityOffset: %sCapabilities Pointer 0x%02x invalid, aborting...\n", SBDF,
                      Row.Pointer);
        EXPECT_EQ(Traced(Message), Row.IsInvalid) << Message;

        // Who has the header spares two reads and finds the same.
        UINT8 Header[PCI_HEADER_SIZE] = {};
        VornGetPciHeader(SEG, BUS, DEV, FUNC, Header);
        Machine->ResetAccesses();
        EXPECT_EQ(PciCapabilityOffsetByHeader({SEG, BUS, DEV, FUNC}, Header, 0x10), Row.Offset);
        EXPECT_EQ(Machine->Accesses().PciReads, Row.Reads - (Row.HasList ? 2 : 1));
    }
}

TEST_F(PciConfiguration, ExtendedList) {
    struct Row {
        const char* What;
        std::vector<Entry> Entries;
        UINT16 Offset;  // of capability 0x001D
        std::uint64_t Reads;
    };
    const Row Rows[] = {
        {"empty", {}, 0, 1},
        {"first", {{0x100, 0x1D, 0x200}}, 0x100, 1},
        {"last", {{0x100, 0x01, 0x200}, {0x200, 0x03, 0xFFC}, {0xFFC, 0x1D, 0}}, 0xFFC, 3},
        {"backwards", {{0x100, 0x01, 0x800}, {0x800, 0x03, 0x140}, {0x140, 0x1D, 0}}, 0x140, 3},
        {"the first of two", {{0x100, 0x01, 0x200}, {0x200, 0x1D, 0x300}, {0x300, 0x1D, 0}}, 0x200, 2},
        {"next is no multiple of 4", {{0x100, 0x01, 0x202}, {0x202, 0x1D, 0}}, 0, 1},
    };
    for (const Row& Row : Rows) {
        SCOPED_TRACE(Row.What);
        LaidFunction Function = Lay();
        for (const Entry& One : Row.Entries) {
            if (One.Offset % 4 == 0) {
                Function.Extended(One.Offset, One.Id, One.Next);
            }
        }
        Machine->ResetAccesses();
        EXPECT_EQ(VornGetPcieExtendedCapabilityOffset(SEG, BUS, DEV, FUNC, 0x1D), Row.Offset);
        EXPECT_EQ(Machine->Accesses().PciReads, Row.Reads);
    }
    // All ones: the next offset is no multiple of 4.
    EXPECT_EQ(VornGetPcieExtendedCapabilityOffset(SEG, BUS, DEV, FUNC + 1, 0x1D), 0u);

    LaidFunction Function = Lay();
    Function.Extended(0x100, 0x2C, 0x200).Extended(0x200, 0x01, 0x300).Extended(0x300, 0x01, 0x400);
    PCIE_EXTENDED_CAPABILITY_SEARCH Searches[] = {{0x01, 0}, {0x2C, 0}, {0x1D, 0}};
    Machine->ResetAccesses();
    FindPcieExtendedCapabilities({SEG, BUS, DEV, FUNC}, Searches, 2);
    EXPECT_EQ(Machine->Accesses().PciReads, 2u);
    FindPcieExtendedCapabilities({SEG, BUS, DEV, FUNC}, Searches, 3);
    EXPECT_EQ(Searches[0].Offset, 0x200u);
    EXPECT_EQ(Searches[1].Offset, 0x100u);
    EXPECT_EQ(Searches[2].Offset, 0u);
}

TEST_F(PciConfiguration, CopyLengths) {
    struct Row {
        unsigned Type;
        UINT16 DpcRegister;  // with containment
        UINT16 Aer;
        UINT16 Dpc;  // 0xFFFF: unsupported
    };
    const Row Rows[] = {{0, 0x0420, 0x2C, 0xFFFF}, {1, 0x0420, 0x2C, 0xFFFF}, {4, 0x0000, 0x48, 12},
                        {4, 0x0F00, 0x48, 12},     {4, 0x0420, 0x48, 36},     {4, 0x0F20, 0x48, 47},
                        {4, 0xF0DF, 0x48, 12},     {5, 0x0420, 0x2C, 0xFFFF}, {6, 0x0000, 0x2C, 12},
                        {7, 0x0420, 0x4C, 0xFFFF}, {9, 0x0420, 0x2C, 0xFFFF}, {10, 0x0920, 0x2C, 41},
                        {15, 0x0420, 0x2C, 0xFFFF}};
    for (const Row& Row : Rows) {
        SCOPED_TRACE(testing::Message() << "type " << Row.Type << " DPC " << std::hex << Row.DpcRegister);
        LaidFunction Function = Lay();
        Function.Express(Row.Type).Extended(0x100, 0x1D, 0).Put(0x104, 2, Row.DpcRegister);
        UINT16 Length = 0;
        EXPECT_EQ(VornGetPcieExtendedCapabilityStructureLengthAer(SEG, BUS, DEV, FUNC, &Length), EFI_SUCCESS);
        EXPECT_EQ(Length, Row.Aer);
        ForgetTrace();
        const EFI_STATUS Status = VornGetPcieExtendedCapabilityStructureLengthDpc(SEG, BUS, DEV, FUNC, &Length);
        EXPECT_EQ(Status, Row.Dpc == 0xFFFF ? EFI_UNSUPPORTED : EFI_SUCCESS);
        EXPECT_EQ(Length, Row.Dpc);
        EXPECT_EQ(Traced(std::string("VornGetPcieExtendedCapabilityStructureLengthDpc: ") + SBDF +
                         "PCIe Capability Device Port Type " + std::to_string(Row.Type) +
                         " does not support DPC, exiting...\n"),
                  Row.Dpc == 0xFFFF);
    }
    UINT16 Length = 0;
    Lay().Express(4).Extended(0x100, 0x01, 0);
    EXPECT_EQ(VornGetPcieExtendedCapabilityStructureLengthDpc(SEG, BUS, DEV, FUNC, &Length), EFI_UNSUPPORTED);
    EXPECT_EQ(Length, 0xFFFFu);
}

// A downstream port of the platform's NVMe switch in iSSW mode.
LaidFunction LaySwitchPort(LaidFunction Function, unsigned Type) {
    return Function.Put(0x08, 4, 0x060400B3)
        .Express(Type)
        .Capability(0x40, 0x10, 0x80)
        .Put(0x54, 4, 0x00000040)
        .Capability(0x80, 0x0D, 0)
        .Put(0x84, 4, 0x12340000u | VORN_PCI_SUBSYSTEM_VENDOR_ID)
        .Extended(0x100, 0x01, 0x200)
        .Extended(0x200, 0x0B, 0)
        .Put(0x204, 4, 0x01010001)
        .Put(0x208, 4, 0xC0101000)
        .Put(0x20C, 4, 0xFFFF7FFF);
}

TEST_F(PciConfiguration, NvmeSwitchPorts) {
    struct Row {
        const char* What;
        unsigned Offset;  // where it differs from such a port
        unsigned Width;
        std::uint32_t Value;
        EFI_STATUS Status;
        BOOLEAN IsSwitch;
        UINT32 Mode;
        const char* Text;
    };
    const Row Rows[] = {
        {"as it is", 0x02, 2, 0xC010, EFI_SUCCESS, TRUE, 1, ""},
        {"BSW", 0x20C, 4, 0xFFFF3FFF, EFI_SUCCESS, TRUE, 0, ""},
        {"undefined mode 2", 0x20C, 4, 0x00008000, EFI_UNSUPPORTED, TRUE, 0xFFFFFFFF,
         "NVMe PCIe Broadcom Atlas 2 switch operating mode value undefined\n"},
        {"another VSEC", 0x204, 4, 0x01010002, EFI_NOT_FOUND, TRUE, 0xFFFFFFFF, ""},
        {"another hardwired vendor", 0x208, 4, 0xC0101001, EFI_NOT_FOUND, TRUE, 0xFFFFFFFF, ""},
        {"no PCIe", 0x40, 1, 0x05, EFI_SUCCESS, FALSE, 0xFFFFFFFF, ""},
        {"another maker", 0x00, 2, 0x1001, EFI_SUCCESS, FALSE, 0xFFFFFFFF, ""},
        {"no subsystem ID", 0x80, 1, 0x05, EFI_SUCCESS, FALSE, 0xFFFFFFFF, ""},
        {"another platform's", 0x84, 2, 0x1028, EFI_SUCCESS, FALSE, 0xFFFFFFFF, ""},
    };
    for (const bool IsUpstream : {true, false}) {
        auto* const Check = IsUpstream ? VornCheckNvmePcieSwitchUpstreamPort : VornCheckNvmePcieSwitchDownstreamPort;
        for (const Row& Row : Rows) {
            SCOPED_TRACE(std::string(Row.What) + (IsUpstream ? ", upstream" : ", downstream"));
            LaySwitchPort(Lay(0xC0101000), IsUpstream ? 5 : 6).Put(Row.Offset, Row.Width, Row.Value);
            BOOLEAN IsSwitch = 7;
            UINT32 Mode = 7;
            ForgetTrace();
            EXPECT_EQ(Check(SEG, BUS, DEV, FUNC, &IsSwitch, &Mode), Row.Status);
            EXPECT_EQ(IsSwitch, Row.IsSwitch);
            EXPECT_EQ(Mode, Row.Mode);
            EXPECT_TRUE(Traced(Row.Text));
        }
        // One kind of port is not the other.
        LaySwitchPort(Lay(0xC0101000), IsUpstream ? 6 : 5);
        BOOLEAN IsSwitch = 7;
        UINT32 Mode = 7;
        EXPECT_EQ(Check(SEG, BUS, DEV, FUNC, &IsSwitch, &Mode), EFI_SUCCESS);
        EXPECT_EQ(IsSwitch, FALSE);
        // Hot plug is asked of downstream ports only.
        LaySwitchPort(Lay(0xC0101000), IsUpstream ? 5 : 6).Put(0x54, 4, 0xFFFFFFBF);
        ForgetTrace();
        EXPECT_EQ(Check(SEG, BUS, DEV, FUNC, &IsSwitch, &Mode), EFI_SUCCESS);
        EXPECT_EQ(IsSwitch, IsUpstream ? TRUE : FALSE);
        EXPECT_EQ(Traced(std::string("VornCheckNvmePcieSwitchDownstreamPort: ") + SBDF +
                         "Broadcom PCIe Switch DSP is not HPC, exiting...\n"),
                  !IsUpstream);
    }
}

}  // namespace
