// The CXL registers of the machine against what the standard says of them (CXL 3.0,
// sections 8.2.4.16, 8.2.8, 8.2.9.2).
#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

#include "Simulator/Machine/CxlMemoryDevice.h"

namespace Simulator {

namespace {

TEST(CxlRas, TheFirstUnmaskedErrorIsLogged) {
    CxlRasCapability Ras;
    Ras.Write(CXL_RAS_UNCORRECTABLE_MASK, 1 << 3);
    EXPECT_FALSE(Ras.LogUncorrectable(3, {0x33}));
    EXPECT_EQ(Ras.Read(CXL_RAS_HEADER_LOG), 0u) << "a masked error shows in the status only";
    EXPECT_TRUE(Ras.LogUncorrectable(7, {0x77}));
    EXPECT_TRUE(Ras.LogUncorrectable(5, {0x55}));
    EXPECT_EQ(Ras.Read(CXL_RAS_UNCORRECTABLE_STATUS), 0xA8u);
    EXPECT_EQ(Ras.Read(CXL_RAS_CAPABILITIES_AND_CONTROL), 7u);
    EXPECT_EQ(Ras.Read(CXL_RAS_HEADER_LOG), 0x77u);
    Ras.Write(CXL_RAS_UNCORRECTABLE_STATUS, 0x20);
    EXPECT_TRUE(Ras.LogUncorrectable(1, {0x11}));
    EXPECT_EQ(Ras.Read(CXL_RAS_HEADER_LOG), 0x77u) << "until its own bit is cleared";
    Ras.Write(CXL_RAS_UNCORRECTABLE_STATUS, 0x80);
    EXPECT_TRUE(Ras.LogUncorrectable(4, {0x44}));
    EXPECT_EQ(Ras.Read(CXL_RAS_HEADER_LOG), 0x44u);
    EXPECT_EQ(Ras.Read(CXL_RAS_UNCORRECTABLE_STATUS), 0x1Au);
    // Reserved bits of the masks and all of the log are read-only.
    Ras.Write(CXL_RAS_CORRECTABLE_MASK, 0xFFFFFFFF);
    Ras.Write(CXL_RAS_HEADER_LOG, 0x12345678);
    EXPECT_EQ(Ras.Read(CXL_RAS_CORRECTABLE_MASK), 0x7Fu);
    EXPECT_EQ(Ras.Read(CXL_RAS_HEADER_LOG), 0x44u);
}

CXL_EVENT_RECORD Event(unsigned Severity) {
    CXL_EVENT_RECORD Made{};
    Made.Flags[0] = static_cast<UINT8>(Severity);
    return Made;
}

TEST(CxlEvents, AreClearedInTheirOrderOrNotAtAll) {
    CxlEventLog Log(4);
    for (unsigned Index = 0; Index < 3; Index++) {
        EXPECT_EQ(Log.Add(Event(0), Index), Index == 0) << "only the first one is news";
    }
    const struct {
        std::vector<std::uint16_t> Handles;
        std::uint16_t Code;
        std::size_t Left;
    } Cases[] = {
        {{2}, CxlMbInvalidHandle, 3}, {{1, 3}, CxlMbInvalidHandle, 3}, {{1, 2, 3, 4}, CxlMbInvalidHandle, 3},
        {{1, 2}, CxlMbSuccess, 1},    {{}, CxlMbSuccess, 1},           {{3}, CxlMbSuccess, 0},
    };
    for (const auto& Case : Cases) {
        EXPECT_EQ(Log.Clear(0, Case.Handles), Case.Code);
        EXPECT_EQ(Log.Size(), Case.Left);
    }
}

class CxlDevice : public testing::Test {
 protected:
    static constexpr std::uint64_t PRIMARY = 0x200, PAYLOAD = PRIMARY + 0x20;

