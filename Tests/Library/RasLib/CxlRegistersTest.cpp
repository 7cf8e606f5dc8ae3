#include "Library/RasLib/CxlRegisters.h"

#include <gtest/gtest.h>

#include "Library/RasLib/Globals.h"
#include "Library/RasLib/MemoryBar.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/CxlFunction.h"

namespace {

constexpr UINT16 NO_DVSEC = 0;

class CxlRegisters : public testing::Test {
 protected:
    CxlRegisters() {
        Sim.Boot();
    }
    ~CxlRegisters() override {
        // An access that nothing answers would have been noted.
        EXPECT_NO_THROW(Sim.Machine().ThrowPendingFault());
    }
    // Extended capabilities from 0x100 on, 0x40 bytes apart.
    struct Header {
        unsigned Offset, Next, Id, DvsecId, Vendor;
    };
    void Chain(CxlFunction& Function, const std::vector<Header>& Headers) {
        for (unsigned Offset = 0x100; Offset < 0x1000; Offset += 4) {
            Function.Set(Offset, 0);
        }
        for (const Header& One : Headers) {
            Function.SetDvsec(One.Offset, One.Next, One.DvsecId, 0x24, One.Vendor);
            Function.Set(One.Offset, One.Next << 20 | 1 << 16 | One.Id);
        }
    }

