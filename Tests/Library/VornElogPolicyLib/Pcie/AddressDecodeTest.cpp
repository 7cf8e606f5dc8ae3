// Which addresses a function's base address registers and a bridge's windows decode, and the power state.
#include "Library/VornElogPolicyLib/Pcie/AddressDecode.h"

#include <gtest/gtest.h>

#include <vector>

#include "Library/VornElogPolicyLib/Pcie/PowerState.h"
#include "Library/VornElogPolicyLib/Pcie/VendorDefinedMessage.h"
#include "Tests/Library/VornElogPolicyLib/Pcie/PcieMachine.h"

namespace {

constexpr UINT8 BUS = PcieMachine::BUS;

bool Decodes(const std::array<std::uint32_t, 4>& Header) {
    return VornElogSmmCheckMemAccessForPcieDev(0, BUS, 0, 0, Header.data()) != FALSE;
}

TEST(AddressDecode, OnlyDmtfMessagesOfTypeOneAreRecognised) {
    PcieMachine Machine;
    const PCI_DEVICE_STATE State{};
    const struct {
        std::array<std::uint32_t, 4> Header;
        bool Expected;
    } Cases[] = {
        {{0x70123456, 0x12AB347F, 0x56781AB4, 0xFFFFFFFF}, true},
        {{0x30000000, 0x0000007F, 0x00001AB4, 0}, true},
        {{0x7200007F, 0x0000007F, 0x00001AB4, 0}, false},  // routed by ID
        {{0x40000001, 0x0000007F, 0x00001AB4, 0}, false},
        {{0x70000000, 0x0000007E, 0x00001AB4, 0}, false},  // type 0
        {{0x70000000, 0x00007F00, 0x00001AB4, 0}, false},
        {{0x70000000, 0x0000007F, 0x1AB40000, 0}, false},
        {{0x70000000, 0x0000007F, 0x00008086, 0}, false},
    };
    for (const auto& Case : Cases) {
        BOOLEAN IsVdm = 2;
        EXPECT_EQ(VornElogSmmIsPcieVdmType1DmtfMessage(&State, Case.Header.data(), &IsVdm), EFI_SUCCESS);
        EXPECT_EQ(IsVdm, Case.Expected ? TRUE : FALSE) << std::hex << Case.Header[0] << " " << Case.Header[1];
    }
    BOOLEAN Answer = 2;
    EXPECT_EQ(VornElogSmmIsPcieVdmType1DmtfMessage(nullptr, MEMORY_READ.data(), &Answer), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogSmmIsPcieVdmType1DmtfMessage(&State, nullptr, &Answer), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogSmmIsPcieVdmType1DmtfMessage(&State, MEMORY_READ.data(), nullptr), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogSmmCheckPcieVdmType1DmtfMsg(nullptr, &Answer), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogSmmCheckPcieVdmType1DmtfMsg(&State, nullptr), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Answer, 2);
}

struct Bar {
    unsigned Index;
    std::uint32_t Value, Writable;
};
struct Decode {
    const char* Name;
    std::vector<Bar> Bars;
    std::vector<std::uint64_t> Inside, Outside;
};

// A request for the address, in the header format that fits it.
std::array<std::uint32_t, 4> Request(std::uint64_t Address) {
    const auto Low = static_cast<std::uint32_t>(Address);
    const auto High = static_cast<std::uint32_t>(Address >> 32);
    return High == 0 ? MemoryWrite(Low) : std::array<std::uint32_t, 4>{0x60000001, 0xFF, High, Low};
}

TEST(AddressDecode, BaseAddressRegistersDecodeTheirSizeAndKeepTheirValue) {
    const Decode Cases[] = {
        {"1 MiB", {{0, 0xFE000000, 0xFFF00000}}, {0xFE000000, 0xFE0FFFFC}, {0xFDFFFFFC, 0xFE100000, 0x1FE000000}},
        {"16 bytes, the last one", {{5, 0xFE000010, 0xFFFFFFF0}}, {0xFE00001C}, {0xFE00000C, 0xFE000020}},
        {"prefetchable", {{2, 0xD0000008, 0xF0000000}}, {0xDFFFFFFC}, {0xE0000000}},
        {"below 1 MiB", {{1, 0x000C0002, 0xFFFF0000}}, {0x000C1000}, {0x000D0000}},
        {"64 bits",
         {{0, 0x0000000C, 0xC0000000}, {1, 0x00000200, 0xFFFFFFFF}},
         {0x20000000000, 0x2003FFFFFFC},
         {0x1FFFFFFFFFC, 0x20040000000, 0x00000000, 0x200}},
        {"64 bits, 16 GiB",
         {{4, 0x00000004, 0x00000000}, {5, 0x00000010, 0xFFFFFFFC}},
         {0x1000000000, 0x13FFFFFFFC},
         {0xFFFFFFFFC, 0x1400000000}},
        {"IO", {{0, 0xFE000001, 0xFFFFFF00}}, {}, {0xFE000000}},
        {"size mask 0", {{0, 0x00000000, 0}}, {}, {0x00000000}},
        {"64 bits, nothing to set", {{0, 0x00000004, 0}, {1, 0, 0}}, {}, {0x00000000}},
        {"64 bits without room", {{5, 0xFE000004, 0xFFF00000}}, {}, {0xFE000000}},
        {"the upper half is no register of its own",
         {{0, 0x00000004, 0xFFF00000}, {1, 0xFE000000, 0xFFFFFFFF}},
         {0xFE00000000000000},
         {0xFE000000}},
        {"the second of two", {{0, 0xFD000000, 0xFFFF0000}, {1, 0xFE000000, 0xFFFF0000}}, {0xFE00FFFC}, {0xFE010000}},
    };
    PcieMachine Machine;
    for (const Decode& Case : Cases) {
        auto& Device = Machine.Add(BUS, 0, 0, PcieEndpoint);
        for (const Bar& One : Case.Bars) {
            Device.SetBar(One.Index, One.Value, One.Writable);
        }
        for (const std::uint64_t Address : Case.Inside) {
            EXPECT_TRUE(Decodes(Request(Address))) << Case.Name << std::hex << " " << Address;
        }
        for (const std::uint64_t Address : Case.Outside) {
            EXPECT_FALSE(Decodes(Request(Address))) << Case.Name << std::hex << " " << Address;
        }
        for (const Bar& One : Case.Bars) {
            EXPECT_EQ(Device.Peek(PCI_BASE_ADDRESS_0 + 4 * One.Index, 4), One.Value) << Case.Name;
        }
    }
}

}  // namespace
