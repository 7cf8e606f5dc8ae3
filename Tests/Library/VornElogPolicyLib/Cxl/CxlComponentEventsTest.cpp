#include "Library/VornElogPolicyLib/Cxl/CxlComponentEvents.h"

#include <gtest/gtest.h>

#include "Library/VornElogPolicyLib/Cxl/CxlEventCommands.h"
#include "Tests/Library/VornElogPolicyLib/Cxl/CxlMachine.h"

namespace {

std::uint64_t Commands(CxlMachine& Machine) {
    return Machine.Function.Device.Secondary()->Commands();
}

void Handle(CxlMachine& Machine) {
    const std::uint64_t Blocks = Machine.Blocks();
    const std::uint64_t Kept = Policy.pPciFiniteBuffer->Tail;
    const PCI_DEVICE_STATE State = Machine.Signaled();
    VornElogSmmHandleCxlComponentError(&State);
    // The policy engine keeps a record and its chipset data, and what storm detection remembers.
    const std::uint64_t Filed = Policy.pPciFiniteBuffer->Tail - Kept;
    EXPECT_LE(Machine.Blocks(), Blocks + 4 * Filed);
}

TEST(CxlComponentEvents, LogsAreReadUntilTheyAreEmpty) {
    const struct {
        unsigned PayloadExponent;
        unsigned Events;
        std::uint64_t Commands;
    } Cases[] = {
        {8, 1, 2},                  // a payload of 256 bytes holds one record
        {8, 5, 10},  {11, 15, 2},   // 2048 bytes hold 15
        {11, 16, 4}, {20, 300, 3},  // one answer, cleared by 255 and by 45 handles
    };
    for (const auto& Case : Cases) {
        Simulator::CxlSetting Setting;
        Setting.PayloadExponent = Case.PayloadExponent;
        Setting.EventLogCapacity = 1000;
        CxlMachine Machine(Setting);
        Machine.Function.AddEvents(1, Case.Events);
        Handle(Machine);
        EXPECT_EQ(Machine.Records().size(), Case.Events);
        EXPECT_EQ(Commands(Machine), Case.Commands) << Case.Events;
        EXPECT_EQ(Machine.Function.Device.Logs().Status(), 0u);
    }
}

TEST(CxlComponentEvents, FailingCommandsLeaveTheLogForLater) {
    using Bend = void (*)(Simulator::CxlMailbox&, Simulator::Machine&);
    const struct {
        const char* What;
        Bend Change;
        std::size_t Records;
        const char* Text;
    } Cases[] = {
        {"busy", [](Simulator::CxlMailbox& M, Simulator::Machine& H) { M.Occupy(H.Now() + 2'000'001); }, 0,
         "VornElogCxlMbCmdGetEventRecords: ERROR MbCmdStatus 0x0000000000000006 (Busy) from CXL mb cmd Get Event "
         "Records (Opcode 0x0100), returning EFI_STATUS"},
        {"hanging", [](Simulator::CxlMailbox& M, Simulator::Machine&) { M.Hang(); }, 0, "(Busy)"},
        {"refused", [](Simulator::CxlMailbox& M, Simulator::Machine&) { M.Refuse(0x0100, {CxlMbInternalError}); }, 0,
         "(Internal Error)"},
        {"clear refused",
         [](Simulator::CxlMailbox& M, Simulator::Machine&) { M.Refuse(0x0101, {CxlMbInvalidHandle}); }, 2,
         "VornElogCxlMbCmdClearEventRecords: ERROR MbCmdStatus 0x000000000000000e (Invalid Handle) from CXL mb cmd "
         "Clear Event Records (Opcode 0x0101)"},
        {"no answer",
         [](Simulator::CxlMailbox& M, Simulator::Machine&) {
             M.Refuse(0x0100, {0, 1, 0, 0});
         },
         0, "(Success)"},
        {"an answer without its front",
         [](Simulator::CxlMailbox& M, Simulator::Machine&) {
             M.Refuse(0x0100, {0, 1, 0, 0x1F});
         },
         0, "(Success)"},
        {"an answer longer than the payload",
         [](Simulator::CxlMailbox& M, Simulator::Machine&) {
             M.Refuse(0x0100, {0, 1, 0, 0x1FFFFF});
         },
         0, "output payload length 0x001fffff > 0x00000800"},
    };
    for (const auto& Case : Cases) {
        CxlMachine Machine;
        Machine.Function.AddEvents(0, 2);
        Machine.Function.AddEvents(3, 1);
        const PCI_DEVICE_STATE State = Machine.Signaled();
        Case.Change(*Machine.Function.Device.Secondary(), Machine.Sim.Machine());
        VornElogSmmHandleCxlComponentError(&State);
        EXPECT_EQ(Machine.Records().size(), Case.Records + (std::string(Case.What) == "hanging" ? 0 : 1))
            << Case.What;
        EXPECT_TRUE(Machine.Traced(Case.Text)) << Case.What;
        EXPECT_EQ(Machine.Function.Device.Logs()[0].Size(), 2u) << Case.What;
    }
}

TEST(CxlComponentEvents, ACountBeyondTheAnswerIsCut) {
    CxlMachine Machine;
    Machine.Function.AddEvents(1, 5);
    const PCI_DEVICE_STATE State = Machine.Signaled();
    Machine.Function.Device.Secondary()->Refuse(0x0100, {0, 1, 0, 0x20 + 2 * 128 + 127});
    VornElogSmmHandleCxlComponentError(&State);
    EXPECT_EQ(Machine.Records().size(), 2u);
    EXPECT_TRUE(Machine.Traced("ERROR Event Record Count 5, but the output holds 2\n"));
    EXPECT_EQ(Machine.Function.Device.Logs()[1].Size(), 3u);
}

TEST(CxlComponentEvents, EveryFailingAllocationIsSurvived) {
    // Chipset data, answer, handles, record; then the policy engine's own.
    for (unsigned Skip = 0; Skip < 4; Skip++) {
        CxlMachine Machine;
        Machine.Function.AddEvents(0, 1);
        Machine.Function.AddEvents(3, 1);
        const std::uint64_t Blocks = Machine.Blocks();
        const PCI_DEVICE_STATE State = Machine.Signaled();
        Machine.Fail("SmmAllocatePool", EFI_OUT_OF_RESOURCES, 1, Skip);
        VornElogSmmHandleCxlComponentError(&State);
        EXPECT_TRUE(Machine.Records().empty()) << Skip;
        EXPECT_EQ(Machine.Blocks(), Blocks) << Skip;
        EXPECT_EQ(Machine.Function.Device.Logs().Status(), 0x9u) << "nothing was cleared unreported";
    }
}

TEST(CxlEventCommands, PolicyIsReadAndWritten) {
    CxlMachine Machine;
    const PCI_DEVICE_STATE State = Machine.Signaled();
    CXL_EVENT_INTERRUPT_POLICY Interrupts{};
    ASSERT_EQ(VornElogCxlMbCmdGetEventInterruptPolicy(&State, &Interrupts), EFI_SUCCESS);
    EXPECT_EQ(Interrupts.Settings[3], 2);
    Interrupts.Settings[3] = 0;
    ASSERT_EQ(VornElogCxlMbCmdSetEventInterruptPolicy(&State, &Interrupts), EFI_SUCCESS);
    EXPECT_EQ(Machine.Function.Device.Logs().Policy().Settings[3], 0);
    EXPECT_EQ(Machine.Function.Device.Logs().Policy().Settings[0], 2);

    const struct {
        UINT16 Code;
        EFI_STATUS Status;
    } Codes[] = {
        {CxlMbInvalidInput, EFI_INVALID_PARAMETER},
        {CxlMbUnsupported, EFI_UNSUPPORTED},
        {CxlMbInternalError, EFI_DEVICE_ERROR},
        {CxlMbRetryRequired, EFI_NOT_READY},
        {CxlMbBusy, EFI_TIMEOUT},
        {CxlMbInvalidHandle, EFI_NOT_FOUND},
        {CxlMbUnsupportedMailbox, EFI_UNSUPPORTED},
        {0x1234, EFI_DEVICE_ERROR},
    };
    for (const auto& Case : Codes) {
        Machine.Function.Device.Secondary()->Refuse(0x0103, {Case.Code});
        EXPECT_EQ(VornElogCxlMbCmdSetEventInterruptPolicy(&State, &Interrupts), Case.Status) << Case.Code;
    }
    EXPECT_EQ(VornElogCxlMbCmdGetEventInterruptPolicy(nullptr, &Interrupts), EFI_INVALID_PARAMETER);
    EXPECT_EQ(VornElogCxlMbCmdGetEventInterruptPolicy(&State, nullptr), EFI_INVALID_PARAMETER);
    UINT32 Length = 0;
    CXL_GET_EVENT_RECORDS_OUTPUT* Output = nullptr;
    EXPECT_EQ(VornElogCxlMbCmdGetEventRecords(&State, 4, &Length, &Output), EFI_INVALID_PARAMETER);
}

TEST(CxlEventCommands, APayloadThatTheMailboxHasNoRoomForIsNotTouched) {
    Simulator::CxlSetting Setting;
    Setting.DevicePatches = {{0x38, 0x81F}};  // one byte less than registers and payload need
    CxlMachine Machine(Setting);
    const PCI_DEVICE_STATE State = Machine.Signaled();
    CXL_EVENT_INTERRUPT_POLICY Interrupts{};
    EXPECT_EQ(VornElogCxlMbCmdGetEventInterruptPolicy(&State, &Interrupts), EFI_UNSUPPORTED);
    EXPECT_EQ(Commands(Machine), 0u);
}

}  // namespace
