// Protocols, handlers and faults of the firmware, without a driver.
#include "Simulator/Firmware/Firmware.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/Guids.h"
#include "Simulator/Firmware/MemoryLayout.h"
#include "Simulator/Firmware/ServiceTables.h"
#include "Simulator/Simulation.h"

namespace Simulator {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

std::string Called;  // what the handlers below were called with, in order
EFI_HANDLE OneShotHandle = nullptr;

EFI_STATUS NoteOrder(EFI_HANDLE, const FCH_SMM_SW_REGISTER_CONTEXT* Context, void*, UINTN*) {
    Called += std::to_string(Context->Order) + " ";
    return Context->Order == 2 ? EFI_DEVICE_ERROR : EFI_SUCCESS;
}
EFI_STATUS NoteStandard(EFI_HANDLE, const void*, void*, UINTN*) {
    Called += "standard ";
    return EFI_SUCCESS;
}
EFI_STATUS OneShot(EFI_HANDLE Handle, const void*, void* Buffer, UINTN* Size) {
    Called += "one-shot of " + std::to_string(*Size) + " ";
    EXPECT_EQ(Handle, OneShotHandle);
    EXPECT_EQ(static_cast<UINT8*>(Buffer)[*Size - 1], 0x77);
    return Firmware::Current().SmmSystemTable()->SmiHandlerUnRegister(Handle);
}
EFI_STATUS NoteInstall(const EFI_GUID*, void*, EFI_HANDLE) {
    Called += "notified ";
    return EFI_SUCCESS;
}

class FirmwareTest : public ::testing::Test {
 protected:
    FirmwareTest() {
        Called.clear();
    }
    EFI_SMM_SYSTEM_TABLE2* Smst() {
        return Run.Firmware().SmmSystemTable();
    }
    Simulation Run{Configuration{}};
};

TEST_F(FirmwareTest, SoftwareHandlersRunInTheirOrder) {
    EFI_HANDLE Handle = nullptr;
    for (const UINT8 Order : {3, 1, 2}) {
        const FCH_SMM_SW_REGISTER_CONTEXT Context{0xD2, Order};
        ASSERT_EQ(FchSwDispatchTable()->Register(FchSwDispatchTable(), NoteOrder, &Context, &Handle), EFI_SUCCESS);
    }
    Run.RaiseSmi("software-0xD2");
    EXPECT_EQ(Called, "1 2 3 ");
    EXPECT_EQ(Run.Events().Events().back().Fields.dump(),
              R"({"kind":"software-0xD2","handlers":"0x3","status":"EFI_DEVICE_ERROR"})");
    Run.RaiseSmi("software-0xD3");
    EXPECT_EQ(Run.Events().Events().back().Fields.dump(),
              R"({"kind":"software-0xD3","handlers":"0x0","status":"EFI_NOT_FOUND"})");
    EXPECT_THROW(Run.RaiseSmi("software-0x100"), std::invalid_argument);
    EXPECT_THROW(Run.RaiseSmi("thermal"), std::invalid_argument);
}

TEST_F(FirmwareTest, TheStandardDispatcherTakesAValueOnce) {
    const EFI_SMM_SW_DISPATCH2_PROTOCOL* Dispatcher = SwDispatchTable();
    EFI_SMM_SW_REGISTER_CONTEXT Context{0xD8};
    EFI_HANDLE Handle = nullptr, Another = nullptr;
    EXPECT_EQ(Dispatcher->Register(Dispatcher, NoteStandard, &Context, &Handle), EFI_SUCCESS);
    EXPECT_EQ(Dispatcher->Register(Dispatcher, NoteStandard, &Context, &Another), EFI_INVALID_PARAMETER);
    EXPECT_EQ(FchSwDispatchTable()->UnRegister(FchSwDispatchTable(), Handle), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Dispatcher->UnRegister(Dispatcher, Handle), EFI_SUCCESS);
    EXPECT_EQ(Dispatcher->UnRegister(Dispatcher, Handle), EFI_INVALID_PARAMETER);
    Context.SwSmiInputValue = 0x100;
    EXPECT_EQ(Dispatcher->Register(Dispatcher, NoteStandard, &Context, &Handle), EFI_INVALID_PARAMETER);
}

TEST_F(FirmwareTest, TheMachineCheckSmiIsWhateverTheIoCycleRaises) {
    EFI_HANDLE Handle = nullptr;
    const FCH_SMM_SW_REGISTER_CONTEXT Context{0x80, 7};
    FchSwDispatchTable()->Register(FchSwDispatchTable(), NoteOrder, &Context, &Handle);
    const struct {
        UINT32 Cycle;
        const char* Called;
    } Cases[] = {
        {0x028000B2, "7 "},
        {0x008000B2, ""},  // not enabled
        {0x028000B0, ""},  // not the command port
        {0x028100B2, ""},  // another value
    };
    Run.RaiseSmi("machine-check");
    EXPECT_EQ(Called, "") << "none programmed";
    for (const auto& Case : Cases) {
        Called.clear();
        RasServiceTable()->SetSmiTrigIoCycle(Case.Cycle);
        Run.RaiseSmi("machine-check");
        EXPECT_EQ(Called, Case.Called) << std::hex << Case.Cycle;
    }
}

TEST_F(FirmwareTest, CommunicationBuffersLieWhereTheCallWantsThem) {
    ASSERT_EQ(Smst()->SmiHandlerRegister(OneShot, &gElogLogPOSTErrorToBMCGuid, &OneShotHandle), EFI_SUCCESS);
    Simulation::CommunicationCall Call;
    Call.Handler = "gElogLogPOSTErrorToBMCGuid";
    Call.Data = {1, 2, 3, 0x77};
    EXPECT_EQ(Run.CallCommunicationHandler(Call), EFI_SUCCESS);
    EXPECT_EQ(Run.CallCommunicationHandler(Call), EFI_NOT_FOUND) << "it has unregistered itself";
    EXPECT_EQ(Called, "one-shot of 4 ");
    Call.Handler = "gNobodysGuid";
    EXPECT_THROW(Run.CallCommunicationHandler(Call), std::invalid_argument);
}

TEST_F(FirmwareTest, NotificationsTellOfLaterInstallations) {
    void* Registration = nullptr;
    EFI_HANDLE Handle = nullptr;
    int Interface = 0;
    Smst()->SmmInstallProtocolInterface(&Handle, &gVornPciSlotDataSmmProtocolGuid, 0, &Interface);
    Smst()->SmmRegisterProtocolNotify(&gVornPciSlotDataSmmProtocolGuid, NoteInstall, &Registration);
    EXPECT_EQ(Called, "");
    Handle = nullptr;
    Smst()->SmmInstallProtocolInterface(&Handle, &gVornPciSlotDataSmmProtocolGuid, 0, &Interface);
    EXPECT_EQ(Called, "notified ");
    EXPECT_EQ(Smst()->SmmRegisterProtocolNotify(&gVornPciSlotDataSmmProtocolGuid, nullptr, &Registration),
              EFI_SUCCESS);
    EXPECT_EQ(Smst()->SmmRegisterProtocolNotify(&gVornPciSlotDataSmmProtocolGuid, nullptr, &Registration),
              EFI_NOT_FOUND);
    Run.Firmware().FinishBoot();
    EXPECT_EQ(Called, "notified ");
}

TEST_F(FirmwareTest, WhatAnUnloadedImageLeavesIsDangling) {
    EFI_HANDLE Handle = nullptr;
    void* Registration = nullptr;
    Run.Firmware().LoadImage();
    const FCH_SMM_SW_REGISTER_CONTEXT Context{0x80, 1};
    FchSwDispatchTable()->Register(FchSwDispatchTable(), NoteOrder, &Context, &Handle);
    Smst()->SmmRegisterProtocolNotify(&gEdkiiSmmReadyToBootProtocolGuid, NoteInstall, &Registration);
    Run.Firmware().UnloadImage();
    EXPECT_THAT(Run.Firmware().Dangling(),
                ElementsAre("FCH software SMI 0x80", "notification on gEdkiiSmmReadyToBootProtocolGuid"));
    Run.Firmware().FinishBoot();
    EXPECT_THROW(Run.RaiseSmi("software-0x80"), Fault);
    EXPECT_EQ(Called, "");
}

TEST_F(FirmwareTest, AccessesThatNothingAnswersEndTheRun) {
    const struct {
        const char* What;
        void (*Access)();
    } Cases[] = {
        {"0xFED80300", [] { EXPECT_EQ(MmioRead32(0xFED80300), 0xFFFFFFFF); }},
        {"naturally aligned", [] { MmioRead32(0xFED80219); }},
        {"SMN address 0x00001234", [] { MmioWrite32(0x800000B8, 0x1234), MmioRead32(0x800000BC); }},
        {"MSR 0x00000010", [] { AsmReadMsr64(0x10); }},
        {"takes only zero", [] { AsmWriteMsr64(0xC0002001, 1); }},
    };
    for (const auto& Case : Cases) {
        SCOPED_TRACE(Case.What);
        Case.Access();
        try {
            Run.RaiseSmi("root-complex");
            FAIL() << "no fault";
        } catch (const Fault& Found) {
            EXPECT_THAT(Found.what(), HasSubstr(Case.What));
        }
        EXPECT_NO_THROW(Run.RaiseSmi("root-complex")) << "told once";
    }
}

TEST_F(FirmwareTest, ConfigurationSpaceOfAnAbsentFunctionReadsAllOnes) {
    EXPECT_EQ(MmioRead16(0x80000000 + (31 << 15)), 0xFFFF);
    EXPECT_EQ(MmioRead32(0x80000000 + (0x1F << 20)), 0xFFFFFFFF);
    EXPECT_EQ(MmioRead16(0x80000000 + (24 << 15)), 0x1E2D) << "the first socket's data fabric";
    EXPECT_EQ(MmioRead16(0x80000000 + (25 << 15) + (7 << 12)), 0x1E2D);
    MmioWrite32(0x80000000, 0);
    EXPECT_EQ(MmioRead16(0x80000000), 0x1E2D) << "identifiers are read-only";
    // Socket 1's first root complex: bus 0x80. Its SMN registers are its socket's.
    MmioWrite32(0x880000B8, 0x13B102E0);
    EXPECT_EQ(MmioRead32(0x880000BC), 0xFD100001);
    EXPECT_EQ(Run.Accesses().SmnReads, 1u);
    EXPECT_EQ(Run.Accesses().PciWrites, 1u);
}

TEST_F(FirmwareTest, ProceduresRunOnTheProcessorThatTheyWereSentTo) {
    const auto Note = [](void* Argument) { *static_cast<UINT32*>(Argument) = GetApicId(); };
    UINT32 Seen = 0;
    EXPECT_EQ(Smst()->SmmStartupThisAp(Note, 9, &Seen), EFI_SUCCESS);
    EXPECT_EQ(Seen, 9u);
    EXPECT_EQ(GetApicId(), 0u);
    Run.SetSilentProcessors({9});
    Seen = 0;
    EXPECT_EQ(Smst()->SmmStartupThisAp(Note, 9, &Seen), EFI_SUCCESS);
    EXPECT_EQ(Seen, 0u);
    EXPECT_EQ(Smst()->SmmStartupThisAp(Note, 16, &Seen), EFI_INVALID_PARAMETER);
    EXPECT_EQ(Smst()->SmmStartupThisAp(Note, 0, &Seen), EFI_INVALID_PARAMETER);
}

TEST(FirmwareConfiguration, RefusesWhatDoesNotExist) {
    const struct {
        const char* What;
        void (*Spoil)(Configuration&);
    } Cases[] = {
        {"an APEI field", [](Configuration& C) { C.Apei["PfehEnable"] = 1; }},
        {"a value that does not fit", [](Configuration& C) { C.Apei["PFEHEnable"] = 256; }},
        {"a protocol", [](Configuration& C) { C.Missing = {"gElogLogPOSTErrorToBMCGuid"}; }},
        {"a member", [](Configuration& C) { C.Failing["Register"] = {}; }},
        {"a clock", [](Configuration& C) { C.Clock = "noon"; }},
        {"sockets", [](Configuration& C) { C.Sockets = 3; }},
        {"banks", [](Configuration& C) { C.BanksPerProcessor = 65; }},
    };
    for (const auto& Case : Cases) {
        Configuration Settings;
        Case.Spoil(Settings);
        EXPECT_THROW(Simulation{Settings}, std::invalid_argument) << Case.What;
    }
    Configuration Settings;
    Settings.Missing = {"gKyrRasServiceSmmProtocolGuid"};
    Simulation Run{Settings};
    void* Interface = &Settings;
    const auto* Smst = Run.Firmware().SmmSystemTable();
    EXPECT_EQ(Smst->SmmLocateProtocol(&gKyrRasServiceSmmProtocolGuid, nullptr, &Interface), EFI_NOT_FOUND);
    EXPECT_EQ(Interface, nullptr);
    EXPECT_EQ(Smst->SmmLocateProtocol(&gKyrRasInitDataSmmProtocolGuid, nullptr, &Interface), EFI_SUCCESS);
    EXPECT_THROW(Simulation{Settings}, std::logic_error) << "one at a time";
}

}  // namespace
}  // namespace Simulator
