#include "PlatformRas/Qtz/Smm/AerReporting.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Include/RasAcpiSmmData.h"
#include "Library/VornElogChipsetLib/ActiveRootPorts.h"
#include "PlatformRas/Qtz/Smm/DpcConfiguration.h"
#include "PlatformRas/Qtz/Smm/IoCorrectedErrors.h"
#include "Tests/Support/IoHubMachine.h"

namespace {

constexpr UINT32 HOT_PLUG_SURPRISE = 1 << 5, HOT_PLUG_CAPABLE = 1 << 6;

UINT32 RootPortOf(unsigned Socket, unsigned Iom, UINT8 Dev = 1) {
    return PackPciAddress(0, static_cast<UINT8>(IoHubMachine::BusOf(Socket, Iom)), Dev, 0);
}

// Registers of port 3 of IOM 0, whose bridge is device 1 function 0.
void MapPort3(IoHubMachine& Machine) {
    Simulator::SmnSpace& Smn = Machine.Smn(0, 0);
    for (unsigned Port = 0; Port < 9; Port++) {
        Smn.Map(0x13B100B8 + 4 * Port, Port == 3 ? 1 << 3 : 0xFF);
    }
    Smn.Map(0x1A380040, 0xC0DE0001);              // HWINIT lock
    Smn.Map(0x1A3401A8 + (3 << 12), 0xAB123456);  // error control
    Smn.Map(0x13B2027C + 3 * 0x20, 0x5A5A5A58);   // ExtCorr action control
    Smn.Map(0x13B20270 + 3 * 0x20, 0xFFFFFFFF);   // IntCorr action control
}

RAS_ACPI_SMM_DATA& Shared() {
    return *Policy.pKyrRasAcpiSmmData;
}

TEST(EdrRequest, HotPlugSurpriseIsHandedOverUnderAnOpenLock) {
    struct Case {
        UINT32 SlotCapabilities;
        std::vector<std::string> Writes;
    };
    const std::string Strap = "smn 0x1A3431A8=0x26123456";
    for (const Case& Test :
         {Case{0x00080060, {"smn 0x1A380040=0xC0DE0000", "pci 0x8054=0x80040", "smn 0x1A380040=0xC0DE0001", Strap}},
          Case{0x00080040, {Strap}}, Case{0x00080020, {Strap}}, Case{0, {Strap}}}) {
        IoHubMachine Machine;
        MapPort3(Machine);
        const LaidFunction& Port = Machine.AddRootPort(0, 1, 0, 1, 1, Test.SlotCapabilities);
        EXPECT_EQ(EdrDsmDpcEnReqFromOs(RootPortOf(0, 0), TRUE), EFI_SUCCESS);
        EXPECT_EQ(Machine.Writes(), Test.Writes);
        const bool IsHandedOver = Test.SlotCapabilities == 0x00080060;
        EXPECT_EQ(Port.Get(0x54, 4), IsHandedOver ? 0x00080040 : Test.SlotCapabilities);
    }
}

TEST(ReportingPath, ActionControlsLieInTheHubOfThePort) {
    struct Case {
        unsigned Socket, Iom;
        UINT8 Port;
        UINT32 ExtCorr, IntCorr;
    };
    for (const Case& Test : {Case{0, 0, 0, 0x13B2027C, 0x13B20270}, Case{1, 0, 8, 0x13B2037C, 0x13B20370},
                             Case{0, 1, 0, 0x1D420124, 0x1D420118}, Case{0, 1, 8, 0x1D420224, 0x1D420218},
                             Case{0, 2, 0, 0x13C2027C, 0x13C20270}, Case{1, 2, 16, 0x13C2047C, 0x13C20470},
                             Case{0, 3, 5, 0x1D5201C4, 0x1D5201B8}, Case{0, 4, 1, 0x13D2029C, 0x13D20290},
                             Case{0, 5, 0, 0x1D620124, 0x1D620118}, Case{0, 6, 9, 0x13E2039C, 0x13E20390},
                             Case{1, 7, 8, 0x1D720224, 0x1D720218}}) {
        IoHubMachine Machine;
        Simulator::SmnSpace& Smn = Machine.Smn(Test.Socket, Test.Iom);
        Smn.Map(Test.ExtCorr, 0xA5A5A5A1);
        Smn.Map(Test.IntCorr, 0xFFFFFFFB);
        EXPECT_EQ(ReConfigAerReportingPath(Test.Port, RootPortOf(Test.Socket, Test.Iom)), EFI_SUCCESS) << Test.Iom;
        EXPECT_EQ(*Smn.Read(Test.ExtCorr), 0xA5A5A5A7u) << Test.Iom;
        EXPECT_EQ(*Smn.Read(Test.IntCorr), 0xFFFFFFFFu) << Test.Iom;
        EXPECT_EQ(Machine.Writes().size(), 2u);
    }
}

EFI_STATUS HandOver(UINT8 Segment, UINT8 Bus, UINT8 Dev, UINT8 Func) {
    Shared().DPC_EnIioSmiGen = {PackDpcPortBdf(Bus, Dev, Func), Segment};
    return VornSmmHandlerPcieDpcConfigIioSmiGeneration(nullptr, nullptr, nullptr, nullptr);
}

TEST(DpcConfiguration, ThePortOfTheDsmCallOrTheRootPortAboveItIsPrepared) {
    struct Case {
        UINT8 Segment, Bus, Dev, Func;
        bool IsDiagnostic;
        EFI_STATUS Status;
        std::size_t Writes;  // lock, slot, lock, strap and, in production mode, the two action controls
    };
    for (const Case& Test : {Case{0, 0, 1, 0, false, EFI_SUCCESS, 6}, Case{0, 0, 1, 0, true, EFI_SUCCESS, 4},
                             Case{0, 1, 0, 0, false, EFI_SUCCESS, 6},   // the switch below the port
                             Case{0, 4, 31, 7, false, EFI_SUCCESS, 6},  // on the last bus below it
                             Case{0, 5, 0, 0, false, EFI_NOT_FOUND, 0}, Case{1, 0, 1, 0, false, EFI_NOT_FOUND, 0},
                             Case{0, 0, 1, 1, false, EFI_NOT_FOUND, 0},
                             // Its hub knows no such bridge.
                             Case{0, 0, 3, 0, false, EFI_NOT_FOUND, 0},
                             // The port's number is not one of the hub's: prepared, but not routed.
                             Case{0, 0x10, 1, 0, false, EFI_INVALID_PARAMETER, 1}}) {
        Simulator::Configuration Settings;
        if (Test.IsDiagnostic) {
            Settings.Attributes["CorErrLoggingThreshold"] = "Disabled";
        }
        IoHubMachine Machine(Settings);
        MapPort3(Machine);
        Machine.Smn(0, 1).Map(0x1D4100B8, 1 << 3);
        Machine.Smn(0, 1).Map(0x1A4401A8, 0);
        Machine.AddRootPort(0, 1, 0, 1, 4, HOT_PLUG_SURPRISE | HOT_PLUG_CAPABLE);
        Machine.AddRootPort(0, 3, 0, 6, 6, 0);
        Machine.AddRootPort(0x10, 1, 0, 0x11, 0x11, 0);
        Machine.SetPorts({{RootPortOf(0, 0, 3), 1}, {RootPortOf(0, 0), 3}, {RootPortOf(0, 1), 9}});
        EXPECT_EQ(HandOver(Test.Segment, Test.Bus, Test.Dev, Test.Func), Test.Status) << +Test.Bus << +Test.Dev;
        EXPECT_EQ(Machine.Writes().size(), Test.Writes) << +Test.Bus << +Test.Dev;
    }
    IoHubMachine Machine;
    Policy.pKyrRasAcpiSmmData = nullptr;
    EXPECT_EQ(VornSmmHandlerPcieDpcConfigIioSmiGeneration(nullptr, nullptr, nullptr, nullptr), EFI_NOT_FOUND);
}

TEST(ActiveRootPorts, AFunctionHangsBelowTheFirstPortWhoseBusesHoldIt) {
    IoHubMachine Machine;
    Machine.AddRootPort(0, 1, 0, 0, 0);  // no buses yet: bus 0 seems to lie below it
    Machine.AddRootPort(0, 2, 3, 1, 4);
    Machine.AddRootPort(0, 3, 0, 4, 9);
    mPlatformApeiData->PciMapValid = 0;
    EXPECT_EQ(VornGetActivePcieRootPortMap()->Count, 0);
    Machine.SetPorts({{PackPciAddress(1, 0, 2, 3), 0},
                      {PackPciAddress(0, 0, 1, 0), 1},
                      {PackPciAddress(0, 0, 2, 3), 2},
                      {PackPciAddress(0, 0, 3, 0), 3}});
    ASSERT_EQ(VornGetActivePcieRootPortMap()->Count, 4);
    EXPECT_EQ(VornGetActivePcieRootPortMap()->RpPciAddr[2], PackPciAddress(0, 0, 2, 3));
    struct Case {
        UINT8 Seg, Bus, Dev, Func;
        std::array<UINT8, 3> RootPort;
    };
    constexpr std::array<UINT8, 3> NONE = {0xFF, 0xFF, 0xFF};
    for (const Case& Test :
         {Case{0, 0, 2, 3, {0, 2, 3}}, Case{0, 0, 3, 0, {0, 3, 0}}, Case{0, 1, 2, 3, {0, 2, 3}},
          Case{0, 4, 0, 0, {0, 2, 3}}, Case{0, 9, 31, 7, {0, 3, 0}}, Case{0, 10, 0, 0, NONE}, Case{1, 4, 0, 0, NONE},
          Case{2, 0, 2, 3, NONE}, Case{1, 0, 2, 3, {0, 2, 3}}, Case{0, 0, 7, 0, {0, 1, 0}}}) {
        std::array<UINT8, 3> Answer = {1, 2, 3};
        VornGetRootPortBDF(Test.Seg, Test.Bus, Test.Dev, Test.Func, &Answer[0], &Answer[1], &Answer[2]);
        EXPECT_EQ(Answer, Test.RootPort) << +Test.Seg << ":" << +Test.Bus << ":" << +Test.Dev;
    }
}

}  // namespace
