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

EFI_STATUS NoteOrder(EFI_HANDLE, const FCH_SMM_SW_REGISTER_CONTEXT* Context, void*, UINTN*) {
    Called += std::to_string(Context->Order) + " ";
    return Context->Order == 2 ? EFI_DEVICE_ERROR : EFI_SUCCESS;
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

}  // namespace
}  // namespace Simulator
