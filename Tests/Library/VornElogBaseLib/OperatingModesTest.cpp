#include "Library/VornElogBaseLib/OperatingModes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Simulator/Simulation.h"

namespace {

TEST(OperatingModes, FollowFromManufacturingModeAndSetup) {
    const struct {
        unsigned Manufacturing;
        const char* Threshold;  // nullptr: the attribute does not exist
        const char* Missing;
        RAS_ERROR_LOGGING_MODE Mode;
        const char* Line;
    } Cases[] = {
        {0, "Enabled", nullptr, RasProductionMode, nullptr},
        {0, "disabled", nullptr, RasProductionMode, nullptr},
        {0, nullptr, nullptr, RasProductionMode, "ERROR Not Found retrieving NVRAM attribute value"},
        {0, "Disabled", nullptr, RasDiagnosticMode, "Memory CECC diagnostic mode detected"},
        {0, "Disabled", "gVornAttributeSmmProtocolGuid", RasProductionMode, "default to RasMemEccThresholdMode"},
        {1, nullptr, nullptr, RasDiagnosticMode, "Manufacturing mode detected"},
        {2, "Enabled", nullptr, RasDiagnosticMode, "Manufacturing mode detected"},
        {3, "Enabled", nullptr, RasProductionMode, "ERROR MfgModeType 3 unrecognized, default to mfg mode disabled"},
        {1, "Enabled", "gVornManufacturingModeProtocolGuid", RasProductionMode,
         "locating protocol gVornManufacturingModeProtocolGuid"},
    };
    for (const auto& Case : Cases) {
        Simulator::Configuration Settings;
        Settings.ManufacturingMode = Case.Manufacturing;
        if (Case.Threshold != nullptr) {
            Settings.Attributes["CorErrLoggingThreshold"] = Case.Threshold;
        }
        if (Case.Missing != nullptr) {
            Settings.Missing = {Case.Missing};
        }
        Simulator::Simulation Machine(Settings);
        ASSERT_EQ(Machine.Boot(), EFI_SUCCESS);
        EXPECT_EQ(VornGetRasErrorLoggingMode(DEBUG_INFO), Case.Mode) << Case.Manufacturing;
        if (Case.Line != nullptr) {
            EXPECT_THAT(Machine.TraceLog(), testing::HasSubstr(Case.Line));
        }
    }
}

TEST(OperatingModes, LevelsAreInformationalAndGoToNoNullPointer) {
    Simulator::Simulation Machine({});
    ASSERT_EQ(Machine.Boot(), EFI_SUCCESS);
    UINT32 Mode = 0;
    UINT64 Levels[3] = {};
    EXPECT_EQ(VornElogGetOperatingModeData(&Mode, &Levels[0], &Levels[1], &Levels[2]), EFI_SUCCESS);
    EXPECT_EQ(Mode, 1u);
    EXPECT_THAT(Levels, testing::Each(0x40));

    for (int Null = 0; Null < 4; Null++) {
        UINT64 Kept[3] = {7, 7, 7};
        UINT32 KeptMode = 7;
        UINT64* Pointers[3] = {&Kept[0], &Kept[1], &Kept[2]};
        if (Null < 3) {
            Pointers[Null] = nullptr;
            VornElogGetSerialDebugLevels(Pointers[0], Pointers[1], Pointers[2]);
            VornElogCxlChipsetHooksLibGetSerialDebugLevels(Pointers[0], Pointers[1], Pointers[2]);
        }
        EXPECT_EQ(
            VornElogGetOperatingModeData(Null == 3 ? nullptr : &KeptMode, Pointers[0], Pointers[1], Pointers[2]),
            EFI_INVALID_PARAMETER);
        EXPECT_EQ(KeptMode, 7u);
        if (Null < 3) {
            EXPECT_THAT(Kept, testing::Each(7));
        }
    }
}

}  // namespace
