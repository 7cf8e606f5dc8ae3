#include "Library/RasLib/CxlMailbox.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Library/RasLib/Memory.h"
#include "Simulator/Simulation.h"
#include "Tests/Support/CxlFunction.h"

namespace {

constexpr std::uint64_t SECONDARY = CxlFunction::DEVICE + 0xB00;
constexpr std::uint64_t DOORBELL_WAIT = 2000 * 1000;  // microseconds

class CxlCommands : public testing::Test {
 protected:
    CxlCommands() {
        Sim.Boot();
    }
    ~CxlCommands() override {
        EXPECT_NO_THROW(Sim.Machine().ThrowPendingFault());
        EXPECT_EQ(Sim.Pool().LiveBlocks, Blocks);
    }
    UINT16 Execute(UINT16 Opcode, const std::vector<UINT8>& Input) {
        Blocks = Sim.Pool().LiveBlocks;
        const UINT16 Code = CxlMbCmdExecute(SECONDARY, Opcode, Input.empty() ? nullptr : Input.data(),
                                            static_cast<UINT32>(Input.size()), &Length, &Payload);
        Output.clear();
        if (Payload != nullptr) {
            Output.assign(static_cast<UINT8*>(Payload), static_cast<UINT8*>(Payload) + Length);
            EXPECT_EQ(FreeRuntimeData(Payload), EFI_SUCCESS);
        }
        return Code;
    }

    Simulator::Simulation Sim{Simulator::Configuration{}};
    CxlFunction Function{Sim.Machine()};
    std::uint64_t Blocks = Sim.Pool().LiveBlocks;
    UINT32 Length = 0;
    void* Payload = nullptr;
    std::vector<UINT8> Output;
};

TEST_F(CxlCommands, AnAnswerIsHandedToTheCaller) {
    EXPECT_EQ(Execute(CxlMbOpSetEventInterruptPolicy, {0x02, 0x12, 0x22, 0x30}), CxlMbSuccess);
    EXPECT_EQ(Length, 0u);
    EXPECT_EQ(Payload, nullptr);
    EXPECT_EQ(Execute(CxlMbOpGetEventInterruptPolicy, {}), CxlMbSuccess);
    EXPECT_EQ(Output, (std::vector<UINT8>{0x02, 0x12, 0x22, 0x30}));

    Function.AddEvents(1, 2);
    const std::uint64_t Bytes = Sim.Pool().LiveBytes;
    ASSERT_EQ(CxlMbCmdExecute(SECONDARY, CxlMbOpGetEventRecords, "\x01", 1, &Length, &Payload), CxlMbSuccess);
    EXPECT_EQ(Length, 0x20u + 2 * 128);
    EXPECT_EQ(Sim.Pool().LiveBytes, Bytes + 0x1000) << "whole pages";
    EXPECT_EQ(static_cast<UINT8*>(Payload)[0x14], 2);
    FreeRuntimeData(Payload);
    EXPECT_EQ(Function.Device.Secondary()->Commands(), 3u);
    EXPECT_EQ(Function.Device.Primary().Commands(), 0u);
}

TEST_F(CxlCommands, ADoorbellThatStaysSetEndsTheWait) {
    const std::uint64_t Start = Sim.Now();
    Function.Device.Secondary()->Occupy(Start + DOORBELL_WAIT + 1);
    EXPECT_EQ(Execute(CxlMbOpGetEventRecords, {0}), CxlMbBusy);
    EXPECT_EQ(Sim.Now() - Start, DOORBELL_WAIT);
    EXPECT_EQ(*Sim.Machine().Mmio().Read(SECONDARY + 0x08, 8), 0u) << "no command was written";

    Function.Device.Secondary()->Occupy(Sim.Now() + DOORBELL_WAIT - 1000);
    EXPECT_EQ(Execute(CxlMbOpGetEventRecords, {0}), CxlMbSuccess) << "clear at the last poll";

    const std::uint64_t Again = Sim.Now();
    Function.Device.Secondary()->Hang();
    EXPECT_EQ(Execute(CxlMbOpGetEventRecords, {0}), CxlMbBusy);
    EXPECT_EQ(Sim.Now() - Again, DOORBELL_WAIT);
    EXPECT_EQ(*Sim.Machine().Mmio().Read(SECONDARY + 0x08, 8), 0x10100u) << "the command was sent";
}

TEST_F(CxlCommands, InputIsAtMostThePayload) {
    const struct {
        std::size_t Size;
        UINT16 Code;
        std::uint64_t Commands;
    } Cases[] = {
        {0x801, CxlMbInvalidInput, 0},          // refused by the host's side
        {0x800, CxlMbInvalidPayloadLength, 1},  // sent, and refused by the device
        {7, CxlMbInvalidPayloadLength, 2},
    };
    for (const auto& Case : Cases) {
        std::vector<UINT8> Input(Case.Size);
        for (std::size_t Index = 0; Index < Case.Size; Index++) {
            Input[Index] = static_cast<UINT8>(Index * 7 + 1);
        }
        EXPECT_EQ(Execute(CxlMbOpClearEventRecords, Input), Case.Code);
        EXPECT_EQ(Function.Device.Secondary()->Commands(), Case.Commands);
        for (std::size_t Index = 0; Case.Commands != 0 && Index < Case.Size; Index++) {
            const std::uint64_t Written = *Sim.Machine().Mmio().Read(SECONDARY + 0x20 + Index / 4 * 4, 4);
            ASSERT_EQ(static_cast<UINT8>(Written >> 8 * (Index % 4)), Input[Index]) << Index;
        }
    }
    EXPECT_NE(Sim.TraceLog().find("CxlMbCmdExecute: ERROR command aborted, InPlLength 0x00000801 > 0x00000800 "
                                  "((UINT32)(1 << CxlMbCap.Field.PayloadSize))\n"),
              std::string::npos);
    EXPECT_EQ(*Sim.Machine().Mmio().Read(SECONDARY + 0x24, 4) >> 24, 0u) << "the last doubleword is filled up";
}

}  // namespace