    static CxlSetting Setting() {
        CxlSetting Made;
        Made.CommandTime = 100;
        Made.BackgroundTime = 5000;
        Made.EventInterrupts = 1;
        return Made;
    }
    // Sends a command and lets it end; its return code.
    std::uint16_t Send(std::uint16_t Opcode, const std::vector<std::uint8_t>& Input) {
        Device.Write(PRIMARY + 8, 8, Opcode | std::uint64_t{Input.size()} << 16);
        for (std::size_t At = 0; At < Input.size(); At += 4) {
            std::uint32_t Word = 0;
            std::memcpy(&Word, Input.data() + At, std::min<std::size_t>(4, Input.size() - At));
            Device.Write(PAYLOAD + At, 4, Word);
        }
        Device.Write(PRIMARY + 4, 4, 1);
        EXPECT_EQ(*Device.Read(PRIMARY + 4, 4), 1u);
        Time += 100;
        EXPECT_EQ(*Device.Read(PRIMARY + 4, 4), 0u);
        return static_cast<std::uint16_t>(*Device.Read(PRIMARY + 0x10, 8) >> 32);
    }

    std::uint64_t Time = 0;
    std::vector<std::pair<unsigned, unsigned>> Signals;
    CxlMemoryDevice Device{Setting(), [this] { return Time; },
                           [this](unsigned Log, unsigned Mode) { Signals.emplace_back(Log, Mode); }};
};

TEST_F(CxlDevice, CommandsAreCheckedByTheirLength) {
    const struct {
        std::uint16_t Opcode;
        std::vector<std::uint8_t> Input;
        std::uint16_t Code;
        std::uint64_t OutputLength;
    } Cases[] = {
        {0x0100, {0}, 0, 0x20},
        {0x0100, {}, 0x16, 0},
        {0x0100, {4}, 0x02, 0},
        {0x0101, {0, 0, 0, 0, 0}, 0x16, 0},
        {0x0101, {0, 0, 1, 0, 0, 0}, 0x16, 0},
        {0x0101, {0, 0, 0, 0, 0, 0}, 0, 0},
        {0x0102, {}, 0, 4},
        {0x0102, {1}, 0x16, 0},
        {0x0103, {0, 1, 2, 3}, 0x02, 0},
        {0x0103, {0, 1, 2, 0x12}, 0, 0},
        {0x0042, {}, 0x03, 0},
    };
    for (const auto& Case : Cases) {
        EXPECT_EQ(Send(Case.Opcode, Case.Input), Case.Code) << std::hex << Case.Opcode << " " << Case.Input.size();
        EXPECT_EQ(*Device.Read(PRIMARY + 8, 8) >> 16, Case.OutputLength) << std::hex << Case.Opcode;
    }
    EXPECT_EQ(Device.Logs().Policy().Settings[3], 0x12);
}

TEST_F(CxlDevice, ABackgroundOperationRunsAlone) {
    const std::vector<std::uint8_t> Input(0x11);
    EXPECT_EQ(Send(0x4304, Input), CxlMbBackgroundCommandStarted);
    EXPECT_EQ(*Device.Read(PRIMARY + 0x10, 8) & 1, 1u);
    EXPECT_EQ(*Device.Read(PRIMARY + 0x18, 8), 0x4304u);
    EXPECT_EQ(Send(0x4304, Input), CxlMbBusy);
    EXPECT_EQ(Send(0x0102, {}), CxlMbSuccess) << "other commands go on";
    Time += 5000;
    EXPECT_EQ(*Device.Read(PRIMARY + 0x10, 8) & 1, 0u);
    EXPECT_EQ(*Device.Read(PRIMARY + 0x18, 8), 0x644304u) << "100 per cent";
}

TEST_F(CxlDevice, AnInterruptTellsOfALogThatWasEmpty) {
    Device.Logs().Add(Event(2), 1);
    Device.Logs().Add(Event(2), 2);
    Device.Logs().Add(Event(3), 3);
    EXPECT_EQ(Signals, (std::vector<std::pair<unsigned, unsigned>>{{2, 1}, {3, 1}}));
    EXPECT_EQ(*Device.Read(0x100, 8), 0xCu);
    ASSERT_EQ(Send(0x0103, {0, 0, 0, 0}), CxlMbSuccess);
    Device.Logs().Add(Event(0), 4);
    EXPECT_EQ(Signals.size(), 2u);
}

}  // namespace

}  // namespace Simulator