    Simulator::Simulation Sim{Simulator::Configuration{}};
};

TEST_F(CxlRegisters, DvsecSearchEndsWhateverTheListIs) {
    constexpr unsigned DVSEC = 0x23, CXL = 0x1E98;
    const struct {
        const char* What;
        std::vector<Header> List;
        UINT16 Wanted;
        UINT16 Offset;
    } Cases[] = {
        {"the first", {{0x100, 0x140, DVSEC, 0, CXL}, {0x140, 0, DVSEC, 7, CXL}}, 0, 0x100},
        {"the last, nothing follows it", {{0x100, 0x140, 0x01, 0, 0}, {0x140, 0, DVSEC, 7, CXL}}, 7, 0x140},
        {"another ID", {{0x100, 0, DVSEC, 3, CXL}}, 8, NO_DVSEC},
        {"another vendor's", {{0x100, 0x140, DVSEC, 8, 0x8086}, {0x140, 0, DVSEC, 8, CXL}}, 8, 0x140},
        {"no DVSEC", {{0x100, 0, 0x0B, 8, CXL}}, 8, NO_DVSEC},
        {"next offset 0xFFF", {{0x100, 0xFFF, 0x01, 0, 0}}, 8, NO_DVSEC},
        {"a header at the very end", {{0x100, 0xFFC, 0x01, 0, 0}, {0xFF4, 0, DVSEC, 8, CXL}}, 8, NO_DVSEC},
        {"a list that leads to itself", {{0x100, 0x140, 0x01, 0, 0}, {0x140, 0x100, 0x02, 0, 0}}, 8, NO_DVSEC},
        {"a list that leads into the header", {{0x100, 0x004, 0x01, 0, 0}}, 8, NO_DVSEC},
        {"reserved bits 1:0", {{0x100, 0x141, 0x01, 0, 0}, {0x140, 0, DVSEC, 8, CXL}}, 8, 0x140},
    };
    CxlFunction Function(Sim.Machine());
    for (const auto& Case : Cases) {
        Chain(Function, Case.List);
        if (Case.List.back().Offset == 0xFF4) {
            Function.Set(0xFFC, 0x00010023);
        }
        EXPECT_EQ(RasFindCxlDvsecCapability(CxlFunction::ADDRESS, Case.Wanted), Case.Offset) << Case.What;
    }
    EXPECT_EQ(RasFindCxlDvsecCapability(PackPciAddress(0, 0x1E, 0x1F, 0), 0), NO_DVSEC) << "an absent function";
}

TEST_F(CxlRegisters, BlocksLieInsideMemoryBars) {
    using Bend = void (*)(CxlFunction&);
    const struct {
        const char* What;
        Bend Change;
        std::uint64_t Component, Device;
    } Cases[] = {
        {"as made", [](CxlFunction&) {}, CxlFunction::BAR, CxlFunction::DEVICE},
        {"32-bit BAR",
         [](CxlFunction& F) {
             F.SetBar(2, 0x90000000, 0x20000, 0);
             F.SetLocatorEntry(0, 1, 2, 0x10000);
         },
         0x90010000, CxlFunction::DEVICE},
        {"the first entry counts",
         [](CxlFunction& F) {
             F.SetDvsec(CxlFunction::LOCATOR, 0, 8, 12 + 3 * 8);
             F.SetLocatorEntry(2, 3, 0, 0x20000);
         },
         CxlFunction::BAR, CxlFunction::DEVICE},
        {"an empty locator", [](CxlFunction& F) { F.SetDvsec(CxlFunction::LOCATOR, 0, 8, 12); }, 0, 0},
        {"one entry only", [](CxlFunction& F) { F.SetDvsec(CxlFunction::LOCATOR, 0, 8, 20); }, CxlFunction::BAR, 0},
        {"IO BAR", [](CxlFunction& F) { F.SetBar(0, 0xE000, 0x100, 1); }, 0, 0},
        {"BAR indicator 7", [](CxlFunction& F) { F.SetLocatorEntry(0, 1, 7, 0); }, 0, CxlFunction::DEVICE},
        {"64-bit BAR 5",
         [](CxlFunction& F) {
             F.SetBar(5, 0x90000000, 0x20000, 4);
             F.SetLocatorEntry(1, 3, 5, 0);
         },
         CxlFunction::BAR, 0},
        {"BAR that decodes nothing", [](CxlFunction& F) { F.SetLocatorEntry(0, 1, 3, 0); }, 0, CxlFunction::DEVICE},
        {"BAR without an address", [](CxlFunction& F) { F.SetBar(0, 0, CxlFunction::BAR_SIZE, 4); }, 0, 0},
        {"offset behind the BAR", [](CxlFunction& F) { F.SetLocatorEntry(1, 3, 0, CxlFunction::BAR_SIZE); },
         CxlFunction::BAR, 0},
        {"offset far behind the BAR", [](CxlFunction& F) { F.SetLocatorEntry(1, 3, 0, 0xFFFFFFFFFFFF0000); },
         CxlFunction::BAR, 0},
        {"no room for component registers", [](CxlFunction& F) { F.SetBar(0, CxlFunction::BAR, 0x8000, 4); }, 0, 0},
        {"two BARs only in a type 1 header",
         [](CxlFunction& F) {
             F.SetBar(2, 0x90000000, 0x20000, 0);
             F.SetLocatorEntry(0, 1, 2, 0);
             F.Config.Poke(0x0E, 1, 1);
         },
         0, CxlFunction::DEVICE},
    };
    for (const auto& Case : Cases) {
        CxlFunction Function(Sim.Machine());
        Case.Change(Function);
        const std::uint32_t Bars[] = {Function.Get(0x10), Function.Get(0x14), Function.Get(0x18)};
        EXPECT_EQ(RasGetRciepRegisterBlockAddress(CxlFunction::ADDRESS, 1), Case.Component) << Case.What;
        EXPECT_EQ(RasGetRciepRegisterBlockAddress(CxlFunction::ADDRESS, 3), Case.Device) << Case.What;
        EXPECT_EQ(Function.Get(0x10), Bars[0]) << Case.What;
        EXPECT_EQ(Function.Get(0x14), Bars[1]) << Case.What;
        EXPECT_EQ(Function.Get(0x18), Bars[2]) << Case.What;
    }
    EXPECT_EQ(RasGetRciepRegisterBlockAddress(PackPciAddress(0, 0x1E, 0x1F, 0), 1), 0u) << "an absent function";
}

TEST_F(CxlRegisters, DeviceCapabilitiesAreFoundWithTheirLength) {
    const std::vector<Simulator::CxlRegisterPatch> Last = {
        {0x4, 0xFFFF}, {0xFF0, 0x00010007}, {0xFF4, 0x900}, {0xFF8, 0x44}};
    const struct {
        const char* What;
        std::vector<Simulator::CxlRegisterPatch> Registers;
        UINT16 Wanted;
        UINT32 Offset, Length;
    } Cases[] = {
        {"status", {}, 1, 0x100, 8},
        {"secondary mailbox", {}, 3, 0xB00, 0x820},
        {"another", {}, 5, 0, 0},
        {"two headers only", {{0x4, 2}}, 3, 0, 0},
        {"65535 headers, one in the first 4 KiB", Last, 7, 0x900, 0x44},
        {"65535 headers, none of them", {{0x4, 0xFFFF}, {0x1000, 0x00010007}}, 7, 0, 0},
        {"array of another version", {{0x0, 0x00020000}}, 2, 0, 0},
        {"array of another kind", {{0x0, 0x00010001}}, 2, 0, 0},
    };
    for (const auto& Case : Cases) {
        Simulator::CxlSetting Setting;
        Setting.DevicePatches = Case.Registers;
        CxlFunction Function(Sim.Machine(), Setting);
        UINT32 Length = 0xAAAA;
        EXPECT_EQ(RasGetCxlDeviceCapabilityPointer(CxlFunction::DEVICE, Case.Wanted, &Length), Case.Offset)
            << Case.What;
        EXPECT_EQ(Length, Case.Length) << Case.What;
        EXPECT_EQ(RasGetCxlDeviceCapabilityPointer(CxlFunction::DEVICE, Case.Wanted, nullptr), Case.Offset);
    }
}

TEST_F(CxlRegisters, RestrictedPortsAreFoundThroughTheirRegisterBlocks) {
    constexpr std::uint64_t RCRB = 0xB0000000;
    Sim.Machine().Mmio().Map(RCRB, 0x2000, "RCRB");
    const struct {
        UINT32 Low, High;
        UINT64 Base;
    } Bars[] = {
        {0x9FFF0000, 0x12, 0x9FFF0000}, {0x9FFF0004, 0x12, 0x129FFF0000},
        {0x9FFF000C, 0, 0x9FFF0000},    {0x0000E001, 0, 0},
        {0xFFFFFFFF, 0xFFFFFFFF, 0},
    };
    for (const auto& Bar : Bars) {
        Sim.Machine().Mmio().Write(RCRB + 0x10, 4, Bar.Low);
        Sim.Machine().Mmio().Write(RCRB + 0x14, 4, Bar.High);
        EXPECT_EQ(RasGetDpComponentRegisterAddress(RCRB), Bar.Base) << std::hex << Bar.Low;
    }
    EXPECT_EQ(RasGetDpComponentRegisterAddress(0), 0u);
    EXPECT_NE(Sim.TraceLog().find("[Error] This is IO space!!!"), std::string::npos);

    const CXL_RCRB_ENTRY Entries[] = {{0, 0x40, {}, 0xA0000000}, {0, CxlFunction::BUS, {}, RCRB}};
    CXL_POLICY_DATA& Listed = *mPlatformApeiData->CxlPolicyData;
    EXPECT_EQ(RasGetUpRcrbAddrOfRciep(CxlFunction::ADDRESS), 0u) << "nothing is listed";
    Listed.RcrbEntries = Entries;
    Listed.RcrbCount = 2;
    EXPECT_EQ(RasGetUpRcrbAddrOfRciep(CxlFunction::ADDRESS), RCRB + 0x1000);
    EXPECT_EQ(RasGetUpRcrbAddrOfRciep(PackPciAddress(0, 0x41, 0, 0)), 0u) << "another bus";
    Sim.Machine().Mmio().Write(RCRB + 0x1000, 4, 0xFFFFFFFF);
    EXPECT_EQ(RasGetUpRcrbAddrOfRciep(CxlFunction::ADDRESS), 0u) << "no device answers";
    Listed.RcrbEntries = nullptr;
    Listed.RcrbCount = 0;
}

}  // namespace
