#include "Library/VornElogPolicyLib/Cxl/CxlDeviceState.h"

#include <gtest/gtest.h>

#include "Tests/Library/VornElogPolicyLib/Cxl/CxlMachine.h"

namespace {

TEST(CxlCapture, TakesEveryRegisterOfAMemoryDevice) {
    CxlMachine Machine;
    Machine.Function.Component.Ras.LogUncorrectable(14, {0x11223344, 0x55667788});
    Machine.Function.AddEvents(1, 1);
    Machine.Function.AddEvents(3, 1);
    PCI_DEVICE_STATE State = Machine.Front();
    ASSERT_EQ(Machine.Capture(&State), EFI_SUCCESS);

    const auto& Cxl = State.Cxl;
    EXPECT_EQ(Cxl.IsCxl, TRUE);
    EXPECT_EQ(Cxl.CxlRevision, 1u);
    EXPECT_EQ(Cxl.CxlAgentType, 2u);
    EXPECT_EQ(Cxl.ComponentRegisterBlock, 0x200000000000u);
    EXPECT_EQ(Cxl.CacheMemRegisterBlock, 0x200000001000u);
    EXPECT_EQ(Cxl.RasCapabilityAddress, 0x200000001100u);
    EXPECT_EQ(Cxl.MemoryDeviceRegisterBlock, 0x200000010000u);
    EXPECT_EQ(Cxl.PrimaryMailbox.Offset, 0x200u);
    EXPECT_EQ(Cxl.PrimaryMailbox.Length, 0x820u);
    EXPECT_EQ(Cxl.PrimaryMailbox.Address, 0x200000010200u);
    EXPECT_EQ(Cxl.SecondaryMailbox.Offset, 0xB00u);
    EXPECT_EQ(Cxl.SecondaryMailbox.Length, 0x820u);
    EXPECT_EQ(Cxl.SecondaryMailbox.Address, 0x200000010B00u);
    EXPECT_EQ(Cxl.DeviceEventStatus, 0xAu);

    ASSERT_EQ(Cxl.RasCapabilityValid, TRUE);
    EXPECT_EQ(Cxl.RasCapability[0], 0x4000u);      // status
    EXPECT_EQ(Cxl.RasCapability[1], 0u);           // mask
    EXPECT_EQ(Cxl.RasCapability[2], 0x1FFFFu);     // severity
    EXPECT_EQ(Cxl.RasCapability[5], 14u);          // first error pointer
    EXPECT_EQ(Cxl.RasCapability[6], 0x11223344u);  // header log
    EXPECT_EQ(Cxl.RasCapability[7], 0x55667788u);

    ASSERT_EQ(Cxl.DvsecValid, TRUE);
    EXPECT_EQ(Cxl.DvsecId, 0u);
    EXPECT_EQ(Cxl.DvsecAddress, 0x01F00110u);
    EXPECT_EQ(Cxl.Dvsec[0], 0x15010023u);
    EXPECT_EQ(Cxl.Dvsec[1], 0x03C01E98u);
    EXPECT_EQ(Cxl.Dvsec[14], 0xD000000Eu);

    EXPECT_EQ(Cxl.DeviceSerialNumber, 0x0123456789ABCDEFu);
    EXPECT_EQ(Cxl.CxlAgentAddress.Function, 0);
    EXPECT_EQ(Cxl.CxlAgentAddress.Device, 0);
    EXPECT_EQ(Cxl.CxlAgentAddress.Bus, 0x1F);
    EXPECT_EQ(UINT16{Cxl.CxlAgentAddress.Segment}, 0);
    EXPECT_EQ(UINT16{Cxl.CxlDeviceId.VendorId}, 0x1A2B);
    EXPECT_EQ(UINT16{Cxl.CxlDeviceId.DeviceId}, 0x7D34);
    EXPECT_EQ(UINT16{Cxl.CxlDeviceId.SubsystemVendorId}, 0x1A2B);
    EXPECT_EQ(UINT16{Cxl.CxlDeviceId.SubsystemId}, 0x5678);
    EXPECT_EQ(UINT16{Cxl.CxlDeviceId.ClassCode}, 0x0502);
}

TEST(CxlCapture, AgentsAreToldApartAndKeepTheirDvsec) {
    const struct {
        const char* What;
        UINT8 PCIE_CHARACTERISTICS::*Is;
        UINT8 IsBridge;
        UINT32 AgentType;
        UINT8 DvsecValid;
        UINT32 DvsecId;
        UINT32 LastDword;  // of the 15 that there is room for
    } Cases[] = {
        {"device", nullptr, FALSE, 2, TRUE, 0, 0xD000000E},
        {"integrated device", &PCIE_CHARACTERISTICS::IsRootComplexIntegratedEndpoint, FALSE, 2, TRUE, 0, 0xD000000E},
        {"root port", &PCIE_CHARACTERISTICS::IsRootPort, TRUE, 5, TRUE, 7, 0},
        {"switch downstream port", &PCIE_CHARACTERISTICS::IsSwitchDownstreamPort, TRUE, 6, TRUE, 7, 0},
        {"switch upstream port", &PCIE_CHARACTERISTICS::IsSwitchUpstreamPort, TRUE, 7, TRUE, 7, 0},
        {"another bridge", nullptr, TRUE, 0, FALSE, 0, 0},
    };
    for (const auto& Case : Cases) {
        CxlMachine Machine;
        constexpr unsigned FLEX_BUS = 0x200;
        Machine.Function.SetDvsec(CxlFunction::LOCATOR, FLEX_BUS, 8, 0x1C);
        Machine.Function.SetDvsec(FLEX_BUS, 0, 7, 0x20);
        for (unsigned Index = 3; Index < 15; Index++) {
            Machine.Function.Set(FLEX_BUS + 4 * Index, 0xF0000000 + Index);
        }
        PCI_DEVICE_STATE State = Machine.Front();
        State.IsPciBridgeDevice = Case.IsBridge;
        if (Case.Is != nullptr) {
            State.Pcie.Characteristics.*Case.Is = TRUE;
        }
        ASSERT_EQ(Machine.Capture(&State), EFI_SUCCESS) << Case.What;
        EXPECT_EQ(State.Cxl.CxlAgentType, Case.AgentType) << Case.What;
        EXPECT_EQ(State.Cxl.DvsecValid, Case.DvsecValid) << Case.What;
        EXPECT_EQ(State.Cxl.DvsecId, Case.DvsecId) << Case.What;
        EXPECT_EQ(State.Cxl.Dvsec[14], Case.LastDword) << Case.What;
        if (Case.DvsecId == 7) {
            EXPECT_EQ(State.Cxl.Dvsec[7], 0xF0000007) << Case.What;
            EXPECT_EQ(State.Cxl.Dvsec[8], 0u) << Case.What;
        }
        EXPECT_EQ(State.Cxl.CxlDeviceId.SubsystemId, Case.IsBridge ? 0 : 0x5678) << Case.What;
        EXPECT_EQ(Machine.Traced("SBDF 0000:1F:00.0 CXL Agent Type 0 not recognized\n"), Case.AgentType == 0);
    }
}

TEST(CxlCapture, WithoutRegistersTheGroupStaysEmpty) {
    using Bend = void (*)(CxlFunction&);
    const struct {
        const char* What;
        Bend Change;
        const char* Text;
    } Cases[] = {
        {"no locator", [](CxlFunction& F) { F.Set(CxlFunction::LOCATOR + 8, 0x3); },
         "CXL component registers not supported, exiting...\n"},
        {"no RAS capability",
         [](CxlFunction& F) {
             F.Component.Patch({{0x1008, 0x10020009}});
         },
         "CXL RAS capability not supported"},
        {"gone", [](CxlFunction& F) { F.Vanish(); }, "CXL component registers not supported, exiting...\n"},
        {"registers gone",
         [](CxlFunction& F) {
             F.Component.Patch({{0x1000, 0xFFFFFFFF}});
         },
         "CXL RAS capability not supported"},
    };
    for (const auto& Case : Cases) {
        CxlMachine Machine;
        Case.Change(Machine.Function);
        PCI_DEVICE_STATE State = Machine.Front();
        const PCI_DEVICE_STATE Before = State;
        EXPECT_EQ(Machine.Capture(&State), EFI_UNSUPPORTED) << Case.What;
        EXPECT_EQ(std::memcmp(&State, &Before, sizeof(State)), 0) << Case.What;
        EXPECT_TRUE(Machine.Traced(std::string("VornElogGetCxlDeviceState: SBDF 0000:1F:00.0 ") + Case.Text))
            << Case.What;
    }
    const CxlMachine Machine;
    EXPECT_EQ(Machine.Capture(nullptr), EFI_INVALID_PARAMETER);
}

TEST(CxlCapture, WhatADeviceMisplacesIsNotUsed) {
    const struct {
        const char* What;
        std::vector<Simulator::CxlRegisterPatch> Registers;  // headers: status 0x10, primary 0x20, secondary 0x30
        std::uint64_t Status, Primary, Secondary;
    } Cases[] = {
        {"in order", {}, 1, 0x200, 0xB00},
        {"no memory device array", {{0x0, 0xFFFFFFFF}}, 0, 0, 0},
        {"status behind the BAR", {{0x14, 0x400000}}, 0, 0x200, 0xB00},
        {"status at an odd place", {{0x14, 0x104}}, 0, 0x200, 0xB00},
        {"status too short", {{0x18, 4}}, 0, 0x200, 0xB00},
        {"primary mailbox longer than the BAR", {{0x28, 0x400000}}, 1, 0, 0xB00},
        {"secondary mailbox at the end of the address space", {{0x34, 0xFFFFFFF8}}, 1, 0x200, 0},
        {"secondary mailbox without payload registers", {{0x38, 0x18}}, 1, 0x200, 0},
    };
    for (const auto& Case : Cases) {
        Simulator::CxlSetting Setting;
        Setting.DevicePatches = Case.Registers;
        CxlMachine Machine(Setting);
        Machine.Function.AddEvents(0, 1);
        PCI_DEVICE_STATE State = Machine.Front();
        ASSERT_EQ(Machine.Capture(&State), EFI_SUCCESS) << Case.What;
        EXPECT_EQ(State.Cxl.DeviceEventStatus, Case.Status) << Case.What;
        EXPECT_EQ(State.Cxl.PrimaryMailbox.Offset, Case.Primary) << Case.What;
        EXPECT_EQ(State.Cxl.SecondaryMailbox.Offset, Case.Secondary) << Case.What;
    }
}

TEST(CxlCapture, ADvsecAtTheEndOfConfigurationSpaceIsCutThere) {
    CxlMachine Machine;
    Machine.Function.SetDvsec(CxlFunction::SERIAL, CxlFunction::LOCATOR, 3, 0x10);
    Machine.Function.SetDvsec(CxlFunction::LOCATOR, 0xFE0, 8, 0x1C);
    Machine.Function.SetDvsec(0xFE0, 0, 0, 0x3C);
    Machine.Function.Set(0xFFC, 0x12345678);
    PCI_DEVICE_STATE State = Machine.Front();
    ASSERT_EQ(Machine.Capture(&State), EFI_SUCCESS) << "a function without serial number";
    EXPECT_EQ(State.Cxl.Dvsec[7], 0x12345678u);
    EXPECT_EQ(State.Cxl.Dvsec[8], 0u);
    EXPECT_EQ(State.Cxl.DeviceSerialNumber, 0u);
}

}  // namespace
